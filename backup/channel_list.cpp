// Lists the cameras that can be backed up: configured ones, then removed ones with recordings left.
#include <unistd.h>

#include <algorithm>
#include <list>
#include <string>
#include <vector>

#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "backup/stream_state.h"
#include "backup/task_request.h"
#include "platform/comutil_json.h"
#include "platform/nvrcfg.h"
#include "platform/rec_state.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"
#include "platform/vesk_storage.h"

namespace {

constexpr char FAILED[] = "Get Channel List Fail.";
constexpr std::size_t DATE_SIZE = 16;

/// Days with recordings and the oldest recording, per channel.
struct StorageDays {
    int normal[VESK_MAX_CHANNELS] = {};
    int alarm[VESK_MAX_CHANNELS] = {};
    long long earliest[VESK_MAX_CHANNELS] = {};
    long long latest[VESK_MAX_CHANNELS] = {};

    /// Milliseconds since the epoch, 0 for an index outside the table.
    long long earliest_of(int channel) const {
        return channel >= 0 && channel < VESK_MAX_CHANNELS ? earliest[channel] : 0;
    }
};

/// The recorder's live state, if it could be read.
struct RecordingState {
    bool known = false;
    std::vector<TChannelStatus> channels;

    /// The channel's record, null when it has none.
    const TChannelStatus* of(int channel) const {
        const bool has_record = known && channel >= 0 && channel < VESK_MAX_CHANNELS;
        return has_record ? &channels[static_cast<std::size_t>(channel)] : nullptr;
    }
};

/// A configured channel, with the texts as long as the recorder keeps them.
struct Channel {
    int index = 0;
    char guid[34] = "";
    char ip[32] = "";
    char name[512] = "";
    char brand[512] = "";
    char model[512] = "";
};

/// What one entry of the list says.
struct Entry {
    int index;
    std::string guid;
    std::string ip;
    std::string name;
    std::string brand;
    std::string model;
    std::string status;
};

/// What all entries are made from. The status text is carried from channel to channel: one without
/// streams repeats the text before it.
struct Facts {
    RecordingState state;
    StorageDays days;
    std::string status;
};

/// The channel settings' JSON text.
std::string read_settings() {
    std::string encoded;
    if (cfgsvc_get_channel_setting(false, 0, encoded) != 0) {
        DEBUG_LINE("parser_task fail\n");
        fail(CGI_GET_CHANNEL_LIST_FAIL);
    }
    std::string settings;
    b64_decode_v2(encoded, settings);
    return settings;
}

std::string local_date(long long seconds) {
    char date[DATE_SIZE] = "";
    get_local_time_str(static_cast<long>(seconds), date, sizeof date);
    return date;
}

/// Reads the state; the recorder may be just starting, so a failure is worth a second try.
RecordingState read_state() {
    RecordingState state;
    state.channels.resize(VESK_MAX_CHANNELS);
    std::vector<char> text(REC_STATE_TEXT_SIZE);
    for (int tries = 0; tries < 2 && !state.known; ++tries) {
        if (tries > 0) sleep(1);
        int count = 0;
        state.known = nvr_rec_state_read(text.data(), count, state.channels.data(),
                                         VESK_MAX_CHANNELS, nullptr) == 0;
    }
    return state;
}

void read_days(Facts& facts) {
    StorageDays& days = facts.days;
    get_storage_days(days.normal, days.alarm, days.earliest, days.latest);
    for (int i = 0; i < VESK_MAX_CHANNELS; ++i) {
        if (days.normal[i] == 0 && days.alarm[i] == 0) continue;
        facts.status = local_date(days.earliest[i] / 1000);
        DEBUG_NOTE("ch-%d normal_rec_days=%d alarm_rec_days=%d earlyest_ts=%lld localt=[%s]\n", i,
                   days.normal[i], days.alarm[i], days.earliest[i], facts.status.c_str());
    }
}

void append_entry(json_object* list, const Entry& entry, const StorageDays& days) {
    const long long seconds = days.earliest_of(entry.index) / 1000;
    json_object* object = json_object_new_object();
    add_member(object, "earlyest_local_time", local_date(seconds));
    add_member(object, "earlyest_utc_times", seconds);
    add_member(object, "guid", entry.guid);
    add_member(object, "channel_index", entry.index);
    add_member(object, "ip", entry.ip);
    add_member(object, "name", entry.name);
    add_member(object, "brand", entry.brand);
    add_member(object, "model", entry.model);
    add_member(object, "connection_status", entry.status);
    json_object_array_add(list, object);
}

/// Reads one element of the settings; false when a member is missing.
bool read_channel(json_object* settings, Channel& channel) {
    const auto text = [&](const char* key, char* buffer, std::size_t size) {
        return comutil_get_json_str_by_key(settings, key, buffer, size);
    };
    return comutil_get_json_int_by_key(settings, "channel_index", &channel.index) &&
           text("guid", channel.guid, sizeof channel.guid) &&
           text("ip", channel.ip, sizeof channel.ip) &&
           text("name", channel.name, sizeof channel.name) &&
           text("brand", channel.brand, sizeof channel.brand) &&
           text("model", channel.model, sizeof channel.model);
}

/// The connection status of a channel with `streams` streams.
const char* connection_status(const Channel& channel, int streams, const RecordingState& state) {
    const TChannelStatus* record = state.of(channel.index);
    if (record == nullptr) return "NVR_CAM_CONNECT_IDLE";
    if (streams > 0)
        return connection_status_text(
            fold_stream_states(record->stream_state, std::min(streams, REC_STATE_MAX_STREAMS)));
    if (channel.brand[0] == '\0' || channel.model[0] == '\0') return "NVR_CAM_UNDEFINE";
    return connection_status_text(record->stream_state[0]);
}

/// @return false when a member is missing
bool append_live_channel(json_object* list, json_object* settings, Facts& facts) {
    Channel channel;
    if (!read_channel(settings, channel)) return false;
    json_object* streams = json_object_object_get(settings, "stream_state");
    if (json_object_is_type(streams, json_type_array)) {
        const int count = static_cast<int>(json_object_array_length(streams));
        facts.status = connection_status(channel, count, facts.state);
    }
    append_entry(list,
                 {.index = channel.index,
                  .guid = channel.guid,
                  .ip = channel.ip,
                  .name = channel.name,
                  .brand = channel.brand,
                  .model = channel.model,
                  .status = facts.status},
                 facts.days);
    return true;
}

/// @return false when the list ends early, at a channel without all its settings
bool append_live_channels(json_object* list, const std::string& settings, Facts& facts) {
    const JsonPtr parsed(json_tokener_parse(settings.c_str()));
    json_object* datas = json_object_object_get(parsed.get(), "datas");
    if (!json_object_is_type(datas, json_type_array)) return false;
    for (std::size_t i = 0; i < json_object_array_length(datas); ++i)
        if (!append_live_channel(list, json_object_array_get_idx(datas, i), facts)) return false;
    return true;
}

[[noreturn]] void fail_storage(const char* call, int ret) {
    DEBUG_LINE("Error %s ret=%d\n", call, ret);
    fail(CGI_GET_CHANNEL_LIST_FAIL);
}

std::list<TRemovedChannelInfo> read_removed_channels() {
    CVeskStorage veskstorage;
    IStorageSetting* storage_setting = nullptr;
    if (const int ret = veskstorage.create_storage_setting(&storage_setting); ret != 0)
        fail_storage("veskstorage.create_storage_setting", ret);
    std::list<TRemovedChannelInfo> removed;
    const int ret = storage_setting->get_channel_config_list(removed, VESK_REMOVED_CHANNELS);
    const int released = veskstorage.destroy_storage_setting(&storage_setting);
    if (ret != 0) fail_storage("storage_setting->get_channel_config_list", ret);
    if (released != 0) fail_storage("veskstorage.destroy_storage_setting", released);
    return removed;
}

void append_removed_channel(json_object* list, const TRemovedChannelInfo& removed,
                            const Facts& facts) {
    DEBUG_NOTE("removed ch-%d uuid=[%s] name=[%s] primary=%lld secondary=%lld earlyest_ts=%lld\n",
               removed.channel_index, removed.uuid.c_str(), removed.display_name.c_str(),
               removed.primary_size, removed.secondary_size,
               facts.days.earliest_of(removed.channel_index));
    if (removed.primary_size == 0 && removed.secondary_size == 0) return;
    append_entry(list,
                 {.index = removed.channel_index,
                  .guid = removed.uuid,
                  .ip = "--",
                  .name = removed.display_name,
                  .brand = "--",
                  .model = "--",
                  .status = "NVR_CAM_REMOVED"},
                 facts.days);
}

void append_removed_channels(json_object* list, const Facts& facts) {
    for (const TRemovedChannelInfo& removed : read_removed_channels())
        append_removed_channel(list, removed, facts);
}

}  // namespace

int get_channel_list(json_object** reply) {
    int parsed = 0;
    const int result = run_operation(reply, FAILED, [&] {
        const std::string settings = read_settings();
        Facts facts;
        facts.state = read_state();
        read_days(facts);
        JsonPtr list(json_object_new_array());
        // A channel without all its settings spoils the reply, but the storage is asked all the
        // same, and its failure counts more.
        if (!append_live_channels(list.get(), settings, facts)) {
            parsed = CGI_PARSER_JSON_FAIL;
            deal_with_error_code(reply, reply_code(parsed), "Request Parser Fail.");
        }
        append_removed_channels(list.get(), facts);
        if (parsed != 0) return;
        JsonPtr answer = success_reply();
        add_member(answer.get(), "channel_list", list.release());
        *reply = answer.release();
    });
    return result != 0 ? result : parsed;
}
