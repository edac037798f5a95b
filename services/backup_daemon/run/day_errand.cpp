// A day's listing: what this machine has of it, and what the share says that it has of that.
#include "services/backup_daemon/run/day_errand.h"

#include <sys/stat.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/run/empty_row.h"

namespace services {
namespace {

// A name takes 18 bytes at least, and the answer 16: that one fits as well. What is left of the
// question's packet is for the folder's path.
constexpr std::size_t LARGEST_QUESTION = LARGEST_PACKET / 2;

/// Bytes that a name takes in a packet, with its length.
std::size_t packed_size(const std::string& name) {
    return name.size() + sizeof(long long);
}

bool can_be(const FileState& file) {
    return file.size >= -1;
}

bool is_folder(const std::string& path) {
    struct stat found {};
    return lstat(path.c_str(), &found) == 0 && S_ISDIR(found.st_mode);
}

}  // namespace

std::string disk_of(const std::string& folder) {
    struct stat found {};
    return stat(folder.c_str(), &found) == 0 ? disk_of(found) : "";
}

std::string disk_of(const struct stat& folder) {
    if (folder.st_ino == 0) return "";
    return std::to_string(folder.st_dev) + ":" + std::to_string(folder.st_ino);
}

ErrandStep DayErrand::begin() {
    try {
        list();
    } catch (const std::length_error& error) {
        const std::string folder = order_.recordings + "/" + order_.day;
        return {.tell = {Failed{FailureKind::source, folder + ": " + error.what()}}, .over = true};
    } catch (const standalone::UnreadableFolder& error) {
        return {.tell = {Failed{FailureKind::source, error.what()}}, .over = true};
    }
    if (order_.ask_share) {
        ask_for(false, order_.remote);
        ask_for(true, join_path(order_.remote, "alarm"));
    }
    return next();
}

/// The loop waits for the disk. One day's folder is read at a time, or a row of empty ones for a
/// short while, and the disk is one that spins for the recorder all day long.
void DayErrand::list() {
    for (const auto& file : standalone::recordings_of_day(order_.recordings, order_.day,
                                                          {order_.normal, order_.alarm}, most_))
        found_.entries.push_back({.name = file.name,
                                  .alarm = file.alarm,
                                  .size = file.size,
                                  .modified_ns = file.modified_ns});
    if (found_.entries.empty() && is_folder(order_.recordings + "/" + order_.day))
        found_.disk = disk_of(order_.recordings);
    if (found_.disk.empty() || order_.beyond.empty()) return;
    found_.looked_at = standalone::Moment::now();
    found_.empty = empty_row(order_, found_.looked_at);
}

void DayErrand::ask_for(bool alarm, const std::string& folder) {
    std::size_t room = 0;
    for (std::size_t entry = 0; entry < found_.entries.size(); ++entry) {
        if (found_.entries[entry].alarm != alarm) continue;
        std::string name = safe_name(found_.entries[entry].name);
        if (room < packed_size(name)) {
            questions_.push_back({{folder, {}}, entry});
            room = LARGEST_QUESTION;
        }
        room -= packed_size(name);
        questions_.back().order.names.push_back(std::move(name));
    }
}

/// A day of very many files takes long, here and on the share: the run hears that it goes on.
ErrandStep DayErrand::next() {
    if (!questions_.empty()) return {.ask = questions_.front().order, .tell = {At()}};
    ErrandStep last{.over = true};
    last.tell.emplace_back(std::move(found_));
    last.tell.emplace_back(Done());
    return last;
}

std::optional<ErrandStep> DayErrand::take(const WorkerReport& said) {
    const auto* answer = std::get_if<Files>(&said);
    if (!answer || questions_.empty()) return {};
    const Question& asked = questions_.front();
    if (answer->files.size() != asked.order.names.size()) return {};
    if (!std::ranges::all_of(answer->files, can_be)) return {};
    for (std::size_t name = 0; name < answer->files.size(); ++name)
        found_.entries[asked.first + name].remote = answer->files[name];
    questions_.pop_front();
    return next();
}

}  // namespace services
