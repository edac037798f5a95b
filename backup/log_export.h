// The file behind the log download, and the link under which the web server finds it.
#pragma once

#include <string>

/// Replaces the stored CSV file by `csv`, byte for byte, and renews the link. The file is replaced
/// whole or not at all, so the link never leads to a part of one.
/// @return 0, or CGI_CMD_EXEC_FAIL when the file cannot be written or the link cannot be made
int publish_log_export(const std::string& csv);
