// Work for the time in which a service answers.
#pragma once

#include <functional>

namespace standalone {

/// Has this thread do `work` when it next waits for a service's answer: something that it needs
/// right after that, and that waits for nobody itself. Another one takes its place; without a
/// question to a service it is not done. What it throws is passed over: whoever needs what it
/// prepares tries again, and finds out.
void prepare_meanwhile(std::function<void()> work);

/// Does the work there is, once.
void do_meanwhile();

}  // namespace standalone
