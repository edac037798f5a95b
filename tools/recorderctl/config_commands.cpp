// recorderctl config: the settings, and single keys of the configuration store.
#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>

#include "platform/known_settings.h"
#include "platform/standalone/store/key_value_store.h"
#include "platform/standalone/store/setting_values.h"
#include "platform/standalone/store/utf8.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/setting_words.h"
#include "tools/recorderctl/state.h"

namespace recorderctl {

namespace {

constexpr std::size_t MOST_SHOWN = 80;  // bytes

struct Key {
    std::string section;
    std::string key;
    std::string value;
};

bool is_secret(const KnownSetting* setting) {
    return setting != nullptr && setting->kind == SettingKind::secret;
}

/// A value as it may be shown.
std::string shown(const KnownSetting* setting, const std::string& value) {
    return is_secret(setting) ? "(set)" : value;
}

[[noreturn]] void fail_unknown(const Key& key) {
    throw Failure("there is no key " + key.key + " in section " + key.section);
}

void get_key(const Key& key) {
    standalone::Database database = open_registry();
    const auto value = standalone::KeyValueStore(database).get(key.section, key.key);
    const KnownSetting* setting = find_setting(key.section, key.key);
    if (!value && setting == nullptr) fail_unknown(key);
    if (!value) {
        const std::string counts = default_of(*setting);
        throw Failure(key.section + ' ' + key.key + " is not set" +
                      (counts.empty() ? "" : "; " + counts + " counts"));
    }
    print_line(shown(setting, *value));
}

// An argument is seen by whoever lists processes, and kept by the shell.
void refuse_secret(const Key& key) {
    if (is_secret(find_setting(key.section, key.key)))
        throw Failure(key.section + ' ' + key.key +
                      " is a secret and no argument; recorderctl alert password reads it");
}

/// A value that is not taken may be endless, and a web address may have a password in it.
std::string refused_value(const KnownSetting& setting, const std::string& value) {
    if (setting.kind == SettingKind::web_address) return "";
    const std::string_view beginning = standalone::cut_utf8(value, MOST_SHOWN);
    const char* rest = beginning.size() < value.size() ? " ..." : "";
    return ", not \"" + std::string(beginning) + rest + '"';
}

void require_setting(const Key& key) {
    const KnownSetting* setting = find_setting(key.section, key.key);
    if (setting == nullptr)
        throw Failure("nothing reads " + key.section + ' ' + key.key + "; did you mean " +
                      nearest_settings(key.section, key.key) +
                      "? config list shows all settings, --force stores any text");
    if (!takes(*setting, key.value))
        throw Failure(key.section + ' ' + key.key + " is " + standalone::values_of(*setting) +
                      refused_value(*setting, key.value) + "; --force stores any text");
}

void set_key(const Key& key, bool force) {
    standalone::Database database = open_registry();
    refuse_secret(key);
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
    line.add("kind", kind_of(setting)).add("values", standalone::values_of(setting));
    if (kind_of(setting) == "text")
        line.add("default", default_of(setting));
    else
        line.add("least", setting.least)
            .add("most", setting.most)
            .add("default", setting.otherwise);
    if (value) line.add("value", shown(&setting, *value)).add("valid", takes(setting, *value));
    line.add("meaning", std::string(setting.meaning)).print();
}

std::string value_text(const KnownSetting& setting, const std::optional<std::string>& value) {
    if (!value) return "not set";
    const std::string text = shown(&setting, *value);
    return takes(setting, *value) ? text : '"' + text + "\" is not valid";
}

void print_text(const KnownSetting& setting, const std::optional<std::string>& value) {
    const std::string counts = default_of(setting);
    print_row({std::string(setting.section), std::string(setting.key),
               standalone::values_of(setting), counts.empty() ? "no default" : "default " + counts,
               value_text(setting, value), std::string(setting.meaning)});
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
