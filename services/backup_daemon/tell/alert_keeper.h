// Has somebody told of each problem when it is there, once a day while it is, and when it is over.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/task_store.h"
#include "services/backup_daemon/tell/alert_outbox.h"
#include "services/backup_daemon/tell/alert_text.h"
#include "services/backup_daemon/tell/problem_look.h"
#include "services/last_look.h"

namespace services {

/// Problems that are not over stand in the store together with the alerts about them, and both
/// change in one transaction: no alert is lost or made twice by the daemon's end, and a problem
/// that stays is one, however often what it is about happens.
///
/// While nobody is to be told, problems are kept without a word; those that are there when somebody
/// is are told then. What is over is told to those who know of it. Problems of a task that is
/// deleted or disabled, or of a share that no such task copies to, go without a word.
class AlertKeeper {
public:
    /// @param tasks    outlives the keeper
    /// @param memory   the daemon's own database, with full durability; the same
    /// @param recorder its name (alert_text.h)
    AlertKeeper(standalone::TaskStore& tasks, standalone::Database& memory, ShareOf share_of,
                std::string recorder);

    /// Looks at all tasks when anything may be otherwise than at the last look: behind the end of
    /// each run, and now and then. Where nothing has changed nothing is written.
    /// @param receivers those who are to be told
    /// @param now  seconds since the epoch; a clock that is set back silences nobody for longer
    ///             than a day from then on
    /// @throws standalone::DatabaseError: nobody was told of anything, and is with the next look
    void look(const std::vector<AlertReceiver>& receivers, long long now);

private:
    /// What is stored of a problem that is not over.
    struct Standing {
        long long since = 0;
        std::optional<long long> told;  ///< when somebody was, last
        std::string detail;

        bool operator==(const Standing&) const = default;
    };

    /// What a look finds to be written.
    struct Change {
        Problem problem;
        std::optional<Standing> standing;  ///< nothing: it is over
        std::optional<AlertEvent> tell;
    };

    /// What a look depends on.
    struct Seen {
        standalone::Database::Version tasks;
        standalone::Database::Version memory;
        std::vector<AlertReceiver> receivers;

        bool operator==(const Seen&) const = default;
    };

    using Known = std::map<ProblemKey, Standing>;

    long long look_at_all(const std::vector<AlertReceiver>& receivers, long long now);
    Known known();
    static std::optional<Change> change_of(Problem problem, const Standing* known, bool to_be_told,
                                           long long now);
    void write(const std::vector<Change>& changes, const Known& unwatched,
               const std::vector<AlertReceiver>& receivers, long long now);
    void write(const Change& change);
    void forget(const ProblemKey& key);
    void forget_shares(const std::list<TDataBackupConfig>& tasks);

    standalone::TaskStore& tasks_;
    standalone::Database& memory_;
    AlertOutbox outbox_;
    const ShareOf share_of_;
    const std::string recorder_;
    LastLook<Seen> last_look_;
};

}  // namespace services
