// Letters to the log service: what is stored, who is answered, and what it passes over.
#include "services/event_log/event_intake.h"

#include <event2/event.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <array>
#include <atomic>
#include <cstring>
#include <deque>
#include <fstream>
#include <future>
#include <map>
#include <optional>
#include <thread>

#include "platform/event_ids.h"
#include "platform/recorder_log.h"
#include "platform/standalone/event_handover.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/event_letter.h"
#include "tests/support/open_descriptors.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;
using services::EventIntake;
using services::EventWatch;
using standalone::Database;
using standalone::Event;
using standalone::EventLimit;
using standalone::FileHandle;
using standalone::hand_over;
using standalone::Handover;
using standalone::NewEvent;

struct FreeBase {
    void operator()(event_base* base) const { event_base_free(base); }
};

/// The intake from when it is made, and a thread with its loop from run() on: what comes in between
/// waits together.
class Service {
public:
    explicit Service(std::string path = standalone::event_socket_path())
        : intake_(std::in_place, loop_.get(), std::move(path)) {}
    ~Service() { end(); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void run() {
        thread_ = std::thread([this] {
            standalone::limit_waiting(50ms);
            event_base_loop(loop_.get(), EVLOOP_NO_EXIT_ON_EMPTY);
        });
    }

    void end() {
        if (!thread_.joinable()) return;
        eventfd_write(bell_.get(), 1);
        thread_.join();
        intake_.reset();
    }

    /// When this is called from the loop, letters are between two takings.
    void call_in_loop(const EventWatch::Action& action) {
        called_ = EventWatch::after(loop_.get(), 0ms, action);
    }

private:
    std::unique_ptr<event_base, FreeBase> loop_{event_base_new()};
    FileHandle bell_{eventfd(0, EFD_CLOEXEC)};
    std::unique_ptr<EventWatch> ending_ = EventWatch::readable(
        loop_.get(), bell_.get(), [this] { event_base_loopbreak(loop_.get()); });
    std::unique_ptr<EventWatch> called_;
    std::optional<EventIntake> intake_;
    std::thread thread_;
};

/// A line for an answer, as a sender has it.
struct Line {
    Line() {
        std::array<int, 2> ends{-1, -1};
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
            throw std::runtime_error("no line");
        ours = FileHandle(ends[0]);
        theirs = FileHandle(ends[1]);
    }

    /// Nothing when the line has ended; fails when it never does.
    std::string answer() const {
        pollfd there{ours.get(), POLLIN, 0};
        EXPECT_EQ(poll(&there, 1, PATIENCE_MS), 1);
        std::array<char, 64> room;
        const ssize_t size = recv(ours.get(), room.data(), room.size(), 0);
        return {room.data(), size > 0 ? static_cast<std::size_t>(size) : 0};
    }

    FileHandle ours;
    FileHandle theirs;
};

/// Sends what no sender of ours would. Waits while the service's queue is full.
void post(const std::string& text, const std::vector<int>& descriptors) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    standalone::event_socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
    const std::size_t size = descriptors.size() * sizeof(int);
    std::string control(CMSG_SPACE(size), '\0');
    iovec part{const_cast<char*>(text.data()), text.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size();
        cmsghdr* passed = CMSG_FIRSTHDR(&message);
        passed->cmsg_level = SOL_SOCKET;
        passed->cmsg_type = SCM_RIGHTS;
        passed->cmsg_len = CMSG_LEN(size);
        std::memcpy(CMSG_DATA(passed), descriptors.data(), size);
    }
    const FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(sendmsg(socket.get(), &message, 0), static_cast<ssize_t>(text.size()));
}

NewEvent letter(const std::string& task, std::optional<EventLimit> limit = {}) {
    return {{0, 1709297110000, 0x62040001, -1, "admin", "10.0.0.7", {"Recording Backup", task}},
            limit};
}

/// A good letter, and its line as the sender has it from then on.
Line post_letter(const NewEvent& event) {
    Line line;
    post(standalone::print_letter(event), {line.theirs.get()});
    line.theirs.close();
    return line;
}

class EventIntakeTest : public StateTest {
protected:
    static std::vector<Event> stored() {
        Database database(standalone::event_database_path(), Database::Access::reading);
        return standalone::EventStore(database).newest({}, 10'000);
    }

    /// How many events each task has.
    static std::map<std::string, int> stored_tasks() {
        std::map<std::string, int> tasks;
        for (const Event& event : stored()) ++tasks[event.arguments.at(1)];
        return tasks;
    }

    /// Takes a letter, and has let go of this one's and all former ones' lines.
    static void expect_service(const std::string& task = "the last") {
        const Line line = post_letter(letter(task));
        EXPECT_EQ(line.answer(), "stored");
        EXPECT_EQ(line.answer(), "");
    }

    /// How many transactions the write-ahead file holds (sqlite.org/fileformat2.html#walformat).
    static int commits() {
        std::ifstream file(standalone::event_database_path() + "-wal", std::ios::binary);
        const std::string data(std::istreambuf_iterator<char>(file), {});
        const auto number = [&data](std::size_t at) {
            unsigned value = 0;
            for (std::size_t end = at + 4; at < end; ++at)
                value = value << 8 | static_cast<unsigned char>(data.at(at));
            return value;
        };
        int found = 0;
        for (std::size_t frame = 32; frame + 24 <= data.size(); frame += 24 + number(8)) {
            if (data.compare(frame + 8, 8, data, 16, 8) != 0) break;
            if (number(frame + 4) != 0) ++found;
        }
        return found;
    }

    static void run_sql(const char* sql) {
        Database(standalone::event_database_path(), Database::Access::writing).run(sql);
    }
};

TEST_F(EventIntakeTest, StoresEveryFieldAsItIs) {
    Service service;
    service.run();
    NewEvent odd = letter("", EventLimit{1, 2});
    odd.event.event_id = 0xf2040001;
    odd.event.channel = 7;
    odd.event.user = "a\0b\xff\"/"s;
    odd.event.ip = "";
    odd.event.arguments = {"\xe2\x82", "", "a\0b"s};
    EXPECT_EQ(hand_over(odd, PATIENCE), Handover::stored);
    const auto events = stored();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].time_ms, odd.event.time_ms);
    EXPECT_EQ(events[0].event_id, odd.event.event_id);
    EXPECT_EQ(events[0].channel, 7);
    EXPECT_EQ(events[0].user, odd.event.user);
    EXPECT_EQ(events[0].ip, "");
    Database database(standalone::event_database_path(), Database::Access::writing);
    EXPECT_TRUE(standalone::EventStore(database).holds(odd.event));
}

TEST_F(EventIntakeTest, StoresWhatManySendersHandOverAtOnceEachOnce) {
    constexpr int SENDERS = 8;
    constexpr int EACH = 25;
    Service service;
    service.run();
    std::atomic<int> taken = 0;
    std::vector<std::thread> senders;
    for (int sender = 0; sender < SENDERS; ++sender)
        senders.emplace_back([sender, &taken] {
            for (int at = 0; at < EACH; ++at)
                taken += hand_over(letter(std::to_string(sender * EACH + at)), PATIENCE) ==
                         Handover::stored;
        });
    for (std::thread& sender : senders) sender.join();
    EXPECT_EQ(taken, SENDERS * EACH);
    const auto tasks = stored_tasks();
    EXPECT_EQ(tasks.size(), static_cast<std::size_t>(SENDERS * EACH));
    for (const auto& [task, events] : tasks) EXPECT_EQ(events, 1) << task;
}

TEST_F(EventIntakeTest, StoresLettersThatWaitTogetherInOneTransaction) {
    Service service;
    std::vector<Line> lines;
    for (int at = 0; at < 8; ++at) lines.push_back(post_letter(letter(std::to_string(at))));
    service.run();
    for (const Line& line : lines) EXPECT_EQ(line.answer(), "stored");
    EXPECT_EQ(stored_tasks().size(), 8U);
    EXPECT_EQ(commits(), 1);
    expect_service();
    EXPECT_EQ(commits(), 2);
}

TEST_F(EventIntakeTest, AnswersWhenTheEventIsStored) {
    Service service;
    service.run();
    for (int at = 0; at < 20; ++at) {
        const Line line = post_letter(letter(std::to_string(at)));
        EXPECT_EQ(line.answer(), "stored");
        EXPECT_EQ(stored().size(), static_cast<std::size_t>(at + 1));
        EXPECT_EQ(line.answer(), "");
    }
}

TEST_F(EventIntakeTest, DoesNotStoreWhatItsSenderHasGivenUp) {
    Service service;
    post_letter(letter("given up"));
    const Line waiting = post_letter(letter("waits"));
    post_letter(letter("given up, too"));
    service.run();
    EXPECT_EQ(waiting.answer(), "stored");
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"waits", 1}}));
}

TEST_F(EventIntakeTest, LeavesOutWhatAFullMinuteHasNoRoomFor) {
    Service service;
    std::vector<Line> lines;
    for (const char* task : {"a", "b", "a", "c", "a"})
        lines.push_back(post_letter(letter(task, EventLimit{2, 2})));
    service.run();
    EXPECT_EQ(lines[0].answer() + lines[1].answer() + lines[2].answer() + lines[3].answer(),
              "storedstoredstoredstored");
    EXPECT_EQ(lines[4].answer(), "left out");
    EXPECT_EQ(hand_over(letter("a", EventLimit{2, 2}), PATIENCE), Handover::left_out);
    EXPECT_EQ(hand_over(letter("a"), PATIENCE), Handover::stored);
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"a", 3}, {"b", 1}, {"c", 1}}));
}

TEST_F(EventIntakeTest, PassesOverWhatIsNoLetter) {
    Service service;
    const std::string good = standalone::print_letter(letter("good"));
    for (const std::string& text :
         {""s, "\0"s, "garbage"s, "{}"s, good.substr(1), good + "x",
          std::string(standalone::LONGEST_LETTER, '['), std::string(100'000, ' ') + good}) {
        const Line line;
        post(text, {line.theirs.get()});
    }
    const Line waiting = post_letter(letter("beside them"));
    service.run();
    EXPECT_EQ(waiting.answer(), "stored");
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"beside them", 1}}));
}

TEST_F(EventIntakeTest, EndsTheLineOfWhatIsNoLetter) {
    Service service;
    service.run();
    for (const std::string& text : {"garbage"s, std::string(100'000, ' ')}) {
        Line line;
        post(text, {line.theirs.get()});
        line.theirs.close();
        EXPECT_EQ(line.answer(), "");
    }
}

TEST_F(EventIntakeTest, TakesTheLongestLetterWhole) {
    Service service;
    service.run();
    NewEvent longest = letter("");
    const std::size_t room = standalone::LONGEST_LETTER - standalone::print_letter(longest).size();
    longest.event.arguments.back().assign(room, 'x');
    EXPECT_EQ(hand_over(longest, PATIENCE), Handover::stored);
    EXPECT_EQ(stored().at(0).arguments.back().size(), room);
}

TEST_F(EventIntakeTest, PassesOverLettersWithAnotherNumberOfDescriptorsThanOne) {
    Service service;
    service.run();
    expect_service("before");
    const auto before = open_descriptors();
    for (const std::size_t count : {0, 2, 3, 4, 100, 253}) {
        Line line;
        post(standalone::print_letter(letter("odd")), std::vector<int>(count, line.theirs.get()));
        line.theirs.close();
        if (count > 0) {
            EXPECT_EQ(line.answer(), "") << count;
        }
    }
    expect_service("behind");
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"before", 1}, {"behind", 1}}));
}

TEST_F(EventIntakeTest, LeavesNoDescriptorOpenWhateverComes) {
    Service service;
    service.run();
    expect_service("before");
    const auto before = open_descriptors();
    for (const std::string& text :
         {""s, "garbage"s, std::string(100'000, ' '), standalone::print_letter(letter("given up")),
          standalone::print_letter(letter("", EventLimit{0, 0}))})
        for (int at = 0; at < 5; ++at) {
            const Line line;
            post(text, {line.theirs.get()});
        }
    expect_service("behind");
    EXPECT_EQ(open_descriptors(), before);
}

/// What may stand for a line, with what must stay open for it.
struct OddLine {
    std::string what;
    FileHandle passed;
    std::vector<FileHandle> kept{};
};

std::deque<OddLine> odd_lines(const std::string& folder) {
    std::deque<OddLine> odd;
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    odd.push_back({"a pipe to read from", FileHandle(ends[0])});
    odd.back().kept.emplace_back(ends[1]);
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    odd.push_back({"a pipe to write to", FileHandle(ends[1])});
    odd.back().kept.emplace_back(ends[0]);
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    close(ends[0]);
    odd.push_back({"a broken pipe", FileHandle(ends[1])});
    const std::string file = folder + "/file";
    odd.push_back({"a file", FileHandle(open(file.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600))});
    odd.push_back({"a name", FileHandle(open(file.c_str(), O_PATH | O_CLOEXEC))});
    odd.push_back({"a folder", FileHandle(open(folder.c_str(), O_DIRECTORY | O_CLOEXEC))});
    odd.push_back({"nothing", FileHandle(open("/dev/null", O_RDWR | O_CLOEXEC))});
    odd.push_back({"a socket of its own", FileHandle(socket(AF_UNIX, SOCK_SEQPACKET, 0))});
    odd.push_back({"a socket that listens", FileHandle(socket(AF_UNIX, SOCK_SEQPACKET, 0))});
    const sockaddr_un unnamed{AF_UNIX, ""};
    EXPECT_EQ(bind(odd.back().passed.get(), reinterpret_cast<const sockaddr*>(&unnamed),
                   sizeof unnamed.sun_family),
              0);
    EXPECT_EQ(listen(odd.back().passed.get(), 1), 0);
    for (const int kind : {SOCK_SEQPACKET, SOCK_STREAM, SOCK_DGRAM}) {
        EXPECT_EQ(socketpair(AF_UNIX, kind, 0, ends.data()), 0);
        odd.push_back({"a full line of kind " + std::to_string(kind), FileHandle(ends[0])});
        odd.back().kept.emplace_back(ends[1]);
        const std::string full(1000, 'x');
        while (send(ends[0], full.data(), full.size(), MSG_DONTWAIT) > 0) continue;
    }
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()), 0);
    odd.push_back({"a line that takes nothing", FileHandle(ends[0])});
    odd.back().kept.emplace_back(ends[1]);
    shutdown(ends[1], SHUT_RD);
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data()), 0);
    odd.push_back({"a line that gives nothing", FileHandle(ends[0])});
    odd.back().kept.emplace_back(ends[1]);
    shutdown(ends[0], SHUT_WR);
    return odd;
}

TEST_F(EventIntakeTest, GoesOnWhateverItIsToAnswerOn) {
    Service service;
    service.run();
    expect_service("before");
    const auto before = open_descriptors();  // SQLite may keep those of a database looked into
    for (OddLine& odd : odd_lines(state_.folder())) {
        SCOPED_TRACE(odd.what);
        ASSERT_TRUE(odd.passed);
        post(standalone::print_letter(letter(odd.what)), {odd.passed.get()});
        odd.passed.close();
        expect_service("behind " + odd.what);
    }
    EXPECT_EQ(open_descriptors(), before);
    for (const auto& [task, events] : stored_tasks()) EXPECT_EQ(events, 1) << task;
}

/// The answer comes as a letter, which it is not.
TEST_F(EventIntakeTest, AnswersItselfOnlyOnce) {
    Service service;
    service.run();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    standalone::event_socket_path().copy(address.sun_path, sizeof address.sun_path - 1);
    const FileHandle itself(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(connect(itself.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
              0);
    post(standalone::print_letter(letter("to itself")), {itself.get()});
    expect_service();
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"to itself", 1}, {"the last", 1}}));
}

TEST_F(EventIntakeTest, EndsLinesWhileSomebodyHoldsTheDatabase) {
    Service service;
    service.run();
    expect_service("before");
    testing::internal::CaptureStderr();
    {
        Database holder(standalone::event_database_path(), Database::Access::writing);
        const standalone::Transaction held(holder);
        for (int at = 0; at < 3; ++at)
            EXPECT_EQ(hand_over(letter("held"), PATIENCE), Handover::unanswered);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "database is locked\n");
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"before", 1}}));
    expect_service("behind");
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"before", 1}, {"behind", 1}}));
}

int tell_of(const std::string& task) {
    return send_surveillance_setting_log_with_username(events::TASK_CREATED, -1, "10.0.0.7",
                                                       "admin", "Recording Backup", task.c_str(),
                                                       static_cast<char*>(nullptr));
}

/// Results of senders that all tell at once, each from a thread of its own.
std::map<std::string, int> tell_of_all(const std::vector<std::string>& tasks) {
    std::map<std::string, std::future<int>> telling;
    for (const std::string& task : tasks)
        telling[task] = std::async(std::launch::async, tell_of, task);
    std::map<std::string, int> results;
    for (auto& [task, result] : telling) results[task] = result.get();
    return results;
}

TEST_F(EventIntakeTest, LosesNothingWhileSomebodyHoldsTheDatabase) {
    Service service;
    service.run();
    std::map<std::string, int> results;
    {
        Database holder(standalone::event_database_path(), Database::Access::writing);
        std::optional<standalone::Transaction> held(std::in_place, holder);
        auto telling = std::async(std::launch::async, tell_of_all,
                                  std::vector<std::string>{"a", "b", "c", "d"});
        telling.wait_for(200ms);  // so that some come upon it
        held.reset();
        results = telling.get();
    }
    EXPECT_EQ(results, (std::map<std::string, int>{{"a", 0}, {"b", 0}, {"c", 0}, {"d", 0}}));
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}}));
}

constexpr char POISON[] =
    "CREATE TRIGGER poison BEFORE INSERT ON event WHEN new.arguments LIKE '%poison%' "
    "BEGIN SELECT RAISE(ABORT, 'poisoned'); END";
constexpr char ROLLING_BACK[] =
    "CREATE TRIGGER poison BEFORE INSERT ON event WHEN new.arguments LIKE '%poison%' "
    "BEGIN SELECT RAISE(ROLLBACK, 'poisoned'); END";

TEST_F(EventIntakeTest, EndsAllLinesOfATransactionThatFails) {
    for (const char* trigger : {POISON, ROLLING_BACK}) {
        run_sql("DROP TRIGGER IF EXISTS poison");
        run_sql(trigger);
        Service service;
        std::vector<Line> lines;
        for (const char* task : {"a", "poison", "b"}) lines.push_back(post_letter(letter(task)));
        service.run();
        for (const Line& line : lines) EXPECT_EQ(line.answer(), "");
        EXPECT_TRUE(stored().empty());
        expect_service();
        EXPECT_EQ(stored().size(), 1U);
        run_sql("DELETE FROM event");
    }
}

TEST_F(EventIntakeTest, LosesNothingBesideAnEventThatCannotBeStored) {
    run_sql(POISON);
    Service service;
    std::future<std::map<std::string, int>> telling = std::async(
        std::launch::async, tell_of_all, std::vector<std::string>{"a", "b", "poison", "c", "d"});
    service.run();
    EXPECT_EQ(telling.get(),
              (std::map<std::string, int>{{"a", 0}, {"b", 0}, {"poison", -1}, {"c", 0}, {"d", 0}}));
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}}));
}

TEST_F(EventIntakeTest, HasTurnsForOthersWhileGarbageComesWithoutEnd) {
    Service service;
    std::atomic<bool> over = false;
    std::vector<std::thread> flood;
    for (int at = 0; at < 4; ++at)
        flood.emplace_back([&over] {
            while (!over) post("garbage", {});
        });
    std::promise<void> turn;
    service.call_in_loop([&turn] { turn.set_value(); });
    service.run();
    turn.get_future().wait();
    expect_service("in the flood");
    over = true;
    for (std::thread& one : flood) one.join();
    expect_service("behind it");
    EXPECT_EQ(stored().size(), 2U);
}

TEST_F(EventIntakeTest, StoresInADatabaseThatHasComeLater) {
    std::filesystem::remove(standalone::event_database_path());
    Service service;
    service.run();
    testing::internal::CaptureStderr();
    EXPECT_EQ(hand_over(letter("too early"), PATIENCE), Handover::unanswered);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "unable to open database file\n");
    standalone::make_state();
    expect_service();
    EXPECT_EQ(stored().size(), 1U);
}

/// Nobody would ever find it in a file that has no name any more.
TEST_F(EventIntakeTest, TakesNothingForADatabaseThatIsReplaced) {
    Service service;
    service.run();
    expect_service("before");
    for (const char* ending : {"", "-wal", "-shm"})
        std::filesystem::remove(standalone::event_database_path() + ending);
    standalone::make_state();
    EXPECT_EQ(tell_of_all({"behind"}), (std::map<std::string, int>{{"behind", 0}}));
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"behind", 1}}));
}

TEST_F(EventIntakeTest, IsNotAskedInAStateFolderThatIsReplaced) {
    Service service;
    service.run();
    expect_service("before");
    std::filesystem::rename(state_.folder(), state_.folder() + "-old");
    standalone::make_state();
    EXPECT_EQ(tell_of_all({"behind"}), (std::map<std::string, int>{{"behind", 0}}));
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"behind", 1}}));
    service.end();
    std::filesystem::remove_all(state_.folder() + "-old");
}

TEST_F(EventIntakeTest, HasASocketForItsOwnUserAloneUntilItEnds) {
    const mode_t before = umask(0);
    {
        const Service service;
        struct stat found {};
        ASSERT_EQ(lstat(standalone::event_socket_path().c_str(), &found), 0);
        EXPECT_EQ(found.st_mode, mode_t{S_IFSOCK | 0600});
    }
    umask(before);
    EXPECT_FALSE(std::filesystem::exists(standalone::event_socket_path()));
}

TEST_F(EventIntakeTest, EndsTheLinesOfWhoWaitsWhenItEnds) {
    std::optional<Line> waiting;
    {
        const Service service;
        waiting = post_letter(letter("waits"));
    }
    EXPECT_EQ(waiting->answer(), "");
}

TEST_F(EventIntakeTest, ReplacesWhatIsLeftAtItsPath) {
    const std::string path = standalone::event_socket_path();
    const std::string beside = state_.folder() + "/beside";
    const auto expect_taken = [] {
        Service service;
        service.run();
        expect_service();
    };
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        const FileHandle left(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        ASSERT_EQ(bind(left.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    expect_taken();
    std::ofstream(path) << "a file";
    expect_taken();
    std::ofstream(beside) << "mine";
    std::filesystem::create_symlink(beside, path);
    expect_taken();
    EXPECT_EQ(std::filesystem::file_size(beside), 4U);
    std::filesystem::create_symlink(state_.folder() + "/nowhere", path);
    expect_taken();
    EXPECT_FALSE(std::filesystem::exists(state_.folder() + "/nowhere"));
}

TEST_F(EventIntakeTest, SaysInOneLineWhereItCannotTakeAnything) {
    const std::string path = standalone::event_socket_path();
    const auto said = [](const std::string& where) {
        testing::internal::CaptureStderr();
        {
            Service service(where);
            service.run();
            EXPECT_EQ(tell_of_all({"itself"}), (std::map<std::string, int>{{"itself", 0}}));
        }
        return testing::internal::GetCapturedStderr();
    };
    std::filesystem::create_directory(path);
    EXPECT_EQ(said(path), "cannot take events on " + path + ": Address already in use\n");
    EXPECT_TRUE(std::filesystem::is_directory(path));
    std::filesystem::remove(path);
    const std::string nowhere = state_.folder() + "/nowhere/events.socket";
    EXPECT_EQ(said(nowhere), "cannot take events on " + nowhere + ": No such file or directory\n");
    const std::string longest = path + std::string(108 - path.size(), 'x');
    EXPECT_EQ(said(longest),
              "cannot take events on " + longest + ": its name is too long for a socket\n");
    EXPECT_EQ(stored_tasks(), (std::map<std::string, int>{{"itself", 3}}));
}

/// The port keeps that from happening. The first one to end takes the other one's socket with it.
TEST_F(EventIntakeTest, LosesNothingWhereTwoServicesHaveOneStateFolder) {
    std::optional<Service> first(std::in_place);
    first->run();
    Service second;
    second.run();
    EXPECT_EQ(tell_of_all({"a", "b"}), (std::map<std::string, int>{{"a", 0}, {"b", 0}}));
    first.reset();
    EXPECT_EQ(tell_of_all({"c", "d"}), (std::map<std::string, int>{{"c", 0}, {"d", 0}}));
    second.end();
    EXPECT_EQ(tell_of_all({"e"}), (std::map<std::string, int>{{"e", 0}}));
    EXPECT_EQ(stored_tasks(),
              (std::map<std::string, int>{{"a", 1}, {"b", 1}, {"c", 1}, {"d", 1}, {"e", 1}}));
}

}  // namespace
