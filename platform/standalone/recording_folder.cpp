// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#include "platform/standalone/recording_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/standalone/file_handle.h"

namespace standalone {

namespace {

constexpr char alarm_folder[] = "alarm";

struct CloseFolder {
    void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, CloseFolder>;

/// A recording in an open folder.
struct Recording {
    int folder;         ///< descriptor
    const char* name;   ///< the file's name in it
    int second_of_day;  ///< local start time, as the name has it
};

Folder open_folder(int parent, const char* name, int follow) {
    FileHandle handle(openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC | follow));
    Folder folder(handle ? fdopendir(handle.get()) : nullptr);
    if (folder) handle.release();
    return folder;
}

bool has_kind(DIR* folder, const dirent& entry, unsigned char kind) {
    if (entry.d_type != DT_UNKNOWN) return entry.d_type == kind;
    struct stat found {};
    return fstatat(dirfd(folder), entry.d_name, &found, AT_SYMLINK_NOFOLLOW) == 0 &&
           IFTODT(found.st_mode) == kind;
}

/// Reads `digits` decimal digits at `at`; -1 when there is anything else.
int number_at(std::string_view text, std::size_t at, std::size_t digits) {
    int value = 0;
    for (const char byte : text.substr(at, digits)) {
        if (byte < '0' || byte > '9') return -1;
        value = value * 10 + (byte - '0');
    }
    return value;
}

bool is_day(std::string_view name) {
    if (name.size() != 10 || name[4] != '-' || name[7] != '-') return false;
    const int year = number_at(name, 0, 4);
    const int month = number_at(name, 5, 2);
    const int day = number_at(name, 8, 2);
    if (year < 0 || month < 0 || day < 0) return false;
    return std::chrono::year_month_day(std::chrono::year(year), std::chrono::month(month),
                                       std::chrono::day(day))
        .ok();
}

/// The start time that a recording's name tells; -1 when it is no recording's name.
int second_of_day(std::string_view name) {
    if (name.size() < 10 || name[2] != '-' || name[5] != '-' || name[8] != '.') return -1;
    const int hour = number_at(name, 0, 2);
    const int minute = number_at(name, 3, 2);
    const int second = number_at(name, 6, 2);
    const bool valid =
        hour >= 0 && hour < 24 && minute >= 0 && minute < 60 && second >= 0 && second < 60;
    return valid ? hour * 3600 + minute * 60 + second : -1;
}

std::string today() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[16];
    return {text, std::strftime(text, sizeof text, "%Y-%m-%d", &local)};
}

long long start_ms(const std::string& day, int second) {
    std::tm local{};
    local.tm_year = number_at(day, 0, 4) - 1900;
    local.tm_mon = number_at(day, 5, 2) - 1;
    local.tm_mday = number_at(day, 8, 2);
    local.tm_hour = second / 3600;
    local.tm_min = second / 60 % 60;
    local.tm_sec = second % 60;
    local.tm_isdst = -1;
    return static_cast<long long>(std::mktime(&local)) * 1000;
}

/// The days that have begun, oldest first.
std::vector<std::string> list_days(DIR* folder) {
    std::vector<std::string> days;
    const std::string last = today();
    while (const dirent* entry = readdir(folder))
        if (is_day(entry->d_name) && entry->d_name <= last && has_kind(folder, *entry, DT_DIR))
            days.emplace_back(entry->d_name);
    std::ranges::sort(days);
    return days;
}

/// Calls `visit` with each recording until it returns false.
template <typename Visit>
void visit_recordings(const Folder& folder, Visit visit) {
    if (!folder) return;
    while (const dirent* entry = readdir(folder.get())) {
        const int second = second_of_day(entry->d_name);
        if (second >= 0 && has_kind(folder.get(), *entry, DT_REG) &&
            !visit(Recording{dirfd(folder.get()), entry->d_name, second}))
            return;
    }
}

/// One day's two folders, either null when it is not there.
struct Day {
    Folder normal;
    Folder alarm;

    Day(DIR* channel, const std::string& name)
        : normal(open_folder(dirfd(channel), name.c_str(), O_NOFOLLOW)) {
        if (normal) alarm = open_folder(dirfd(normal.get()), alarm_folder, O_NOFOLLOW);
    }

    template <typename Visit>
    void visit_all(Visit visit) const {
        visit_recordings(normal, visit);
        visit_recordings(alarm, visit);
    }
};

bool has_recording(const Folder& folder) {
    bool found = false;
    visit_recordings(folder, [&found](const Recording&) {
        found = true;
        return false;
    });
    return found;
}

/// Start of the day's first recording, or of its last one.
std::optional<long long> edge(DIR* channel, const std::string& day, bool last) {
    std::optional<int> second;
    Day(channel, day).visit_all([&](const Recording& recording) {
        if (!second || (recording.second_of_day > *second) == last)
            second = recording.second_of_day;
        return true;
    });
    if (!second) return {};
    return start_ms(day, *second);
}

std::optional<long long> last_write(const Recording& recording) {
    struct stat found {};
    if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) != 0) return {};
    return found.st_mtime;
}

long long total_size(const Folder& folder) {
    long long total = 0;
    visit_recordings(folder, [&total](const Recording& recording) {
        struct stat found {};
        if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) == 0)
            total += found.st_size;
        return true;
    });
    return total;
}

}  // namespace

RecordingSummary summarize_recordings(const std::string& folder) {
    RecordingSummary summary;
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return summary;
    std::string first;
    std::string last;
    for (const std::string& name : list_days(channel.get())) {
        const Day day(channel.get(), name);
        const bool normal = has_recording(day.normal);
        const bool alarm = has_recording(day.alarm);
        summary.normal_days += normal ? 1 : 0;
        summary.alarm_days += alarm ? 1 : 0;
        if (!normal && !alarm) continue;
        if (first.empty()) first = name;
        last = name;
    }
    if (first.empty()) return summary;
    summary.earliest = edge(channel.get(), first, false);
    summary.latest = edge(channel.get(), last, true);
    return summary;
}

RecordingSizes measure_recordings(const std::string& folder) {
    RecordingSizes sizes;
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return sizes;
    for (const std::string& name : list_days(channel.get())) {
        const Day day(channel.get(), name);
        sizes.normal += total_size(day.normal);
        sizes.alarm += total_size(day.alarm);
    }
    return sizes;
}

std::optional<long long> newest_write(const std::string& folder) {
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return {};
    std::vector<std::string> days = list_days(channel.get());
    std::optional<long long> written;
    for (; !days.empty() && !written; days.pop_back()) {
        int newest = -1;
        Day(channel.get(), days.back()).visit_all([&](const Recording& recording) {
            if (recording.second_of_day >= newest) {
                newest = recording.second_of_day;
                written = last_write(recording);
            }
            return true;
        });
    }
    return written;
}

}  // namespace standalone
