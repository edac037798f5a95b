// The switch of the file explorer.
#pragma once

/// Reads the switch afresh: configuration section "fuse", key "fuse_enabled".
/// @return true unless the value is "0" or cannot be read; a key that does not exist means on
bool isFileExplorerTurnOn();
