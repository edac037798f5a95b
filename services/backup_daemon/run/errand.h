// One order on its way through a lane: what the daemon does of it itself, what it asks the copying
// process, and which of that one's answers fit.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/run/lane_messages.h"

namespace services {

/// What is to be done next about an errand.
struct ErrandStep {
    std::optional<WorkerOrder> ask{};  ///< what the process shall do
    standalone::FileHandle file{};     ///< that comes along with it
    std::vector<Report> tell{};        ///< what the run shall hear
    bool over = false;                 ///< nothing more comes of this errand
};

/// The process talks with strangers and may have come under their orders, so nothing that it says
/// is believed that an honest one could not say just then. What this machine has is found out here:
/// the process has no right to look.
class Errand {
public:
    virtual ~Errand() = default;

    /// Once. Looks at folders of this machine where need be, and waits for its disks.
    virtual ErrandStep begin() = 0;

    /// The same; what it throws is a failure.
    ErrandStep start();

    /// What comes of a report.
    /// @return nothing when it does not fit
    std::optional<ErrandStep> hear(const WorkerReport& said);

protected:
    /// What comes of a failure, whose words people can read.
    virtual ErrandStep fail(Failed failed) { return {.tell = {std::move(failed)}, .over = true}; }

private:
    /// Takes any report but Failed.
    virtual std::optional<ErrandStep> take(const WorkerReport& said) = 0;
};

/// The errand that every lane begins with: that the process connects.
std::unique_ptr<Errand> connecting();

std::unique_ptr<Errand> errand_of(const Order& order);

}  // namespace services
