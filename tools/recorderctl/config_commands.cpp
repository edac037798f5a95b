// recorderctl config: single keys of the configuration store.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "platform/standalone/store/key_value_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

struct Key {
    std::string section;
    std::string key;
    std::string value;
};

[[noreturn]] void fail_unknown(const Key& key) {
    throw Failure("there is no key " + key.key + " in section " + key.section);
}

void get_key(const Key& key) {
    standalone::Database database = open_registry();
    const auto value = standalone::KeyValueStore(database).get(key.section, key.key);
    if (!value) fail_unknown(key);
    print_line(*value);
}

void set_key(const Key& key) {
    standalone::Database database = open_registry();
    standalone::KeyValueStore(database).set(key.section, key.key, key.value);
    print_line(key.value);
}

void unset_key(const Key& key) {
    standalone::Database database = open_registry();
    if (!standalone::KeyValueStore(database).unset(key.section, key.key)) fail_unknown(key);
    std::cout << "unset\n";
}

CLI::App* add_command(CLI::App& group, const char* name, const char* help, Key& key) {
    CLI::App* command = group.add_subcommand(name, help);
    command->add_option("SECTION", key.section, "For example fuse")->required();
    command->add_option("KEY", key.key, "For example fuse_enabled")->required();
    return command;
}

}  // namespace

void add_config_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("config", "Single keys of the configuration");
    group->require_subcommand(1);
    const auto key = std::make_shared<Key>();
    add_command(*group, "get", "Print a value", *key)->callback([key] { get_key(*key); });
    CLI::App* set = add_command(*group, "set", "Set a value", *key);
    set->add_option("VALUE", key->value, "The new value")->required();
    set->callback([key] { set_key(*key); });
    add_command(*group, "unset", "Remove a key", *key)->callback([key] { unset_key(*key); });
}

}  // namespace recorderctl
