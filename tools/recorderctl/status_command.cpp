// recorderctl status: are the recordings safe? For people, and as a check of a monitoring system.
#include <CLI/CLI.hpp>
#include <chrono>
#include <iostream>
#include <memory>
#include <optional>
#include <thread>

#include "platform/service_addresses.h"
#include "platform/standalone/store/complain.h"
#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/status_reading.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state.h"
#include "tools/recorderctl/status_output.h"
#include "tools/recorderctl/status_screen.h"

namespace recorderctl {

namespace {

constexpr std::chrono::seconds REDRAWING(2);

// Of a terminal: to the first line, and nothing below.
constexpr char CLEARED[] = "\x1B[H\x1B[2J";

struct StatusOptions {
    bool json = false;
    bool watch = false;
};

void print_lines(const std::vector<std::string>& lines) {
    for (const std::string& line : lines) print_line(line);
}

standalone::BackupStatus status_now() {
    standalone::Database config = open_config();
    const bool answers = standalone::backup_daemon_answers(ANSWER_SECONDS);
    return standalone::backup_status(config, [answers] { return answers; });
}

/// @return whether something needs attention
bool print_once(bool json) {
    const standalone::BackupStatus status = status_now();
    if (json)
        print_status_json(status);
    else
        print_lines(lines_of(status_text(status)));
    flush_output();
    return status.needs_attention();
}

std::vector<std::string> lines_now(const std::optional<WindowSize>& window) {
    try {
        const StatusText text = status_text(status_now());
        return window ? fitted(text, *window) : lines_of(text);
    } catch (const std::exception& error) {
        return {"ATTENTION: " + standalone::one_line(error.what())};
    }
}

void redraw() {
    const auto window = window_size();
    const auto lines = lines_now(window);
    if (window) std::cout << CLEARED;
    print_lines(lines);
    if (!window) print_line("");
}

void print_json_again() {
    try {
        print_status_json(status_now());
    } catch (const std::exception& error) {
        standalone::complain("recorderctl", error.what());
    }
}

/// Who has no state to tell of hears that at once. Later on, what cannot be read may pass.
[[noreturn]] void watch(bool json) {
    status_now();
    for (;;) {
        if (json)
            print_json_again();
        else
            redraw();
        flush_output();
        std::this_thread::sleep_for(REDRAWING);
    }
}

void tell_status(const StatusOptions& options) {
    if (options.watch) watch(options.json);
    if (print_once(options.json)) throw Failure("the backups need attention");
}

}  // namespace

void add_status_command(CLI::App& app) {
    const auto options = std::make_shared<StatusOptions>();
    CLI::App* status = app.add_subcommand(
        "status",
        "Tell whether the recordings are safe; the exit status is 1 when they may not be");
    status->add_flag("--json", options->json, "One JSON object; times in seconds since the epoch");
    status->add_flag("--watch", options->watch, "Tell it again every two seconds, until stopped");
    status->callback([options] { tell_status(*options); });
}

}  // namespace recorderctl
