// A day's listing: what this machine has of it, and what the share says that it has of that.
#pragma once

#include <sys/stat.h>

#include <deque>
#include <string>

#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/run/errand.h"

namespace services {

/// Which disk's which folder that is; "" when it is not there. A disk that is unmounted leaves a
/// folder of another number, or of another device.
std::string disk_of(const std::string& folder);

/// The same of what stat() has found of the folder; "" when all of that is zero.
std::string disk_of(const struct stat& folder);

/// Asks the process for nothing but sizes of files that it names, in as many questions as it takes:
/// a day may have more names than a packet has room for.
class DayErrand : public Errand {
public:
    /// @param most recordings that a day may have
    explicit DayErrand(ListDay order, std::size_t most = standalone::MOST_OF_A_DAY)
        : order_(std::move(order)), most_(most) {}

    ErrandStep begin() override;

private:
    struct Question {
        AskFiles order;
        std::size_t first;  ///< entry that the first name is of; the others follow
    };

    std::optional<ErrandStep> take(const WorkerReport& said) override;
    void list();
    void ask_for(bool alarm, const std::string& folder);
    ErrandStep next();

    const ListDay order_;
    const std::size_t most_;
    Entries found_;
    std::deque<Question> questions_;  ///< the first has been asked
};

}  // namespace services
