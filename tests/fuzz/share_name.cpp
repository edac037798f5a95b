// Names on a share: whatever a text is, what is made of it can stand on any server.
#include <algorithm>
#include <array>

#include "services/backup_daemon/copy/share_path.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

constexpr std::size_t LONGEST_NAME = 200;

/// The part in front of the first dot, in upper case and without the blanks behind it.
std::string stem_of(const std::string& name) {
    std::string stem = name.substr(0, name.find('.'));
    stem.erase(stem.find_last_not_of(' ') + 1);
    std::ranges::transform(stem, stem.begin(),
                           [](unsigned char c) { return c >= 'a' && c <= 'z' ? c - 32 : c; });
    return stem;
}

bool means_a_device(const std::string& name) {
    static const std::array devices = {
        "CON",  "PRN",  "AUX",  "NUL",  "COM1", "COM2", "COM3", "COM4", "COM5", "COM6", "COM7",
        "COM8", "COM9", "LPT1", "LPT2", "LPT3", "LPT4", "LPT5", "LPT6", "LPT7", "LPT8", "LPT9"};
    return std::ranges::count(devices, stem_of(name)) != 0;
}

void check_name(const std::string& name) {
    const auto forbidden = [](unsigned char c) {
        return c < ' ' || c == 0x7F ||
               std::string_view("\\/:*?\"<>|").find(static_cast<char>(c)) != std::string_view::npos;
    };
    check(!name.empty() && name.size() <= LONGEST_NAME, "a name has 1 to 200 bytes");
    check(fuzz::is_utf8_text(name), "a name is UTF-8");
    check(std::ranges::none_of(name, forbidden), "a name has no character that servers refuse");
    check(name.back() != '.' && name.back() != ' ', "no blank and no dot at the end");
    check(!means_a_device(name), "a name means no device");
    check(services::safe_name(name) == name, "a safe name stays as it is");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    const std::string name = services::safe_name(text);
    check_name(name);
    const std::string path =
        services::join_path(services::safe_name(text.substr(0, size / 2)), name);
    check(services::join_path(services::folder_of(path), name) == path, "a path comes apart again");
    check(std::ranges::count(path, '/') == 1, "two names make two levels");
    return 0;
}
