// The wrappers that the linker puts in front of functions that never fail by themselves.
#include "tests/backup/linked_failures.h"

#include <json-c/json.h>

#include "backup/task_record.h"

LinkedFailures linked_failures;

// The names are the linker's: "__wrap_" or "__real_" and the function's own symbol.
int real_settings_text(TDataBackupConfig task, std::string* out, int mode) __asm__(
    "__real__Z22backupconfig_to_string17TDataBackupConfig"
    "PNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEi");
int wrapped_settings_text(TDataBackupConfig task, std::string* out, int mode) __asm__(
    "__wrap__Z22backupconfig_to_string17TDataBackupConfig"
    "PNSt7__cxx1112basic_stringIcSt11char_traitsIcESaIcEEEi");

extern "C" {
json_object* __real_json_object_new_string_len(const char* text, int length);
json_object* __real_json_object_new_array(void);

json_object* __wrap_json_object_new_string_len(const char* text, int length) {
    if (linked_failures.new_string > 0 && --linked_failures.new_string == 0) return nullptr;
    return __real_json_object_new_string_len(text, length);
}

json_object* __wrap_json_object_new_array(void) {
    if (linked_failures.new_array > 0 && --linked_failures.new_array == 0) return nullptr;
    return __real_json_object_new_array();
}
}

int wrapped_settings_text(TDataBackupConfig task, std::string* out, int mode) {
    if (linked_failures.settings_text != 0) return linked_failures.settings_text;
    return real_settings_text(std::move(task), out, mode);
}
