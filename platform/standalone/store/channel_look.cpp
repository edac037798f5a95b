// What one look at a channel's folder has found: its edges, and how many days lie between.
#include "platform/standalone/store/channel_look.h"

#include <algorithm>

#include "platform/standalone/store/day_folders.h"

namespace standalone {

namespace {

void read_recordings(Folder& folder, const std::string& below, DayLook& day, bool& has_some) {
    visit_recordings(folder, [&](const Recording& recording) {
        has_some = true;
        day.first_second = std::min(day.first_second, recording.second_of_day);
        if (recording.second_of_day < day.last_second) return;
        day.last_second = recording.second_of_day;
        day.newest = below + recording.name;
    });
}

/// A folder that could not be read may be readable the next time, without having changed.
FolderStamp stamp_if_read(const Folder& folder, const FolderStamp& stamp) {
    return folder.error == 0 ? stamp : FolderStamp();
}

DayLook read_day(const Folder& channel, const std::string& name, const Moment& looked_at) {
    DayLook day{.name = name};
    DayFolders folders(channel, name);
    if (!folders.normal) return day;
    const FolderStamp stamp = stamp_of(folders.normal, looked_at);
    day.has_alarm_folder = !is_absent(folders.alarm);
    if (folders.alarm) day.alarm_folder = stamp_of(folders.alarm, looked_at);
    read_recordings(folders.normal, "", day, day.normal);
    read_recordings(folders.alarm, std::string(ALARM_FOLDER) + '/', day, day.alarm);
    day.folder = stamp_if_read(folders.normal, stamp);
    day.alarm_folder = stamp_if_read(folders.alarm, day.alarm_folder);
    return day;
}

bool has_alarm_folder(const Folder& channel, const std::string& day) {
    struct stat found {};
    return fstatat(channel.descriptor(), (day + '/' + ALARM_FOLDER).c_str(), &found,
                   AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISDIR(found.st_mode);
}

/// Reads the days at both ends until one has recordings. To read those between, too, would cost a
/// year of 128 channels seconds, and minutes while the disk is cold: their folders are taken for
/// what is in them.
void read_edges(const Folder& channel, const std::vector<std::string>& days,
                const Moment& looked_at, ChannelLook& look) {
    auto end = days.end();
    while (end != days.begin() && look.empty())
        look.newest.push_back(read_day(channel, *--end, looked_at));
    auto begin = days.begin();
    bool is_first = false;
    while (begin != end && !is_first) {
        look.oldest.push_back(read_day(channel, *begin++, looked_at));
        is_first = !look.oldest.back().empty();
    }
    look.between = static_cast<int>(end - begin);
    look.alarm_between = static_cast<int>(std::count_if(
        begin, end, [&](const std::string& day) { return has_alarm_folder(channel, day); }));
}

}  // namespace

const DayLook& ChannelLook::first() const {
    return oldest.empty() || oldest.back().empty() ? newest.back() : oldest.back();
}

ChannelLook look_at_channel(const std::string& folder, const Moment& looked_at) {
    ChannelLook look;
    Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    if (!channel) return look;
    const FolderStamp stamp = stamp_of(channel, looked_at);
    DayNames days = day_names(channel);
    look.folder = stamp_if_read(channel, stamp);
    look.next_day = days.next;
    if (days.begun.empty()) return look;
    look.last_day = days.begun.back();
    read_edges(channel, days.begun, looked_at, look);
    return look;
}

DayLook look_at_day(const std::string& folder, const std::string& day, const Moment& looked_at) {
    const Folder channel = open_folder(AT_FDCWD, folder.c_str(), 0);
    return channel ? read_day(channel, day, looked_at) : DayLook{.name = day};
}

}  // namespace standalone
