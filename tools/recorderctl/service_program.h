// Runs a service's program for one answer, with the rights that the service has.
#pragma once

#include <string>
#include <vector>

namespace recorderctl {

/// What the program prints. It is looked for beside this one, and where it is installed then.
/// @throws Failure when there is no such program, or with what it says when it fails
std::string output_of_service(const std::string& program,
                              const std::vector<std::string>& arguments);

}  // namespace recorderctl
