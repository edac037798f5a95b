// Lines of the log as CSV: a reader of RFC 4180 gets the fields back, and none is a formula.
#include "platform/standalone/store/csv.h"

#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

/// Takes a field in quotes off the front, without them.
std::string take_quoted(std::string_view& rest) {
    std::string field;
    for (rest.remove_prefix(1);; rest.remove_prefix(1)) {
        check(!rest.empty(), "a quotation ends");
        if (rest.starts_with("\"\""))
            rest.remove_prefix(1);
        else if (rest[0] == '"')
            break;
        field += rest[0];
    }
    rest.remove_prefix(1);
    return field;
}

std::string take_plain(std::string_view& rest) {
    const std::string field(rest.substr(0, rest.find_first_of(",\r\n")));
    check(field.find('"') == std::string::npos, "quotes stand in quotations");
    rest.remove_prefix(field.size());
    return field;
}

/// The fields of one line (RFC 4180, section 2).
std::vector<std::string> read_line(std::string_view line) {
    check(line.ends_with("\r\n"), "a line ends with CRLF");
    line.remove_suffix(2);
    std::vector<std::string> fields;
    for (;;) {
        fields.push_back(line.starts_with('"') ? take_quoted(line) : take_plain(line));
        if (line.empty()) return fields;
        check(line[0] == ',', "a comma stands between fields");
        line.remove_prefix(1);
    }
}

bool begins_formula(std::string_view cell) {
    constexpr std::string_view SIGNS[] = {"=",      "+",      "-",      "@",
                                          "\uFF1D", "\uFF0B", "\uFF0D", "\uFF20"};
    return std::ranges::any_of(SIGNS, [&](auto sign) { return cell.starts_with(sign); });
}

/// Whatever separates cells for a spreadsheet, none of the field begins with a formula.
void check_cells(const std::string& field) {
    check(field.empty() || std::string_view("\t\r\n").find(field[0]) == std::string_view::npos,
          "a field begins with nothing that is dropped");
    std::string cells = field;
    std::ranges::replace_if(
        cells, [](char c) { return std::string_view(";\t\r").find(c) != std::string_view::npos; },
        '\n');
    for (std::string_view cell : fuzz::pieces(cells, '\n')) {
        cell.remove_prefix(std::min(cell.find_first_not_of(" \""), cell.size()));
        check(!begins_formula(cell), "no cell is a formula");
    }
}

/// Nothing but apostrophes is added.
void check_field(const std::string& read, const std::string& given) {
    check_cells(read);
    if (!fuzz::is_utf8_text(given)) return;
    std::size_t matched = 0;
    for (const char byte : read) {
        if (matched < given.size() && given[matched] == byte)
            ++matched;
        else
            check(byte == '\'', "nothing but apostrophes is added");
    }
    check(matched == given.size(), "a field is what was given");
}

}  // namespace

// Fields, each ended by a vertical bar.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string input = fuzz::text(data, size);
    const auto parts = fuzz::pieces(input, '|');
    const std::vector<std::string> fields(parts.begin(), parts.end());
    const std::string line = standalone::csv_line(fields);
    check(fuzz::is_utf8_text(line), "a line is UTF-8");
    const std::vector<std::string> read = read_line(line);
    check(read.size() == fields.size(), "no field is lost and none made");
    for (std::size_t i = 0; i < fields.size(); ++i) check_field(read[i], fields[i]);
    return 0;
}
