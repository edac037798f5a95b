// GET recorder: the recorder itself, its cameras, and what needs attention.
#include "console/recorder_route.h"

#include "backup/stream_state.h"
#include "console/health.h"
#include "console/recorder_facts.h"
#include "platform/rec_state.h"
#include "platform/standalone/store/alert_names.h"
#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/calendar.h"
#include "platform/standalone/store/channel_store.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/recording_folder.h"
#include "platform/standalone/store/remedy.h"
#include "platform/version.h"
#include "platform/vesk_storage.h"

namespace console {

namespace {

using standalone::Channel;
using standalone::Statement;

/// The state of each channel's streams; none when it cannot be read.
std::vector<TChannelStatus> stream_states() {
    std::vector<char> text(REC_STATE_TEXT_SIZE);
    std::vector<TChannelStatus> states(VESK_MAX_CHANNELS);
    int count = 0;
    if (nvr_rec_state_read(text.data(), count, states.data(), VESK_MAX_CHANNELS, nullptr) != 0)
        return {};
    return states;
}

const char* state_word(const Channel& channel, const std::vector<TChannelStatus>& states) {
    const auto index = static_cast<std::size_t>(channel.index);
    if (channel.removed) return "removed";
    if (index >= states.size()) return "unknown";
    switch (fold_stream_states(states[index].stream_state, channel.streams)) {
        case STREAM_ERROR:
            return "error";
        case STREAM_CONNECTING:
            return "connecting";
        case STREAM_IDLE:
            return "idle";
        case STREAM_DISCONNECTED:
            return "disconnected";
        default:
            return "connected";
    }
}

/// The local day of a channel's oldest recording.
std::optional<std::string> oldest_day(const Channel& channel) {
    const auto earliest = standalone::summarize_recordings(channel.recordings).earliest;
    if (!earliest) return {};
    return standalone::day_text(standalone::local_day(*earliest / 1000, standalone::machine_zone));
}

/// Why nobody knows what a camera without an oldest day has.
std::optional<std::string> why_unreadable(const Channel& channel) {
    const std::string problem = standalone::recordings_problem(channel.recordings);
    if (problem.empty()) return {};
    return problem;
}

Json channels() {
    Json array = Json::array();
    const auto states = stream_states();
    for (const Channel& channel :
         standalone::ChannelStore(standalone::config_for_reading()).list()) {
        Json object = Json::object();
        object.add("index", channel.index);
        object.add("name", channel.name);
        object.add("guid", channel.guid);
        object.add("state", state_word(channel, states));
        object.add("oldest", oldest_day(channel));
        object.add("unreadable", why_unreadable(channel));
        array.append(object);
    }
    return array;
}

Json rooms(standalone::Database& memory) {
    Json array = Json::array();
    Statement row = memory.prepare(
        "SELECT destination, free, total, time FROM share_room ORDER BY destination");
    while (row.step()) {
        Json object = Json::object();
        object.add("destination", row.text(0));
        object.add("free", row.integer(1));
        object.add("total", row.integer(2));
        object.add("time", row.integer(3));
        array.append(object);
    }
    return array;
}

Json problems(standalone::Database& memory) {
    Json array = Json::array();
    Statement row = memory.prepare(
        "SELECT kind, subject, since, detail FROM problem ORDER BY since, kind, subject");
    while (row.step()) {
        const auto kind = static_cast<standalone::ProblemKind>(row.integer(0));
        Json object = Json::object();
        object.add("kind", problem_text(kind));
        object.add("subject", row.text(1));
        object.add("since", row.integer(2));
        object.add("detail", row.text(3));
        object.add("remedy", remedy_for(kind, row.text(3)));
        array.append(object);
    }
    return array;
}

long long alerts_waiting(standalone::Database& memory) {
    Statement row = memory.prepare("SELECT count(DISTINCT id) FROM alert");
    row.step();
    return row.integer(0);
}

}  // namespace

Reply get_recorder(const Request&) {
    standalone::Database memory = standalone::open_backup_memory();
    Json object = Json::object();
    object.add("version", RECORDER_VERSION);
    object.add("zone", zone_name());
    object.add("services", services_of(HealthQuestion().answer()));
    object.add("channels", channels());
    object.add("rooms", rooms(memory));
    object.add("problems", problems(memory));
    object.add("alerts_waiting", alerts_waiting(memory));
    return json_reply(object);
}

}  // namespace console
