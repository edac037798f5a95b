// recorderctl session: opens, closes and lists sessions.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "platform/standalone/store/session_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

constexpr long long DEFAULT_MINUTES = 60;
constexpr long long MOST_MINUTES = 366LL * 24 * 60;

void open_session(const std::string& user, long long minutes) {
    standalone::Database database = open_registry();
    if (!standalone::UserStore(database).exists(user)) throw Failure("there is no user " + user);
    std::cout << standalone::SessionStore(database).open(user, minutes) << '\n';
}

void close_session(const std::string& sid) {
    standalone::Database database = open_registry();
    if (!standalone::SessionStore(database).close(sid)) throw Failure("there is no such session");
    std::cout << "closed\n";
}

std::string opened_text(const standalone::Session& session) {
    return session.opened_ms ? local_time(*session.opened_ms) : "?";
}

void list_sessions(bool json) {
    standalone::Database database = open_registry();
    for (const standalone::Session& session : standalone::SessionStore(database).list()) {
        if (!json) {
            print_row({session.user, opened_text(session), local_time(session.expires_ms)});
            continue;
        }
        JsonLine line;
        line.add("user", session.user);
        if (session.opened_ms) line.add("opened", *session.opened_ms);
        line.add("expires", session.expires_ms).print();
    }
}

}  // namespace

void add_session_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("session", "Sessions of users");
    group->require_subcommand(1);
    const auto name = std::make_shared<std::string>();
    const auto minutes = std::make_shared<long long>(DEFAULT_MINUTES);
    CLI::App* open = group->add_subcommand("open", "Open a session and print its SID");
    open->add_option("NAME", *name, "Name of the account")->required();
    open->add_option("--minutes", *minutes, "Minutes until it expires")
        ->check(CLI::Range(1LL, MOST_MINUTES))
        ->capture_default_str();
    open->callback([name, minutes] { open_session(*name, *minutes); });

    const auto sid = std::make_shared<std::string>();
    CLI::App* close = group->add_subcommand("close", "Close a session");
    close->add_option("SID", *sid, "As session open printed it")->required();
    close->callback([sid] { close_session(*sid); });

    const auto json = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand(
        "list", "List the open sessions: user, since when, until when; never a SID");
    list->add_flag("--json", *json, "One JSON object a line; times in milliseconds");
    list->callback([json] { list_sessions(*json); });
}

}  // namespace recorderctl
