// The memory of one task's copies on one destination, in the daemon's own database.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"
#include "services/backup_daemon/memory/copy_memory.h"

namespace services {

/// The copies and checkpoints as rows. Any call may throw standalone::DatabaseError.
class CopyStore : public CopyMemory {
public:
    /// @param database    with deferred durability: when the newest rows are lost, what is on the
    ///                    share is compared before anything is sent
    /// @param task_id     decimal, as all of tasks are; the task may be deleted
    /// @param destination its identifier; "" when it is not known yet
    CopyStore(standalone::Database& database, const std::string& task_id,
              std::string destination = "");

    void move_to(const std::string& destination) override { destination_ = destination; }
    std::map<std::string, CopiedFile> copied_in(const std::string& folder) override;
    std::optional<Checkpoint> checkpoint(const std::string& path) override;
    std::vector<Checkpoint> checkpoints() override;
    std::vector<Checkpoint> abandoned() override;
    void drop_abandoned(const std::string& temporary) override;
    void save(const Checkpoint& made) override;
    void drop_checkpoint(const std::string& path) override;
    void record(const CopiedFile& file) override;
    std::string oldest_day() override;
    std::set<std::string> newest_days(const std::string& day) override;
    std::vector<CopiedFile> older_than(const std::string& day, int limit,
                                       const std::set<std::string>& kept) override;
    FileAmount amount_older_than(const std::string& day, const std::set<std::string>& kept,
                                 long long enough) override;
    void forget(const std::string& path) override;
    void begin_removal(const std::vector<CopiedFile>& copies) override;
    std::vector<CopiedFile> half_removed(int limit) override;
    void mark_removed(const std::string& path) override;
    Sample sample() override;
    void end_sample(const std::string& folder) override;
    void doubt(const std::string& path, const std::string& folder) override;
    std::set<std::string> spoilt() override;
    void accept_spoilt() override;
    std::optional<TaskDate> date() override;
    void set_date(const TaskDate& date) override;

private:
    standalone::Statement of_task(const std::string& sql);
    standalone::Statement of_destination(const std::string& sql);
    static std::vector<Checkpoint> all_of(standalone::Statement row);
    standalone::Statement older(const std::string& day);
    void set_removed(const std::string& path, int removed);
    void note_that_copies_differ(const std::string& path);

    standalone::Database& database_;
    long long task_;
    std::string destination_;
};

}  // namespace services
