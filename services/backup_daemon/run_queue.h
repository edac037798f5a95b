// Which tasks wait for their run: what notices do to the queue that the store keeps.
#pragma once

#include <string>
#include <vector>

#include "platform/standalone/task_store.h"
#include "services/backup_daemon/notice.h"

namespace services {

/// The queue of started tasks. The store holds it, so it outlives the daemon. Nothing is copied
/// yet: a started task waits until it is stopped or deleted, and no task ever runs. Any call may
/// throw standalone::DatabaseError.
class RunQueue {
public:
    explicit RunQueue(standalone::TaskStore& store) : store_(store) {}

    /// Takes over the queue of the daemon's last life. Once, before the first notice.
    void take_over();

    /// Drops the places of tasks that are no longer stored.
    void reload();

    /// Gives a task a place and status "wait": at the front when it is to take the place of what
    /// runs, otherwise at the end. A disabled task is taken too: enabling is about runs by
    /// schedule, a start is an order.
    /// @return whether there is such a task
    bool start(const Notice& notice);

    /// Takes a waiting task out of the queue with status "cancel". A task that does not wait stays
    /// as it is. An empty identifier means whatever runs, which is nothing.
    void stop(const std::string& task_id);

    /// Deletes a task with its place. No such task: nothing happens.
    void remove(const std::string& task_id);

    /// Identifiers of the waiting tasks, next one first.
    std::vector<std::string> waiting();

private:
    standalone::TaskStore& store_;
};

}  // namespace services
