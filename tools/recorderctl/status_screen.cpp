// Cuts what there is to tell of the backups to a terminal's window, with the worst of it on top.
#include "tools/recorderctl/status_screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

namespace recorderctl {

namespace {

using Lines = std::vector<std::string>;

/// Of UTF-8. Who writes characters that take two places finds the line's end in the next one.
std::string cut(const std::string& line, std::size_t columns) {
    std::size_t places = 0;
    for (std::size_t byte = 0; byte < line.size(); ++byte) {
        const bool is_first = (static_cast<unsigned char>(line[byte]) & 0xC0) != 0x80;
        if (is_first && ++places > columns) return line.substr(0, byte);
    }
    return line;
}

void add(Lines& lines, const Lines& more) {
    lines.insert(lines.end(), more.begin(), more.end());
}

/// @param room 1 at least
Lines fitted_words(Lines words, std::size_t room) {
    if (words.size() <= room) return words;
    const std::size_t left_out = words.size() - room + 1;
    words.resize(room - 1);
    words.push_back("  and " + std::to_string(left_out) + " more: recorderctl status tells them");
    return words;
}

Lines fitted_tasks(std::vector<TaskText> tasks, std::size_t room) {
    std::ranges::stable_sort(tasks, {}, &TaskText::urgency);
    Lines lines;
    for (auto task = tasks.begin(); task != tasks.end(); ++task) {
        const bool is_last = task + 1 == tasks.end();
        if (lines.size() + task->lines.size() + (is_last ? 0 : 1) <= room) {
            add(lines, task->lines);
            continue;
        }
        const bool all_well = task->urgency == Urgency::well;
        lines.push_back("and " + std::to_string(tasks.end() - task) + " more" +
                        (all_well ? ", all well" : ""));
        break;
    }
    return lines;
}

}  // namespace

std::optional<WindowSize> window_size() {
    winsize size{};
    if (isatty(STDOUT_FILENO) == 0 || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return {};
    if (size.ws_row == 0 || size.ws_col == 0) return {};
    return WindowSize{size.ws_row, size.ws_col};
}

std::vector<std::string> fitted(const StatusText& text, const WindowSize& window) {
    // Headline, head of the table, last line, two empty ones, and the line that the cursor is in.
    constexpr std::size_t FRAME = 6;
    const std::size_t room = window.rows > FRAME ? window.rows - FRAME : 0;
    Lines lines = {text.headline};
    const Lines words = fitted_words(text.words, std::max<std::size_t>(room / 2, 1));
    add(lines, words);
    add(lines, {"", text.table_head});
    add(lines, fitted_tasks(text.tasks, room - std::min(room, words.size())));
    add(lines, {"", text.last_line});
    lines.resize(std::min(lines.size(), window.rows - 1));
    for (std::string& line : lines) line = cut(line, window.columns);
    return lines;
}

}  // namespace recorderctl
