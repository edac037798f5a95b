// Events as the recorder's calls store them.
#include "platform/recorder_log.h"

#include <atomic>

#include "platform/event_ids.h"
#include "platform/standalone/event_handover.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/event_store.h"
#include "platform/utilities.h"
#include "tests/platform/standalone/set_clock.h"
#include "tests/support/fake_log_service.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

class RecorderLog : public StateTest {
protected:
    ~RecorderLog() override { set_clock = 0; }

    /// However long a test takes, all that it tells is told within a minute.
    static void stop_clock() { set_clock = current_time_stamp(); }

    static Event newest() {
        Database database(event_database_path(), Database::Access::reading);
        return EventStore(database).newest({}, 1).at(0);
    }

    static long long count() {
        Database database(event_database_path(), Database::Access::reading);
        return EventStore(database).count({});
    }

    static int tell(unsigned event_id, const std::string& task) {
        return send_surveillance_event_log(event_id, -1, "127.0.0.1", "Recording Backup",
                                           task.c_str(), static_cast<char*>(nullptr));
    }
};

TEST_F(RecorderLog, KeepsEveryFieldOfASettingChange) {
    const auto before = static_cast<long long>(current_time_stamp());
    ASSERT_EQ(send_surveillance_setting_log_with_username(events::TASK_CREATED, 7, "10.0.0.7",
                                                          "admin", "Recording Backup", "Doors", "x",
                                                          static_cast<char*>(nullptr)),
              0);
    const Event event = newest();
    EXPECT_EQ(event.event_id, events::TASK_CREATED);
    EXPECT_EQ(event.channel, 7);
    EXPECT_EQ(event.ip, "10.0.0.7");
    EXPECT_EQ(event.user, "admin");
    EXPECT_EQ(event.arguments, (std::vector<std::string>{"Recording Backup", "Doors", "x"}));
    EXPECT_GE(event.time_ms, before);
    EXPECT_LE(event.time_ms, static_cast<long long>(current_time_stamp()));
}

TEST_F(RecorderLog, KeepsEveryFieldOfARunEvent) {
    ASSERT_EQ(
        send_surveillance_event_log(events::BACKUP_FORCED, -1, "127.0.0.1", "Recording Backup",
                                    "Doors", "Yard", static_cast<char*>(nullptr)),
        0);
    const Event event = newest();
    EXPECT_EQ(event.event_id, events::BACKUP_FORCED);
    EXPECT_EQ(event.channel, -1);
    EXPECT_EQ(event.ip, "127.0.0.1");
    EXPECT_EQ(event.user, "System");
    EXPECT_EQ(event.arguments, (std::vector<std::string>{"Recording Backup", "Doors", "Yard"}));
}

TEST_F(RecorderLog, StoresAnEventAboutNothing) {
    ASSERT_EQ(
        send_surveillance_event_log(events::RUN_STARTED, -1, nullptr, static_cast<char*>(nullptr)),
        0);
    EXPECT_TRUE(newest().arguments.empty());
    EXPECT_EQ(newest().ip, "");
}

TEST_F(RecorderLog, LimitsWhatRequestsAskForByKindWhateverTheNamesTheyGive) {
    stop_clock();
    for (int at = 0; at < EVENTS_A_MINUTE + 10; ++at)
        EXPECT_EQ(tell(events::BACKUP_STARTED, "task " + std::to_string(at)), 0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE);
    EXPECT_EQ(tell(events::BACKUP_STOPPED, "task 1"), 0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE + 1);
}

TEST_F(RecorderLog, LimitsWhatRunsTellByKindAndTask) {
    stop_clock();
    for (int at = 0; at < EVENTS_A_MINUTE + 10; ++at)
        EXPECT_EQ(tell(events::RUN_FAILED, "Doors"), 0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE);
    EXPECT_EQ(tell(events::RUN_FAILED, "Yard"), 0);
    EXPECT_EQ(newest().arguments.at(1), "Yard");
}

TEST_F(RecorderLog, LimitsFailedSignInsByAccount) {
    stop_clock();
    const auto fail = [](const char* name) {
        return send_surveillance_event_log(events::SIGN_IN_FAILED, -1, "", events::APPLICATION, "",
                                           name, static_cast<char*>(nullptr));
    };
    for (int at = 0; at < EVENTS_A_MINUTE + 10; ++at) EXPECT_EQ(fail("an unknown name"), 0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE);
    EXPECT_EQ(fail("admin"), 0);
    EXPECT_EQ(newest().arguments.at(2), "admin");
}

TEST_F(RecorderLog, KeepsEveryChangeOfASetting) {
    stop_clock();
    for (int at = 0; at < EVENTS_A_MINUTE + 10; ++at)
        EXPECT_EQ(send_surveillance_setting_log_with_username(events::TASK_DISABLED, -1, "10.0.0.7",
                                                              "admin", "Recording Backup", "Doors",
                                                              static_cast<char*>(nullptr)),
                  0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE + 10);
}

TEST_F(RecorderLog, TellsOfAnEventThatIsLost) {
    std::filesystem::remove(event_database_path());
    EXPECT_NE(send_surveillance_event_log(events::RUN_STARTED, -1, "", "Recording Backup",
                                          static_cast<char*>(nullptr)),
              0);
    EXPECT_NE(send_surveillance_setting_log_with_username(events::TASK_CREATED, -1, "", "", "",
                                                          static_cast<char*>(nullptr)),
              0);
}

/// Whether the log service is waited for however long a busy machine takes to have it answer.
bool is_patient = false;

/// Tells the log service, from a thread that has not opened the log.
class TellingTheLogService : public RecorderLog {
protected:
    TellingTheLogService() { is_patient = true; }
    ~TellingTheLogService() override { is_patient = false; }

    static int tell_anew(unsigned event_id = events::RUN_FAILED,
                         const std::string& task = "Doors") {
        int result = -1;
        std::thread([&] { result = tell(event_id, task); }).join();
        return result;
    }

    static void store(const std::string& letter) {
        Database database(event_database_path(), Database::Access::writing);
        EventStore(database).append(read_letter(letter)->event);
    }
};

TEST_F(TellingTheLogService, StoresNoEventThatTheServiceHasStored) {
    std::string letter;
    {
        const FakeLogService service([&](const std::string& text, FileHandle& line) {
            letter = text;
            FakeLogService::answering(LETTER_STORED)(text, line);
        });
        EXPECT_EQ(tell_anew(), 0);
    }
    EXPECT_EQ(count(), 0);
    const auto told = read_letter(letter);
    ASSERT_TRUE(told);
    EXPECT_EQ(told->event.event_id, events::RUN_FAILED);
    EXPECT_EQ(told->event.user, "System");
    EXPECT_EQ(told->event.ip, "127.0.0.1");
    EXPECT_EQ(told->event.arguments, (std::vector<std::string>{"Recording Backup", "Doors"}));
    ASSERT_TRUE(told->limit);
    EXPECT_EQ(told->limit->most, EVENTS_A_MINUTE);
    EXPECT_EQ(told->limit->arguments, 2U);
}

TEST_F(TellingTheLogService, LimitsNoChangeOfASetting) {
    std::string letter;
    {
        const FakeLogService service([&](const std::string& text, FileHandle& line) {
            letter = text;
            FakeLogService::answering(LETTER_STORED)(text, line);
        });
        std::thread([] {
            send_surveillance_setting_log_with_username(events::TASK_CREATED, 7, "10.0.0.7",
                                                        "admin", "Recording Backup", "Doors",
                                                        static_cast<char*>(nullptr));
        }).join();
    }
    const auto told = read_letter(letter);
    ASSERT_TRUE(told);
    EXPECT_FALSE(told->limit);
    EXPECT_EQ(told->event.user, "admin");
    EXPECT_EQ(told->event.channel, 7);
}

TEST_F(TellingTheLogService, StoresAnEventThatNobodyTakes) {
    EXPECT_EQ(tell_anew(), 0);
    EXPECT_EQ(count(), 1);
}

TEST_F(TellingTheLogService, StoresAnEventOnceThatIsLeftUnansweredAndNotStored) {
    const FakeLogService service([](const std::string&, FileHandle&) {});
    EXPECT_EQ(tell_anew(), 0);
    EXPECT_EQ(count(), 1);
    EXPECT_EQ(newest().arguments, (std::vector<std::string>{"Recording Backup", "Doors"}));
}

TEST_F(TellingTheLogService, StoresNoEventTwiceThatIsLeftUnansweredAlthoughItIsStored) {
    const FakeLogService service([](const std::string& text, FileHandle&) { store(text); });
    EXPECT_EQ(tell_anew(), 0);
    EXPECT_EQ(count(), 1);
}

TEST_F(TellingTheLogService, KeepsTheLimitOfAnEventThatIsLeftUnanswered) {
    stop_clock();
    const FakeLogService service([](const std::string&, FileHandle&) {});
    for (int at = 0; at < EVENTS_A_MINUTE + 3; ++at)
        EXPECT_EQ(tell_anew(events::BACKUP_STARTED, "task " + std::to_string(at)), 0);
    EXPECT_EQ(count(), EVENTS_A_MINUTE);
}

TEST_F(TellingTheLogService, SaysThatAnEventIsLeftOutAndDoesNotStoreIt) {
    const FakeLogService service(FakeLogService::answering(LETTER_LEFT_OUT));
    testing::internal::CaptureStderr();
    EXPECT_EQ(tell_anew(), 0);
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_NE(said.find("event 23150013 is left out: a minute's 100 are stored"), std::string::npos)
        << said;
    EXPECT_EQ(count(), 0);
}

TEST_F(TellingTheLogService, AsksNobodyWhoHasTheLogOpen) {
    std::atomic<int> asked = 0;
    const FakeLogService service([&asked](const std::string& text, FileHandle& line) {
        ++asked;
        FakeLogService::answering(LETTER_STORED)(text, line);
    });
    std::thread([&asked] {
        event_log();
        EXPECT_EQ(tell(events::RUN_FAILED, "Doors"), 0);
        EXPECT_EQ(asked, 0);
    }).join();
    EXPECT_EQ(count(), 1);
}

TEST_F(TellingTheLogService, AsksAgainWhenTheStateFolderHasBecomeAnotherOne) {
    std::atomic<int> asked = 0;
    std::thread([&asked] {
        event_log();
        const TemporaryState other;
        const FakeLogService service([&asked](const std::string& text, FileHandle& line) {
            ++asked;
            FakeLogService::answering(LETTER_STORED)(text, line);
        });
        EXPECT_EQ(tell(events::RUN_FAILED, "Doors"), 0);
        EXPECT_EQ(asked, 1);
    }).join();
}

/// What is stored nowhere is told, whatever the service has made of it.
TEST_F(TellingTheLogService, TellsOfAnEventThatNeitherOfThemStores) {
    const FakeLogService service([](const std::string&, FileHandle&) {});
    std::filesystem::remove(event_database_path());
    EXPECT_NE(tell_anew(), 0);
}

TEST(EventIds, HaveTheSubTypesThatTheLogIsAskedBy) {
    EXPECT_EQ(events::sub_type(events::BACKUP_STARTED), 8981U);
    EXPECT_EQ(events::sub_type(events::SHARE_FULL), 8981U);
    EXPECT_EQ(events::sub_type(events::ACTIVATION_REFUSED), 8983U);
    EXPECT_EQ(events::sub_type(events::TASK_DISABLED), 25092U);
}

}  // namespace

// The linker puts the wrapper in front of hand_over(), under names of its own.
standalone::Handover
real_hand_over(const standalone::NewEvent& letter, std::chrono::milliseconds longest) __asm__(
    "__real__ZN10standalone9hand_overERKNS_8NewEvent"
    "ENSt6chrono8durationIlSt5ratioILl1ELl1000EEEE");
standalone::Handover
wrapped_hand_over(const standalone::NewEvent& letter, std::chrono::milliseconds longest) __asm__(
    "__wrap__ZN10standalone9hand_overERKNS_8NewEvent"
    "ENSt6chrono8durationIlSt5ratioILl1ELl1000EEEE");

standalone::Handover wrapped_hand_over(const standalone::NewEvent& letter,
                                       std::chrono::milliseconds longest) {
    return real_hand_over(letter, is_patient ? PATIENCE : longest);
}
