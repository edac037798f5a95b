// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#include "platform/standalone/store/recording_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <vector>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/recording_name.h"

namespace standalone {

namespace {

constexpr char ALARM_FOLDER[] = "alarm";

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

/// Calls `visit` with each recording.
template <typename Visit>
void visit_recordings(const Folder& folder, Visit visit) {
    if (!folder) return;
    while (const dirent* entry = readdir(folder.get())) {
        const int second = start_second(entry->d_name);
        if (second >= 0 && has_kind(folder.get(), *entry, DT_REG))
            visit(Recording{dirfd(folder.get()), entry->d_name, second});
    }
}

/// One day's two folders, either null when it is not there.
struct Day {
    Folder normal;
    Folder alarm;

    Day(DIR* channel, const std::string& name)
        : normal(open_folder(dirfd(channel), name.c_str(), O_NOFOLLOW)) {
        if (normal) alarm = open_folder(dirfd(normal.get()), ALARM_FOLDER, O_NOFOLLOW);
    }

    template <typename Visit>
    void visit_all(Visit visit) const {
        visit_recordings(normal, visit);
        visit_recordings(alarm, visit);
    }
};

/// What one day holds; start times as the names have them.
struct DayContent {
    bool normal = false;
    bool alarm = false;
    int first_second = 86400;
    int last_second = -1;

    bool empty() const { return !normal && !alarm; }
};

DayContent read_day(DIR* channel, const std::string& name) {
    const Day day(channel, name);
    DayContent content;
    const auto visitor = [&content](bool& kind) {
        return [&content, &kind](const Recording& recording) {
            kind = true;
            content.first_second = std::min(content.first_second, recording.second_of_day);
            content.last_second = std::max(content.last_second, recording.second_of_day);
        };
    };
    visit_recordings(day.normal, visitor(content.normal));
    visit_recordings(day.alarm, visitor(content.alarm));
    return content;
}

/// Takes off days from the end until one has recordings, and tells what that one holds.
DayContent last_content(DIR* channel, std::vector<std::string>& days) {
    for (; !days.empty(); days.pop_back())
        if (const DayContent content = read_day(channel, days.back()); !content.empty())
            return content;
    return {};
}

void count_day(const DayContent& content, RecordingSummary& summary) {
    summary.normal_days += content.normal ? 1 : 0;
    summary.alarm_days += content.alarm ? 1 : 0;
}

/// Takes the folders for what is in them. To read each would cost a year of 128 channels seconds,
/// and minutes while the disk is cold.
void count_inner_day(DIR* channel, const std::string& name, RecordingSummary& summary) {
    struct stat found {};
    const std::string alarm = name + '/' + ALARM_FOLDER;
    const bool has_alarm = fstatat(dirfd(channel), alarm.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
    count_day({true, has_alarm && S_ISDIR(found.st_mode)}, summary);
}

long long nanoseconds(const timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::optional<long long> last_write(const Recording& recording) {
    struct stat found {};
    if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) != 0) return {};
    return found.st_mtime;
}

void add_recordings(const Folder& folder, bool alarm, std::size_t most,
                    std::vector<RecordingFile>& files) {
    const auto begin = static_cast<std::ptrdiff_t>(files.size());
    visit_recordings(folder, [&](const Recording& recording) {
        struct stat found {};
        if (files.size() == most) throw std::length_error("too many recordings of a day");
        if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) == 0)
            files.push_back({recording.name, alarm, found.st_size, nanoseconds(found.st_mtim)});
    });
    std::sort(files.begin() + begin, files.end(),
              [](const auto& one, const auto& other) { return one.name < other.name; });
}

long long total_size(const Folder& folder) {
    long long total = 0;
    visit_recordings(folder, [&total](const Recording& recording) {
        struct stat found {};
        if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) == 0)
            total += found.st_size;
    });
    return total;
}

}  // namespace

RecordingSummary summarize_recordings(const std::string& folder) {
    RecordingSummary summary;
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return summary;
    std::vector<std::string> days = list_days(channel.get());
    const DayContent last = last_content(channel.get(), days);
    if (last.empty()) return summary;
    std::ranges::reverse(days);
    const DayContent first = days.size() > 1 ? last_content(channel.get(), days) : last;
    count_day(last, summary);
    if (days.size() > 1) count_day(first, summary);
    for (std::size_t day = 1; day + 1 < days.size(); ++day)
        count_inner_day(channel.get(), days[day], summary);
    summary.earliest = start_ms(days.back(), first.first_second);
    summary.latest = start_ms(days.front(), last.last_second);
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

std::vector<std::string> recording_days(const std::string& folder, const std::string& first,
                                        const std::string& last) {
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return {};
    std::vector<std::string> days = list_days(channel.get());
    std::erase_if(days, [&](const std::string& day) { return day < first || day > last; });
    return days;
}

std::vector<RecordingFile> recordings_of_day(const std::string& folder, const std::string& day,
                                             std::size_t most) {
    std::vector<RecordingFile> files;
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return files;
    const Day folders(channel.get(), day);
    add_recordings(folders.normal, false, most, files);
    add_recordings(folders.alarm, true, most, files);
    return files;
}

long long recording_start(const std::string& day, const std::string& name) {
    return start_ms(day, start_second(name)) / 1000;
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
        });
    }
    return written;
}

}  // namespace standalone
