// Cuts what there is to tell of the backups to a terminal's window, with the worst of it on top.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/recorderctl/status_output.h"

namespace recorderctl {

/// Places of a window for characters.
struct WindowSize {
    std::size_t rows = 0;
    std::size_t columns = 0;
};

/// The window of standard output; nothing when that is no terminal, or does not tell.
std::optional<WindowSize> window_size();

/// The lines that fit: headline, what is wrong, and of the tasks those first that have problems,
/// wait or run. Where some are left out, a line says how many, and whether all is well with them.
std::vector<std::string> fitted(const StatusText& text, const WindowSize& window);

}  // namespace recorderctl
