// When somebody is told that alerts do not arrive, and in which words.
#include "platform/standalone/store/undelivered_alerts.h"

#include <gtest/gtest.h>

#include "platform/standalone/store/time_text.h"

namespace {

using namespace standalone;

constexpr long long NOW = 1'700'000'000;
constexpr long long HOUR = 3600;

UndeliveredAlert waiting(const std::string& recipient, long long age, long long attempts) {
    return {.way = recipient.empty() ? AlertWay::web_hook : AlertWay::mail,
            .recipient = recipient,
            .id = "a1",
            .subject = "S",
            .made = NOW - age,
            .attempts = attempts,
            .next_attempt = {},
            .last_failure = attempts > 0 ? "no route" : ""};
}

GivenUpReceiver given_up(const std::string& recipient, long long age) {
    return {AlertWay::mail, recipient, NOW - age, "550 nobody"};
}

TEST(UndeliveredText, IsEmptyWhileAlertsAreUnderWay) {
    EXPECT_EQ(undelivered_text({}, {}, NOW), "");
    EXPECT_EQ(undelivered_text({waiting("a@b", HOUR, 5), waiting("", 9 * HOUR, 0)}, {}, NOW), "");
}

TEST(UndeliveredText, TellsOfOneThatHasFailedForMoreThanAnHour) {
    EXPECT_EQ(undelivered_text({waiting("a@b", HOUR + 1, 5), waiting("a@b", 2 * HOUR, 5)}, {}, NOW),
              "alerts by mail to a@b have not arrived since " + zoned_minute(NOW - 2 * HOUR) +
                  ": no route");
    EXPECT_EQ(
        undelivered_text({waiting("", 2 * HOUR, 1)}, {}, NOW),
        "alerts by web hook have not arrived since " + zoned_minute(NOW - 2 * HOUR) + ": no route");
}

TEST(UndeliveredText, TellsOfOneThatWasGivenUpWhateverTheClockSays) {
    for (const long long age : {-HOUR, 0LL, 9000 * HOUR})
        EXPECT_EQ(undelivered_text({}, {given_up("a@b", age)}, NOW),
                  "alerts by mail to a@b have not arrived since " + zoned_minute(NOW - age) +
                      ": 550 nobody");
}

TEST(UndeliveredText, NamesOneOfManyAndTheirNumber) {
    const std::string text =
        undelivered_text({waiting("c@d", 2 * HOUR, 1), waiting("", HOUR * 3, 1)},
                         {given_up("a@b", 0), given_up("c@d", 1)}, NOW);
    EXPECT_EQ(text, "alerts by web hook have not arrived since " + zoned_minute(NOW - 3 * HOUR) +
                        ": no route; nor have those for 2 others");
}

}  // namespace
