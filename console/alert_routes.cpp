// How alerts get out of the recorder: their settings, and those that have not arrived.
#include "console/alert_routes.h"

#include "console/session_routes.h"
#include "platform/event_ids.h"
#include "platform/known_settings.h"
#include "platform/recorder_log.h"
#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/setting_values.h"
#include "platform/standalone/store/undelivered_alerts.h"

namespace console {

namespace {

constexpr char SECTION[] = "alert";
constexpr std::size_t LONGEST_TEXT = MAX_BODY_BYTES;

struct Change {
    const KnownSetting* setting = nullptr;
    std::optional<std::string> value;  ///< nothing: unset
};

bool is_secret(const KnownSetting& setting) {
    return setting.kind == SettingKind::secret;
}

bool is_of_the_machine(const KnownSetting& setting) {
    return setting.kind == SettingKind::file || setting.kind == SettingKind::program;
}

Json setting_of(const KnownSetting& setting) {
    const auto stored = standalone::config_keys().get(SECTION, setting.key);
    std::optional<std::string> shown;
    if (!is_secret(setting)) shown = stored;
    Json object = Json::object();
    object.add("key", setting.key);
    object.add("value", shown);
    object.add("set", stored.has_value());
    object.add("valid", !stored || standalone::is_setting_value(setting.kind, *stored));
    object.add("default", setting.text_otherwise);
    object.add("changeable", !is_of_the_machine(setting));
    object.add("meaning", setting.meaning);
    return object;
}

Json settings() {
    Json array = Json::array();
    for (const KnownSetting& setting : KNOWN_SETTINGS)
        if (setting.section == SECTION) array.append(setting_of(setting));
    return array;
}

Json waiting(standalone::Database& memory) {
    Json array = Json::array();
    for (const standalone::UndeliveredAlert& alert : standalone::undelivered_alerts(memory)) {
        Json object = Json::object();
        object.add("id", alert.id);
        object.add("way", way_text(alert.way));
        object.add("recipient", alert.recipient);
        object.add("subject", alert.subject);
        object.add("made", alert.made);
        object.add("attempts", alert.attempts);
        object.add("next_attempt", alert.next_attempt);
        object.add("last_failure", alert.last_failure);
        array.append(object);
    }
    return array;
}

Json given_up(standalone::Database& memory) {
    Json array = Json::array();
    for (const auto& [way, recipient, time, why] : standalone::given_up_receivers(memory)) {
        Json object = Json::object();
        object.add("way", way_text(way));
        object.add("recipient", recipient);
        object.add("time", time);
        object.add("why", why);
        array.append(object);
    }
    return array;
}

void require_value(const KnownSetting& setting, const std::string& text) {
    if (standalone::is_setting_value(setting.kind, text)) return;
    const std::string key(setting.key);
    if (is_secret(setting))
        throw bad_field(key, "This has to be one line, without control characters.");
    throw bad_field(key, "This has to be " + standalone::values_of(setting) + '.');
}

Change change_in(const Body& body, const std::string& key) {
    const KnownSetting* setting = find_setting(SECTION, key);
    if (setting == nullptr) throw bad_field(key, "There is no such setting of alerts.");
    if (is_of_the_machine(*setting))
        throw bad_field(
            key, "This is set on the recorder itself: recorderctl config set alert " + key + '.');
    Change change{.setting = setting, .value = {}};
    if (body.is_null(key.c_str())) return change;
    change.value = body.text(key.c_str(), LONGEST_TEXT);
    require_value(*setting, *change.value);
    return change;
}

void store(const std::vector<Change>& changes) {
    standalone::Database& registry = standalone::registry_for_writing();
    standalone::KeyValueStore keys(registry);
    standalone::Transaction transaction(registry);
    for (const Change& change : changes) {
        if (change.value)
            keys.set(SECTION, change.setting->key, *change.value);
        else
            keys.unset(SECTION, change.setting->key);
    }
    transaction.commit();
}

/// Which settings, and never to what: values may be secrets.
void tell(const Request& request, const std::vector<Change>& changes) {
    std::string keys;
    for (const Change& change : changes)
        keys.append(keys.empty() ? "" : ", ").append(change.setting->key);
    if (keys.empty()) return;
    const std::string user = require_administrator(request).user.name;
    send_surveillance_setting_log_with_username(events::ALERTS_CHANGED, -1, request.address.c_str(),
                                                user.c_str(), events::APPLICATION, "", keys.c_str(),
                                                nullptr);
}

Reply alerts_reply(standalone::Database& memory) {
    Json object = Json::object();
    object.add("settings", settings());
    object.add("waiting", waiting(memory));
    object.add("given_up", given_up(memory));
    return json_reply(object);
}

}  // namespace

Reply get_alerts(const Request&) {
    standalone::Database memory = standalone::open_backup_memory();
    return alerts_reply(memory);
}

Reply change_alerts(const Request& request) {
    const Body body(request.body);
    std::vector<Change> changes;
    for (const std::string& key : body.names()) changes.push_back(change_in(body, key));
    // Opened first: a reply that cannot be given changes nothing.
    standalone::Database memory = standalone::open_backup_memory();
    store(changes);
    tell(request, changes);
    return alerts_reply(memory);
}

}  // namespace console
