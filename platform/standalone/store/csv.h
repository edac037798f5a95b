// CSV lines (RFC 4180) that a spreadsheet can open without running anything.
#pragma once

#include <string>
#include <vector>

namespace standalone {

/// One line with its CRLF. Bytes that are no UTF-8 become U+FFFD. What a spreadsheet would take for
/// a formula gets an apostrophe in front: = + - @, full-width ones too, at the beginning of the
/// field or behind a ; tab, carriage return or line feed in it, blanks and quotation marks in
/// between not counted; and a tab, carriage return or line feed that begins the field.
std::string csv_line(const std::vector<std::string>& fields);

}  // namespace standalone
