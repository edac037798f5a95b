// The pieces of work that a run consists of, each carried out by one order to a lane.
#include "services/backup_daemon/run/run_work.h"

#include <algorithm>
#include <set>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/side_file.h"

namespace services {
namespace {

/// The folders of some files, an alarm folder before the day's folder that it lies in.
std::vector<std::string> folders_of(const std::vector<CopiedFile>& files, const ShareNames& names) {
    std::set<std::string, std::greater<>> folders;
    for (const CopiedFile& file : files) {
        const std::string folder = folder_of(file.path);
        folders.insert(folder);
        if (folder.ends_with("/alarm")) folders.insert(folder_of(folder));
    }
    std::vector<std::string> ordered;
    ordered.reserve(folders.size());
    for (const std::string& folder : folders) ordered.push_back(names.on_share(folder));
    return ordered;
}

/// The names that a recording's copy and its description take.
std::vector<std::string> names_of(const RunGoal& goal, const ChannelDay& where,
                                  const DayEntry& entry) {
    const std::string copy = folded(ShareNames::copy_path(where, entry));
    if (!goal.side_files) return {copy};
    return {copy, side_file_path(copy)};
}

bool stands_as_recorded(const FileState& remote, const CopiedFile& copy) {
    if (remote.size != copy.size) return false;
    return !copy.share_modified_ns || same_time(remote.modified_ns, *copy.share_modified_ns);
}

}  // namespace

Need need_of(const RunGoal& goal, const DayEntry& entry, const CopiedFile* copy, bool asked_share) {
    if (!copy) return Need::copy;
    if (copy->removed) return Need::nothing;
    if (copy->size != entry.size || copy->modified_ns != entry.modified_ns) return Need::copy;
    if (goal.side_files && !copy->side_file) return Need::copy;
    if (asked_share && !stands_as_recorded(entry.remote, *copy)) return Need::copy;
    return copy->doubted ? Need::comparison : Need::nothing;
}

std::vector<DayEntry> take_doubles(const RunGoal& goal, const ChannelDay& where,
                                   std::vector<DayEntry>& entries) {
    std::vector<DayEntry> left;
    std::vector<DayEntry> doubles;
    std::set<std::string> taken;
    for (DayEntry& entry : entries) {
        const auto names = names_of(goal, where, entry);
        const auto is_taken = [&](const std::string& name) { return taken.contains(name); };
        const bool is_double = std::ranges::any_of(names, is_taken);
        (is_double ? doubles : left).push_back(std::move(entry));
        if (!is_double) taken.insert(names.begin(), names.end());
    }
    entries = std::move(left);
    return doubles;
}

bool is_listing(const Work& work) {
    return std::holds_alternative<LookAtDay>(work.what);
}

bool is_abandoned(const Work& work) {
    const auto* removal = std::get_if<RemoveCopies>(&work.what);
    return removal && removal->why == RemoveCopies::Why::abandoned;
}

CopyFile copy_work(const RunGoal& goal, const ShareNames& names, const ChannelDay& where,
                   const DayEntry& entry, const CopiedFile* copy) {
    CopyFile work;
    work.path = ShareNames::copy_path(where, entry);
    work.count.planned = entry.size;
    work.job.recordings = where.channel->recordings;
    work.job.source = source_path(where, entry);
    work.job.target = names.on_share(work.path);
    work.job.claim = names.claim();
    work.job.fresh = entry.remote.size < 0;
    if (copy)
        work.job.recorded = RecordedCopy{.size = copy->size,
                                         .modified_ns = copy->share_modified_ns,
                                         .sha256 = copy->sha256,
                                         .doubted = copy->doubted,
                                         .source_modified_ns = copy->modified_ns};
    work.job.check = goal.check;
    if (goal.side_files)
        work.job.side_file = SideFile{where.channel->index, where.channel->guid,
                                      standalone::recording_start(where.day, entry.name)};
    return work;
}

CheckCopy check_work(const RunGoal& goal, const ShareNames& names, const CopiedFile& copy,
                     const std::string& folder) {
    CheckCopy work{.path = copy.path, .folder = folder, .order = {}};
    work.order.copy = {names.on_share(copy.path), copy.size, copy.sha256};
    for (const SelectedChannel& channel : goal.channels) {
        if (!copy.path.starts_with(channel.folder + "/")) continue;
        work.order.recordings = channel.recordings;
        work.order.source = copy.path.substr(channel.folder.size() + 1);
        work.order.modified_ns = copy.modified_ns;
    }
    return work;
}

RemoveCopies removal_work(RemoveCopies::Why why, std::vector<CopiedFile> copies,
                          const ShareNames& names) {
    RemoveCopies work{why, std::move(copies), {}};
    for (const CopiedFile& file : work.copies)
        work.order.files.push_back(
            {.path = names.on_share(file.path),
             .size = file.size,
             .modified_ns = file.share_modified_ns,
             .description_end = file.side_file ? side_file_end(file.size, file.sha256) : ""});
    work.order.folders = folders_of(work.copies, names);
    return work;
}

RemoveCopies leftover_work(const RunGoal& goal, const ShareNames& names,
                           const Checkpoint& checkpoint) {
    RemoveCopies work{RemoveCopies::Why::leftover, {}, {}};
    work.copies.emplace_back().path = checkpoint.path;
    const std::string temporary = names.on_share(checkpoint.temporary);
    work.order.files.push_back({.path = temporary});
    if (goal.side_files) work.order.files.push_back({.path = side_file_path(temporary)});
    return work;
}

RemoveCopies abandoned_work(const ShareNames& names, const Checkpoint& checkpoint) {
    RemoveCopies work{RemoveCopies::Why::abandoned, {}, {}};
    work.copies.emplace_back().path = checkpoint.temporary;
    const std::string temporary = names.on_share(checkpoint.temporary);
    work.order.files = {{.path = temporary}, {.path = side_file_path(temporary)}};
    return work;
}

}  // namespace services
