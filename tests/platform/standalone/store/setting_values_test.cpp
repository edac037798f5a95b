// Which texts settings take: what people mistype, and what others would have programs do.
#include "platform/standalone/store/setting_values.h"

#include <gtest/gtest.h>

namespace {

using namespace standalone;

using Texts = std::vector<std::string>;

void expect_taken(SettingKind kind, const Texts& texts) {
    for (const std::string& text : texts) EXPECT_TRUE(is_setting_value(kind, text)) << text;
}

void expect_refused(SettingKind kind, const Texts& texts) {
    for (const std::string& text : texts) EXPECT_FALSE(is_setting_value(kind, text)) << text;
}

TEST(SettingValues, MailAddressesAreThoseOfPeopleAndOfLocalUsers) {
    expect_taken(SettingKind::mail_addresses,
                 {"", "a@b", "a.b+c@mail.example.org", "root", "a@b,c@d", " a@b , c@d "});
    expect_refused(SettingKind::mail_addresses, {" ",
                                                 "a@",
                                                 "@b",
                                                 "a@b@c",
                                                 "example.org",
                                                 "a b@c",
                                                 "a@b c",
                                                 "a@b,",
                                                 ",a@b",
                                                 "<a@b>",
                                                 "\"a\"@b",
                                                 "a..b@c",
                                                 ".a@b",
                                                 "a.@b",
                                                 "a@b..c",
                                                 "a@.b",
                                                 "a@-b",
                                                 "-a@b",
                                                 "-oQ/tmp",
                                                 "a@b;c@d",
                                                 "ü@b",
                                                 "a@ü",
                                                 "a@b\r\nBcc: c@d",
                                                 "a@b\n",
                                                 "a\t@b",
                                                 std::string("a@b\0c", 5),
                                                 std::string(300, 'a') + "@b"});
    EXPECT_EQ(mail_addresses(" a@b,c@d "), (Texts{"a@b", "c@d"}));
}

TEST(SettingValues, OneMailAddressIsOne) {
    expect_taken(SettingKind::mail_address, {"", "a@b"});
    expect_refused(SettingKind::mail_address, {"a@b,c@d", " a@b",
                                               "a"
                                               "@"});
}

TEST(SettingValues, AServerIsAHostAndMayHaveAPort) {
    EXPECT_EQ(server_place("mail.example.org"), (ServerPlace{"mail.example.org", 0}));
    EXPECT_EQ(server_place("mail:25"), (ServerPlace{"mail", 25}));
    EXPECT_EQ(server_place("192.0.2.1:65535"), (ServerPlace{"192.0.2.1", 65535}));
    EXPECT_EQ(server_place("[::1]:25"), (ServerPlace{"[::1]", 25}));
    EXPECT_EQ(server_place("[2001:db8::1]"), (ServerPlace{"[2001:db8::1]", 0}));
    expect_taken(SettingKind::server, {"", "mail", "mail_relay:25"});
    expect_refused(
        SettingKind::server,
        {":25",       "mail:",       "mail:0", "mail:65536", "mail:-1",   "mail:+1",   "mail:25x",
         "mail: 25",  "::1",         "::1:25", "[::1",       "[]",        "[:]",       "mail/path",
         "user@mail", "smtp://mail", "ma il",  "-mail",      "mail\r\nX", "mail..org", "mail?x"});
}

TEST(SettingValues, SecurityIsOneOfThreeWords) {
    expect_taken(SettingKind::mail_security, {"starttls", "tls", "none"});
    expect_refused(SettingKind::mail_security, {"", "STARTTLS", "ssl", "off", "none "});
}

TEST(SettingValues, AWebAddressIsHttpOrHttpsWithoutUserAndPassword) {
    expect_taken(SettingKind::web_address,
                 {"", "http://a", "https://a", "https://a/", "https://a:8443/b/c?d=e&f=%20",
                  "http://127.0.0.1:9/x", "http://[::1]:9/x", "https://a?b", "https://a/@b"});
    expect_refused(
        SettingKind::web_address,
        {"a", "//a", "ftp://a", "file:///etc/passwd", "HTTP://a", "https:///a", "https://",
         "https://u@a", "https://u:p@a/", "https://a b", "https://a/ b", "https://a\r\nX: y",
         "https://a/#b", "https://a:0/", "https://a:99999/", "https://ü/", "https://a\\@b/"});
}

TEST(SettingValues, FilesAndProgramsHaveWholePaths) {
    expect_taken(SettingKind::file, {"", "/etc/recorder/password", "/with blank"});
    expect_refused(SettingKind::file, {"password", "~/password", "/a\nb", " /a"});
    expect_taken(SettingKind::program, {"/usr/sbin/sendmail"});
    expect_refused(SettingKind::program, {"", "sendmail", "./sendmail"});
}

TEST(SettingValues, ALineHasNoControlCharacters) {
    expect_taken(SettingKind::line, {"", "user@example.org", "Jürgen", "two words"});
    expect_refused(SettingKind::line, {"a\nb", "a\tb", "\x7F", "\xFF"});
    expect_refused(SettingKind::secret, {"", "a\nb"});
}

}  // namespace
