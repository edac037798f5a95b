// Consistent copies of the recorder's state, made while its services work.
#include "tools/recorderctl/state_backup.h"

#include <algorithm>
#include <filesystem>
#include <regex>
#include <vector>

#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"
#include "tools/recorderctl/state_databases.h"

namespace recorderctl {

namespace {

using std::filesystem::path;

// As moment_for_names() writes it, and as a copy is called that is not ready yet.
constexpr char MOMENT[] = R"(\d{4}-\d\d-\d\dT\d\d-\d\d-\d\dZ)";

path unready_name(const path& folder) {
    return folder.parent_path() / ("." + folder.filename().string() + ".part");
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

/// The names of folders in `place` that have the form, the first to be removed first.
std::vector<std::string> folders_named(const path& place, const std::string& form) {
    const std::regex pattern(form);
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(place)) {
        const std::string name = entry.path().filename();
        if (entry.symlink_status().type() == std::filesystem::file_type::directory &&
            std::regex_match(name, pattern))
            names.push_back(name);
    }
    std::ranges::sort(names);
    return names;
}

void remove_oldest(const path& place, const std::string& newest, std::size_t count) {
    std::vector<std::string> names = folders_named(place, MOMENT);
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
    for (const std::string& left :
         folders_named(place, std::string(R"(\.)") + MOMENT + R"(\.part)"))
        std::filesystem::remove_all(place / left);
    const std::string name = moment_for_names();
    backup_state(place / name);
    remove_oldest(place, name, static_cast<std::size_t>(count));
    return place / name;
}

}  // namespace recorderctl
