// The live state of the channels: pinned by support, otherwise read off the recordings.
#include "platform/rec_state.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <iterator>

#include "platform/recorder_log.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/recording_index.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/text_buffer.h"

namespace {

using namespace standalone;

constexpr long long FRESH_SECONDS = 10 * 60;

/// A recording from the future, left by a wrong clock, is no sign of life.
bool is_recording(const Channel& channel, RecordingIndex& index) {
    const auto written = index.newest_write(channel.recordings);
    if (!written) return false;
    const long long age = std::time(nullptr) - *written;
    return age < FRESH_SECONDS && age > -FRESH_SECONDS;
}

void fill_state(const Channel& channel, RecordingIndex& index, TChannelStatus& status) {
    if (channel.pinned_state) {
        const std::size_t pinned =
            std::min(channel.pinned_state->size(), std::size(status.stream_state));
        std::copy_n(channel.pinned_state->begin(), pinned, status.stream_state);
        return;
    }
    // A channel without streams of its own is asked for by its first state.
    const int streams = std::clamp(channel.streams, 1, REC_STATE_MAX_STREAMS);
    std::fill_n(status.stream_state, streams,
                is_recording(channel, index) ? STREAM_CONNECTED : STREAM_DISCONNECTED);
}

/// As JSON. It is all numbers, and of every channel, so it is put together by hand.
std::string describe(const Channel& channel, const TChannelStatus& status) {
    std::string states;
    for (int stream = 0; stream < std::max(channel.streams, 1); ++stream) {
        if (!states.empty()) states += ',';
        states += std::to_string(status.stream_state[stream]);
    }
    return R"({"channel_index":)" + std::to_string(channel.index) + R"(,"stream_state":[)" +
           states + "]}";
}

/// @return the number of channels that have a state
int read_state(char* text, TChannelStatus* channels, int max) {
    const std::vector<Channel>& stored = config_channels();
    for (int at = 0; at < max; ++at) std::ranges::fill(channels[at].stream_state, STREAM_IDLE);
    RecordingIndex index(recording_index_path());
    std::string described;
    int count = 0;
    for (const Channel& channel : stored) {
        if (channel.removed || channel.index < 0 || channel.index >= max) continue;
        fill_state(channel, index, channels[channel.index]);
        described += (count == 0 ? "" : ",") + describe(channel, channels[channel.index]);
        ++count;
    }
    copy_text('[' + described + ']', text, REC_STATE_TEXT_SIZE);
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
