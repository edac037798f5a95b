// The recorder's live state: what each stream of each channel is doing now.
#pragma once

/// Streams a channel can have.
inline constexpr int REC_STATE_MAX_STREAMS = 16;

/// Bytes of the buffer for the state text, its terminator included.
inline constexpr int REC_STATE_TEXT_SIZE = 64 * 1024;

/// What a stream is doing. The numbers 2, 5 and 6 mean connected as well.
enum StreamState {
    STREAM_CONNECTED = 0,
    STREAM_ERROR = 1,
    STREAM_CONNECTING = 3,
    STREAM_IDLE = 4,
    STREAM_DISCONNECTED = 7,
};

/// State of one channel.
struct TChannelStatus {
    int stream_state[REC_STATE_MAX_STREAMS];  ///< per stream, in stream order; see StreamState
};

/// State of the recorder as a whole. Opaque; this system does not ask for it.
struct TServerStatusInfo;

/// Reads the live state of all channels.
/// @param text receives the state as one line of JSON, NUL-terminated and cut to the buffer; room
///         for REC_STATE_TEXT_SIZE bytes
/// @param count receives the number of channels that have a state
/// @param channels receives the states, indexed by channel index; entries of channels without a
///         state are set to STREAM_IDLE
/// @param max entries in `channels`
/// @param server null
/// @return 0 on success; non-zero when there is no state to read, and then only `count` (0) is set
int nvr_rec_state_read(char* text, int& count, TChannelStatus* channels, int max,
                       TServerStatusInfo* server);
