// What events say in words.
#include "platform/standalone/store/event_text.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

using namespace standalone;

namespace {

Event event(unsigned event_id, std::vector<std::string> arguments = {"Recording Backup", "Doors"}) {
    Event made;
    made.event_id = event_id;
    made.arguments = std::move(arguments);
    return made;
}

std::string time_in(const char* zone, long long time_ms) {
    setenv("TZ", zone, 1);
    tzset();
    Event made;
    made.time_ms = time_ms;
    return event_time(made);
}

TEST(EventText, SaysWhatWasDone) {
    const std::pair<unsigned, const char*> rows[] = {
        {0x62040001, "Task created"},   {0x62040002, "Task modified"},
        {0x62040003, "Task deleted"},   {0x62040004, "Task enabled"},
        {0x62040005, "Task disabled"},  {0x23150001, "Backup started"},
        {0x23150002, "Backup stopped"}, {0x23170001, "Activation refused: file explorer is off"},
        {0x23190001, "Alerts changed"}};
    for (const auto& [id, text] : rows) EXPECT_EQ(event_text(event(id)), text);
}

TEST(EventText, SaysWhatHappenedInARun) {
    const std::pair<unsigned, const char*> rows[] = {
        {0x23150010, "Run started"},
        {0x23150011, "Interrupted run taken up again"},
        {0x23150012, "Run succeeded"},
        {0x23150013, "Run failed"},
        {0x23150014, "Run cancelled"},
        {0x23150015, "File not copied"},
        {0x23150016, "Connection lost"},
        {0x23150017, "Old copies removed"},
        {0x23150018, "Oldest day removed from the full share"},
        {0x23150019, "Share is full"},
        {0x23150020, "Run will not fit on the share"},
        {0x23150021, "Copy not removed"},
        {0x23150022, "Copy is not as it was made"}};
    for (const auto& [id, text] : rows) EXPECT_EQ(event_text(event(id)), text);
}

TEST(EventText, TellsTheDetailOfARun) {
    EXPECT_EQ(event_text(event(0x23150013, {"Recording Backup", "Doors", "no such share"})),
              "Run failed: no such share");
}

TEST(EventText, ForcedBackupNamesBothTasks) {
    EXPECT_EQ(event_text(event(0x23150003, {"Recording Backup", "Doors", "Yard"})),
              "Backup forced: Doors replaced Yard");
}

TEST(EventText, ForcedBackupWithNothingRunningSaysSo) {
    EXPECT_EQ(event_text(event(0x23150003, {"Recording Backup", "Doors", ""})),
              "Backup forced: Doors, nothing was running");
    EXPECT_EQ(event_text(event(0x23150003)), "Backup forced: Doors, nothing was running");
}

TEST(EventText, UnknownIdentifierIsShownInHex) {
    EXPECT_EQ(event_text(event(0x6204000A)), "Event 0x6204000A");
    EXPECT_EQ(event_text(event(1)), "Event 0x00000001");
}

TEST(EventText, NamesApplicationAndTask) {
    EXPECT_EQ(event_application(event(1)), "Recording Backup");
    EXPECT_EQ(event_task(event(1)), "Doors");
    EXPECT_EQ(event_application(event(1, {})), "");
    EXPECT_EQ(event_task(event(1, {"Recording Backup"})), "");
}

TEST(EventTime, IsLocalWithTheOffsetOfThatDay) {
    EXPECT_EQ(time_in("UTC0", 0), "1970-01-01T00:00:00+00:00");
    EXPECT_EQ(time_in("CET-1CEST,M3.5.0,M10.5.0/3", 1709297110999), "2024-03-01T13:45:10+01:00");
    EXPECT_EQ(time_in("CET-1CEST,M3.5.0,M10.5.0/3", 1719835510000), "2024-07-01T14:05:10+02:00");
    EXPECT_EQ(time_in("XST3:30", 1709297110000), "2024-03-01T09:15:10-03:30");
}

}  // namespace
