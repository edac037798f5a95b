// What the settings of section "alert" come to.
#include "services/backup_daemon/tell/alert_settings.h"

#include "platform/standalone/store/key_value_store.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

class AlertSettings : public StateTest {
protected:
    static void set(const char* key, const char* value) {
        standalone::Database registry(standalone::registry_database_path(),
                                      standalone::Database::Access::writing);
        standalone::KeyValueStore(registry).set("alert", key, value);
    }
};

using Receivers = std::vector<AlertReceiver>;

const AlertReceiver WEB_HOOK{AlertWay::web_hook, ""};

TEST_F(AlertSettings, NothingIsSentAnywhereUnlessSomebodySaysWhere) {
    EXPECT_EQ(alert_receivers(), Receivers{});
    set("mail_to", "");
    set("web_hook", "");
    EXPECT_EQ(alert_receivers(), Receivers{});
}

TEST_F(AlertSettings, EachWayIsThereFromTheMomentOnThatItIsSet) {
    set("mail_to", "admin@example.org");
    EXPECT_EQ(alert_receivers(), (Receivers{{AlertWay::mail, "admin@example.org"}}));
    set("web_hook", "https://example.org/hook");
    EXPECT_EQ(alert_receivers(), (Receivers{{AlertWay::mail, "admin@example.org"}, WEB_HOOK}));
    set("mail_to", "");
    EXPECT_EQ(alert_receivers(), Receivers{WEB_HOOK});
}

TEST_F(AlertSettings, EachAddressGetsAlertsByItself) {
    set("mail_to", "root, admin@example.org");
    EXPECT_EQ(alert_receivers(),
              (Receivers{{AlertWay::mail, "root"}, {AlertWay::mail, "admin@example.org"}}));
}

TEST_F(AlertSettings, AlertsAreMadeForMailEvenWhileItsListIsNone) {
    set("mail_to", "nobody at all");
    EXPECT_EQ(alert_receivers(), (Receivers{{AlertWay::mail, ""}}));
}

TEST_F(AlertSettings, MailsGoToTheMachinesOwnSendmailWhereNoServerIsNamed) {
    set("mail_to", "root, admin@example.org");
    const MailSettings settings = mail_settings();
    EXPECT_EQ(settings.to, (std::vector<std::string>{"root", "admin@example.org"}));
    EXPECT_TRUE(settings.from.starts_with("recorder@")) << settings.from;
    EXPECT_EQ(settings.host, "");
    EXPECT_EQ(settings.sendmail, "/usr/sbin/sendmail");
    EXPECT_EQ(settings.security, MailSecurity::starttls);
}

TEST_F(AlertSettings, PortIsTheOneThatIsUsualForTheSecurityUnlessItIsNamed) {
    set("mail_to", "a@b");
    set("smtp_server", "mail.example.org");
    EXPECT_EQ(mail_settings().port, 587);
    set("smtp_security", "tls");
    EXPECT_EQ(mail_settings().port, 465);
    set("smtp_security", "none");
    EXPECT_EQ(mail_settings().port, 25);
    set("smtp_server", "[::1]:2525");
    EXPECT_EQ(mail_settings().port, 2525);
    EXPECT_EQ(mail_settings().host, "[::1]");
}

TEST_F(AlertSettings, WhatWasStoredByForceIsAFailureWithTheSettingsName) {
    for (const auto& [key, text] :
         std::vector<std::pair<const char*, const char*>>{{"mail_to", "a@b\r\nBcc: c@d"},
                                                          {"mail_from", "a@b>"},
                                                          {"smtp_security", "ssl"},
                                                          {"smtp_server", "mail:smtp"},
                                                          {"ca_file", "ca.pem"},
                                                          {"sendmail", "sendmail"}}) {
        set("mail_to", "a@b");
        set(key, text);
        try {
            mail_settings();
            ADD_FAILURE() << key;
        } catch (const std::runtime_error& error) {
            EXPECT_EQ(error.what(), std::string("setting alert ") + key +
                                        " is not valid: recorderctl config list");
        }
        set(key, "");
    }
}

TEST_F(AlertSettings, AWayThatIsNotSetAnyMoreIsAFailure) {
    EXPECT_THROW(mail_settings(), std::runtime_error);
    EXPECT_THROW(web_hook_settings(), std::runtime_error);
}

TEST_F(AlertSettings, AWebHookIsAnAddressAndMayHaveASecret) {
    set("web_hook", "https://example.org/hook");
    EXPECT_EQ(web_hook_settings().secret, "");
    set("web_hook_secret", "of ours");
    EXPECT_EQ(web_hook_settings().address, "https://example.org/hook");
    EXPECT_EQ(web_hook_settings().secret, "of ours");
    set("web_hook", "ftp://example.org");
    EXPECT_THROW(web_hook_settings(), std::runtime_error);
}

TEST(AlertSettingsWithoutAStore, AreAnErrorAndNotNoWays) {
    setenv("RECORDER_STATE", "/nonexistent/state", 1);
    EXPECT_THROW(alert_receivers(), std::runtime_error);
    EXPECT_THROW(mail_settings(), std::runtime_error);
    unsetenv("RECORDER_STATE");
}

}  // namespace
