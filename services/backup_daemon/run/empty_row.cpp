// How many days of a row, one after the other, have an empty folder.
#include "services/backup_daemon/run/empty_row.h"

#include <ctime>
#include <optional>

#include "platform/standalone/store/empty_days.h"
#include "platform/standalone/store/folder_reader.h"
#include "services/backup_daemon/run/day_errand.h"

namespace services {
namespace {

using standalone::FolderStamp;
using standalone::Moment;

/// A channel's folder, and whether it is the one that it was.
struct OpenChannel {
    explicit OpenChannel(const ChannelFolder& folder)
        : days(folder.recordings), is_on_its_disk(disk_of(days.channel()) == folder.disk) {}

    const standalone::EmptyDays days;
    const bool is_on_its_disk;
};

/// Opens each channel's folder once, so that nobody walks down to it for each of its days.
class Row {
public:
    Row(const ListDay& order, const Moment& looked_at)
        : folders_(*order.folders),
          believes_stamps_(has_run_on(order.empty_since, looked_at)),
          looked_at_(looked_at),
          channels_(folders_.size()) {}

    /// The stamp of an empty day; nothing when it is not.
    std::optional<FolderStamp> look(const DayBeyond& day) {
        const OpenChannel& channel = channel_of(day);
        if (!channel.is_on_its_disk) return {};
        if (believes_stamps_ && channel.days.is_as_it_was(day.day, day.empty)) return day.empty;
        return channel.days.look(day.day, looked_at_);
    }

private:
    const OpenChannel& channel_of(const DayBeyond& day) {
        std::optional<OpenChannel>& channel = channels_[day.folder];
        if (!channel) channel.emplace(folders_[day.folder]);
        return *channel;
    }

    const std::vector<ChannelFolder>& folders_;
    const bool believes_stamps_;
    const Moment looked_at_;
    std::vector<std::optional<OpenChannel>> channels_;
};

/// In ticks of some milliseconds: the time to the nanosecond takes a fiftieth of the cheapest look.
std::chrono::nanoseconds coarse_time() {
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    return std::chrono::nanoseconds(standalone::nanoseconds(time));
}

}  // namespace

std::vector<FolderStamp> empty_row(const ListDay& order, const Moment& looked_at,
                                   std::chrono::milliseconds step) {
    const auto latest = coarse_time() + step;
    Row row(order, looked_at);
    std::vector<FolderStamp> stamps;
    stamps.reserve(order.beyond.size());
    for (const DayBeyond& day : order.beyond) {
        const auto stamp = row.look(day);
        if (!stamp) break;
        stamps.push_back(*stamp);
        if (coarse_time() >= latest) break;
    }
    return stamps;
}

}  // namespace services
