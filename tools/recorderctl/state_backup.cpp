// Consistent copies of the recorder's state, made while its services work.
#include "tools/recorderctl/state_backup.h"

#include <algorithm>
#include <filesystem>
#include <string_view>
#include <vector>

#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"
#include "tools/recorderctl/state_databases.h"

namespace recorderctl {

namespace {

using std::filesystem::path;

constexpr std::string_view UNREADY_BEFORE = ".";
constexpr std::string_view UNREADY_BEHIND = ".part";

path unready_name(const path& folder) {
    const std::string name = folder.filename();
    return folder.parent_path() / std::string(UNREADY_BEFORE).append(name).append(UNREADY_BEHIND);
}

void copy_into(const std::string& folder, const StateDatabase& database) {
    const std::string file(database.file);
    const std::string original = standalone::state_folder() + '/' + file;
    if (!std::filesystem::exists(original)) {
        if (!database.needed) return;
        throw Failure("there is no " + original + "; run recorderctl init");
    }
    const std::string copy = folder + '/' + file;
    standalone::copy_database(original, copy);
    // A copy of what is damaged must not push a good one out.
    require_sound(copy, database, original);
}

bool is_unready(std::string_view name) {
    if (!name.starts_with(UNREADY_BEFORE) || !name.ends_with(UNREADY_BEHIND)) return false;
    name.remove_prefix(UNREADY_BEFORE.size());
    name.remove_suffix(UNREADY_BEHIND.size());
    return is_moment(name);
}

/// The names of folders in `place` that have the form, by the moment in them.
std::vector<std::string> folders_named(const path& place, bool (*has_form)(std::string_view)) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
        const std::string name = entry.path().filename();
        if (entry.symlink_status().type() == std::filesystem::file_type::directory &&
            has_form(name))
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

void remove_oldest(const path& place, const std::string& newest, std::size_t count) {
    std::vector<std::string> names = folders_named(place, is_moment);
    // Those that are dated later than now are from before the clock was set right, so they are
    // older than all that have come since.
    const auto later = std::ranges::upper_bound(names, newest);
    std::rotate(names.begin(), later, names.end());
    for (std::size_t oldest = 0; oldest + count < names.size(); ++oldest)
        std::filesystem::remove_all(place / names[oldest]);
}

}  // namespace

void backup_state(const std::string& folder) {
    path target = std::filesystem::absolute(folder).lexically_normal();
    if (!target.has_filename()) target = target.parent_path();
    if (std::filesystem::exists(std::filesystem::symlink_status(target)))
        throw Failure("there is a " + target.string() + " already");
    UnreadyFolder unready(unready_name(target));
    for (const StateDatabase& database : state_databases()) copy_into(unready.path(), database);
    unready.become(target);
}

std::string backup_in_turn(const std::string& folder, int count) {
    const path place = std::filesystem::absolute(folder);
    if (!std::filesystem::exists(place)) make_folder(place);
    const standalone::FileHandle held = hold_folder(place);
    for (const std::string& left : folders_named(place, is_unready))
        std::filesystem::remove_all(place / left);
    const std::string name = moment_for_names();
    backup_state(place / name);
    remove_oldest(place, name, static_cast<std::size_t>(count));
    return place / name;
}

}  // namespace recorderctl
