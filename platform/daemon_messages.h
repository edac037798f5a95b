// What the backup daemon and those who send it messages must agree on; docs/formats.md has the
// whole messages.
#pragma once

// The reason that every notice gives: recording backup, settings or orders have changed.
inline constexpr int NOTICE_TYPE = 1030;
inline constexpr int NOTICE_ACTION = 1;

// Values of a query's parameter "act".
inline constexpr char WAITING_QUERY[] = "get_waitingTask_seq";
inline constexpr char RUNNING_QUERY[] = "get_runningTask_info";

/// The last position of the waiting sequence that the task list shows. It refuses a sequence with a
/// position beyond the next one, so the daemon tells of no more.
inline constexpr int LAST_SHOWN_POSITION = 10;
