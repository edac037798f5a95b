// A copy that is read back is as it was made, or what it is instead.
#include "services/backup_daemon/lane/read_back.h"

#include <chrono>
#include <thread>

#include "services/backup_daemon/run/open_recording.h"
#include "tests/services/backup_daemon/lane/worker_fixture.h"

using namespace services;

namespace {

class ReadBackTest : public WorkerFixture {
protected:
    static constexpr long long SIZE = 2 * MIB + 5;

    ReadBackTest() { server.put("a/copy", content_of(SIZE)); }

    /// What the worker reports, with an open file where one is named.
    Reports work_with(const ReadBack& order, const std::string& source = "") {
        const auto [daemon, process] = connected_sockets();
        const standalone::FileHandle file(
            source.empty() ? -1 : open(source.c_str(), O_RDONLY | O_CLOEXEC));
        send_packet_at_once(daemon.get(), pack(WorkerOrder(order)), file.get());
        return reports_of(daemon.get(), process.get());
    }

    Condition seen(const ReadBack& order, const std::string& source = "") {
        return std::get<CopySeen>(work_with(order, source).back()).condition;
    }

    const ReadBack hashed{"a/copy", SIZE, hash_of(content_of(SIZE))};
    const ReadBack unhashed{"a/copy", SIZE, ""};
};

TEST_F(ReadBackTest, CopyThatIsWhatItWasIsAsMade) {
    EXPECT_EQ(seen(hashed), Condition::as_made);
    server.modified_ns["a/copy"] = 77;
    EXPECT_EQ(seen(hashed), Condition::as_made) << "touched";
    server.put("a/none", "");
    EXPECT_EQ(seen({"a/none", 0, hash_of("")}), Condition::as_made);
}

TEST_F(ReadBackTest, CopyThatIsGoneOrLongerOrShorterIsFoundWithoutReadingIt) {
    EXPECT_EQ(seen({"a/other", SIZE, hashed.sha256}), Condition::missing);
    for (const long long size : {SIZE - 1, SIZE + 1, 0LL}) {
        server.put("a/copy", content_of(size));
        EXPECT_EQ(seen(hashed), Condition::other_size) << size;
    }
    EXPECT_TRUE(server.calls_of("read").empty());
}

TEST_F(ReadBackTest, OneWrongBitAnywhereIsFound) {
    write_source(content_of(SIZE));
    for (const long long at : {0LL, MIB, SIZE - 1}) {
        server.put("a/copy", spoilt(content_of(SIZE), at));
        EXPECT_EQ(seen(hashed), Condition::other_content) << at;
        EXPECT_EQ(seen(unhashed, source_path), Condition::other_content) << at;
    }
}

TEST_F(ReadBackTest, WithoutAHashTheRecordingTellsWhatACopyShouldBe) {
    write_source(content_of(SIZE));
    EXPECT_EQ(seen(unhashed, source_path), Condition::as_made);
}

TEST_F(ReadBackTest, WithoutAnythingToCompareItWithTheSizeAloneIsLookedAt) {
    server.put("a/copy", spoilt(content_of(SIZE), 3));
    EXPECT_EQ(seen(unhashed), Condition::as_made);
    EXPECT_TRUE(server.calls_of("read").empty());
}

TEST_F(ReadBackTest, NothingOnTheShareIsChanged) {
    server.put("a/copy", spoilt(content_of(SIZE), 3));
    const auto before = server.files;
    seen(hashed);
    EXPECT_EQ(server.files, before);
}

TEST_F(ReadBackTest, SlowReadingTellsThatItIsAlive) {
    server.before_call = [](const std::string& call) {
        if (call.starts_with("read")) std::this_thread::sleep_for(std::chrono::milliseconds(260));
    };
    write_source(content_of(SIZE));
    for (const std::string& source : {std::string(), source_path}) {
        const Reports reports = work_with(source.empty() ? hashed : unhashed, source);
        EXPECT_GE(std::ranges::count_if(
                      reports, [](const auto& one) { return std::holds_alternative<At>(one); }),
                  3);
    }
}

TEST_F(ReadBackTest, FailureOfTheShareIsToldAndTheNextOrderIsServed) {
    server.failure = PlannedFailure{.call = 2, .when = Break::before, .kind = FailureKind::denied};
    EXPECT_EQ(names_of(work({hashed, hashed})),
              (Texts{"ready", failed(FailureKind::denied), "seen"}));
}

}  // namespace
