// Runs a program without a shell, with a time limit, its output pumped into files of limited size.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace standalone {

/// What to run. The rules of zorv_exec (platform/utilities.h) hold. The files stay the caller's.
struct Program {
    const char* stdout_path = nullptr;
    const char* stderr_path = nullptr;
    int input = -1;   ///< an open file that becomes its standard input; -1: it gets nothing to read
    int output = -1;  ///< an open file that gets both outputs; -1: they go to the paths
    std::vector<const char*> arguments{};  ///< the program's path first, no null at the end
    std::chrono::milliseconds limit{};
};

/// @return as zorv_exec
int run_program(const Program& program);

}  // namespace standalone
