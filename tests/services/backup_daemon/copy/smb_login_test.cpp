// How a login, its user and its paths are spelt for the SMB library.
#include "services/backup_daemon/copy/smb_login.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

std::string url_of(const std::string& server, const std::string& share, const std::string& path) {
    return smb_url({.server = server, .port = 445, .share = share, .user = "", .password = ""},
                   path);
}

TEST(SmbLogin, UrlNamesServerPortShareAndPath) {
    EXPECT_EQ(url_of("nas.example", "backup", "a/b c.mp4"),
              "smb://nas.example:445/backup/a/b%20c.mp4");
    EXPECT_EQ(url_of("192.0.2.7", "backup", ""), "smb://192.0.2.7:445/backup");
}

TEST(SmbLogin, AddressOfVersion6StandsInBrackets) {
    EXPECT_EQ(url_of("2001:db8::7", "s", "f"), "smb://[2001:db8::7]:445/s/f");
}

TEST(SmbLogin, EveryByteThatMeansSomethingInAUrlIsEncoded) {
    EXPECT_EQ(url_of("h", "s", "%?#[]@!$&'()*+,;=:\"<>\\^`{|}"),
              "smb://h:445/s/%25%3F%23%5B%5D%40%21%24%26%27%28%29%2A%2B%2C%3B%3D%3A%22%3C%3E%5C%5E"
              "%60%7B%7C%7D");
    EXPECT_EQ(url_of("h", "s", "azAZ09-_.~/"), "smb://h:445/s/azAZ09-_.~/");
    EXPECT_EQ(url_of("h", "s", std::string("\0\x1f\x7f\xc3\xbc\xff", 6)),
              "smb://h:445/s/%00%1F%7F%C3%BC%FF");
}

TEST(SmbLogin, ServerAndShareCannotPutMoreIntoTheUrl) {
    EXPECT_EQ(url_of("user@h", "s?p=1#", "f"), "smb://user%40h:445/s%3Fp%3D1%23/f");
}

TEST(SmbLogin, UserMayNameItsDomain) {
    EXPECT_EQ(smb_user("DOM\\ada").domain, "DOM");
    EXPECT_EQ(smb_user("DOM\\ada").name, "ada");
    EXPECT_EQ(smb_user("ada").domain, std::nullopt);
    EXPECT_EQ(smb_user("ada").name, "ada");
    EXPECT_EQ(smb_user("\\ada").domain, "");
    EXPECT_EQ(smb_user("A\\b\\c").name, "b\\c");
    EXPECT_EQ(smb_user("DOM\\").name, "");
}

TEST(SmbLogin, BackslashesBehindADomainCountAsOne) {
    EXPECT_EQ(smb_user("DOM\\\\ada").domain, "DOM");
    EXPECT_EQ(smb_user("DOM\\\\ada").name, "ada");
    EXPECT_EQ(smb_user("\\\\ada").domain, "");
    EXPECT_EQ(smb_user("\\\\ada").name, "ada");
}

}  // namespace
