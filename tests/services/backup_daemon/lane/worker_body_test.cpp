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
    const CopyJob order;
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
    const Reports reports = work({job});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "noted", "copied"}));
    const auto noted = std::find_if(reports.begin(), reports.end(), [](const Report& report) {
        return std::holds_alternative<Noted>(report);
    });
    EXPECT_EQ(std::get<Noted>(*noted).offset, 8 * MIB);
    EXPECT_EQ(std::get<Noted>(*noted).sha256, hash_of(content_of(8 * MIB)));
    const CopyResult& result = std::get<Copied>(reports.back()).result;
    EXPECT_EQ(result.size, 9 * MIB);
    EXPECT_EQ(result.sha256, hash_of(content_of(9 * MIB)));
    EXPECT_EQ(result.modified_ns, SourceFile(job.source).modified_ns());
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
    for (const Report& report : reports)
        if (const auto* at = std::get_if<At>(&report)) offsets.insert(at->offset);
    return offsets;
}

TEST_F(WorkerBodyTest, SlowCopyTellsHowFarItIs) {
    write_source(content_of(3 * MIB));
    slow_down(server, "write");
    const auto offsets = offsets_of(work({job}));
    for (const long long offset : {MIB, 2 * MIB, 3 * MIB}) EXPECT_TRUE(offsets.contains(offset));
}

TEST_F(WorkerBodyTest, FastCopyDoesNotTellOfEveryChunk) {
    using Clock = std::chrono::steady_clock;
    write_source(content_of(20 * MIB));
    const auto begin = Clock::now();
    const auto offsets = offsets_of(work({job}));
    const auto pauses = (Clock::now() - begin) / std::chrono::milliseconds(250);
    EXPECT_LE(static_cast<long long>(offsets.size()), pauses);
}

TEST_F(WorkerBodyTest, SlowComparisonTellsThatItIsAliveAndThatNothingIsSent) {
    write_source(content_of(3 * MIB));
    server.put(job.target, content_of(3 * MIB));
    slow_down(server, "read");
    const auto offsets = offsets_of(work({job}));
    EXPECT_GE(offsets.size(), 3U);
    EXPECT_EQ(offsets.count(0), offsets.size());
}

TEST_F(WorkerBodyTest, SlowCheckTellsThatItIsAliveAndThatAllIsSent) {
    write_source(content_of(2 * MIB + 5));
    slow_down(server, "read");
    EXPECT_GE(offsets_of(work({job})).count(2 * MIB + 5), 3U);
}

TEST_F(WorkerBodyTest, OffsetIsThatOfTheFileInHand) {
    write_source(content_of(3 * MIB));
    CopyJob second = job;
    second.target = "a/b/equal";
    server.put(second.target, content_of(3 * MIB));
    slow_down(server, "read a/b/equal");
    const Reports reports = work({job, second});
    const auto first_copied = std::find_if(reports.begin(), reports.end(), [](const Report& one) {
        return std::holds_alternative<Copied>(one);
    });
    const auto offsets = offsets_of(Reports(first_copied, reports.end()));
    EXPECT_GE(offsets.size(), 3U);
    EXPECT_EQ(offsets.count(0), offsets.size());
}

TEST_F(WorkerBodyTest, SlowRemovalTellsThatItIsAlive) {
    slow_down(server, "remove");
    EXPECT_GE(offsets_of(work({RemoveFiles{{"a", "b"}, {}}})).size(), 2U);
}

TEST_F(WorkerBodyTest, RemovesFilesThenTheFoldersThatAreEmpty) {
    server.put("a/b/1", "");
    server.put("a/b/2", "");
    server.put("a/c/foreign", "");
    const Reports reports = work({RemoveFiles{{"a/b/1", "a/b/2", "a/gone"}, {"a/b", "a/c"}}});
    EXPECT_EQ(names_of(reports), (Texts{"ready", "done"}));
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
        const Reports reports = work({RemoveFiles{{"a"}, {}}, RemoveFiles{{"b"}, {}}});
        ASSERT_GE(reports.size(), 2U);
        const bool ends = kind == FailureKind::lost || kind == FailureKind::refused;
        EXPECT_EQ(names_of(reports),
                  ends ? (Texts{"ready", failed(kind)}) : (Texts{"ready", failed(kind), "done"}));
        EXPECT_EQ(std::get<Failed>(reports[1]).text, "remove a: planned");
    }
}

TEST_F(WorkerBodyTest, FailureOfOneFileIsToldWithItsKindAndTheNextIsCopied) {
    CopyJob missing = job;
    missing.source += "/is/not/here";
    CopyJob linked = job;
    linked.source += "-link";
    std::filesystem::create_symlink(job.source, linked.source);
    CopyJob occupied = job;
    occupied.target = "a/foreign";
    server.put("a/foreign", "somebody else's");
    write_source("content");
    const Reports reports = work({missing, linked, occupied, job});
    EXPECT_EQ(names_of(reports),
              (Texts{"ready", failed(FailureKind::gone), failed(FailureKind::source),
                     failed(FailureKind::occupied), "copied"}));
}

TEST_F(WorkerBodyTest, OrderThatCannotBeReadIsToldAndEndsTheWork) {
    server.put("a", "");
    const std::string order = pack(Order(RemoveFiles{{"a"}, {}}));
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
        order.files.push_back(std::to_string(number) + std::string(1000, 'x'));
    EXPECT_EQ(names_of(work({order})), (Texts{"ready", "done"}));
    EXPECT_EQ(server.calls_of("remove").size(), 200U);
}

TEST_F(WorkerBodyTest, WithoutTheDaemonNoWorkIsDone) {
    auto [daemon, process] = connected_sockets();
    EXPECT_TRUE(send_packet(daemon.get(), pack(Order(RemoveFiles{{"a"}, {}}))));
    daemon.close();
    run_worker(process.get(), make_share);
    EXPECT_EQ(server.calls, Texts{"connect"}) << "Ready reached nobody";
}

}  // namespace
