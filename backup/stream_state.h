// From the states of a channel's streams to the one connection state that the page shows.
#pragma once

/// Folds the states of a channel's streams, in stream order, into one: the first that is not idle,
/// unless that is disconnected and a later stream is connected.
/// @param states one state per stream (platform/rec_state.h)
/// @return the state; STREAM_IDLE for no streams
int fold_stream_states(const int* states, int count);

/// The text of a state; that of idle for a number outside the table.
const char* connection_status_text(int state);
