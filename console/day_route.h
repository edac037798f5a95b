// GET channel/<guid>/days: what a camera has of each day, and which tasks have copied it.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// The days of parameter "month" ("2026-11") that have recordings or copies.
/// @throws Refusal 404 for an unknown camera, 503 when its folder cannot be read
Reply get_days(const Request& request);

}  // namespace console
