// Hands an alert to a mail server.
#include "services/backup_daemon/tell/smtp.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string_view>

#include "services/backup_daemon/tell/password_file.h"
#include "services/backup_daemon/tell/transfer_handle.h"

namespace services {
namespace {

constexpr std::chrono::seconds LIMIT_OF_MAIL(30);

/// What is said in a transfer, as far as it tells why the mail is refused.
struct Conversation {
    std::string command;             ///< the newest of ours
    std::string refusal;             ///< the server's newest word, when that is one
    bool recipient_is_gone = false;  ///< refused for good
    bool is_over = false;            ///< we have said good-bye
};

/// Of an answer's lines the last one counts.
void hear(Conversation& conversation, const std::string& line) {
    if (conversation.is_over || (line.size() > 3 && line[3] == '-')) return;
    const bool refuses = line.starts_with('4') || line.starts_with('5');
    conversation.refusal = refuses ? line : "";
    if (line.starts_with('5') && conversation.command.starts_with("RCPT TO:"))
        conversation.recipient_is_gone = true;
}

/// libcurl tells whoever debugs it what goes each way.
int overhear(CURL*, curl_infotype type, char* data, std::size_t size, void* listener) {
    auto& conversation = *static_cast<Conversation*>(listener);
    std::string line(data, size);
    while (line.ends_with('\n') || line.ends_with('\r')) line.pop_back();
    if (type == CURLINFO_HEADER_OUT) {
        conversation.command = line;
        conversation.is_over = line == "QUIT";
    }
    if (type == CURLINFO_HEADER_IN) hear(conversation, line);
    return 0;
}

/// libcurl asks now and then whether to go on. Nobody waits for the answer to a good-bye.
int is_over(void* listener, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
    return static_cast<Conversation*>(listener)->is_over ? 1 : 0;
}

std::size_t read_mail(char* buffer, std::size_t, std::size_t room, void* rest) {
    auto& text = *static_cast<std::string_view*>(rest);
    const std::size_t size = std::min(room, text.size());
    std::memcpy(buffer, text.data(), size);
    text.remove_prefix(size);
    return size;
}

bool is_this_machine(const std::string& host) {
    in_addr address{};
    if (host == "localhost" || host == "[::1]") return true;
    return inet_pton(AF_INET, host.c_str(), &address) == 1 &&
           ntohl(address.s_addr) >> 24 == IN_LOOPBACKNET;
}

std::string url_of(const MailSettings& settings) {
    const char* scheme = settings.security == MailSecurity::tls ? "smtps://" : "smtp://";
    return scheme + settings.host + ':' + std::to_string(settings.port);
}

/// One handle, for one attempt.
class MailTransfer {
public:
    MailTransfer(const MailSettings& settings, const std::string& password, const std::string& mail)
        : transfer_(url_of(settings), "smtp,smtps", LIMIT_OF_MAIL, settings.ca_file),
          from_('<' + settings.from + '>'),
          rest_(mail) {
        const bool begins_tls = settings.security == MailSecurity::starttls;
        // The library counts greeting and login as part of connecting, and some servers greet late.
        transfer_.set(CURLOPT_CONNECTTIMEOUT, static_cast<long>(LIMIT_OF_MAIL.count()));
        transfer_.set(CURLOPT_USE_SSL,
                      static_cast<long>(begins_tls ? CURLUSESSL_ALL : CURLUSESSL_NONE));
        if (!settings.user.empty()) {
            transfer_.set(CURLOPT_USERNAME, settings.user.c_str());
            transfer_.set(CURLOPT_PASSWORD, password.c_str());
        }
        for (const std::string& address : settings.to) recipients_.add('<' + address + '>');
        transfer_.set(CURLOPT_MAIL_FROM, from_.c_str());
        transfer_.set(CURLOPT_MAIL_RCPT, recipients_.get());
        transfer_.set(CURLOPT_UPLOAD, 1L);
        transfer_.set(CURLOPT_READFUNCTION, read_mail);
        transfer_.set(CURLOPT_READDATA, static_cast<void*>(&rest_));
        transfer_.set(CURLOPT_NOPROGRESS, 0L);
        transfer_.set(CURLOPT_XFERINFOFUNCTION, is_over);
        transfer_.set(CURLOPT_XFERINFODATA, static_cast<void*>(&conversation_));
        transfer_.set(CURLOPT_VERBOSE, 1L);
        transfer_.set(CURLOPT_DEBUGFUNCTION, overhear);
        transfer_.set(CURLOPT_DEBUGDATA, static_cast<void*>(&conversation_));
    }

    AttemptResult perform() {
        const std::string failure = transfer_.perform();
        if (failure.empty()) return {.arrived = true, .words = ""};
        const std::string& refusal = conversation_.refusal;
        return {.arrived = false,
                .words = failure + (refusal.empty() ? "" : "; the mail server says: " + refusal),
                .refused_for_good = conversation_.recipient_is_gone};
    }

private:
    Conversation conversation_;
    CurlList recipients_;
    TransferHandle transfer_;  // behind these two: its end is a good-bye, which they hear
    std::string from_;
    std::string_view rest_;
};

}  // namespace

void send_by_smtp(const MailSettings& settings, const std::string& mail,
                  const AttemptReport& report) {
    if (!settings.user.empty() && settings.security == MailSecurity::none &&
        !is_this_machine(settings.host))
        throw std::runtime_error(
            "the password would go to another machine in the clear: smtp_user needs smtp_security "
            "starttls or tls");
    std::string password = settings.password;
    if (!settings.user.empty() && !settings.password_file.empty())
        password = password_of_file(settings.password_file);
    MailTransfer transfer(settings, password, mail);
    report(transfer.perform());
}

}  // namespace services
