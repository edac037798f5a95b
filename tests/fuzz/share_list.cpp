// What the SMB client tool prints of a server's shares, which names and comments are the server's.
#include <algorithm>

#include "backup/share_lines.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/input_stream.h"

namespace {

using fuzz::check;

bool is_the_recorders(std::string_view name) {
    constexpr std::string_view OWN[] = {"HaldenAppData", "OstraAppData", "OstraAutoSnap",
                                        "VeskAutoSnap", "OstraDB"};
    return name.starts_with("OstraSpace_") || std::ranges::count(OWN, name) != 0;
}

/// The names that an output lists, line by line.
std::vector<std::string> listed_names(std::string_view output) {
    std::vector<std::string> names;
    while (!output.empty()) {
        const std::size_t end = std::min(output.find('\n'), output.size() - 1) + 1;
        std::string line(output.substr(0, std::min(end, SHARE_LINE_PIECE)));
        line = line.c_str();  // texts end at a NUL
        output.remove_prefix(end);
        if (!line.starts_with("Disk")) continue;
        const std::string name = line.substr(std::min<std::size_t>(line.size(), 5));
        names.push_back(name.substr(0, name.find('|')));
    }
    std::erase_if(names, is_the_recorders);
    return names;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output = fuzz::text(data, size);
    const Listing listing = read_share_lines(fuzz::InputStream(output).get(), 0);
    check(listing.error.empty(), "a tool that succeeded makes no error text");
    check(listing.share_name_list == listed_names(output), "the names are those that are listed");
    const Listing failed = read_share_lines(fuzz::InputStream(output).get(), 1);
    check(failed.share_name_list.empty(), "a tool that failed lists nothing");
    check(failed.error.size() <= MAX_SHARE_ERROR + SHARE_LINE_PIECE + 2,
          "an error text is bounded");
    return 0;
}
