// What a copying process makes of its orders, and what it reports, on a share in memory.
#include "services/backup_daemon/lane/worker_body.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <new>
#include <set>
#include <thread>

#include "services/backup_daemon/lane/packet_socket.h"
#include "services/backup_daemon/lane/worker_messages.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

using Reports = std::vector<Report>;
constexpr char DAY[] = "2024-03-01";

class WorkerBodyTest : public CopyFixture {
protected:
    /// Gives packets to a worker, lets it work until nothing comes any more, and takes its reports.
    Reports work_on(const Texts& packets) {
        const auto [daemon, process] = connected_sockets();
        for (const std::string& packet : packets) EXPECT_TRUE(send_packet(daemon.get(), packet));
        shutdown(daemon.get(), SHUT_WR);
        run_worker(process.get(), make_share);
        Reports reports;
        while (const auto packet = look_for_packet(daemon.get()).packet)
            reports.push_back(unpack_report(*packet));
        return reports;
    }

    Reports work(const std::vector<Order>& orders) {
        Texts packets;
        for (const Order& order : orders) packets.push_back(pack(order));
        return work_on(packets);
    }

    void record(const std::string& name, long long size) {
        const std::string path = folder.path() + "/" + DAY + "/" + name;
        std::filesystem::create_directories(std::filesystem::path(path).parent_path());
        std::ofstream(path, std::ios::binary) << content_of(size);
    }

    ListDay list_day() const {
        return {.recordings = folder.path(),
                .day = DAY,
                .normal = true,
                .alarm = true,
                .remote = "Door/2024-03-01",
                .ask_share = true};
    }

    ShareMaker make_share = [this] { return std::make_unique<MemoryShare>(server); };
};

/// A report in a word, with its kind when something failed.
std::string name_of(const Report& report) {
    static constexpr const char* NAMES[] = {"ready", "days",   "entries", "at",
                                            "noted", "copied", "done",    "failed"};
    const auto* failed = std::get_if<Failed>(&report);
    return NAMES[report.index()] +
           (failed ? " " + std::to_string(static_cast<int>(failed->kind)) : "");
}

std::string failed(FailureKind kind) {
    return "failed " + std::to_string(static_cast<int>(kind));
}

/// What the reports are, without those that depend on how long things take.
Texts names_of(const Reports& reports) {
    Texts names;
    for (const Report& report : reports)
        if (!std::holds_alternative<At>(report)) names.push_back(name_of(report));
    return names;
}

/// An entry as "name alarm size remote_size".
Texts entries_of(const Report& report) {
    Texts texts;
    for (const DayEntry& entry : std::get<Entries>(report).entries)
        texts.push_back(entry.name + (entry.alarm ? " alarm " : " normal ") +
                        std::to_string(entry.size) + " " + std::to_string(entry.remote_size));
    return texts;
}

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

TEST_F(WorkerBodyTest, ListsTheDaysOfAChannel) {
    for (const char* day : {"2024-02-29", "2024-03-01", "2024-03-02", "2024-03-03"})
        std::filesystem::create_directories(folder.path() + "/" + day);
    const Reports reports = work({ListDays{folder.path(), "2024-03-01", "2024-03-02"}});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "days"}));
    EXPECT_EQ(std::get<Days>(reports[1]).names, (Texts{"2024-03-01", "2024-03-02"}));
    EXPECT_EQ(server.calls, Texts{"connect"});
}

TEST_F(WorkerBodyTest, ListsADayWithWhatTheShareHasOfIt) {
    record("01-00-00.mp4", 5);
    record("02-00-00.mp4", 6);
    record("alarm/01-00-00.mp4", 7);
    record("alarm/03-00-00.mp4", 8);
    server.put("Door/2024-03-01/01-00-00.mp4", "four");
    server.put("Door/2024-03-01/alarm/03-00-00.mp4", "eight...");
    const Reports reports = work({list_day()});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "entries", "done"}));
    EXPECT_EQ(entries_of(reports[1]), (Texts{"01-00-00.mp4 normal 5 4", "02-00-00.mp4 normal 6 -1",
                                             "01-00-00.mp4 alarm 7 -1", "03-00-00.mp4 alarm 8 8"}));
    EXPECT_EQ(server.calls,
              (Texts{"connect", "list Door/2024-03-01", "list Door/2024-03-01/alarm"}));
    EXPECT_EQ(std::get<Entries>(reports[1]).entries[0].modified_ns,
              SourceFile(folder.path() + "/" + DAY + "/01-00-00.mp4").modified_ns());
}

TEST_F(WorkerBodyTest, FindsOnTheShareWhatHasASafeNameThere) {
    record("01-00-00.a:b", 5);
    server.put("Door/2024-03-01/01-00-00.a_b", "five.");
    EXPECT_EQ(entries_of(work({list_day()})[1]), Texts{"01-00-00.a:b normal 5 5"});
}

TEST_F(WorkerBodyTest, ListsTheKindsOfADayThatAreAskedFor) {
    record("01-00-00.mp4", 5);
    record("alarm/02-00-00.mp4", 6);
    ListDay normal = list_day();
    normal.alarm = false;
    ListDay alarm = list_day();
    alarm.normal = false;
    const Reports reports = work({normal, alarm});
    ASSERT_EQ(names_of(reports), (Texts{"ready", "entries", "done", "entries", "done"}));
    EXPECT_EQ(entries_of(reports[1]), Texts{"01-00-00.mp4 normal 5 -1"});
    EXPECT_EQ(entries_of(reports[3]), Texts{"02-00-00.mp4 alarm 6 -1"});
    EXPECT_EQ(server.calls,
              (Texts{"connect", "list Door/2024-03-01", "list Door/2024-03-01/alarm"}))
        << "each looks where it has to";
}

TEST_F(WorkerBodyTest, AsksTheShareOnlyWhenItIsTold) {
    record("01-00-00.mp4", 5);
    server.put("Door/2024-03-01/01-00-00.mp4", "five.");
    ListDay order = list_day();
    order.ask_share = false;
    EXPECT_EQ(entries_of(work({order})[1]), Texts{"01-00-00.mp4 normal 5 -1"});
    EXPECT_EQ(server.calls, Texts{"connect"});
}

TEST_F(WorkerBodyTest, DayWithoutRecordingsIsDoneToo) {
    const Reports reports = work({list_day()});
    EXPECT_EQ(names_of(reports).back(), "done");
}

/// Names and sizes of the parts in which a day of so many files is reported.
std::vector<std::size_t> parts_of(const Reports& reports, std::set<std::string>& names) {
    std::vector<std::size_t> parts;
    for (const Report& report : reports) {
        const auto* part = std::get_if<Entries>(&report);
        if (!part) continue;
        for (const DayEntry& entry : part->entries) names.insert(entry.name);
        if (!part->entries.empty()) parts.push_back(part->entries.size());
    }
    return parts;
}

TEST_F(WorkerBodyTest, DayOfManyFilesIsReportedInParts) {
    using Parts = std::vector<std::size_t>;
    const std::pair<int, Parts> cases[] = {
        {199, {199}}, {200, {200}}, {201, {200, 1}}, {400, {200, 200}}, {401, {200, 200, 1}}};
    int there = 0;
    for (const auto& [files, parts] : cases) {
        for (; there < files; ++there)
            record("00-" + std::to_string(10 + there / 50) + "-" + std::to_string(10 + there % 50) +
                       ".mp4",
                   0);
        std::set<std::string> names;
        EXPECT_EQ(parts_of(work({list_day()}), names), parts);
        EXPECT_EQ(names.size(), static_cast<std::size_t>(files));
    }
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

TEST_F(WorkerBodyTest, SlowComparisonTellsThatItIsAliveAndThatNothingIsSent) {
    write_source(content_of(3 * MIB));
    server.put(job.target, content_of(3 * MIB));
    slow_down(server, "read");
    const auto offsets = offsets_of(work({job}));
    EXPECT_GE(offsets.size(), 3U);
    EXPECT_EQ(offsets.count(0), offsets.size());
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
