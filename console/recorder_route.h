// GET recorder: the recorder itself, its cameras, and what needs attention.
#pragma once

#include "console/reply.h"
#include "console/request.h"

namespace console {

Reply get_recorder(const Request& request);

}  // namespace console
