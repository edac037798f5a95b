// What is wrong with a command line, in words.
#include "tools/recorderctl/misuse.h"

#include <CLI/CLI.hpp>

namespace recorderctl {

namespace {

/// The group or command that the words lead to.
const CLI::App* last_known(const CLI::App* app) {
    for (;;) {
        const auto below = app->get_subcommands();
        if (below.empty()) return app;
        app = below.front();
    }
}

}  // namespace

std::string misuse(const CLI::App& app, const CLI::ParseError& error) {
    // The parser misses a command before it finds a word that it does not know.
    const std::vector<std::string> unknown = app.remaining(true);
    if (error.get_name() != "RequiredError" || unknown.empty()) return error.what();
    const std::string word = '"' + unknown.front() + '"';
    if (unknown.front().starts_with('-')) return "unknown option " + word;
    const bool is_group = !last_known(&app)->get_subcommands({}).empty();
    return is_group ? "unknown command " + word : error.what();
}

}  // namespace recorderctl
