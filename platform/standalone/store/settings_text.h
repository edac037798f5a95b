// Reads a task's settings text: which fields of a record it sets, and to what.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "platform/standalone/store/task_fields.h"

struct json_object;  // json-c

namespace standalone {

/// A parsed settings text (docs/formats.md).
class SettingsText {
public:
    /// Reads `text`.
    /// @param out receives the result on success and is unchanged on failure
    /// @return 0, NVRCFG_BAD_TEXT or NVRCFG_BAD_MEMBER
    static int parse(const std::string& text, SettingsText& out);

    /// The task that the text changes; nothing for a new task.
    const std::optional<std::string>& task_id() const { return task_id_; }

    /// Whether the text carries the field of that name.
    bool has(std::string_view field) const;

    /// The fields that the text carries, each once.
    std::vector<const TaskField*> fields() const;

    /// Sets these fields.
    void merge_into(TDataBackupConfig& record) const;

private:
    using Value = std::variant<bool, int, std::string>;

    static std::optional<Value> read_value(const TaskField& field, json_object* value);
    bool read_members(json_object* object, SettingsPlace place);
    bool read_outer_member(const char* name, json_object* value);
    bool read_content(json_object* value);

    std::optional<std::string> task_id_;
    std::vector<std::pair<const TaskField*, Value>> values_;
};

}  // namespace standalone
