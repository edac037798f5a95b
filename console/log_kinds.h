// The kinds of events by which the page filters the log.
#pragma once

#include <string_view>

namespace console {

/// "changes" of tasks, "requests" to start or stop them, "runs", "failures", "sign_ins"; "others"
/// for identifiers that have no words.
std::string_view kind_of(unsigned event_id);

/// Whether kind_of() ever gives it.
bool is_kind(std::string_view word);

}  // namespace console
