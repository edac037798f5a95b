// Counts what is read of folders, and has their disk fail.
#pragma once

#include <string>

/// Calls of readdir() so far; the linker puts a counter in its place (recording_folder_test.cpp).
extern int entries_read;

/// The name behind which a folder's disk fails; "" for none.
extern std::string fails_behind;
