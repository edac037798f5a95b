// Puts a copy of the recorder's state in the place of the present one.
#include "tools/recorderctl/state_restore.h"

#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "platform/standalone/store/database.h"
#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"
#include "tools/recorderctl/reading_right.h"
#include "tools/recorderctl/state_databases.h"

namespace recorderctl {

namespace {

using standalone::LoneHold;
using std::filesystem::path;

// What SQLite may have beside a database. The shared memory is made anew each time.
constexpr const char* JOURNALS[] = {"-wal", "-journal"};
constexpr const char* ALL_PARTS[] = {"", "-wal", "-journal", "-shm"};

/// Renames that are taken back together unless all of them could be done.
class Renames {
public:
    Renames() = default;
    ~Renames() {
        std::error_code ignored;
        for (auto done = done_.rbegin(); done != done_.rend(); ++done)
            std::filesystem::rename(done->second, done->first, ignored);
    }
    Renames(const Renames&) = delete;
    Renames& operator=(const Renames&) = delete;

    void rename(const path& from, const path& to) {
        done_.reserve(done_.size() + 1);
        std::filesystem::rename(from, to);
        done_.emplace_back(from, to);
    }
    void keep() { done_.clear(); }

private:
    std::vector<std::pair<path, path>> done_;
};

/// Removes a folder in the end, unless there is anything in it.
class RemovedIfEmpty {
public:
    explicit RemovedIfEmpty(const path& folder) : folder_(folder) {}
    ~RemovedIfEmpty() {
        std::error_code ignored;
        std::filesystem::remove(folder_, ignored);
    }
    RemovedIfEmpty(const RemovedIfEmpty&) = delete;
    RemovedIfEmpty& operator=(const RemovedIfEmpty&) = delete;

private:
    path folder_;
};

/// The backup may lie where the recorder's user cannot read, or nobody can write.
void fetch(const path& from, const path& to) {
    const ReadingRight as_the_daemon;
    if (!std::filesystem::is_regular_file(std::filesystem::symlink_status(from)))
        throw Failure(from.string() + " is no file");
    std::filesystem::copy_file(from, to);
    std::filesystem::permissions(to, std::filesystem::perms(0600));
}

bool is_there(const path& file) {
    const ReadingRight as_the_daemon;
    return std::filesystem::exists(std::filesystem::symlink_status(file));
}

void stage(const path& backup, const StateDatabase& database, const std::string& staging) {
    const std::string file(database.file);
    if (!is_there(backup / file)) {
        if (!database.needed) return;
        throw Failure((backup / file).string() + " is missing; this is no backup of the state");
    }
    fetch(backup / file, path(staging) / file);
    // A folder that was copied as it stood, after a power cut for example, has them, too.
    for (const char* journal : JOURNALS)
        if (is_there(backup / (file + journal)))
            fetch(backup / (file + journal), path(staging) / (file + journal));
    require_sound(path(staging) / file, database, backup / file);
}

/// Alerts that waited when the copy was made have arrived since, or are old news. Problems stay:
/// the daemon tells of those that are not over.
void forget_alerts(const path& memory) {
    if (!std::filesystem::exists(memory)) return;
    standalone::Database database(memory.string(), standalone::Database::Access::writing);
    for (const std::string table : {"alert", "alert_given_up"}) {
        standalone::Statement there =
            database.prepare("SELECT 1 FROM sqlite_master WHERE name = ?");
        if (there.bind(1, table).step()) database.run(("DELETE FROM " + table).c_str());
    }
}

/// The daemon, which is connected as long as it runs, and everybody else is kept out from now on.
std::unique_ptr<LoneHold> hold(const path& database) {
    if (!std::filesystem::exists(database)) return nullptr;
    try {
        std::unique_ptr<LoneHold> held = LoneHold::take(database);
        if (held) return held;
    } catch (const standalone::DatabaseError&) {
        return nullptr;  // damaged, which a restore mends
    }
    throw Failure(database.string() +
                  " is in use; stop the recorder's services and their sockets first");
}

std::vector<std::unique_ptr<LoneHold>> hold_all(const path& state) {
    std::vector<std::unique_ptr<LoneHold>> held;
    for (const StateDatabase& database : state_databases())
        held.push_back(hold(state / database.file));
    return held;
}

/// Journals go with their database: the next one of its name would be taken to be theirs.
void set_aside(const path& state, const StateDatabase& database, const path& aside,
               Renames& renames) {
    for (const char* part : ALL_PARTS) {
        const std::string file = std::string(database.file) + part;
        if (std::filesystem::exists(state / file)) renames.rename(state / file, aside / file);
    }
}

void exchange(const path& state, const path& staging, const path& aside) {
    Renames renames;
    for (const StateDatabase& database : state_databases())
        set_aside(state, database, aside, renames);
    for (const StateDatabase& database : state_databases())
        if (std::filesystem::exists(staging / database.file))
            renames.rename(staging / database.file, state / database.file);
    sync_to_disk(aside);
    sync_to_disk(state);
    renames.keep();
}

std::string make_place_for_replaced(const path& state) {
    const path name = state / ("before-restore-" + moment_for_names());
    path place = name;
    for (int next = 2; std::filesystem::exists(place); ++next)
        place = name.string() + '-' + std::to_string(next);
    make_folder(place);
    return place;
}

}  // namespace

std::string restore_state(const std::string& backup) {
    const path state = standalone::state_folder();
    if (!std::filesystem::is_directory(state))
        throw Failure("there is no state folder " + state.string() + "; run recorderctl init");
    const standalone::FileHandle ours_alone = hold_folder(state);
    const path unready = state / ".restore.part";
    std::filesystem::remove_all(unready);  // of one that was cut short
    const UnreadyFolder staging(unready);
    for (const StateDatabase& database : state_databases())
        stage(std::filesystem::absolute(backup), database, staging.path());
    standalone::migrate_databases(staging.path());
    forget_alerts(path(staging.path()) / "backupd.db");
    for (const auto& file : std::filesystem::directory_iterator(staging.path()))
        sync_to_disk(file.path());
    const std::string aside = make_place_for_replaced(state);
    const RemovedIfEmpty nothing_aside(aside);
    const auto held = hold_all(state);
    exchange(state, staging.path(), aside);
    return std::filesystem::is_empty(aside) ? "" : aside;
}

}  // namespace recorderctl
