// The names that a run's files have, here and on the share.
#include "services/backup_daemon/run/run_names.h"

#include "services/backup_daemon/copy/share_path.h"

namespace services {
namespace {

const char* kind_folder(const DayEntry& entry) {
    return entry.alarm ? "/alarm/" : "/";
}

}  // namespace

std::string source_path(const ChannelDay& where, const DayEntry& entry) {
    return where.day + kind_folder(entry) + entry.name;
}

std::string ShareNames::day_folder(const ChannelDay& where) {
    return where.channel->folder + "/" + where.day;
}

std::string ShareNames::copy_path(const ChannelDay& where, const DayEntry& entry) {
    return day_folder(where) + kind_folder(entry) + safe_name(entry.name);
}

std::string ShareNames::temporary_path(const std::string& copy) const {
    const std::string folder = folder_of(copy);
    const std::string name = copy.substr(folder.empty() ? 0 : folder.size() + 1);
    return join_path(folder, "." + name + "." + writer_ + ".part");
}

std::string ShareNames::claim() const {
    return "This name is taken by recorder " + recorder_ + " for the copy of a recording.\n";
}

std::string ShareNames::on_share(const std::string& path) const {
    return join_path(folder_, path);
}

}  // namespace services
