// recorderctl config: the settings, and single keys of the configuration store.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>

#include "platform/known_settings.h"
#include "platform/standalone/store/key_value_store.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/setting_words.h"
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
    const KnownSetting* setting = find_setting(key.section, key.key);
    if (!value && setting != nullptr)
        throw Failure(key.section + ' ' + key.key + " is not set; " +
                      std::to_string(setting->otherwise) + " counts");
    if (!value) fail_unknown(key);
    print_line(*value);
}

void require_setting(const Key& key) {
    const KnownSetting* setting = find_setting(key.section, key.key);
    if (setting == nullptr)
        throw Failure("nothing reads " + key.section + ' ' + key.key + "; did you mean " +
                      nearest_settings(key.section, key.key) +
                      "? config list shows all settings, --force stores any text");
    if (!takes(*setting, key.value))
        throw Failure(key.section + ' ' + key.key + " is " + values_of(*setting) + ", not \"" +
                      key.value + "\"; --force stores any text");
}

void set_key(const Key& key, bool force) {
    standalone::Database database = open_registry();
    if (!force) require_setting(key);
    standalone::KeyValueStore(database).set(key.section, key.key, key.value);
    print_line(key.value);
}

void unset_key(const Key& key) {
    standalone::Database database = open_registry();
    if (!standalone::KeyValueStore(database).unset(key.section, key.key)) fail_unknown(key);
    std::cout << "unset\n";
}

void print_json(const KnownSetting& setting, const std::optional<std::string>& value) {
    JsonLine line;
    line.add("section", std::string(setting.section)).add("key", std::string(setting.key));
    line.add("kind", std::string(setting.kind == SettingKind::on_off ? "switch" : "number"));
    line.add("least", setting.least).add("most", setting.most).add("default", setting.otherwise);
    if (value) line.add("value", *value).add("valid", takes(setting, *value));
    line.add("meaning", std::string(setting.meaning)).print();
}

std::string value_text(const KnownSetting& setting, const std::optional<std::string>& value) {
    if (!value) return "not set";
    return takes(setting, *value) ? *value : '"' + *value + "\" is not valid";
}

void print_text(const KnownSetting& setting, const std::optional<std::string>& value) {
    print_row({std::string(setting.section), std::string(setting.key), values_of(setting),
               "default " + std::to_string(setting.otherwise), value_text(setting, value),
               std::string(setting.meaning)});
}

void list_settings(bool json) {
    standalone::Database database = open_registry();
    standalone::KeyValueStore store(database);
    for (const KnownSetting& setting : KNOWN_SETTINGS) {
        const auto value = store.get(setting.section, setting.key);
        if (json)
            print_json(setting, value);
        else
            print_text(setting, value);
    }
}

CLI::App* add_command(CLI::App& group, const char* name, const char* help, Key& key) {
    CLI::App* command = group.add_subcommand(name, help);
    command->add_option("SECTION", key.section, "For example fuse")->required();
    command->add_option("KEY", key.key, "For example fuse_enabled")->required();
    return command;
}

}  // namespace

void add_config_commands(CLI::App& app) {
    CLI::App* group = app.add_subcommand("config", "Settings");
    group->require_subcommand(1);
    const auto key = std::make_shared<Key>();
    add_command(*group, "get", "Print a value", *key)->callback([key] { get_key(*key); });
    CLI::App* set = add_command(*group, "set", "Set a value", *key);
    const auto force = std::make_shared<bool>(false);
    set->add_flag("--force", *force, "For support: any text under any key");
    set->add_option("VALUE", key->value, "The new value")->required();
    set->callback([key, force] { set_key(*key, *force); });
    add_command(*group, "unset", "Remove a key", *key)->callback([key] { unset_key(*key); });

    const auto json = std::make_shared<bool>(false);
    CLI::App* list = group->add_subcommand(
        "list", "List the settings: their values, the default, what is set, what it means");
    list->add_flag("--json", *json, "One JSON object a line");
    list->callback([json] { list_settings(*json); });
}

}  // namespace recorderctl
