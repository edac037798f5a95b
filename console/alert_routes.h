// How alerts get out of the recorder: their settings, and those that have not arrived.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// GET alerts. Of secrets it tells no more than whether they are set.
Reply get_alerts(const Request& request);

/// PATCH alerts: each member of the body is a setting that gets this text, or is unset by null; all
/// of them or none. Which texts are taken is what `recorderctl config set` says. Files and programs
/// of the recorder's machine are named there and nowhere else: who may administer backups need not
/// have the recorder run a program of their choice, nor send a file to a server of theirs.
/// Answers as get_alerts(), and stores nothing where that could not be answered. An event tells who
/// has changed which settings, and not to what.
/// @throws Refusal 400 "bad_field" with the setting's key
Reply change_alerts(const Request& request);

}  // namespace console
