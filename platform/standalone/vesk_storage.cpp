// The recording storage, read from the channels' folders.
#include "platform/vesk_storage.h"

#include <algorithm>
#include <exception>
#include <memory>

#include "platform/recorder_log.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/recording_folder.h"
#include "platform/standalone/store/recording_index.h"
#include "platform/standalone/store/state_folder.h"

namespace {

using namespace standalone;

constexpr int UNAVAILABLE = -1;

TRemovedChannelInfo removed_channel(const Channel& channel) {
    const RecordingSizes sizes = measure_recordings(channel.recordings);
    return {.channel_index = channel.index,
            .uuid = channel.guid,
            .display_name = channel.name,
            .primary_size = sizes.normal,
            .secondary_size = sizes.alarm};
}

class StorageSetting : public IStorageSetting {
public:
    int get_channel_config_list(std::list<TRemovedChannelInfo>& out, int selector) override {
        if (selector != VESK_REMOVED_CHANNELS) return UNAVAILABLE;
        try {
            std::list<TRemovedChannelInfo> removed;
            for (const Channel& channel : config_channels())
                if (channel.removed) removed.push_back(removed_channel(channel));
            out.splice(out.end(), removed);
            return 0;
        } catch (const std::exception& error) {
            DEBUG_LINE("recording storage: %s\n", error.what());
            return UNAVAILABLE;
        }
    }
};

/// Several channels may have had one index: their days add up.
void add_summary(const RecordingSummary& summary, int& normal, int& alarm, long long& earliest,
                 long long& latest) {
    if (!summary.earliest) return;
    const bool first = normal == 0 && alarm == 0;
    normal += summary.normal_days;
    alarm += summary.alarm_days;
    earliest = first ? *summary.earliest : std::min(earliest, *summary.earliest);
    const long long newest = summary.latest.value_or(*summary.earliest);
    latest = first ? newest : std::max(latest, newest);
}

}  // namespace

int CVeskStorage::create_storage_setting(IStorageSetting** setting) {
    *setting = nullptr;
    try {
        *setting = std::make_unique<StorageSetting>().release();
        return 0;
    } catch (const std::bad_alloc&) {
        return UNAVAILABLE;
    }
}

int CVeskStorage::destroy_storage_setting(IStorageSetting** setting) {
    if (setting == nullptr || *setting == nullptr) return UNAVAILABLE;
    const std::unique_ptr<IStorageSetting> owned(*setting);
    *setting = nullptr;
    return 0;
}

int get_storage_days(int* normal_days, int* alarm_days, long long* earliest, long long* latest) {
    try {
        RecordingIndex index(recording_index_path());
        for (const Channel& channel : config_channels()) {
            const int at = channel.index;
            if (at < 0 || at >= VESK_MAX_CHANNELS) continue;
            add_summary(index.summarize(channel.recordings), normal_days[at], alarm_days[at],
                        earliest[at], latest[at]);
        }
        index.save();
        return 0;
    } catch (const std::exception& error) {
        DEBUG_LINE("recording storage: %s\n", error.what());
        return UNAVAILABLE;
    }
}
