// Recordings and a share in memory, and what an honest lane reports of an order on them.
#include "recording_world.h"

#include <algorithm>
#include <set>

using namespace services;

namespace {

// So many bytes lie between two checkpoints here.
constexpr long long CHECKPOINT = 1000;

// Entries of one report, so that days of a few recordings take several.
constexpr std::size_t ENTRIES = 2;

// The one that all recordings are on.
constexpr char DISK[] = "disk";

const standalone::Moment LOOKED_AT{.now_ns = 1, .boot_ns = 1};

}  // namespace

void RecordingWorld::record(const std::string& recordings, const std::string& day,
                            const std::string& name, long long size, long long modified_ns) {
    const std::string folder = recordings + "/" + day;
    recordings_[folder + "/" + name] = {size, modified_ns};
    if (made_.contains(folder)) ++made_[folder];
}

void RecordingWorld::erase(const std::string& recordings, const std::string& day,
                           const std::string& name) {
    const std::string folder = recordings + "/" + day;
    recordings_.erase(folder + "/" + name);
    if (made_.contains(folder)) ++made_[folder];
}

void RecordingWorld::make_day(const std::string& recordings, const std::string& day) {
    ++made_[recordings + "/" + day];
}

std::vector<Report> RecordingWorld::carry_out(const Order& order) {
    return std::visit([this](const auto& which) { return obey(which); }, order);
}

std::vector<Report> RecordingWorld::obey(const FindPlace&) {
    return {place};
}

/// The one text that runs write is the list of cameras.
std::vector<Report> RecordingWorld::obey(const WriteText& order) {
    place.cameras = read_cameras(order.text);
    return {Done()};
}

std::vector<Report> RecordingWorld::obey(const ListDays& order) {
    std::set<std::string> days;
    std::string newest;
    for (const auto& [path, recording] : recordings_) {
        if (!path.starts_with(order.recordings + "/")) continue;
        const std::string day = path.substr(order.recordings.size() + 1, 10);
        if (day >= order.first && day <= order.last) days.insert(day);
        newest = std::max(newest, day);
    }
    for (const auto& [path, changes] : made_) {
        if (!path.starts_with(order.recordings + "/")) continue;
        const std::string day = path.substr(order.recordings.size() + 1);
        if (day >= order.first && day <= order.last) days.insert(day);
        newest = std::max(newest, day);
    }
    return {Days{{days.begin(), days.end()}, newest, DISK}};
}

bool RecordingWorld::is_there(const std::string& folder) const {
    const auto first = recordings_.lower_bound(folder + "/");
    return made_.contains(folder) ||
           (first != recordings_.end() && first->first.starts_with(folder + "/"));
}

/// As a lane on a good file system: what has the stamp that it had is not read.
std::vector<standalone::FolderStamp> RecordingWorld::empty_beyond(const ListDay& order) const {
    std::vector<standalone::FolderStamp> stamps;
    for (const DayBeyond& day : order.beyond) {
        const ChannelFolder& channel = order.folders->at(day.folder);
        const std::string folder = channel.recordings + "/" + day.day;
        const auto made = made_.find(folder);
        if (made == made_.end() || channel.disk != DISK) break;
        const bool is_known = day.empty.inode != 0 && day.empty.changed_ns == made->second;
        const auto first = recordings_.lower_bound(folder + "/");
        const bool has_some = first != recordings_.end() && first->first.starts_with(folder + "/");
        if (!is_known && has_some) break;
        stamps.push_back({.inode = 1, .changed_ns = made->second});
    }
    return stamps;
}

std::vector<Report> RecordingWorld::obey(const ListDay& order) {
    const std::string folder = order.recordings + "/" + order.day + "/";
    std::vector<Report> reports;
    Entries part;
    bool is_empty = true;
    for (const auto& [path, recording] : recordings_) {
        if (!path.starts_with(folder)) continue;
        const std::string name = path.substr(folder.size());
        const bool alarm = name.starts_with("alarm/");
        if (alarm ? !order.alarm : !order.normal) continue;
        is_empty = false;
        const auto there = share.find(order.remote + "/" + name);
        const bool seen = order.ask_share && there != share.end();
        part.entries.push_back({.name = alarm ? name.substr(6) : name,
                                .alarm = alarm,
                                .size = recording.size,
                                .modified_ns = recording.modified_ns,
                                .remote = {.size = seen ? there->second : -1}});
        if (part.entries.size() < ENTRIES) continue;
        reports.emplace_back(part);
        part.entries.clear();
    }
    if (is_empty && is_there(order.recordings + "/" + order.day)) {
        part.disk = DISK;
        part.empty = empty_beyond(order);
        part.looked_at = LOOKED_AT;
    }
    reports.emplace_back(part);
    reports.emplace_back(Done());
    return reports;
}

std::vector<Report> RecordingWorld::obey(const CopyJob& order) {
    const auto found = recordings_.find(order.recordings + "/" + order.source);
    if (found == recordings_.end()) return {Failed{FailureKind::gone, order.source + " is gone"}};
    const Recording& recording = found->second;
    std::vector<Report> reports;
    // What stands there already is kept; another file goes only when the copy gets its name.
    const auto there = share.find(order.target);
    const bool is_equal = there != share.end() && there->second == recording.size;
    if (!is_equal || spoilt.contains(order.target)) {
        if (recording.size > free_room()) return {Failed{FailureKind::full, "no room"}};
        long long offset = std::min(order.offset, recording.size);
        reports.emplace_back(At{offset, true});
        while (offset < recording.size) {
            offset = std::min(offset + CHECKPOINT, recording.size);
            reports.emplace_back(Noted{offset, "hash of " + std::to_string(offset)});
        }
        share[order.target] = recording.size;
        spoilt.erase(order.target);
        share.erase(order.temporary);
    }
    if (order.side_file) share[order.target + ".json"] = 0;
    reports.emplace_back(Copied{{recording.size, recording.modified_ns, "hash", 0}});
    return reports;
}

std::vector<Report> RecordingWorld::obey(const RemoveFiles& order) {
    std::vector<Report> reports;
    Removed removed;
    for (const DoomedFile& file : order.files) {
        removed.files.push_back(remove(file));
        reports.emplace_back(At{0});
    }
    reports.emplace_back(removed);
    return reports;
}

Fate RecordingWorld::remove(const DoomedFile& file) {
    const auto there = share.find(file.path);
    if (there == share.end()) return file.size < 0 ? Fate::gone : Fate::missing;
    if (file.size >= 0 && there->second != file.size) return Fate::stayed;
    if (keeps_removed) kept_ += there->second;
    share.erase(there);
    if (!file.description_end.empty()) share.erase(file.path + ".json");
    return Fate::gone;
}

std::vector<Report> RecordingWorld::obey(const AskRoom&) {
    if (!tells_room) return {Room()};
    return {Room{ShareRoom{std::max(free_room(), 0LL), room}}};
}

std::vector<Report> RecordingWorld::obey(const ReadCopy& order) {
    return {At{0}, CopySeen{condition_of(order.copy)}};
}

Condition RecordingWorld::condition_of(const ReadBack& copy) const {
    const auto there = share.find(copy.path);
    if (there == share.end()) return Condition::missing;
    if (there->second != copy.size) return Condition::other_size;
    return spoilt.contains(copy.path) ? Condition::other_content : Condition::as_made;
}

void RecordingWorld::fill() {
    room -= free_room();
}

long long RecordingWorld::free_room() const {
    long long used = kept_;
    for (const auto& [path, size] : share) used += size;
    return room - used;
}
