// Markers and lists of cameras as a strange server gives them: nothing but what may stand in one.
#include "services/backup_daemon/copy/marker.h"

#include <algorithm>

#include "services/backup_daemon/copy/share_path.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"

namespace {

using fuzz::check;

bool is_identifier(const std::string& text) {
    return text.size() == 32 && text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

void check_marker(const std::string& text) {
    const auto marker = services::read_marker(text);
    if (!marker) return;
    check(is_identifier(marker->recorder) && is_identifier(marker->destination),
          "a marker has two identifiers");
    const auto again = services::read_marker(services::marker_text(*marker));
    check(again && again->recorder == marker->recorder && again->destination == marker->destination,
          "what is read is written and read again");
}

void check_cameras(const std::string& text) {
    const auto cameras = services::read_cameras(text);
    for (const auto& [guid, folder] : cameras) {
        check(fuzz::is_utf8_text(guid), "a guid is UTF-8");
        check(services::safe_name(folder) == folder, "a folder can stand on any server");
        check(!services::is_reserved(folder), "a folder is no marker's and no recorder's");
    }
    const std::string whole = services::cameras_text(cameras, text.size() * 8 + 100);
    check(services::read_cameras(whole) == cameras, "what is read is written and read again");
    const std::string part = services::cameras_text(cameras, text.size() / 2 + 40);
    check(part.size() <= text.size() / 2 + 40, "a list stays in its bounds");
    const auto fewer = services::read_cameras(part);
    check(std::ranges::includes(cameras, fewer), "a part is of the whole");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    check_marker(text);
    check_cameras(text);
    const std::string once = services::folded(text);
    check(services::folded(once) == once, "small letters stay small");
    check(fuzz::is_utf8_text(once), "folded text is UTF-8");
    return 0;
}
