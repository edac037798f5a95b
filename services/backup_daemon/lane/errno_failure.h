// How a system call that fails is reported.
#pragma once

#include <cerrno>
#include <system_error>

namespace services {

/// @param what the call
/// @throws std::system_error with errno's words
[[noreturn]] inline void fail_with_errno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

}  // namespace services
