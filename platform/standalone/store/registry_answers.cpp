// What requests ask of the registry, most often without its being opened.
#include "platform/standalone/store/registry_answers.h"

#include "platform/known_settings.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/digest.h"
#include "platform/standalone/store/kept_answers.h"
#include "platform/standalone/store/words.h"
#include "platform/utilities.h"

namespace standalone {

namespace {

std::string packed(const OwnSession& session) {
    WordWriter words;
    words.text(session.user.name);
    words.number(session.user.level);
    words.number(session.expires_ms);
    words.number(session.ends_ms);
    return words.bytes();
}

OwnSession unpacked(const std::string& answer) {
    WordReader words(answer);
    OwnSession session{.user = {.name = words.text(), .level = 0}};
    session.user.level = static_cast<unsigned>(words.number());
    session.expires_ms = words.number();
    session.ends_ms = words.number();
    return session;
}

/// Switches and numbers. Texts may be secrets, which whoever takes them back wants to be gone.
bool may_be_kept(const std::string& section, const std::string& key) {
    const KnownSetting* setting = find_setting(section, key);
    return setting != nullptr &&
           (setting->kind == SettingKind::on_off || setting->kind == SettingKind::number);
}

}  // namespace

std::optional<OwnSession> known_session(const std::string& sid) {
    const auto answer =
        registry_answer(Question::session, sha256_hex(sid), [&sid]() -> std::optional<std::string> {
            const auto session = SessionStore(registry_for_reading()).look(sid);
            if (!session) return {};
            return packed(*session);
        });
    if (!answer) return {};
    OwnSession session = unpacked(*answer);
    if (session.expires_ms <= static_cast<long long>(current_time_stamp())) return {};
    return session;
}

std::optional<std::string> known_key(const std::string& section, const std::string& key) {
    if (!may_be_kept(section, key)) return config_keys().get(section, key);
    // That there is none is an answer, too: most keys are not stored.
    const auto answer = registry_answer(Question::key, section + '\0' + key, [&section, &key] {
        const auto value = config_keys().get(section, key);
        return std::optional(value ? '=' + *value : "");
    });
    if (answer->empty()) return {};
    return answer->substr(1);
}

}  // namespace standalone
