// Quotes and disarms the fields of CSV lines.
#include "services/event_log/csv.h"

#include <string_view>

#include "platform/standalone/store/utf8.h"

namespace services {
namespace {

constexpr std::string_view FORMULA_STARTS = "=+-@\t\r\n";
constexpr std::string_view QUOTED_CHARACTERS = "\",\r\n";

std::string csv_field(const std::string& raw) {
    std::string text = standalone::valid_utf8(raw);
    if (!text.empty() && FORMULA_STARTS.find(text[0]) != std::string_view::npos)
        text.insert(0, 1, '\'');
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

}  // namespace services
