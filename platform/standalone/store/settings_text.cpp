// Reads a task's settings text: which fields of a record it sets, and to what.
#include "platform/standalone/store/settings_text.h"

#include <algorithm>
#include <iterator>
#include <limits>

#include "platform/nvrcfg.h"
#include "platform/standalone/store/strict_json.h"
#include "platform/utilities.h"

namespace standalone {

namespace {

std::string json_text(json_object* value) {
    return {json_object_get_string(value),
            static_cast<std::size_t>(json_object_get_string_len(value))};
}

/// What the writer leaves is JSON whose escapes have each lost their backslash: the backslashes
/// that still stand there are the values' own. Doubled, they are JSON again.
JsonPtr parse_unescaped_object(const std::string& text) {
    std::string json;
    std::size_t copied = 0;
    for (std::size_t at = 0; (at = text.find('\\', at)) != std::string::npos; ++at) {
        json.append(text, copied, at - copied);
        copied = at;
        json += '\\';
    }
    return parse_strict_object(json.append(text, copied));
}

/// The members of a change of all settings, as the writer orders them. "status" may be absent.
constexpr std::string_view WHOLE_CHANGE[] = {
    "taskName",           "serverIP",     "port",           "username",     "password",
    "destPath",           "scheduleType", "scheduleWeekly", "scheduleHour", "scheduleMin",
    "scheduleEveryHours", "content",      "taskID",         "status",       "enable"};

bool is_whole_change(const std::vector<std::string_view>& names) {
    std::vector<std::string_view> expected(std::begin(WHOLE_CHANGE), std::end(WHOLE_CHANGE));
    if (names.size() < expected.size()) std::erase(expected, "status");
    return names == expected;
}

/// A writer names the task first, or at its place in a change of all settings. Anywhere else the
/// name has come out of a text with quotation marks, and might be another task's.
bool names_its_task_in_place(json_object* object) {
    std::vector<std::string_view> names;
    json_object_object_foreach(object, name, value) {
        static_cast<void>(value);
        names.emplace_back(name);
    }
    const auto task_id = std::ranges::find(names, "taskID");
    return task_id == names.end() || task_id == names.begin() || is_whole_change(names);
}

}  // namespace

std::optional<SettingsText::Value> SettingsText::read_value(const TaskField& field,
                                                            json_object* value) {
    switch (json_object_get_type(value)) {
        case json_type_boolean:
            if (!std::holds_alternative<bool TDataBackupConfig::*>(field.member)) return {};
            return json_object_get_boolean(value) != 0;
        case json_type_int: {
            const long long number = json_object_get_int64(value);
            const bool fits = number >= std::numeric_limits<int>::min() &&
                              number <= std::numeric_limits<int>::max() &&
                              fits_table(field, number);
            if (!fits || !std::holds_alternative<int TDataBackupConfig::*>(field.member)) return {};
            return static_cast<int>(number);
        }
        case json_type_string:
            if (!std::holds_alternative<std::string TDataBackupConfig::*>(field.member)) return {};
            return json_text(value);
        default:
            return {};
    }
}

bool SettingsText::read_members(json_object* object, SettingsPlace place) {
    json_object_object_foreach(object, name, member) {
        if (place == SettingsPlace::outer && read_outer_member(name, member)) continue;
        const TaskField* field = find_task_field(name);
        if (field == nullptr || field->place != place) return false;
        std::optional<Value> value = read_value(*field, member);
        if (!value) return false;
        values_.emplace_back(field, std::move(*value));
    }
    return true;
}

/// The two outer members that are no plain field.
bool SettingsText::read_outer_member(const char* name, json_object* value) {
    if (std::string_view(name) == "content") return read_content(value);
    if (std::string_view(name) != "taskID" || !json_object_is_type(value, json_type_string))
        return false;
    task_id_ = json_text(value);
    return true;
}

bool SettingsText::read_content(json_object* value) {
    std::string inner;
    if (!json_object_is_type(value, json_type_string) ||
        b64_decode_v2(json_text(value), inner) != 0)
        return false;
    const JsonPtr object = parse_unescaped_object(inner);
    return object != nullptr && read_members(object.get(), SettingsPlace::content);
}

int SettingsText::parse(const std::string& text, SettingsText& out) {
    const JsonPtr object = parse_unescaped_object(text);
    if (object == nullptr) return NVRCFG_BAD_TEXT;
    if (!names_its_task_in_place(object.get())) return NVRCFG_BAD_MEMBER;
    SettingsText read;
    if (!read.read_members(object.get(), SettingsPlace::outer)) return NVRCFG_BAD_MEMBER;
    out = std::move(read);
    return 0;
}

bool SettingsText::has(std::string_view field) const {
    return std::ranges::any_of(values_,
                               [field](const auto& set) { return set.first->name == field; });
}

std::vector<const TaskField*> SettingsText::fields() const {
    std::vector<const TaskField*> carried;
    carried.reserve(values_.size());
    for (const auto& [field, value] : values_) carried.push_back(field);
    return carried;
}

void SettingsText::merge_into(TDataBackupConfig& record) const {
    for (const auto& [field, value] : values_)
        std::visit(
            [&record, &value = value](auto member) {
                using Kind = std::remove_reference_t<decltype(record.*member)>;
                // read_value() chose the kind after the field's; no settings field is a float.
                if constexpr (!std::is_same_v<Kind, float>) record.*member = std::get<Kind>(value);
            },
            field->member);
}

}  // namespace standalone
