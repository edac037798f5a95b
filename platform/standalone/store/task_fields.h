// The fields of a task record by name: one table behind database, settings text and support.
#pragma once

#include <span>
#include <string_view>
#include <variant>

#include "backup/task_record.h"

namespace standalone {

/// Where a field stands in a settings text (docs/formats.md).
enum class SettingsPlace { none, outer, content };

/// One field of TDataBackupConfig.
struct TaskField {
    std::string_view name;  ///< as in TDataBackupConfig
    std::variant<bool TDataBackupConfig::*, int TDataBackupConfig::*, float TDataBackupConfig::*,
                 std::string TDataBackupConfig::*>
        member;
    SettingsPlace place;
    int rows;  ///< rows of the table that the field is an index into; 0: it is no index
};

/// All fields but the identifier, in the record's order.
std::span<const TaskField> task_fields();

/// A field by its name; null when there is none.
const TaskField* find_task_field(std::string_view name);

/// Whether `value` may stand in `field`: a table's index must be one of its rows.
bool fits_table(const TaskField& field, long long value);

}  // namespace standalone
