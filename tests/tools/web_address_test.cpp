// Where the web server may be told to listen: what is an address and a port, and what is none.
#include "tools/recorderctl/web_address.h"

#include <gtest/gtest.h>

#include "tools/recorderctl/commands.h"

namespace recorderctl {

namespace {

TEST(WebAddress, IsReadAndWrittenAlike) {
    for (const char* text : {"192.0.2.10:8443", "0.0.0.0:1", "127.0.0.1:65535", "[::]:8443",
                             "[2001:db8::10]:443", "[::1]:80"})
        EXPECT_EQ(parse_web_address(text).text(), text);
}

TEST(WebAddress, IsWrittenInOneWayOnly) {
    EXPECT_EQ(parse_web_address("[2001:DB8:0:0::10]:08443").text(), "[2001:db8::10]:8443");
}

TEST(WebAddress, KnowsLoopbackAndAll) {
    EXPECT_TRUE(parse_web_address("127.9.9.9:80").is_loopback());
    EXPECT_TRUE(parse_web_address("[::1]:80").is_loopback());
    EXPECT_FALSE(parse_web_address("192.0.2.127:80").is_loopback());
    EXPECT_FALSE(parse_web_address("0.0.0.0:80").is_loopback());
    EXPECT_TRUE(parse_web_address("0.0.0.0:80").is_any());
    EXPECT_TRUE(parse_web_address("[::]:80").is_any());
    EXPECT_FALSE(parse_web_address("192.0.2.10:80").is_any());
}

class NoWebAddress : public testing::TestWithParam<const char*> {};

TEST_P(NoWebAddress, IsRefused) {
    EXPECT_THROW(parse_web_address(GetParam()), Failure);
}

INSTANTIATE_TEST_SUITE_P(
    Texts, NoWebAddress,
    testing::Values("", ":", ":80", "80", "192.0.2.10", "192.0.2.10:", "192.0.2.10:0",
                    "192.0.2.10:65536", "192.0.2.10:-1", "192.0.2.10:+1", "192.0.2.10: 1",
                    "192.0.2.10:1 ", "192.0.2.10:99999999999", "192.0.2:80", "192.0.2.256:80",
                    "0x7f.0.0.1:80", "192.0.2.010:80", "localhost:80", "recorder.example:80",
                    "2001:db8::10:80", "[2001:db8::10]", "[192.0.2.10]:80", "[::1:80", "::1]:80",
                    "[fe80::1]:80", "[fe80::1%eth0]:80", "[::ffff:192.0.2.10]:80", "[ff02::1]:80",
                    "224.0.0.1:80", "*:80", "192.0.2.10:80\nUser root"));

TEST(WebAddress, OfThisMachineCanBeListenedOnAndOthersCannot) {
    EXPECT_NO_THROW(require_own_address(parse_web_address("127.0.0.1:1")));
    EXPECT_NO_THROW(require_own_address(parse_web_address("0.0.0.0:1")));
    EXPECT_THROW(require_own_address(parse_web_address("192.0.2.99:1")), Failure);
}

}  // namespace

}  // namespace recorderctl
