// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#include "platform/standalone/store/recording_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/recording_name.h"

namespace standalone {

namespace {

constexpr char ALARM_FOLDER[] = "alarm";

/// A recording in an open folder.
struct Recording {
    int folder;         ///< descriptor
    const char* name;   ///< the file's name in it
    int second_of_day;  ///< local start time, as the name has it
};

/// The days that have begun, oldest first.
std::vector<std::string> list_days(Folder& folder) {
    std::vector<std::string> days;
    const std::string last = today();
    while (const dirent* entry = next_entry(folder))
        if (is_day(entry->d_name) && entry->d_name <= last && has_kind(folder, *entry, DT_DIR))
            days.emplace_back(entry->d_name);
    std::ranges::sort(days);
    return days;
}

/// Calls `visit` with each recording.
template <typename Visit>
void visit_recordings(Folder& folder, Visit visit) {
    if (!folder) return;
    while (const dirent* entry = next_entry(folder)) {
        const int second = start_second(entry->d_name);
        if (second >= 0 && has_kind(folder, *entry, DT_REG))
            visit(Recording{folder.descriptor(), entry->d_name, second});
    }
}

/// One day's two folders, either null when it is not there.
struct Day {
    Folder normal;
    Folder alarm;

    Day(const Folder& channel, const std::string& name)
        : normal(open_folder(channel.descriptor(), name.c_str(), O_NOFOLLOW)) {
        if (normal) alarm = open_folder(normal.descriptor(), ALARM_FOLDER, O_NOFOLLOW);
    }

    template <typename Visit>
    void visit_all(Visit visit) {
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

DayContent read_day(const Folder& channel, const std::string& name) {
    Day day(channel, name);
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
DayContent last_content(const Folder& channel, std::vector<std::string>& days) {
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
void count_inner_day(const Folder& channel, const std::string& name, RecordingSummary& summary) {
    struct stat found {};
    const std::string alarm = name + '/' + ALARM_FOLDER;
    const bool has_alarm =
        fstatat(channel.descriptor(), alarm.c_str(), &found, AT_SYMLINK_NOFOLLOW) == 0;
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

void add_recordings(Folder& folder, bool alarm, std::size_t most,
                    std::vector<RecordingFile>& files) {
    const auto begin = static_cast<std::ptrdiff_t>(files.size());
    visit_recordings(folder, [&](const Recording& recording) {
        struct stat found {};
        if (files.size() == most) throw std::length_error("too many recordings of a day");
        if (look_at(folder, recording.name, found))
            files.push_back({recording.name, alarm, found.st_size, nanoseconds(found.st_mtim)});
    });
    std::sort(files.begin() + begin, files.end(),
              [](const auto& one, const auto& other) { return one.name < other.name; });
}

long long total_size(Folder& folder) {
    long long total = 0;
    visit_recordings(folder, [&total](const Recording& recording) {
        struct stat found {};
        if (fstatat(recording.folder, recording.name, &found, AT_SYMLINK_NOFOLLOW) == 0)
            total += found.st_size;
    });
    return total;
}

void require_read(const Folder& folder, const std::string& path) {
    if (folder.error != 0) throw UnreadableFolder(path, folder.error);
}

/// A folder that has gone, or a link or file of its name, has no recordings.
bool is_absent(const Folder& folder) {
    return folder.error == ENOENT || folder.error == ENOTDIR || folder.error == ELOOP;
}

/// A channel's folder, which must be there.
Folder open_channel(const std::string& path) {
    Folder channel = open_folder(AT_FDCWD, path.c_str(), 0);
    require_read(channel, path);
    return channel;
}

}  // namespace

UnreadableFolder::UnreadableFolder(const std::string& folder, int error)
    : std::runtime_error(folder + " cannot be read: " + std::strerror(error)) {}

RecordingSummary summarize_recordings(const std::string& folder) {
    RecordingSummary summary;
    Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return summary;
    std::vector<std::string> days = list_days(channel);
    const DayContent last = last_content(channel, days);
    if (last.empty()) return summary;
    std::ranges::reverse(days);
    const DayContent first = days.size() > 1 ? last_content(channel, days) : last;
    count_day(last, summary);
    if (days.size() > 1) count_day(first, summary);
    for (std::size_t day = 1; day + 1 < days.size(); ++day)
        count_inner_day(channel, days[day], summary);
    summary.earliest = start_ms(days.back(), first.first_second);
    summary.latest = start_ms(days.front(), last.last_second);
    return summary;
}

RecordingSizes measure_recordings(const std::string& folder) {
    RecordingSizes sizes;
    Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return sizes;
    for (const std::string& name : list_days(channel)) {
        Day day(channel, name);
        sizes.normal += total_size(day.normal);
        sizes.alarm += total_size(day.alarm);
    }
    return sizes;
}

std::vector<std::string> recording_days(const std::string& folder, const std::string& first,
                                        const std::string& last) {
    Folder channel = open_channel(folder);
    std::vector<std::string> days = list_days(channel);
    require_read(channel, folder);
    std::erase_if(days, [&](const std::string& day) { return day < first || day > last; });
    return days;
}

std::vector<RecordingFile> recordings_of_day(const std::string& folder, const std::string& day,
                                             RecordingKinds kinds, std::size_t most) {
    std::vector<RecordingFile> files;
    Day folders(open_channel(folder), day);
    const auto add = [&](Folder& from, bool alarm, const std::string& path) {
        if (is_absent(from)) return;
        add_recordings(from, alarm, most, files);
        require_read(from, path);
    };
    const std::string path = folder + '/' + day;
    if (!folders.normal || kinds.normal) add(folders.normal, false, path);
    if (kinds.alarm) add(folders.alarm, true, path + '/' + ALARM_FOLDER);
    return files;
}

std::string recordings_problem(const std::string& folder) {
    try {
        recording_days(folder, "", "");
        return "";
    } catch (const UnreadableFolder& problem) {
        return problem.what();
    }
}

long long recording_start(const std::string& day, const std::string& name) {
    return start_ms(day, start_second(name)) / 1000;
}

std::optional<long long> newest_write(const std::string& folder) {
    Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return {};
    std::vector<std::string> days = list_days(channel);
    std::optional<long long> written;
    for (; !days.empty() && !written; days.pop_back()) {
        int newest = -1;
        Day(channel, days.back()).visit_all([&](const Recording& recording) {
            if (recording.second_of_day >= newest) {
                newest = recording.second_of_day;
                written = last_write(recording);
            }
        });
    }
    return written;
}

}  // namespace standalone
