// What is done to send an alert on its way, as it is configured now.
#include "services/backup_daemon/tell/alert_attempts.h"

#include "services/backup_daemon/tell/alert_settings.h"
#include "services/backup_daemon/tell/mail_text.h"
#include "services/backup_daemon/tell/sendmail.h"
#include "services/backup_daemon/tell/smtp.h"
#include "services/backup_daemon/tell/web_hook.h"

namespace services {
namespace {

Attempt attempt_by_mail(const WaitingAlert& alert) {
    MailSettings settings = mail_settings();
    // An alert that was put while mail_to was no list of addresses is the first one's of a list.
    const std::string& recipient = alert.receiver.recipient;
    settings.to = {recipient.empty() ? settings.to.front() : recipient};
    const std::string mail = mail_text(settings, alert.message, alert.made);
    if (settings.host.empty())
        return [=](const AttemptReport& report) { send_by_sendmail(settings, mail, report); };
    return [=](const AttemptReport& report) { send_by_smtp(settings, mail, report); };
}

}  // namespace

Attempt attempt_of(const WaitingAlert& alert) {
    if (alert.receiver.way == AlertWay::mail) return attempt_by_mail(alert);
    return [settings = web_hook_settings(), message = alert.message](const AttemptReport& report) {
        tell_web_hook(settings, message, report);
    };
}

}  // namespace services
