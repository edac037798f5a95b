// The settings that the programs read: sections and keys of the configuration store, and their
// values.
#pragma once

#include <algorithm>
#include <array>
#include <limits>
#include <string_view>

/// What kind of value a setting has. What is no number counts as the default of one, and whatever
/// is not "0" is on. Other texts that are no such value have what they are needed for fail.
enum class SettingKind {
    on_off,          ///< "0" or "1"
    number,          ///< decimal, without sign
    mail_addresses,  ///< with commas between; "": none
    mail_address,    ///< one, or ""
    server,          ///< "host", "host:port", "[address]:port", or ""
    mail_security,   ///< "starttls", "tls" or "none"
    line,            ///< of text, or ""
    file,            ///< whole path, or ""
    program,         ///< whole path
    web_address,     ///< http or https, without user and password, or ""
    secret,          ///< is never shown, nor taken from an argument
};

/// One setting.
struct KnownSetting {
    std::string_view section;
    std::string_view key;
    SettingKind kind;
    long long least = 0;  ///< of numbers and switches, as the two below
    long long most = 0;
    long long otherwise = 0;               ///< what counts when it is not set
    std::string_view text_otherwise = "";  ///< the same of the other kinds
    std::string_view meaning;
};

/// All of them, by section and key. What reads one: backup/fuse_status.cpp,
/// services/backup_daemon/run/run_settings.cpp, services/backup_daemon/tell/alert_settings.cpp,
/// services/event_log/retention.cpp.
inline constexpr std::array KNOWN_SETTINGS = {
    KnownSetting{.section = "alert",
                 .key = "ca_file",
                 .kind = SettingKind::file,
                 .meaning = "authorities (PEM) that vouch for mail servers and web hooks; without "
                            "it, those that the system trusts"},
    KnownSetting{.section = "alert",
                 .key = "mail_from",
                 .kind = SettingKind::mail_address,
                 .meaning = "sender of mails; without it, recorder@ and the machine's name"},
    KnownSetting{.section = "alert",
                 .key = "mail_password",
                 .kind = SettingKind::secret,
                 .meaning = "password of smtp_user, where smtp_password_file is not set"},
    KnownSetting{.section = "alert",
                 .key = "mail_to",
                 .kind = SettingKind::mail_addresses,
                 .meaning = "who gets alerts by mail"},
    KnownSetting{.section = "alert",
                 .key = "sendmail",
                 .kind = SettingKind::program,
                 .text_otherwise = "/usr/sbin/sendmail",
                 .meaning = "takes the mails where smtp_server is not set"},
    KnownSetting{.section = "alert",
                 .key = "smtp_password_file",
                 .kind = SettingKind::file,
                 .meaning = "its first line is smtp_user's password"},
    KnownSetting{.section = "alert",
                 .key = "smtp_security",
                 .kind = SettingKind::mail_security,
                 .text_otherwise = "starttls",
                 .meaning = "what keeps others from reading mails on their way to smtp_server; "
                            "without a port of its own, the port is 587, 465 or 25"},
    KnownSetting{.section = "alert",
                 .key = "smtp_server",
                 .kind = SettingKind::server,
                 .meaning = "takes the mails; without it, the machine's own sendmail does"},
    KnownSetting{.section = "alert",
                 .key = "smtp_user",
                 .kind = SettingKind::line,
                 .meaning = "whom the recorder logs in to smtp_server as; without it, it does not"},
    KnownSetting{.section = "alert",
                 .key = "web_hook",
                 .kind = SettingKind::web_address,
                 .meaning = "gets alerts by HTTP POST, as JSON"},
    KnownSetting{.section = "alert",
                 .key = "web_hook_secret",
                 .kind = SettingKind::secret,
                 .meaning = "signs what web_hook gets"},
    KnownSetting{.section = "backup",
                 .key = "check_reading",
                 .kind = SettingKind::on_off,
                 .least = 0,
                 .most = 1,
                 .otherwise = 1,
                 .meaning = "copies are read back and compared before they get their names"},
    KnownSetting{.section = "backup",
                 .key = "max_parallel",
                 .kind = SettingKind::number,
                 .least = 1,
                 .most = std::numeric_limits<int>::max(),
                 .otherwise = 2,
                 .meaning = "tasks that may run side by side"},
    KnownSetting{.section = "backup",
                 .key = "overdue_grace",
                 .kind = SettingKind::number,
                 .least = 1,
                 .most = 1000,
                 .otherwise = 25,
                 .meaning = "percent of a schedule's interval that a task may be late, two hours "
                            "at least, before it is overdue"},
    KnownSetting{.section = "fuse",
                 .key = "fuse_enabled",
                 .kind = SettingKind::on_off,
                 .least = 0,
                 .most = 1,
                 .otherwise = 1,
                 .meaning = "the file explorer is on"},
    KnownSetting{.section = "log",
                 .key = "keep_days",
                 .kind = SettingKind::number,
                 .least = 1,
                 .most = std::numeric_limits<int>::max(),
                 .otherwise = 365,
                 .meaning = "days that events are kept"},
};

/// A setting by its names; null when nothing reads it.
constexpr const KnownSetting* find_setting(std::string_view section, std::string_view key) {
    const auto* found = std::find_if(KNOWN_SETTINGS.begin(), KNOWN_SETTINGS.end(),
                                     [&](const KnownSetting& setting) {
                                         return setting.section == section && setting.key == key;
                                     });
    return found == KNOWN_SETTINGS.end() ? nullptr : found;
}
