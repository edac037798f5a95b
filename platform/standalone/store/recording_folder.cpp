// A channel's recordings: <folder>/YYYY-MM-DD/HH-MM-SS.<ext>, alarm ones under alarm/ of the day.
#include "platform/standalone/store/recording_folder.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/standalone/store/channel_look.h"
#include "platform/standalone/store/day_folders.h"

namespace standalone {

namespace {

void count_day(const DayLook& day, RecordingSummary& summary) {
    summary.normal_days += day.normal ? 1 : 0;
    summary.alarm_days += day.alarm ? 1 : 0;
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

/// A channel's folder, which must be there.
Folder open_channel(const std::string& path) {
    Folder channel = open_folder(AT_FDCWD, path.c_str(), 0);
    require_read(channel, path);
    return channel;
}

}  // namespace

UnreadableFolder::UnreadableFolder(const std::string& folder, int error)
    : std::runtime_error(folder + " cannot be read: " + std::strerror(error)) {}

RecordingSummary summarize(const ChannelLook& look) {
    RecordingSummary summary;
    if (look.empty()) return summary;
    const DayLook& first = look.first();
    const DayLook& last = look.last();
    summary.normal_days = look.between;
    summary.alarm_days = look.alarm_between;
    count_day(last, summary);
    if (&first != &last) count_day(first, summary);
    summary.earliest = start_ms(first.name, first.first_second);
    summary.latest = start_ms(last.name, last.last_second);
    return summary;
}

RecordingSummary summarize_recordings(const std::string& folder) {
    return summarize(look_at_channel(folder, Moment::now()));
}

RecordingSizes measure_recordings(const std::string& folder) {
    RecordingSizes sizes;
    Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return sizes;
    for (const std::string& name : day_names(channel).begun) {
        DayFolders day(channel, name);
        sizes.normal += total_size(day.normal);
        sizes.alarm += total_size(day.alarm);
    }
    return sizes;
}

std::vector<std::string> recording_days(const std::string& folder, const std::string& first,
                                        const std::string& last) {
    Folder channel = open_channel(folder);
    std::vector<std::string> days = day_names(channel).begun;
    require_read(channel, folder);
    std::erase_if(days, [&](const std::string& day) { return day < first || day > last; });
    return days;
}

std::vector<RecordingFile> recordings_of_day(const std::string& folder, const std::string& day,
                                             RecordingKinds kinds, std::size_t most) {
    std::vector<RecordingFile> files;
    DayFolders folders(open_channel(folder), day);
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
    std::vector<std::string> days = day_names(channel).begun;
    std::optional<long long> written;
    for (; !days.empty() && !written; days.pop_back()) {
        int newest = -1;
        DayFolders day(channel, days.back());
        const auto take_newest = [&](const Recording& recording) {
            if (recording.second_of_day < newest) return;
            newest = recording.second_of_day;
            written = last_write(recording);
        };
        visit_recordings(day.normal, take_newest);
        visit_recordings(day.alarm, take_newest);
    }
    return written;
}

}  // namespace standalone
