// CSV lines (RFC 4180) that a spreadsheet can open without running anything.
#pragma once

#include <string>
#include <vector>

namespace services {

/// One line with its CRLF. Bytes that are no UTF-8 become U+FFFD; a field that a spreadsheet would
/// take for a formula (it begins with = + - @ or a tab, carriage return or line feed) gets an
/// apostrophe in front.
std::string csv_line(const std::vector<std::string>& fields);

}  // namespace services
