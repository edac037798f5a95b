// Answers that the registry has given, kept beside it for whoever asks the same.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace standalone {

/// What a question is about. Answers of one kind take no place of the other's.
enum class Question { session, key };

/// The answer to a question by the registry as it is now: the one that was kept, where the registry
/// has not been written to since, or else what `ask` reads, which is kept then. Most requests ask
/// whose a session is and nothing more; SQLite would parse the registry's whole schema for each.
///
/// What is kept lies in `registry.answers` (docs/formats.md), which may be missing or damaged at
/// any time, and not be writable: then the registry is asked. Any number of processes and threads
/// may ask.
/// @param kind     what the question is about
/// @param question another text than any other question of its kind
/// @param ask      reads the registry over registry_for_reading() and opens no transaction there,
///                 as it is called within one; so the caller has none open either. What it throws
///                 is thrown on
/// @return nothing when `ask` has none, which is not kept: whoever asks for what is not there
///         takes nobody's place
std::optional<std::string> registry_answer(Question kind, const std::string& question,
                                           const std::function<std::optional<std::string>()>& ask);

}  // namespace standalone
