// The routes: what answers which method and path.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

/// Finds the request's route, checks its session where the route asks for one, reads its body and
/// answers it.
/// @throws Refusal, or another std::exception when the recorder's state cannot be read
Reply answer(Request& request);

}  // namespace console
