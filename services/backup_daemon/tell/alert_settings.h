// What administrators configure of alerts: section "alert" of the configuration store.
#pragma once

#include <string>
#include <vector>

#include "services/backup_daemon/tell/alert_outbox.h"

namespace services {

/// Who gets alerts now: by mail whoever "mail_to" names, one with no address when it is set to what
/// is no list of them; by web hook when "web_hook" is set. Whether they work is another matter.
/// @throws std::runtime_error when the settings cannot be read: no alert is lost by that
std::vector<AlertReceiver> alert_receivers();

/// What keeps others from reading a mail on its way to the server.
enum class MailSecurity {
    starttls,  ///< begun within the connection; a server that does not know it gets no mail
    tls,       ///< from the connection's first byte on
    none,
};

/// How mails are sent.
struct MailSettings {
    std::vector<std::string> to;
    std::string from;  ///< an address, never ""
    std::string host;  ///< of the mail server; "": `sendmail` takes the mails
    int port = 0;      ///< never 0 when there is a host
    MailSecurity security = MailSecurity::starttls;
    std::string user;      ///< "": nobody logs in
    std::string password;  ///< where there is no file
    std::string password_file;
    std::string sendmail;
    std::string ca_file;  ///< "": the system's authorities
};

/// @throws std::runtime_error with one line for the administrator when a setting cannot be read or
///         is no value of its kind, or nobody is named
MailSettings mail_settings();

/// How web hooks are told.
struct WebHookSettings {
    std::string address;
    std::string secret;  ///< "": nothing is signed
    std::string ca_file;
};

/// @throws std::runtime_error as mail_settings()
WebHookSettings web_hook_settings();

}  // namespace services
