// The configuration store on SQLite.
#include "platform/nvrcfg.h"

#include <exception>

#include "platform/rec_state.h"
#include "platform/recorder_log.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/registry_answers.h"
#include "platform/standalone/store/strict_json.h"
#include "platform/standalone/store/task_store.h"
#include "platform/utilities.h"

namespace {

using namespace standalone;

/// Runs `call` and turns whatever it throws into a status of the store.
template <typename Call>
int guarded(const char* file, int line, Call call) {
    try {
        return call();
    } catch (const DatabaseError& error) {
        log_File_Debug(RECORDER_DEBUG_FILE, "(%s)(%d) configuration store: %s\n", file, line,
                       error.what());
        return error.is_busy() ? NVRCFG_BUSY : NVRCFG_UNAVAILABLE;
    } catch (const std::exception& error) {
        log_File_Debug(RECORDER_DEBUG_FILE, "(%s)(%d) configuration store: %s\n", file, line,
                       error.what());
        return NVRCFG_UNAVAILABLE;
    }
}

json_object* stream_states(const Channel& channel) {
    json_object* states = json_object_new_array_ext(channel.streams);
    for (int stream = 0; stream < channel.streams; ++stream) {
        const auto at = static_cast<std::size_t>(stream);
        const bool pinned = channel.pinned_state && at < channel.pinned_state->size();
        json_object_array_add(
            states, json_object_new_int(pinned ? (*channel.pinned_state)[at] : STREAM_IDLE));
    }
    return states;
}

/// Each key is given once, and as a literal: it is neither looked for nor copied.
void add(json_object* settings, const char* key, json_object* value) {
    json_object_object_add_ex(settings, key, value,
                              JSON_C_OBJECT_ADD_KEY_IS_NEW | JSON_C_OBJECT_ADD_CONSTANT_KEY);
}

json_object* channel_settings(const Channel& channel) {
    json_object* settings = json_object_new_object();
    const auto add_text = [settings](const char* key, const std::string& text) {
        add(settings, key, json_object_new_string_len(text.data(), static_cast<int>(text.size())));
    };
    add(settings, "channel_index", json_object_new_int(channel.index));
    add_text("guid", channel.guid);
    add_text("ip", channel.ip);
    add_text("name", channel.name);
    add_text("brand", channel.brand);
    add_text("model", channel.model);
    if (channel.streams > 0) add(settings, "stream_state", stream_states(channel));
    return settings;
}

std::string print_channels(bool with_removed, int first) {
    const JsonPtr settings(json_object_new_object());
    json_object* channels = json_object_new_array();
    json_object_object_add(settings.get(), "datas", channels);
    for (const Channel& channel : config_channels())
        if (channel.index >= first && (with_removed || !channel.removed))
            json_object_array_add(channels, channel_settings(channel));
    return print_json(settings.get());
}

}  // namespace

int __nvrcfg_get_rr_settings(const char* srcFile, int srcLine, std::list<TDataBackupConfig>& out) {
    return guarded(srcFile, srcLine, [&out] {
        out.splice(out.end(), TaskStore(config_for_reading()).list());
        return 0;
    });
}

int __nvrcfg_set_rr_settings(const char* srcFile, int srcLine, std::string text) {
    return guarded(srcFile, srcLine,
                   [&text] { return TaskStore(config_for_writing()).apply_settings(text); });
}

int __nvrcfg_get_key_value(const char* srcFile, int srcLine, const char* section, const char* key,
                           std::string& value, int* error) {
    const int status = guarded(srcFile, srcLine, [&] {
        auto found = known_key(section, key);
        if (!found) return NVRCFG_KEY_NOT_FOUND;
        value = std::move(*found);
        return 0;
    });
    if (status != 0 && error != nullptr) *error = status;
    return status;
}

int cfgsvc_get_channel_setting(bool with_removed, int first, std::string& out) {
    return guarded(__FILE__, __LINE__, [&] {
        const std::string text = print_channels(with_removed, first);
        return b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                             static_cast<unsigned>(text.size()), out);
    });
}
