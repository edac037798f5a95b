// recorderctl user: the recorder's accounts.
#include <CLI/CLI.hpp>
#include <limits>
#include <memory>

#include "platform/standalone/store/user_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/password_input.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

constexpr long long HIGHEST_LEVEL = std::numeric_limits<unsigned>::max();

using standalone::User;
using standalone::UserStore;

void add_user(const User& user) {
    if (!UserStore::valid_name(user.name))
        throw Failure("a user name has 1 to 1023 bytes and no control characters");
    standalone::Database database = open_registry();
    if (!UserStore(database).add(user, read_account_password()))
        throw Failure("there is a user " + user.name + " already");
    print_line(user.name);
}

void change_password(const std::string& name) {
    standalone::Database database = open_registry();
    UserStore users(database);
    if (!users.exists(name) || !users.set_password(name, read_account_password()))
        throw Failure("there is no user " + name);
    print_line(name);
}

void list_users(bool json) {
    standalone::Database database = open_registry();
    for (const User& user : UserStore(database).list()) {
        if (json)
            JsonLine()
                .add("name", user.name)
                .add("level", static_cast<long long>(user.level))
                .print();
        else
            print_row({user.name, std::to_string(user.level)});
    }
}

void remove_user(const std::string& name) {
    standalone::Database database = open_registry();
    if (!UserStore(database).remove(name)) throw Failure("there is no user " + name);
    print_line(name);
}

}  // namespace

void add_user_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("user", "Accounts that may open sessions");
    group->require_subcommand(1);
    const auto user = std::make_shared<User>();
    CLI::App* add = group->add_subcommand(
        "add", "Add a user; the password, ten characters or more, comes on standard input");
    add->add_option("NAME", user->name, "Name of the account")->required();
    add->add_option("--level", user->level, "Level; 11 is an administrator")
        ->check(CLI::Range(0LL, HIGHEST_LEVEL))
        ->capture_default_str();
    add->callback([user] { add_user(*user); });

    CLI::App* password = group->add_subcommand(
        "password", "Give a user another password, from standard input; the user's sessions end");
    password->add_option("NAME", user->name, "Name of the account")->required();
    password->callback([user] { change_password(user->name); });

    const auto json = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand("list", "List the users and their levels");
    list->add_flag("--json", *json, "One JSON object a line");
    list->callback([json] { list_users(*json); });

    CLI::App* remove = group->add_subcommand("remove", "Remove a user and the user's sessions");
    remove->add_option("NAME", user->name, "Name of the account")->required();
    remove->callback([user] { remove_user(user->name); });
}

}  // namespace recorderctl
