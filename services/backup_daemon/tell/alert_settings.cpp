// What administrators configure of alerts: section "alert" of the configuration store.
#include "services/backup_daemon/tell/alert_settings.h"

#include <limits.h>
#include <unistd.h>

#include <array>
#include <stdexcept>

#include "platform/known_settings.h"
#include "platform/standalone/store/setting_values.h"
#include "services/configured.h"

namespace services {
namespace {

// Whom alerts are for while mail_to is no list of addresses.
const std::vector<std::string> NOBODY_KNOWN = {""};

/// A stored text that is of its setting's kind, "" where that may be left out, or the default.
std::string checked(const char* key, std::string text) {
    const KnownSetting* setting = find_setting("alert", key);
    if (text.empty()) return std::string(setting->text_otherwise);
    if (standalone::is_setting_value(setting->kind, text)) return text;
    throw std::runtime_error(std::string("setting alert ") + key +
                             " is not valid: recorderctl config list");
}

std::string machines_address() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), HOST_NAME_MAX);
    const std::string address = std::string("recorder@") + name.data();
    const bool taken = standalone::is_setting_value(SettingKind::mail_address, address);
    return taken ? address : "recorder@localhost";
}

MailSecurity security_of(const std::string& text) {
    if (text == "tls") return MailSecurity::tls;
    return text == "none" ? MailSecurity::none : MailSecurity::starttls;
}

int usual_port(MailSecurity security) {
    switch (security) {
        case MailSecurity::starttls:
            return 587;
        case MailSecurity::tls:
            return 465;
        case MailSecurity::none:
            break;
    }
    return 25;
}

std::string ca_file() {
    return checked("ca_file", configured_text_or_throw("alert", "ca_file"));
}

void set_server(MailSettings& settings, const std::string& text) {
    if (text.empty()) return;
    const auto place = standalone::server_place(text);
    settings.host = place->host;
    settings.port = place->port != 0 ? place->port : usual_port(settings.security);
}

}  // namespace

std::vector<AlertReceiver> alert_receivers() {
    std::vector<AlertReceiver> receivers;
    const std::string to = configured_text_or_throw("alert", "mail_to");
    if (!to.empty())
        for (const std::string& address : standalone::mail_addresses(to).value_or(NOBODY_KNOWN))
            receivers.push_back({AlertWay::mail, address});
    if (!configured_text_or_throw("alert", "web_hook").empty())
        receivers.push_back({AlertWay::web_hook, ""});
    return receivers;
}

MailSettings mail_settings() {
    const auto to = checked("mail_to", configured_text_or_throw("alert", "mail_to"));
    if (to.empty()) throw std::runtime_error("setting alert mail_to names nobody");
    MailSettings settings;
    settings.to = standalone::mail_addresses(to).value();
    settings.from = checked("mail_from", configured_text_or_throw("alert", "mail_from"));
    if (settings.from.empty()) settings.from = machines_address();
    settings.security =
        security_of(checked("smtp_security", configured_text_or_throw("alert", "smtp_security")));
    set_server(settings, checked("smtp_server", configured_text_or_throw("alert", "smtp_server")));
    settings.user = checked("smtp_user", configured_text_or_throw("alert", "smtp_user"));
    settings.password =
        checked("mail_password", configured_text_or_throw("alert", "mail_password"));
    settings.password_file =
        checked("smtp_password_file", configured_text_or_throw("alert", "smtp_password_file"));
    settings.sendmail = checked("sendmail", configured_text_or_throw("alert", "sendmail"));
    settings.ca_file = ca_file();
    return settings;
}

WebHookSettings web_hook_settings() {
    const auto address = checked("web_hook", configured_text_or_throw("alert", "web_hook"));
    if (address.empty()) throw std::runtime_error("setting alert web_hook is not set");
    return {
        .address = address,
        .secret = checked("web_hook_secret", configured_text_or_throw("alert", "web_hook_secret")),
        .ca_file = ca_file()};
}

}  // namespace services
