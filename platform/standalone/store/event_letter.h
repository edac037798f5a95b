// An event on its way to the log service: docs/formats.md, "Event letters".
#pragma once

#include <optional>
#include <string>

#include "platform/standalone/store/event_store.h"

namespace standalone {

/// A longer one is not sent: whoever wrote it stores the event itself.
inline constexpr std::size_t LONGEST_LETTER = std::size_t{64} * 1024;

/// What the service answers when the event is on disk, and when its minute is full.
inline constexpr char LETTER_STORED[] = "stored";
inline constexpr char LETTER_LEFT_OUT[] = "left out";

/// The event as JSON.
std::string print_letter(const NewEvent& letter);

/// @return nothing when the text is anything but a letter
std::optional<NewEvent> read_letter(const std::string& text);

}  // namespace standalone
