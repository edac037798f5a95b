// The fake's recorder side: configuration store, recording storage and live state.
#include <memory>

#include "platform/nvrcfg.h"
#include "platform/utilities.h"
#include "tests/support/fake_platform/fake_platform.h"
#include "tests/support/fake_platform/fake_state.h"

namespace {

class Setting : public IStorageSetting {
public:
    int get_channel_config_list(std::list<TRemovedChannelInfo>& out, int selector) override {
        if (const auto code = fake::called(__func__, {std::to_string(selector)})) return *code;
        if (selector != VESK_REMOVED_CHANNELS) return -1;
        const auto& removed = fake::platform.removed_channels;
        out.insert(out.end(), removed.begin(), removed.end());
        return 0;
    }
};

}  // namespace

int __nvrcfg_get_rr_settings(const char* srcFile, int srcLine, std::list<TDataBackupConfig>& out) {
    if (const auto code = fake::called(__func__, {srcFile, fake::shown_line(srcLine)}))
        return *code;
    out.insert(out.end(), fake::platform.tasks.begin(), fake::platform.tasks.end());
    return 0;
}

int __nvrcfg_set_rr_settings(const char* srcFile, int srcLine, std::string text) {
    const auto code = fake::called(__func__, {srcFile, fake::shown_line(srcLine), text});
    if (code) return *code;
    fake::platform.stored.push_back(text);
    return 0;
}

int __nvrcfg_get_key_value(const char* srcFile, int srcLine, const char* section, const char* key,
                           std::string& value, int* error) {
    const auto code = fake::called(__func__, {srcFile, fake::shown_line(srcLine), section, key});
    const auto found = fake::platform.keys.find(std::string(section) + "/" + key);
    if (code || found == fake::platform.keys.end()) {
        *error = code.value_or(NVRCFG_KEY_NOT_FOUND);
        return -1;
    }
    value = fake::queued(__func__).value_or(found->second);
    return 0;
}

int cfgsvc_get_channel_setting(bool with_removed, int first, std::string& out) {
    const auto code = fake::called(__func__, {fake::shown(with_removed), std::to_string(first)});
    if (code) return *code;
    const std::string text = fake::queued(__func__).value_or(fake::platform.channel_settings);
    return b64_encode_v2(reinterpret_cast<const unsigned char*>(text.data()),
                         static_cast<unsigned>(text.size()), out);
}

int CVeskStorage::create_storage_setting(IStorageSetting** setting) {
    *setting = nullptr;
    if (const auto code = fake::called(__func__, {})) return *code;
    *setting = std::make_unique<Setting>().release();
    return 0;
}

int CVeskStorage::destroy_storage_setting(IStorageSetting** setting) {
    const auto code = fake::called(__func__, {*setting ? "setting" : "(null)"});
    if (!*setting) return -1;
    std::unique_ptr<IStorageSetting> owner(*setting);
    *setting = nullptr;
    return code.value_or(0);
}

int get_storage_days(int* normal_days, int* alarm_days, long long* earliest, long long* latest) {
    if (const auto code = fake::called(__func__, {})) return *code;
    for (int channel = 0; channel < VESK_MAX_CHANNELS; ++channel) {
        normal_days[channel] = fake::platform.normal_days[channel];
        alarm_days[channel] = fake::platform.alarm_days[channel];
        earliest[channel] = fake::platform.earliest[channel];
        latest[channel] = fake::platform.latest[channel];
    }
    return 0;
}

int nvr_rec_state_read(char* text, int& count, TChannelStatus* channels, int max,
                       TServerStatusInfo* server) {
    count = 0;
    const auto code =
        fake::called(__func__, {std::to_string(max), fake::shown(server ? "server" : nullptr)});
    if (code) return *code;
    const auto& states = fake::platform.channel_states;
    snprintf(text, REC_STATE_TEXT_SIZE, "%s", fake::platform.state_text.c_str());
    for (int channel = 0; channel < max; ++channel)
        for (int stream = 0; stream < REC_STATE_MAX_STREAMS; ++stream)
            channels[channel].stream_state[stream] = channel < static_cast<int>(states.size())
                                                         ? states[channel].stream_state[stream]
                                                         : 4;
    count = static_cast<int>(states.size());
    return 0;
}
