// recorderctl alert: how alerts get out of the recorder.
#include <CLI/CLI.hpp>
#include <iostream>
#include <map>
#include <memory>

#include "platform/standalone/store/key_value_store.h"
#include "platform/standalone/store/setting_values.h"
#include "platform/standalone/store/utf8.h"
#include "tools/recorderctl/alert_list.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/password_input.h"
#include "tools/recorderctl/service_program.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

const std::map<std::string, std::string> SECRETS = {{"mail", "mail_password"},
                                                    {"web_hook", "web_hook_secret"}};

void set_secret(const std::string& way) {
    standalone::Database database = open_registry();
    const std::string secret = read_password();
    if (!standalone::is_setting_value(SettingKind::secret, secret))
        throw Failure("a secret is a line of UTF-8 without control characters");
    standalone::KeyValueStore(database).set("alert", SECRETS.at(way), secret);
    print_line(way);
}

void add_password_command(CLI::App& group) {
    const auto way = std::make_shared<std::string>();
    CLI::App* command = group.add_subcommand(
        "password",
        "Set the mail server's password, or what web hooks are signed with, from "
        "standard input");
    command->add_option("WAY", *way, "mail or web_hook")
        ->required()
        ->check(CLI::IsMember({"mail", "web_hook"}));
    command->callback([way] { set_secret(*way); });
}

/// The daemon's program prints a row for each receiver: way, mail address, "arrived" or "failed",
/// and words.
void test(const std::string& way) {
    const std::string rows = output_of_service("recording-backupd", {"--alert-test", way});
    std::cout << standalone::valid_utf8(rows);
    if (rows.find("\tfailed\t") != std::string::npos)
        throw Failure("the test alert has not arrived everywhere");
}

void add_test_command(CLI::App& group) {
    const auto way = std::make_shared<std::string>("all");
    CLI::App* command = group.add_subcommand(
        "test",
        "Send a test alert now, and tell for each receiver that is configured what came of it");
    command->add_option("WAY", *way, "That one alone: mail or web_hook")
        ->check(CLI::IsMember({"mail", "web_hook"}));
    command->callback([way] { test(*way); });
}

void add_list_command(CLI::App& group) {
    const auto json = std::make_shared<bool>(false);
    CLI::App* command = group.add_subcommand(
        "list", "List what must be looked after, and the alerts that have not arrived");
    command->add_flag("--json", *json, "One JSON object a line; times in seconds since the epoch");
    command->callback([json] { list_alerts(*json); });
}

}  // namespace

void add_alert_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("alert", "How alerts get out of the recorder");
    group->require_subcommand(1);
    add_list_command(*group);
    add_test_command(*group);
    add_password_command(*group);
}

}  // namespace recorderctl
