// Whether a server's name is known.
#pragma once

#include <string>

namespace services {

/// Looks a name or address up as the system does.
/// @return getaddrinfo(3)'s code: 0 when it is known
int look_up(const std::string& server);

}  // namespace services
