// What a copying process makes of its orders, and what it reports, on a share in memory.
#include "services/backup_daemon/lane/worker_body.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <new>
#include <set>
#include <thread>

#include "tests/services/backup_daemon/lane/worker_fixture.h"

using namespace services;

namespace {

using WorkerBodyTest = WorkerFixture;

TEST_F(WorkerBodyTest, ConnectsOnceAndEndsWithTheDaemon) {
    EXPECT_EQ(names_of(work({})), Texts{"ready"});
    EXPECT_EQ(server.calls, Texts{"connect"});
}

TEST_F(WorkerBodyTest, ConnectionThatCannotBeMadeIsToldAndEndsTheWork) {
    const SendFile order;
    for (int number = 0; number <= static_cast<int>(LAST_FAILURE_KIND); ++number) {
        const auto kind = static_cast<FailureKind>(number);
        server = {};
        server.failure = PlannedFailure{.call = 0, .when = Break::before, .kind = kind};
        EXPECT_EQ(names_of(work({order})), Texts{failed(kind)});
        EXPECT_EQ(server.calls, Texts{"connect"});
    }
}

TEST_F(WorkerBodyTest, ShareThatCannotBeMadeIsTold) {
    make_share = []() -> std::unique_ptr<Share> { throw std::bad_alloc(); };
    EXPECT_EQ(names_of(work({})), Texts{failed(FailureKind::other)});
}

TEST_F(WorkerBodyTest, CopiesAFileAndReportsCheckpointsAndResult) {
    write_source(content_of(9 * MIB));
    const Reports reports = work({send_file()});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "noted", "whole"}));
    const auto noted = std::find_if(reports.begin(), reports.end(), [](const WorkerReport& report) {
        return std::holds_alternative<Noted>(report);
    });
    EXPECT_EQ(std::get<Noted>(*noted).offset, 8 * MIB);
    EXPECT_EQ(std::get<Noted>(*noted).sha256, hash_of(content_of(8 * MIB)));
    EXPECT_EQ(std::get<Whole>(reports.back()).sha256, hash_of(content_of(9 * MIB)));
    EXPECT_TRUE(server.files.at(job.target) == content_of(9 * MIB));
}

/// Makes calls of a kind take longer than the pause between two reports.
void slow_down(MemoryServer& server, const std::string& kind) {
    server.before_call = [kind](const std::string& call) {
        if (call.starts_with(kind)) std::this_thread::sleep_for(std::chrono::milliseconds(260));
    };
}

std::multiset<long long> offsets_of(const Reports& reports) {
    std::multiset<long long> offsets;
    for (const WorkerReport& report : reports)
        if (const auto* at = std::get_if<At>(&report)) offsets.insert(at->offset);
    return offsets;
}

TEST_F(WorkerBodyTest, TellsHowLongTheLineIs) {
    server.round_trip = std::chrono::milliseconds(40);
    EXPECT_EQ(std::get<Ready>(work({}).at(0)).round_trip_us, 40'000);
}

TEST_F(WorkerBodyTest, SlowCopyTellsHowFarItIs) {
    write_source(content_of(3 * MIB));
    slow_down(server, "write");
    const auto offsets = offsets_of(work({send_file()}));
    for (const long long offset : {MIB, 2 * MIB, 3 * MIB}) EXPECT_TRUE(offsets.contains(offset));
}

TEST_F(WorkerBodyTest, FastCopyDoesNotTellOfEveryChunk) {
    using Clock = std::chrono::steady_clock;
    write_source(content_of(20 * MIB));
    const auto begin = Clock::now();
    const auto offsets = offsets_of(work({send_file()}));
    const auto pauses = (Clock::now() - begin) / std::chrono::milliseconds(250);
    EXPECT_LE(static_cast<long long>(offsets.size()), pauses + 1) << "and where it begins";
}

TEST_F(WorkerBodyTest, EveryCopyTellsWhereSendingBegins) {
    write_source(content_of(3 * MIB));
    SendFile second = send_file();
    second.job.target = "a/b/second";
    second.job.temporary = "a/b/.second.part";
    server.put(second.job.temporary, content_of(2 * MIB));
    std::vector<long long> begins;
    for (const WorkerReport& report : work({send_file(), second}))
        if (const auto* at = std::get_if<At>(&report); at && at->begins)
            begins.push_back(at->offset);
    EXPECT_EQ(begins, (std::vector<long long>{0, 2 * MIB}));
}

TEST_F(WorkerBodyTest, FileThatStandsThereIsNeverBegun) {
    write_source(content_of(MIB));
    server.put(job.target, content_of(MIB));
    for (const WorkerReport& report : work({send_file()})) {
        const auto* at = std::get_if<At>(&report);
        EXPECT_FALSE(at && at->begins);
    }
}

TEST_F(WorkerBodyTest, SlowComparisonTellsThatItIsAliveAndThatNothingIsSent) {
    write_source(content_of(3 * MIB));
    server.put(job.target, content_of(3 * MIB));
    slow_down(server, "read");
    const auto offsets = offsets_of(work({send_file()}));
    EXPECT_GE(offsets.size(), 3U);
    EXPECT_EQ(offsets.count(0), offsets.size());
}

TEST_F(WorkerBodyTest, SlowCheckTellsHowFarItIs) {
    write_source(content_of(2 * MIB + 5));
    slow_down(server, "read");
    const auto offsets = offsets_of(work({send_file()}));
    for (const long long offset : {MIB, 2 * MIB, 2 * MIB + 5})
        EXPECT_TRUE(offsets.contains(offset)) << offset;
    EXPECT_GE(offsets.count(2 * MIB + 5), 2U) << "its beginning is read once more";
}

TEST_F(WorkerBodyTest, OffsetIsThatOfTheFileInHand) {
    write_source(content_of(3 * MIB));
    SendFile second = send_file();
    second.job.target = "a/b/equal";
    server.put(second.job.target, content_of(3 * MIB));
    slow_down(server, "read a/b/equal");
    const Reports reports = work({send_file(), second});
    const auto first_copied =
        std::find_if(reports.begin(), reports.end(),
                     [](const WorkerReport& one) { return std::holds_alternative<Whole>(one); });
    const auto offsets = offsets_of(Reports(first_copied, reports.end()));
    EXPECT_GE(offsets.size(), 3U);
    EXPECT_EQ(offsets.count(0), offsets.size());
}

TEST_F(WorkerBodyTest, ReadsAndWritesTextsAndClaimsFolders) {
    server.put("a/text", "words");
    const Reports reports =
        work({ReadTexts{{"a/text", "a/none"}}, WriteText{"a/text", "a/text.part", "other words"},
              FolderClaim{"a/mark", "a/mark.1", "who", "mine"},
              FolderClaim{"a/mark", "a/mark.2", "who", "another's"}});
    ASSERT_EQ(reports.size(), 5U);
    const std::vector<std::optional<std::string>> expected{"words", {}};
    EXPECT_EQ(std::get<Contents>(reports[1]).texts, expected);
    EXPECT_TRUE(std::holds_alternative<Done>(reports[2]));
    EXPECT_TRUE(std::holds_alternative<Done>(reports[3]));
    EXPECT_EQ(std::get<Failed>(reports[4]).kind, FailureKind::occupied);
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/text", "other words"},
                                                                {"a/mark/who", "mine"}}));
}

TEST_F(WorkerBodyTest, SlowRemovalTellsThatItIsAlive) {
    slow_down(server, "remove");
    EXPECT_GE(offsets_of(work({RemoveFiles{{{"a"}, {"b"}}, {}}})).size(), 2U);
}

TEST_F(WorkerBodyTest, RemovesFilesThenTheFoldersThatAreEmpty) {
    server.put("a/b/1", "");
    server.put("a/b/2", "");
    server.put("a/c/foreign", "");
    const Reports reports = work({RemoveFiles{{{"a/b/1"}, {"a/b/2"}, {"a/gone"}}, {"a/b", "a/c"}}});
    EXPECT_EQ(names_of(reports), (Texts{"ready", "removed"}));
    EXPECT_EQ(server.calls, (Texts{"connect", "remove a/b/1", "remove a/b/2", "remove a/gone",
                                   "remove_folder a/b", "remove_folder a/c"}));
    EXPECT_EQ(server.folders, (std::set<std::string>{"a", "a/c"}));
    EXPECT_TRUE(server.files.contains("a/c/foreign"));
}

TEST_F(WorkerBodyTest, FailureOfTheShareIsToldAndOnlySomeEndTheWork) {
    for (int number = 0; number <= static_cast<int>(LAST_FAILURE_KIND); ++number) {
        const auto kind = static_cast<FailureKind>(number);
        server = {};
        server.failure = PlannedFailure{.call = 1, .when = Break::before, .kind = kind};
        const Reports reports = work({RemoveFiles{{{"a"}}, {}}, RemoveFiles{{{"b"}}, {}}});
        ASSERT_GE(reports.size(), 2U);
        const bool ends = kind == FailureKind::lost || kind == FailureKind::refused ||
                          kind == FailureKind::unknown;
        EXPECT_EQ(names_of(reports), ends ? (Texts{"ready", failed(kind)})
                                          : (Texts{"ready", failed(kind), "removed"}));
        EXPECT_EQ(std::get<Failed>(reports[1]).text, "remove a: planned");
    }
}

TEST_F(WorkerBodyTest, FailureOfOneFileIsToldWithItsKindAndTheNextIsCopied) {
    write_source("content");
    SendFile shorter = send_file();
    shorter.size += 1;
    SendFile occupied = send_file();
    occupied.job.target = "a/foreign";
    server.put("a/foreign", "somebody else's");
    const Reports reports = work({shorter, occupied, send_file()});
    EXPECT_EQ(names_of(reports), (Texts{"ready", failed(FailureKind::source),
                                        failed(FailureKind::occupied), "whole"}));
    EXPECT_TRUE(std::get<At>(reports[1]).begins);
    EXPECT_EQ(std::get<Failed>(reports[2]).text, source_path + " has become shorter");
}

TEST_F(WorkerBodyTest, CopyIsAsLongAsTheSourceWasWhenItWasOpened) {
    write_source("content and more");
    SendFile order = send_file();
    order.size = 7;
    EXPECT_EQ(std::get<Whole>(work({order}).back()).sha256, hash_of("content"));
    EXPECT_EQ(server.files.at(job.target), "content");
}

TEST_F(WorkerBodyTest, OrderToCopyWithoutAFileIsToldAsTheSourcesFailure) {
    write_source("content");
    EXPECT_EQ(names_of(work_on({pack(WorkerOrder(send_file()))})),
              (Texts{"ready", failed(FailureKind::source)}));
    EXPECT_TRUE(server.files.at(job.temporary).empty());
}

TEST_F(WorkerBodyTest, FileOfOneOrderIsNotKeptForTheNext) {
    write_source("content");
    SendFile second = send_file();
    second.job.target = "a/b/second";
    const auto [daemon, process] = connected_sockets();
    const standalone::FileHandle file(open(source_path.c_str(), O_RDONLY | O_CLOEXEC));
    send_packet_at_once(daemon.get(), pack(WorkerOrder(send_file())), file.get());
    send_packet_at_once(daemon.get(), pack(WorkerOrder(second)));
    shutdown(daemon.get(), SHUT_WR);
    run_worker(process.get(), make_share);
    EXPECT_TRUE(server.files.contains(job.target));
    EXPECT_FALSE(server.files.contains("a/b/second"));
}

TEST_F(WorkerBodyTest, TellsSizesAndTimesOfTheFilesThatItIsAskedFor) {
    server.put("a/b/one", "1");
    server.put("a/b/three", "333");
    server.modified_ns["a/b/three"] = 33;
    server.put("a/b/foreign", "not asked for");
    const Reports reports = work({AskFiles{"a/b", {"three", "two", "one"}}});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "files"}));
    EXPECT_EQ(std::get<Files>(reports[1]).files,
              (std::vector<FileState>{{3, 33}, {.size = -1}, {.size = 1}}));
    EXPECT_EQ(server.calls, (Texts{"connect", "list a/b"}));
}

TEST_F(WorkerBodyTest, TellsOfAsManyFilesAsAnOrderCanName) {
    AskFiles order{"a", {}};
    // Half a packet of the shortest names that recordings have.
    for (std::size_t bytes = 0; bytes < LARGEST_PACKET / 2; bytes += 18)
        order.names.push_back(std::to_string(1'000'000'000 + order.names.size()));
    server.put("a/1000000007", "7777");
    const auto files = std::get<Files>(work({order}).back()).files;
    ASSERT_EQ(files.size(), order.names.size());
    EXPECT_EQ(files[7].size, 4);
}

TEST_F(WorkerBodyTest, RoomThatIsAwaitedIsToldWhenItIsThere) {
    server.room = 100;
    server.before_call = [this](const std::string& call) {
        if (call == "room" && server.calls_of("room").size() > 1) server.room = 150;
    };
    EXPECT_EQ(std::get<Room>(work({AskRoom{150}}).back()).room->free, 150);
    EXPECT_EQ(server.calls_of("room").size(), 2U);
}

TEST_F(WorkerBodyTest, RoomThatIsThereIsToldAtOnce) {
    server.room = 100;
    EXPECT_EQ(std::get<Room>(work({AskRoom{100}}).back()).room->free, 100);
    EXPECT_EQ(server.calls_of("room").size(), 1U);
}

TEST_F(WorkerBodyTest, OrderThatCannotBeReadIsToldAndEndsTheWork) {
    server.put("a", "");
    const std::string order = pack(WorkerOrder(RemoveFiles{{{"a"}}, {}}));
    for (const std::string& garbage :
         {std::string("garbage"), order.substr(0, order.size() - 1), order + '\0'}) {
        EXPECT_EQ(names_of(work_on({garbage, order})),
                  (Texts{"ready", failed(FailureKind::other)}));
        EXPECT_TRUE(server.files.contains("a"));
    }
}

TEST_F(WorkerBodyTest, OrderOfAHundredLongNamesIsUnderstood) {
    RemoveFiles order;
    for (int number = 0; number < 200; ++number)
        order.files.push_back({std::to_string(number) + std::string(1000, 'x')});
    EXPECT_EQ(names_of(work({order})), (Texts{"ready", "removed"}));
    EXPECT_EQ(server.calls_of("remove").size(), 200U);
}

TEST_F(WorkerBodyTest, WithoutTheDaemonNoWorkIsDone) {
    auto [daemon, process] = connected_sockets();
    EXPECT_TRUE(send_packet(daemon.get(), pack(WorkerOrder(RemoveFiles{{{"a"}}, {}}))));
    daemon.close();
    run_worker(process.get(), make_share);
    EXPECT_EQ(server.calls, Texts{"connect"}) << "Ready reached nobody";
}

}  // namespace
