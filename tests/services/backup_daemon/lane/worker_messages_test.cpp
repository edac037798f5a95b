// Messages between the daemon and its processes arrive as they were sent, or are refused.
#include "services/backup_daemon/lane/worker_messages.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

#include "services/backup_daemon/lane/packet_socket.h"

using namespace services;

namespace {

const CopyJob JOB{.recordings = "/r",
                  .source = "s/ü\n",
                  .target = "t",
                  .temporary = "p",
                  .claim = "c",
                  .fresh = true,
                  .recorded = RecordedCopy{.size = 7,
                                           .modified_ns = -9,
                                           .sha256 = "cd",
                                           .doubted = true,
                                           .source_modified_ns = -11},
                  .offset = 8LL << 40,
                  .prefix_sha256 = "ab",
                  .check = false,
                  .side_file = SideFile{.channel = 3, .guid = "g", .start = -1}};

const Files FILES{{{.size = 5, .modified_ns = -7}, {.size = -1}, {.size = 1LL << 40}}};

std::vector<std::string> all_orders() {
    return {pack(WorkerOrder(AskFiles{"a", {"b", "c"}})),
            pack(WorkerOrder(SendFile{JOB, 5, 6})),
            pack(WorkerOrder(RemoveFiles{{{"a", 5, 6, "end"}, {"b"}}, {"c"}})),
            pack(WorkerOrder(AskRoom())),
            pack(WorkerOrder(ReadTexts{{"a"}})),
            pack(WorkerOrder(WriteText{"a", "b", "c"})),
            pack(WorkerOrder(FolderClaim{"a", "b", "c", "d"})),
            pack(WorkerOrder(ReadBack{"a", 5, "ab"}))};
}

std::vector<std::string> all_reports() {
    return {pack(WorkerReport(Ready())),
            pack(WorkerReport(FILES)),
            pack(WorkerReport(At{1LL << 40})),
            pack(WorkerReport(Noted{1LL << 40, "ab"})),
            pack(WorkerReport(Whole{"ab", 8})),
            pack(WorkerReport(Removed{{Fate::gone, Fate::stayed}})),
            pack(WorkerReport(Failed{FailureKind::full, "no room"})),
            pack(WorkerReport(Room{ShareRoom{5, 6}})),
            pack(WorkerReport(Contents{{"text", {}, ""}})),
            pack(WorkerReport(Done())),
            pack(WorkerReport(CopySeen{Condition::other_size}))};
}

template <typename Message>
Message given_back(const Message& message) {
    if constexpr (std::is_same_v<Message, WorkerOrder>) return unpack_order(pack(message));
    if constexpr (std::is_same_v<Message, WorkerReport>) return unpack_report(pack(message));
}

TEST(WorkerMessages, OrderToLookAtFilesArrivesWhole) {
    const auto order = std::get<AskFiles>(given_back(WorkerOrder(AskFiles{"a", {"b", "c"}})));
    EXPECT_EQ(order.folder, "a");
    EXPECT_EQ(order.names, (std::vector<std::string>{"b", "c"}));
}

TEST(WorkerMessages, OrderToCopyArrivesWhole) {
    const auto order = std::get<SendFile>(given_back(WorkerOrder(SendFile{JOB, 1LL << 40, 77})));
    EXPECT_EQ(order.size, 1LL << 40);
    EXPECT_EQ(order.modified_ns, 77);
    const CopyJob& copy = order.job;
    EXPECT_EQ(copy.recordings, "/r");
    EXPECT_EQ(copy.source, JOB.source);
    EXPECT_EQ(copy.target, "t");
    EXPECT_EQ(copy.temporary, "p");
    EXPECT_EQ(copy.claim, "c");
    EXPECT_TRUE(copy.fresh);
    ASSERT_TRUE(copy.recorded);
    EXPECT_EQ(copy.recorded->size, 7);
    EXPECT_EQ(copy.recorded->modified_ns, -9);
    EXPECT_EQ(copy.recorded->sha256, "cd");
    EXPECT_TRUE(copy.recorded->doubted);
    EXPECT_EQ(copy.recorded->source_modified_ns, -11);
    EXPECT_EQ(copy.offset, 8LL << 40);
    EXPECT_EQ(copy.prefix_sha256, "ab");
    EXPECT_FALSE(copy.check);
    ASSERT_TRUE(copy.side_file);
    EXPECT_EQ(copy.side_file->channel, 3);
    EXPECT_EQ(copy.side_file->guid, "g");
    EXPECT_EQ(copy.side_file->start, -1);
    SendFile plain{JOB, 0, 0};
    plain.job.recorded->modified_ns.reset();
    EXPECT_FALSE(std::get<SendFile>(given_back(WorkerOrder(plain))).job.recorded->modified_ns);
    plain.job.recorded.reset();
    EXPECT_FALSE(std::get<SendFile>(given_back(WorkerOrder(plain))).job.recorded);
    plain.job.side_file.reset();
    plain.job.check = true;
    EXPECT_FALSE(std::get<SendFile>(given_back(WorkerOrder(plain))).job.side_file);
    EXPECT_TRUE(std::get<SendFile>(given_back(WorkerOrder(plain))).job.check);
}

TEST(WorkerMessages, OrderToRemoveArrivesWhole) {
    const auto order =
        std::get<RemoveFiles>(given_back(WorkerOrder(RemoveFiles{{{"a"}, {"b"}}, {"c"}})));
    ASSERT_EQ(order.files.size(), 2U);
    EXPECT_EQ(order.files[0].path, "a");
    EXPECT_EQ(order.files[0].size, -1);
    EXPECT_FALSE(order.files[0].modified_ns);
    EXPECT_EQ(order.files[0].description_end, "");
    EXPECT_EQ(order.files[1].path, "b");
    EXPECT_EQ(order.folders, std::vector<std::string>{"c"});
}

TEST(WorkerMessages, WhatAFileWasArrivesWithTheOrderToRemoveIt) {
    const auto order = std::get<RemoveFiles>(
        given_back(WorkerOrder(RemoveFiles{{{"a", 1LL << 40, -7, "end"}}, {}})));
    EXPECT_EQ(order.files.at(0).size, 1LL << 40);
    EXPECT_EQ(order.files.at(0).modified_ns, -7);
    EXPECT_EQ(order.files.at(0).description_end, "end");
}

TEST(WorkerMessages, FatesAndRoomArriveWhole) {
    const Removed removed{{Fate::gone, Fate::stayed, Fate::description_stayed, Fate::missing}};
    EXPECT_EQ(std::get<Removed>(given_back(WorkerReport(removed))).files, removed.files);
    const Room room{ShareRoom{.free = 5, .total = 1LL << 50}};
    EXPECT_EQ(std::get<Room>(given_back(WorkerReport(room))).room->free, 5);
    EXPECT_EQ(std::get<Room>(given_back(WorkerReport(room))).room->total, 1LL << 50);
    EXPECT_FALSE(std::get<Room>(given_back(WorkerReport(Room()))).room);
    EXPECT_EQ(std::get<AskRoom>(given_back(WorkerOrder(AskRoom{77}))).awaited, 77);
}

TEST(WorkerMessages, OrdersAboutTextsArriveWhole) {
    const auto read = std::get<ReadTexts>(given_back(WorkerOrder(ReadTexts{{"a", "b"}})));
    EXPECT_EQ(read.paths, (std::vector<std::string>{"a", "b"}));
    const auto write = std::get<WriteText>(given_back(WorkerOrder(WriteText{"a", "b", "c"})));
    EXPECT_EQ(write.path + write.temporary + write.text, "abc");
    const FolderClaim wanted{.folder = "a", .temporary = "b", .file = "c", .text = "d"};
    const auto claim = std::get<FolderClaim>(given_back(WorkerOrder(wanted)));
    EXPECT_EQ(claim.folder + claim.temporary + claim.file + claim.text, "abcd");
}

TEST(WorkerMessages, ReportOfTextsArrivesWholeAndTellsNoneFromAnEmptyOne) {
    const Contents contents{{"text", {}, ""}};
    EXPECT_EQ(std::get<Contents>(given_back(WorkerReport(contents))).texts, contents.texts);
}

TEST(WorkerMessages, ReportOfFilesArrivesWhole) {
    const auto report = std::get<Files>(given_back(WorkerReport(FILES)));
    EXPECT_EQ(report.files, FILES.files);
    EXPECT_TRUE(std::get<Files>(given_back(WorkerReport(Files()))).files.empty());
}

TEST(WorkerMessages, ReportsOfACopyArriveWhole) {
    EXPECT_EQ(std::get<Ready>(given_back(WorkerReport(Ready{40'000}))).round_trip_us, 40'000);
    EXPECT_EQ(std::get<At>(given_back(WorkerReport(At{1LL << 40}))).offset, 1LL << 40);
    const auto noted = std::get<Noted>(given_back(WorkerReport(Noted{5, "ab"})));
    EXPECT_EQ(noted.offset, 5);
    EXPECT_EQ(noted.sha256, "ab");
    const auto whole = std::get<Whole>(given_back(WorkerReport(Whole{"cd", -5})));
    EXPECT_EQ(whole.sha256, "cd");
    EXPECT_EQ(whole.share_modified_ns, -5);
    EXPECT_TRUE(std::holds_alternative<Done>(given_back(WorkerReport(Done()))));
    EXPECT_TRUE(std::holds_alternative<Removed>(given_back(WorkerReport(Removed()))));
}

/// A packet of numbers.
std::string packet_of(const std::vector<long long>& numbers) {
    return {reinterpret_cast<const char*>(numbers.data()), numbers.size() * sizeof numbers[0]};
}

TEST(WorkerMessages, CountsThatThePacketCannotFillAreRefused) {
    constexpr long long FILES_REPORT = 1;  // number of the report
    for (const long long claimed : {3LL, 1LL << 32, 1LL << 61, -1LL})
        EXPECT_THROW(unpack_report(packet_of({FILES_REPORT, claimed, 7, 7})), std::runtime_error);
    constexpr long long ASK_FILES = 0;
    for (const long long claimed : {3LL, 1LL << 32, 1LL << 61, -1LL})
        EXPECT_THROW(unpack_order(packet_of({ASK_FILES, 0, claimed, 0, 0})), std::runtime_error);
}

TEST(WorkerMessages, LargestReportTakesNoMoreMemoryThanItsPacket) {
    std::vector<long long> numbers(LARGEST_PACKET / sizeof(long long), 7);
    numbers[0] = 1;
    numbers[1] = (static_cast<long long>(numbers.size()) - 2) / 2;
    const auto files = std::get<Files>(unpack_report(packet_of(numbers))).files;
    EXPECT_LE(files.capacity() * sizeof files[0], LARGEST_PACKET);
    ++numbers[1];
    EXPECT_THROW(unpack_report(packet_of(numbers)), std::runtime_error);
}

TEST(WorkerMessages, EveryKindOfFailureArrivesAndOthersAreRefused) {
    const long long last = static_cast<long long>(LAST_FAILURE_KIND);
    for (long long number = 0; number <= last; ++number) {
        const auto kind = static_cast<FailureKind>(number);
        const auto failed = std::get<Failed>(given_back(WorkerReport(Failed{kind, "why"})));
        EXPECT_EQ(failed.kind, kind);
        EXPECT_EQ(failed.text, "why");
    }
    for (const long long number : {-1LL, last + 1, 1LL << 32}) {
        std::string packet = pack(WorkerReport(Failed{FailureKind::full, "no room"}));
        packet.replace(sizeof number, sizeof number, reinterpret_cast<const char*>(&number),
                       sizeof number);
        EXPECT_THROW(unpack_report(packet), std::runtime_error);
    }
}

TEST(WorkerMessages, OrderToReadBackAndEveryConditionArrivesWhole) {
    const auto order = std::get<ReadBack>(given_back(WorkerOrder(ReadBack{"a", 1LL << 40, "ab"})));
    EXPECT_EQ(order.path, "a");
    EXPECT_EQ(order.size, 1LL << 40);
    EXPECT_EQ(order.sha256, "ab");
    for (const Condition condition :
         {Condition::as_made, Condition::missing, Condition::other_size, Condition::other_content})
        EXPECT_EQ(std::get<CopySeen>(given_back(WorkerReport(CopySeen{condition}))).condition,
                  condition);
    const auto beyond = static_cast<Condition>(static_cast<int>(Condition::other_content) + 1);
    EXPECT_THROW(unpack_report(pack(WorkerReport(CopySeen{beyond}))), std::runtime_error);
}

TEST(WorkerMessages, PacketCutOffAnywhereIsRefused) {
    for (const std::string& whole : all_orders())
        for (std::size_t size = 0; size < whole.size(); ++size)
            EXPECT_THROW(unpack_order(whole.substr(0, size)), std::runtime_error) << size;
    for (const std::string& whole : all_reports())
        for (std::size_t size = 0; size < whole.size(); ++size)
            EXPECT_THROW(unpack_report(whole.substr(0, size)), std::runtime_error) << size;
}

TEST(WorkerMessages, PacketWithMoreBehindItIsRefused) {
    for (const std::string& more : {std::string(1, '\0'), std::string(8, '\0')}) {
        for (const std::string& whole : all_orders())
            EXPECT_THROW(unpack_order(whole + more), std::runtime_error);
        for (const std::string& whole : all_reports())
            EXPECT_THROW(unpack_report(whole + more), std::runtime_error);
    }
}

TEST(WorkerMessages, MessageOfNoKnownKindIsRefused) {
    EXPECT_THROW(unpack_order(pack(WorkerReport(Removed()))), std::runtime_error);
    std::string packet = pack(WorkerReport(Ready()));
    for (const long long number : {8LL, -1LL, 1LL << 32}) {
        packet.assign(reinterpret_cast<const char*>(&number), sizeof number);
        EXPECT_THROW(unpack_report(packet), std::runtime_error);
    }
}

TEST(WorkerMessages, SpoiledPacketIsReadOrRefusedAndNothingElse) {
    std::mt19937 random(7);
    const auto orders = all_orders();
    const auto reports = all_reports();
    for (int round = 0; round < 20'000; ++round)
        for (std::string packet :
             {orders[round % orders.size()], reports[round % reports.size()]}) {
            for (int times = 0; times < 3; ++times)
                packet[random() % packet.size()] = static_cast<char>(random());
            try {
                // What can be read at all is a message that pack() writes just so.
                EXPECT_EQ(pack(unpack_order(packet)), packet);
            } catch (const std::runtime_error&) {
            }
            try {
                EXPECT_EQ(pack(unpack_report(packet)), packet);
            } catch (const std::runtime_error&) {
            }
        }
}

}  // namespace
