// Judges stream states.
#include "backup/stream_state.h"

#include <iterator>

namespace {

constexpr int IDLE = 4;
constexpr int DISCONNECTED = 7;

constexpr const char* st_str[] = {
    "NVR_CAM_CONNECTED",    "NVR_CAM_CONNECTION_ERROR", "NVR_CAM_CONNECTED", "NVR_CAM_CONNECTING",
    "NVR_CAM_CONNECT_IDLE", "NVR_CAM_CONNECTED",        "NVR_CAM_CONNECTED", "NVR_CAM_DISCONNECTED",
};

bool is_connected(int state) {
    return state == 0 || state == 2 || state == 5 || state == 6;
}

}  // namespace

int fold_stream_states(const int* states, int count) {
    int folded = IDLE;
    for (int i = 0; i < count; ++i)
        if (folded == IDLE || (folded == DISCONNECTED && is_connected(states[i])))
            folded = states[i];
    return folded;
}

const char* connection_status_text(int state) {
    const bool known = state >= 0 && state < static_cast<int>(std::size(st_str));
    return st_str[known ? state : IDLE];
}
