// Hands events over to the log service, which has the event database open.
#pragma once

#include <chrono>

#include "platform/standalone/store/event_letter.h"

namespace standalone {

/// What became of an event that was handed over.
enum class Handover {
    stored,      ///< it is on disk
    left_out,    ///< its minute is full
    not_taken,   ///< nobody has it
    unanswered,  ///< the service has it, or had it: whether it is stored is not known
};

/// Hands an event to the log service of this state folder and waits until it is on disk. When this
/// returns `unanswered`, the service stores the event no more, unless it holds the event database
/// just now: whoever holds that next finds the event, or has to store it.
/// @param longest how long to wait for the service to take it, and then to answer
Handover hand_over(const NewEvent& letter, std::chrono::milliseconds longest);

}  // namespace standalone
