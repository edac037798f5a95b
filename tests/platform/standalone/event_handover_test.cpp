// Events that are handed over: to a service that answers, one that does not, and to nobody.
#include "platform/standalone/event_handover.h"

#include <poll.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "tests/support/fake_log_service.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;
using namespace std::chrono_literals;
using namespace std::string_literals;

class EventHandover : public StateTest {
protected:
    static NewEvent letter() {
        return {{0, 5, 0xf2040001, -1, "admin", "10.0.0.7", {"Recording Backup", "a\0b\xff"s}},
                EventLimit{100, 2}};
    }

    static Handover hand_it_over(std::chrono::milliseconds longest = PATIENCE) {
        return hand_over(letter(), longest);
    }

    static Handover answered_with(const std::string& answer) {
        const FakeLogService service(FakeLogService::answering(answer));
        return hand_it_over();
    }
};

TEST_F(EventHandover, TellsWhatTheServiceAnswers) {
    EXPECT_EQ(answered_with("stored"), Handover::stored);
    std::filesystem::remove(event_socket_path());
    EXPECT_EQ(answered_with("left out"), Handover::left_out);
}

TEST_F(EventHandover, BringsTheWholeLetter) {
    std::string brought;
    {
        const FakeLogService service([&brought](const std::string& text, FileHandle& line) {
            brought = text;
            send(line.get(), LETTER_STORED, sizeof LETTER_STORED - 1, 0);
        });
        EXPECT_EQ(hand_it_over(), Handover::stored);
    }
    EXPECT_EQ(brought, print_letter(letter()));
}

TEST_F(EventHandover, TakesNoOtherAnswerForOne) {
    for (const char* answer : {"", "store", "stored ", "STORED", "stored, left out", "left"}) {
        EXPECT_EQ(answered_with(answer), Handover::unanswered) << answer;
        std::filesystem::remove(event_socket_path());
    }
}

TEST_F(EventHandover, IsNotTakenWhereThereIsNoSocket) {
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
    EXPECT_FALSE(std::filesystem::exists(event_socket_path()));
}

TEST_F(EventHandover, IsNotTakenWhereTheSocketIsNobodysAnyMore) {
    letter_socket();
    ASSERT_TRUE(std::filesystem::is_socket(event_socket_path()));
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
}

TEST_F(EventHandover, IsNotTakenByWhatIsNoSuchSocket) {
    {
        const FileHandle connections = letter_socket(SOCK_STREAM);
        listen(connections.get(), 1);
        EXPECT_EQ(hand_it_over(), Handover::not_taken);
    }
    std::filesystem::remove(event_socket_path());
    std::ofstream(event_socket_path()) << "a file";
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
    std::filesystem::remove(event_socket_path());
    std::filesystem::create_directory(event_socket_path());
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
}

TEST_F(EventHandover, IsNotTakenWhenTheLetterIsTooLong) {
    const FakeLogService service(FakeLogService::answering(LETTER_STORED));
    NewEvent longest = letter();
    longest.event.user.append(LONGEST_LETTER - print_letter(longest).size(), 'x');
    EXPECT_EQ(hand_over(longest, PATIENCE), Handover::stored);
    longest.event.user.append("x");
    EXPECT_EQ(hand_over(longest, PATIENCE), Handover::not_taken);
}

TEST_F(EventHandover, IsNotTakenWhereThePathIsTooLong) {
    const std::string name = "/events.socket";
    const std::size_t longest = sizeof(sockaddr_un::sun_path) - 1;
    const std::string fitting =
        state_.folder() + "/" +
        std::string(longest - name.size() - state_.folder().size() - 1, 'x');
    std::filesystem::create_directory(fitting);
    setenv("RECORDER_STATE", fitting.c_str(), 1);
    EXPECT_EQ(answered_with(LETTER_STORED), Handover::stored);
    std::filesystem::create_directory(fitting + "x");
    setenv("RECORDER_STATE", (fitting + "x").c_str(), 1);
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
}

TEST_F(EventHandover, IsNotTakenByAServiceWhoseQueueStaysFull) {
    const FileHandle asleep = letter_socket();
    Handover last = Handover::unanswered;
    // Each letter stays there, however short its sender waits.
    while (last == Handover::unanswered) last = hand_it_over(1ms);
    EXPECT_EQ(last, Handover::not_taken);
}

TEST_F(EventHandover, IsUnansweredWhenTheServiceEndsTheLine) {
    const FakeLogService service([](const std::string&, FileHandle& line) { line.close(); });
    EXPECT_EQ(hand_it_over(), Handover::unanswered);
}

TEST_F(EventHandover, IsUnansweredWhenTheServiceDiesWithTheLetterInItsQueue) {
    FileHandle dying = letter_socket();
    auto result = std::async(std::launch::async, [] { return hand_it_over(); });
    pollfd there{dying.get(), POLLIN, 0};
    ASSERT_EQ(poll(&there, 1, PATIENCE_MS), 1);
    dying.close();
    EXPECT_EQ(result.get(), Handover::unanswered);
}

TEST_F(EventHandover, IsUnansweredByASilentServiceWhenItHasWaitedLongEnough) {
    const FileHandle silent = letter_socket();
    EXPECT_EQ(hand_it_over(10ms), Handover::unanswered);
}

/// Databases are waited for in the same way, by whoever may not wait.
TEST_F(EventHandover, WaitsNotAtAllWhereItMayNot) {
    const FileHandle silent = letter_socket();
    EXPECT_EQ(hand_it_over(0ms), Handover::unanswered);
}

/// By that the service knows who has given up.
TEST_F(EventHandover, LetsGoOfTheLineWhenItHasWaitedLongEnough) {
    std::promise<short> end;
    {
        std::promise<void> given_up;
        const FakeLogService service([&](const std::string&, FileHandle& line) {
            given_up.get_future().wait();
            pollfd there{line.get(), 0, 0};
            poll(&there, 1, PATIENCE_MS);
            end.set_value(there.revents);
        });
        EXPECT_EQ(hand_it_over(10ms), Handover::unanswered);
        given_up.set_value();
    }
    EXPECT_NE(end.get_future().get() & POLLHUP, 0);
}

TEST_F(EventHandover, LeavesNoDescriptorOpen) {
    const auto before = open_descriptors();
    EXPECT_EQ(hand_it_over(), Handover::not_taken);
    EXPECT_EQ(answered_with(LETTER_STORED), Handover::stored);
    std::filesystem::remove(event_socket_path());
    EXPECT_EQ(answered_with(""), Handover::unanswered);
    EXPECT_EQ(open_descriptors(), before);
}

}  // namespace
