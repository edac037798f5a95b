// The recorder's clock as a test sets it, for what happens at a moment.
#pragma once

/// Milliseconds that current_time_stamp() gives in place of the time, and std::time() in seconds;
/// 0: the time.
extern unsigned long long set_clock;
