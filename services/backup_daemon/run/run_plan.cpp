// What a run has to do: days, files, old copies, left-over temporary files.
#include <algorithm>
#include <set>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/copy/side_file.h"
#include "services/backup_daemon/run/backup_run.h"
#include "services/backup_daemon/tell/run_events.h"

namespace services {
namespace {

// Files of one order to remove; a packet has its limits.
constexpr int REMOVED_AT_ONCE = 100;

constexpr int FORMAT_WITH_SIDE_FILE = 1;  // row of strRecFormat_Arr

/// The file's name while it is unfinished: no other task's, and recognisable as such.
std::string temporary_name(const std::string& path, const std::string& task_id) {
    const std::string folder = folder_of(path);
    const std::string name = path.substr(folder.empty() ? 0 : folder.size() + 1);
    return join_path(folder, "." + name + "." + task_id + ".part");
}

}  // namespace

std::string BackupRun::day_folder(const DayWork& work) const {
    return channels_[work.channel].folder + "/" + work.day;
}

std::string BackupRun::path_of(const DayWork& work, const DayEntry& entry) const {
    return day_folder(work) + (entry.alarm ? "/alarm/" : "/") + safe_name(entry.name);
}

std::string BackupRun::on_share(const std::string& path) const {
    return join_path(destination_.folder, path);
}

std::string BackupRun::below_folder(const std::string& path) const {
    return path.substr(destination_.folder.empty() ? 0 : destination_.folder.size() + 1);
}

void BackupRun::plan_days() {
    for (std::size_t channel = 0; channel < channels_.size(); ++channel) {
        auto item = std::make_unique<Item>();
        item->order =
            ListDays{channels_[channel].recordings, selection_.first_day, selection_.last_day};
        item->day = channel;
        ready_.push_back(std::move(item));
    }
}

/// Counts first: people want to know how much there is to do.
void BackupRun::plan_measuring() {
    std::ranges::stable_sort(days_, {}, &DayWork::day);
    for (std::size_t day = 0; day < days_.size(); ++day) {
        auto item = std::make_unique<Item>();
        item->order = ListDay{channels_[days_[day].channel].recordings,
                              days_[day].day,
                              selection_.normal,
                              selection_.alarm,
                              "",
                              false};
        item->day = day;
        ready_.push_back(std::move(item));
    }
}

void BackupRun::plan_day_listing() {
    const DayWork& work = days_[next_day_];
    auto item = std::make_unique<Item>();
    item->order =
        ListDay{channels_[work.channel].recordings, work.day, selection_.normal, selection_.alarm,
                on_share(day_folder(work)),         true};
    item->day = next_day_++;
    listing_ = true;
    ready_.push_front(std::move(item));
}

bool BackupRun::needs_copy(const DayEntry& entry, const std::string& path, bool asked_share) const {
    const auto found = recorded_.find(path);
    if (found == recorded_.end()) return true;
    const CopiedFile& copy = found->second;
    if (copy.removed) return false;
    if (copy.size != entry.size || copy.modified_ns != entry.modified_ns) return true;
    if (task_.recordingFormat == FORMAT_WITH_SIDE_FILE && !copy.side_file) return true;
    return asked_share && entry.remote_size != copy.size;
}

void BackupRun::take_day(const Item& item) {
    DayWork& work = days_[item.day];
    const bool to_copy = std::get<ListDay>(item.order).ask_share;
    recorded_ = copies_.copied_in(day_folder(work) + "/");
    // What was measured gives way to what is found now.
    files_planned_ -= work.files;
    bytes_planned_ -= work.bytes;
    work.files = work.bytes = 0;
    for (const DayEntry& entry : item.found) {
        const std::string path = path_of(work, entry);
        if (!needs_copy(entry, path, to_copy)) continue;
        ++work.files;
        work.bytes += entry.size;
        if (to_copy) ready_.push_back(copy_item(item.day, entry, path));
    }
    files_planned_ += work.files;
    bytes_planned_ += work.bytes;
}

std::unique_ptr<BackupRun::Item> BackupRun::copy_item(std::size_t day, const DayEntry& entry,
                                                      const std::string& path) const {
    const DayWork& work = days_[day];
    const SelectedChannel& channel = channels_[work.channel];
    const std::string local = channel.recordings + "/" + work.day + (entry.alarm ? "/alarm/" : "/");
    CopyJob job;
    job.source = local + entry.name;
    job.target = on_share(path);
    job.temporary = on_share(temporary_name(path, task_.taskID));
    if (const auto copy = recorded_.find(path); copy != recorded_.end())
        job.recorded_size = copy->second.size;
    job.check = house_.check;
    if (task_.recordingFormat == FORMAT_WITH_SIDE_FILE)
        job.side_file = SideFile{channel.index, channel.guid,
                                 standalone::recording_start(work.day, entry.name)};
    auto item = std::make_unique<Item>();
    item->order = std::move(job);
    item->day = day;
    item->entry = entry;
    return item;
}

void BackupRun::plan_removal(const std::vector<CopiedFile>& files) {
    auto item = std::make_unique<Item>();
    RemoveFiles order;
    std::set<std::string> folders;
    for (const CopiedFile& file : files) {
        order.files.push_back(on_share(file.path));
        if (file.side_file) order.files.push_back(side_file_path(on_share(file.path)));
        folders.insert(folder_of(file.path));
    }
    // The alarm folder lies in the day's folder and goes first.
    for (auto folder = folders.rbegin(); folder != folders.rend(); ++folder) {
        order.folders.push_back(on_share(*folder));
        if (folder->ends_with("/alarm")) folders.insert(folder_of(*folder));
    }
    item->order = std::move(order);
    item->removed = files;
    ready_.push_front(std::move(item));
}

void BackupRun::plan_retention() {
    const std::string first_kept = first_kept_day(task_, today_);
    if (first_kept.empty()) return;
    const auto files = copies_.older_than(first_kept, REMOVED_AT_ONCE);
    if (!files.empty()) return plan_removal(files);
    write_run_event(
        RETENTION_PASS, task_.taskName,
        std::to_string(files_removed_) + " files of days before " + first_kept + " removed");
}

/// Temporary files whose recording is gone or no longer wanted.
void BackupRun::plan_leftovers() {
    for (const auto& checkpoint : copies_.checkpoints()) {
        auto item = std::make_unique<Item>();
        item->order = RemoveFiles{{on_share(checkpoint.temporary)}, {}};
        item->removed.emplace_back().path = checkpoint.path;
        ready_.push_back(std::move(item));
    }
}

void BackupRun::removed(const Item& item) {
    for (const CopiedFile& file : item.removed) {
        if (phase_ == Phase::leftovers)
            copies_.drop_checkpoint(file.path);
        else if (phase_ == Phase::copying)
            copies_.mark_removed(file.path);
        else
            copies_.forget(file.path);
    }
    files_removed_ += static_cast<long long>(item.removed.size());
    if (phase_ != Phase::copying) return;
    making_room_ = false;
    ++rooms_made_;
    write_run_event(
        ROOM_MADE, task_.taskName,
        item.removed.front().day + ", " + std::to_string(item.removed.size()) + " files");
}

}  // namespace services
