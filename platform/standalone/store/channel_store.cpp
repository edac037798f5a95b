// The recorder's channels, present and removed, in the configuration database.
#include "platform/standalone/store/channel_store.h"

#include <charconv>

namespace standalone {

namespace {

/// States are stored as decimal numbers separated by blanks.
std::vector<int> parse_states(const std::string& text) {
    std::vector<int> states;
    const char* end = text.data() + text.size();
    int state = 0;
    for (const char* at = text.data(); at < end; ++at) {
        const auto [stop, error] = std::from_chars(at, end, state);
        if (error != std::errc()) break;
        states.push_back(state);
        at = stop;
    }
    return states;
}

std::string print_states(const std::vector<int>& states) {
    std::string text;
    for (const int state : states) text += std::to_string(state) + ' ';
    return text;
}

Channel load_channel(Statement& row) {
    Channel channel;
    channel.index = static_cast<int>(row.integer(0));
    channel.guid = row.text(1);
    channel.ip = row.text(2);
    channel.name = row.text(3);
    channel.brand = row.text(4);
    channel.model = row.text(5);
    channel.streams = static_cast<int>(row.integer(6));
    channel.recordings = row.text(7);
    channel.removed = row.integer(8) != 0;
    if (!row.is_null(9)) channel.pinned_state = parse_states(row.text(9));
    return channel;
}

}  // namespace

std::vector<Channel> ChannelStore::list() {
    Statement row = database_.prepare(
        "SELECT channel_index, guid, ip, name, brand, model, streams, recordings, removed, "
        "pinned_state FROM channel ORDER BY channel_index, removed, id");
    std::vector<Channel> channels;
    while (row.step()) channels.push_back(load_channel(row));
    return channels;
}

bool ChannelStore::add(const Channel& channel) {
    Transaction transaction(database_);
    database_.prepare("DELETE FROM channel WHERE guid = ? AND removed")
        .bind(1, channel.guid)
        .step();
    Statement insert = database_.prepare(
        "INSERT OR IGNORE INTO channel "
        "(channel_index, guid, ip, name, brand, model, streams, recordings) "
        "VALUES (?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, channel.index).bind(2, channel.guid).bind(3, channel.ip).bind(4, channel.name);
    insert.bind(5, channel.brand).bind(6, channel.model).bind(7, channel.streams);
    insert.bind(8, channel.recordings).step();
    if (database_.changes() == 0) return false;
    transaction.commit();
    return true;
}

bool ChannelStore::remove(int index) {
    database_.prepare("UPDATE channel SET removed = 1 WHERE channel_index = ? AND NOT removed")
        .bind(1, index)
        .step();
    return database_.changes() > 0;
}

bool ChannelStore::pin_state(int index, const std::vector<int>& states) {
    Statement update = database_.prepare(
        "UPDATE channel SET pinned_state = ? WHERE channel_index = ? AND NOT removed");
    if (states.empty()) {
        update.bind_null(1);
    } else {
        update.bind(1, print_states(states));
    }
    update.bind(2, index).step();
    return database_.changes() > 0;
}

}  // namespace standalone
