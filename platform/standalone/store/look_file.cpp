// The file in which looks at channels' folders are kept (docs/formats.md).
#include "platform/standalone/store/look_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/recording_name.h"
#include "platform/standalone/store/words.h"

namespace standalone {

namespace {

constexpr long long MAGIC = 0x31534b4f4f4c4352;  // "RCLOOKS1"
constexpr off_t LARGEST_FILE = 64 * 1024 * 1024;
constexpr int HOW_TO_OPEN = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// Who looks: what one process may read, another one need not. Capabilities apart, which the page's
/// program has none of.
std::vector<long long> identity() {
    std::vector<gid_t> groups(static_cast<std::size_t>(std::max(getgroups(0, nullptr), 0)));
    const int count = getgroups(static_cast<int>(groups.size()), groups.data());
    std::vector<long long> who{count, geteuid(), getegid()};
    who.insert(who.end(), groups.begin(), groups.begin() + std::max(count, 0));
    return who;
}

void put(WordWriter& to, const FolderStamp& stamp) {
    for (const long long word :
         {stamp.device, stamp.inode, stamp.modified_ns, stamp.changed_ns, stamp.names, stamp.size})
        to.number(word);
}

FolderStamp take_stamp(WordReader& from) {
    FolderStamp stamp;
    for (long long* word : {&stamp.device, &stamp.inode, &stamp.modified_ns, &stamp.changed_ns,
                            &stamp.names, &stamp.size})
        *word = from.number();
    return stamp;
}

std::string take_day(WordReader& from) {
    std::string day = from.text();
    if (!is_day(day)) throw std::invalid_argument("no day");
    return day;
}

void put(WordWriter& to, const DayLook& day) {
    to.text(day.name);
    put(to, day.folder);
    to.number(day.has_alarm_folder);
    put(to, day.alarm_folder);
    to.number(day.normal);
    to.number(day.alarm);
    to.number(day.first_second);
    to.number(day.last_second);
    to.text(day.newest);
}

DayLook take_day_look(WordReader& from) {
    DayLook day{.name = take_day(from)};
    day.folder = take_stamp(from);
    day.has_alarm_folder = from.number() != 0;
    day.alarm_folder = take_stamp(from);
    day.normal = from.number() != 0;
    day.alarm = from.number() != 0;
    day.first_second = static_cast<int>(from.number());
    day.last_second = static_cast<int>(from.number());
    day.newest = from.text();
    return day;
}

void put(WordWriter& to, const std::vector<DayLook>& days) {
    to.number(std::ssize(days));
    for (const DayLook& day : days) put(to, day);
}

std::vector<DayLook> take_days(WordReader& from) {
    std::vector<DayLook> days;
    for (long long left = from.number(); left > 0; --left) days.push_back(take_day_look(from));
    return days;
}

void put(WordWriter& to, const KeptLook& kept) {
    to.number(kept.looked_at.now_ns);
    to.number(kept.looked_at.boot_ns);
    put(to, kept.look.folder);
    to.text(kept.look.last_day);
    to.text(kept.look.next_day);
    put(to, kept.look.oldest);
    put(to, kept.look.newest);
    to.number(kept.look.between);
    to.number(kept.look.alarm_between);
}

KeptLook take_look(WordReader& from) {
    KeptLook kept;
    kept.looked_at.now_ns = from.number();
    kept.looked_at.boot_ns = from.number();
    kept.look.folder = take_stamp(from);
    kept.look.last_day = from.text();
    kept.look.next_day = from.text();
    kept.look.oldest = take_days(from);
    kept.look.newest = take_days(from);
    kept.look.between = static_cast<int>(from.number());
    kept.look.alarm_between = static_cast<int>(from.number());
    return kept;
}

std::string whole_file(const std::string& path) {
    const FileHandle file(open(path.c_str(), O_RDONLY | HOW_TO_OPEN));
    struct stat found {};
    if (!file || fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode) ||
        found.st_size > LARGEST_FILE)
        return "";
    std::string bytes(static_cast<std::size_t>(found.st_size), '\0');
    const ssize_t length = read(file.get(), bytes.data(), bytes.size());
    return length == found.st_size ? bytes : "";
}

KeptLooks take_looks(WordReader from) {
    KeptLooks looks;
    for (const long long part : identity())
        if (from.number() != part) return looks;
    for (long long left = from.number(); left > 0; --left) {
        std::string folder = from.text();
        looks.emplace_hint(looks.end(), std::move(folder), take_look(from));
    }
    return looks;
}

}  // namespace

KeptLooks read_looks(const std::string& path) {
    const std::string bytes = whole_file(path);
    try {
        return take_looks(opened(MAGIC, bytes));
    } catch (const std::logic_error&) {
        return {};
    }
}

void write_looks(const std::string& path, const KeptLooks& looks) {
    WordWriter words;
    for (const long long part : identity()) words.number(part);
    words.number(std::ssize(looks));
    for (const auto& [folder, look] : looks) {
        words.text(folder);
        put(words, look);
    }
    const std::string bytes = sealed(MAGIC, words);
    const FileHandle file(open(path.c_str(), O_WRONLY | O_CREAT | HOW_TO_OPEN, 0600));
    struct stat found {};
    if (!file || fstat(file.get(), &found) != 0 || !S_ISREG(found.st_mode)) return;
    // In one write, over what is there: of two writers at once, or of one that is read meanwhile,
    // the checksum tells.
    [[maybe_unused]] const ssize_t written = write(file.get(), bytes.data(), bytes.size());
    [[maybe_unused]] const int cut = ftruncate(file.get(), static_cast<off_t>(bytes.size()));
}

}  // namespace standalone
