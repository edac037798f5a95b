// Failures of functions that never fail by themselves, put in by the linker (--wrap).
#pragma once

/// What the next calls do; all zero: work as usual.
struct LinkedFailures {
    int settings_text = 0;  ///< backupconfig_to_string returns this
    int new_string = 0;  ///< so many json_object_new_string_len calls from now, that one gives null
    int new_array = 0;   ///< likewise json_object_new_array
};

extern LinkedFailures linked_failures;
