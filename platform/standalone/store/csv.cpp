// Quotes and disarms the fields of CSV lines.
#include "platform/standalone/store/csv.h"

#include <algorithm>
#include <string_view>

#include "platform/standalone/store/utf8.h"

namespace standalone {
namespace {

constexpr std::string_view QUOTED_CHARACTERS = "\",\r\n";
constexpr char DISARM = '\'';

// What begins a formula, also in the full-width forms that some spreadsheets take for the same.
constexpr std::string_view FORMULA_SIGNS[] = {"=",      "+",      "-",      "@",
                                              "\uFF1D", "\uFF0B", "\uFF0D", "\uFF20"};
// What ends a cell for a spreadsheet that is not told which separator the file has.
constexpr std::string_view CELL_ENDS = ";\t\r\n";
// What some spreadsheets drop from a field's beginning.
constexpr std::string_view DROPPED = "\t\r\n";
// What may stand between a cell's beginning and its formula.
constexpr std::string_view PASSED_OVER = " \"";

bool begins_formula(std::string_view text) {
    return std::ranges::any_of(FORMULA_SIGNS,
                               [text](std::string_view sign) { return text.starts_with(sign); });
}

bool is_one_of(std::string_view bytes, char byte) {
    return bytes.find(byte) != std::string_view::npos;
}

std::string disarmed(const std::string& text) {
    std::string safe;
    bool cell_begins = true;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const bool dropped = at == 0 && is_one_of(DROPPED, text[at]);
        const bool formula = cell_begins && begins_formula(std::string_view(text).substr(at));
        if (dropped || formula) safe += DISARM;
        safe += text[at];
        cell_begins =
            is_one_of(CELL_ENDS, text[at]) || (cell_begins && is_one_of(PASSED_OVER, text[at]));
    }
    return safe;
}

std::string csv_field(const std::string& raw) {
    std::string text = disarmed(valid_utf8(raw));
    if (text.find_first_of(QUOTED_CHARACTERS) == std::string::npos) return text;
    std::string quoted = "\"";
    for (const char c : text) {
        if (c == '"') quoted += '"';
        quoted += c;
    }
    return quoted + '"';
}

}  // namespace

std::string csv_line(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields) {
        if (&field != &fields.front()) line += ',';
        line += csv_field(field);
    }
    return line + "\r\n";
}

}  // namespace standalone
