// Has somebody told of each problem when it is there, once a day while it is, and when it is over.
#include "services/backup_daemon/tell/alert_keeper.h"

#include <algorithm>
#include <set>
#include <utility>

namespace services {
namespace {

using standalone::Statement;

constexpr long long REMINDER_PAUSE = 24LL * 3600;  // seconds

/// A clock that was set back since has made a time of telling that is yet to come: now counts.
std::optional<long long> not_later(std::optional<long long> told, long long now) {
    if (told && *told > now) return now;
    return told;
}

/// When time alone asks for something: a task becomes overdue, a reminder is due.
/// @param told when somebody was, last; nothing also when nobody is to be
long long quiet_until(const Problem& problem, std::optional<long long> told, long long now) {
    if (told) return *told + REMINDER_PAUSE;
    const bool is_to_come = problem.key.kind == ProblemKind::overdue && problem.since > now;
    return is_to_come ? problem.since : NEVER;
}

}  // namespace

AlertKeeper::AlertKeeper(standalone::TaskStore& tasks, standalone::Database& memory,
                         ShareOf share_of, std::string recorder)
    : tasks_(tasks),
      memory_(memory),
      outbox_(memory),
      share_of_(std::move(share_of)),
      recorder_(std::move(recorder)) {}

void AlertKeeper::look(const std::vector<AlertReceiver>& receivers, long long now) {
    const Seen seen{tasks_.version(), memory_.version(), receivers};
    if (last_look_.holds(seen, now)) return;
    last_look_.note(seen, now, look_at_all(receivers, now));
}

/// @return until when it need not be done again, if nothing changes
long long AlertKeeper::look_at_all(const std::vector<AlertReceiver>& receivers, long long now) {
    const auto& tasks = tasks_.known();
    Known unwatched = known();
    std::set<std::string> full;
    for (const auto& [key, standing] : unwatched)
        if (key.kind == ProblemKind::share_nearly_full) full.insert(key.subject);
    const bool to_be_told = !receivers.empty();
    std::vector<Change> changes;
    long long until = NEVER;
    for (Problem& problem : look_for_problems(tasks, share_of_, memory_, full, now)) {
        const auto row = unwatched.extract(problem.key);
        const Standing* standing = row ? &row.mapped() : nullptr;
        const auto told = standing != nullptr && to_be_told ? standing->told : std::nullopt;
        until = std::min(until, quiet_until(problem, told, now));
        auto change = change_of(std::move(problem), standing, to_be_told, now);
        if (change) changes.push_back(std::move(*change));
    }
    write(changes, unwatched, receivers, now);
    outbox_.forget_others(receivers);
    forget_shares(tasks);
    return until;
}

AlertKeeper::Known AlertKeeper::known() {
    Statement row = memory_.prepare("SELECT kind, subject, since, told, detail FROM problem");
    Known all;
    while (row.step()) {
        Standing standing{.since = row.integer(2), .told = {}, .detail = row.text(4)};
        if (!row.is_null(3)) standing.told = row.integer(3);
        all[{static_cast<ProblemKind>(row.integer(0)), row.text(1)}] = standing;
    }
    return all;
}

/// @param known null: it was not there
/// @return nothing when all is as it was
std::optional<AlertKeeper::Change> AlertKeeper::change_of(Problem problem, const Standing* known,
                                                          bool to_be_told, long long now) {
    if (!problem.is_there && !known) return {};
    if (known) problem.since = known->since;
    Change change{.problem = std::move(problem), .standing = {}, .tell = {}};
    if (!change.problem.is_there) {
        if (known->told) change.tell = AlertEvent::resolved;
        return change;
    }
    Standing standing{.since = change.problem.since,
                      .told = known ? not_later(known->told, now) : std::nullopt,
                      .detail = change.problem.detail};
    if (to_be_told && !standing.told)
        change.tell = AlertEvent::raised;
    else if (to_be_told && now - *standing.told >= REMINDER_PAUSE)
        change.tell = AlertEvent::reminder;
    if (change.tell) standing.told = now;
    if (known && *known == standing) return {};
    change.standing = std::move(standing);
    return change;
}

/// @param unwatched those of which nobody is told that they are over
void AlertKeeper::write(const std::vector<Change>& changes, const Known& unwatched,
                        const std::vector<AlertReceiver>& receivers, long long now) {
    if (changes.empty() && unwatched.empty()) return;
    standalone::Transaction transaction(memory_);
    for (const auto& [key, standing] : unwatched) forget(key);
    for (const Change& change : changes) {
        write(change);
        if (change.tell)
            outbox_.put(alert_message(*change.tell, change.problem, recorder_, now), receivers,
                        now);
    }
    transaction.commit();
}

void AlertKeeper::write(const Change& change) {
    const ProblemKey& key = change.problem.key;
    if (!change.standing) return forget(key);
    Statement insert = memory_.prepare(
        "INSERT OR REPLACE INTO problem (kind, subject, since, told, detail) "
        "VALUES (?, ?, ?, ?, ?)");
    insert.bind(1, static_cast<int>(key.kind)).bind(2, key.subject);
    insert.bind(3, change.standing->since).bind(5, change.standing->detail);
    if (change.standing->told)
        insert.bind(4, *change.standing->told);
    else
        insert.bind_null(4);
    insert.step();
}

void AlertKeeper::forget(const ProblemKey& key) {
    memory_.prepare("DELETE FROM problem WHERE kind = ? AND subject = ?")
        .bind(1, static_cast<int>(key.kind))
        .bind(2, key.subject)
        .step();
}

/// What a share told that no task has any more says nothing of the one that may have it some day.
void AlertKeeper::forget_shares(const std::list<TDataBackupConfig>& tasks) {
    std::set<std::string> kept;
    for (const TDataBackupConfig& task : tasks) kept.insert(share_of_(task));
    Statement row = memory_.prepare("SELECT destination FROM share_room");
    std::vector<std::string> left;
    while (row.step())
        if (!kept.contains(row.text(0))) left.push_back(row.text(0));
    for (const std::string& share : left)
        memory_.prepare("DELETE FROM share_room WHERE destination = ?").bind(1, share).step();
}

}  // namespace services
