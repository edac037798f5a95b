// How many days of a row, one after the other, have an empty folder.
#include "services/backup_daemon/run/empty_row.h"

#include <optional>

#include "platform/standalone/store/empty_days.h"
#include "services/backup_daemon/run/day_errand.h"

namespace services {
namespace {

using standalone::FolderStamp;
using standalone::Moment;

/// Days of one channel mostly follow each other: its folder is opened for the first of them.
class Row {
public:
    Row(const Moment& since, const Moment& looked_at)
        : believes_stamps_(has_run_on(since, looked_at)), looked_at_(looked_at) {}

    /// The stamp of an empty day; nothing when it is not.
    std::optional<FolderStamp> look(const DayBeyond& day) {
        if (believes_stamps_ && has_stamp(day.recordings + '/' + day.day, day.empty))
            return day.empty;
        if (!channel_ || recordings_ != day.recordings) open(day.recordings);
        if (disk_ != day.disk) return {};
        return channel_->look(day.day, looked_at_);
    }

private:
    void open(const std::string& recordings) {
        recordings_ = recordings;
        channel_.emplace(recordings);
        disk_ = disk_of(channel_->channel());
    }

    const bool believes_stamps_;
    const Moment looked_at_;
    std::string recordings_;
    std::string disk_;
    std::optional<standalone::EmptyDays> channel_;
};

}  // namespace

std::vector<FolderStamp> empty_row(const ListDay& order, const Moment& looked_at,
                                   std::chrono::milliseconds step) {
    using Clock = std::chrono::steady_clock;
    const auto latest = Clock::now() + step;
    Row row(order.empty_since, looked_at);
    std::vector<FolderStamp> stamps;
    for (const DayBeyond& day : order.beyond) {
        const auto stamp = row.look(day);
        if (!stamp) break;
        stamps.push_back(*stamp);
        if (Clock::now() >= latest) break;
    }
    return stamps;
}

}  // namespace services
