// The backup daemon's own database, backupd.db: where it stands, how it is made and kept clean.
#pragma once

#include <list>
#include <string>

#include "backup/task_record.h"
#include "platform/standalone/store/database.h"

namespace services {

/// Path of the database, in the state folder.
std::string memory_database_path();

/// The connections to it, one for what must be on disk at once and one for what need not
/// (docs/formats.md, "What a power cut can take").
struct Memory {
    /// Full: a next run that is lost comes twice, or never; that there is a run at all.
    standalone::Database schedules;
    standalone::Database runs;  ///< deferred: copies, checkpoints, how far runs have come
};

/// Makes the database (mode 0600) where there is none, or brings it up to the newest schema, and
/// opens it. Nobody but the daemon knows it, so the daemon does so at its start.
/// @throws std::runtime_error with one line for the user, also when the database is newer than this
///         program
Memory open_memory();

/// Opens it beside the daemon.
/// @throws std::runtime_error when there is none, or when its schema is another one than this
///         program's; the daemon brings it up to date when it starts
standalone::Database open_existing_memory(standalone::Database::Access access);

/// Forgets next runs, progress, dates and spoilt copies of all tasks but these. Copies outlive
/// their task, and so does the history of its runs, for a time (old_runs.h).
/// Checkpoints do until the unfinished file is gone from the share: they are marked as abandoned,
/// and a later run at their destination sees to it (copy_memory.h).
///
/// Tasks are in another database, which no foreign key reaches. Looking at the list of those that
/// are left (sweeper.h) needs nobody who remembers to tell of a deletion; and it reaches what a run
/// that is being cancelled writes after its task is gone, and what a killed daemon left. Until then
/// such rows are in nobody's way, since no identifier is ever given twice. Where there are none,
/// nothing is written.
/// @param tasks all that are stored
/// @throws standalone::DatabaseError
void keep_only(Memory& memory, const std::list<TDataBackupConfig>& tasks);

}  // namespace services
