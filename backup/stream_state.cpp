// Judges stream states.
#include "backup/stream_state.h"

#include <iterator>

#include "platform/rec_state.h"

namespace {

constexpr const char* st_str[] = {
    "NVR_CAM_CONNECTED",    "NVR_CAM_CONNECTION_ERROR", "NVR_CAM_CONNECTED", "NVR_CAM_CONNECTING",
    "NVR_CAM_CONNECT_IDLE", "NVR_CAM_CONNECTED",        "NVR_CAM_CONNECTED", "NVR_CAM_DISCONNECTED",
};

bool is_connected(int state) {
    return state == STREAM_CONNECTED || state == 2 || state == 5 || state == 6;
}

}  // namespace

int fold_stream_states(const int* states, int count) {
    int folded = STREAM_IDLE;
    for (int i = 0; i < count; ++i)
        if (folded == STREAM_IDLE || (folded == STREAM_DISCONNECTED && is_connected(states[i])))
            folded = states[i];
    return folded;
}

const char* connection_status_text(int state) {
    const bool known = state >= 0 && state < static_cast<int>(std::size(st_str));
    return st_str[known ? state : STREAM_IDLE];
}
