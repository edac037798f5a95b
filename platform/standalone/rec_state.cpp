// The live state of the channels: pinned by support, otherwise read off the recordings.
#include "platform/rec_state.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <iterator>

#include "platform/recorder_log.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/recording_folder.h"
#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/text_buffer.h"

namespace {

using namespace standalone;

constexpr long long FRESH_SECONDS = 10 * 60;

/// A recording from the future, left by a wrong clock, is no sign of life.
bool is_recording(const Channel& channel) {
    const auto written = newest_write(channel.recordings);
    if (!written) return false;
    const long long age = std::time(nullptr) - *written;
    return age < FRESH_SECONDS && age > -FRESH_SECONDS;
}

void fill_state(const Channel& channel, TChannelStatus& status) {
    if (channel.pinned_state) {
        const std::size_t pinned =
            std::min(channel.pinned_state->size(), std::size(status.stream_state));
        std::copy_n(channel.pinned_state->begin(), pinned, status.stream_state);
        return;
    }
    // A channel without streams of its own is asked for by its first state.
    const int streams = std::clamp(channel.streams, 1, REC_STATE_MAX_STREAMS);
    std::fill_n(status.stream_state, streams,
                is_recording(channel) ? STREAM_CONNECTED : STREAM_DISCONNECTED);
}

json_object* describe(const Channel& channel, const TChannelStatus& status) {
    json_object* states = json_object_new_array();
    for (int stream = 0; stream < std::max(channel.streams, 1); ++stream)
        json_object_array_add(states, json_object_new_int(status.stream_state[stream]));
    json_object* described = json_object_new_object();
    json_object_object_add(described, "channel_index", json_object_new_int(channel.index));
    json_object_object_add(described, "stream_state", states);
    return described;
}

/// @return the number of channels that have a state
int read_state(char* text, TChannelStatus* channels, int max) {
    const std::vector<Channel> stored = ChannelStore(config_for_reading()).list();
    for (int at = 0; at < max; ++at) std::ranges::fill(channels[at].stream_state, STREAM_IDLE);
    const JsonPtr described(json_object_new_array());
    int count = 0;
    for (const Channel& channel : stored) {
        if (channel.removed || channel.index < 0 || channel.index >= max) continue;
        fill_state(channel, channels[channel.index]);
        json_object_array_add(described.get(), describe(channel, channels[channel.index]));
        ++count;
    }
    copy_text(print_json(described.get()), text, REC_STATE_TEXT_SIZE);
    return count;
}

}  // namespace

int nvr_rec_state_read(char* text, int& count, TChannelStatus* channels, int max,
                       TServerStatusInfo*) {
    count = 0;
    try {
        count = read_state(text, channels, max);
        return 0;
    } catch (const std::exception& error) {
        DEBUG_LINE("recorder state: %s\n", error.what());
        return -1;
    }
}
