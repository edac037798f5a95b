// A stored settings text: read or refused whole, and printed again it says the same.
#include "platform/standalone/store/settings_text.h"

#include <algorithm>

#include "backup/task_settings.h"
#include "platform/nvrcfg.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"
#include "tests/fuzz/quiet_recorder.h"

namespace {

using fuzz::check;
using standalone::SettingsText;

TDataBackupConfig merged(const SettingsText& settings, TDataBackupConfig record = {}) {
    settings.merge_into(record);
    return record;
}

/// The text as JSON: a backslash in it stands for itself.
std::string with_escapes(const std::string& text) {
    std::string json;
    for (const char byte : text) json.append(byte == '\\' ? 2 : 1, byte);
    return json;
}

/// Whether a string of a settings text can be `text`.
bool can_be_value(const std::string& text) {
    const auto is_none = [](unsigned char c) { return c < ' ' || c == '"'; };
    return fuzz::is_utf8_text(text) && std::ranges::none_of(text, is_none);
}

void check_fields(const TDataBackupConfig& record) {
    for (const standalone::TaskField& field : standalone::task_fields()) {
        if (const auto* index = std::get_if<int TDataBackupConfig::*>(&field.member))
            check(standalone::fits_table(field, record.**index), "an index is a row of its table");
        if (const auto* text = std::get_if<std::string TDataBackupConfig::*>(&field.member))
            check(can_be_value(record.**text), "a text is UTF-8 and ends at its quotation mark");
    }
}

/// Prints the record and reads that.
void check_printing(TDataBackupConfig record) {
    std::string text;
    backupconfig_to_string(record, &text, 0);
    SettingsText again;
    check(SettingsText::parse(text, again) == 0, "what is printed is read");
    record.enable = record.enable || record.backupImmediately;
    record.backupImmediately = false;
    if (record.scheduleWeekly == 7) record.scheduleWeekly = 0;
    check(fuzz::same_record(merged(again), record), "a printed record is read as it was");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    SettingsText settings;
    const int status = SettingsText::parse(text, settings);
    if (status != 0) {
        check(status == NVRCFG_BAD_TEXT || status == NVRCFG_BAD_MEMBER, "a refusal has its status");
        check(!settings.task_id() && fuzz::same_record(merged(settings), {}),
              "a refused text sets nothing");
        return 0;
    }
    check(fuzz::is_json(with_escapes(text)), "what is read is JSON");
    const TDataBackupConfig record = merged(settings);
    check_fields(record);
    check(fuzz::same_record(merged(settings, record), record), "merging twice changes nothing");
    check_printing(record);
    return 0;
}
