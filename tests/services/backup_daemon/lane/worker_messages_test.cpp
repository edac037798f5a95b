// Messages between the daemon and its processes arrive as they were sent, or are refused.
#include "services/backup_daemon/lane/worker_messages.h"

#include <gtest/gtest.h>

#include <random>
#include <stdexcept>

using namespace services;

namespace {

const CopyJob JOB{.source = "/s/ü\n",
                  .target = "t",
                  .temporary = "p",
                  .recorded_size = 7,
                  .offset = 8LL << 40,
                  .prefix_sha256 = "ab",
                  .check = false,
                  .side_file = SideFile{.channel = 3, .guid = "g", .start = -1}};

const DayEntry ENTRY{
    .name = "n", .alarm = true, .size = 5, .modified_ns = 6LL << 50, .remote_size = -1};

std::vector<std::string> all_orders() {
    const ListDay day{.recordings = "/r",
                      .day = "2024-03-01",
                      .normal = false,
                      .alarm = true,
                      .remote = "a/b",
                      .ask_share = true};
    return {pack(Order(ListDays{"/r", "2024-03-01", "2024-03-02"})), pack(Order(day)),
            pack(Order(JOB)), pack(Order(RemoveFiles{{"a", "b"}, {"c"}}))};
}

std::vector<std::string> all_reports() {
    return {pack(Report(Ready())),
            pack(Report(Days{{"2024-03-01", "2024-03-02"}})),
            pack(Report(Entries{{ENTRY, {}}})),
            pack(Report(At{1LL << 40})),
            pack(Report(Noted{1LL << 40, "ab"})),
            pack(Report(Copied{{1LL << 40, 5, "ab"}})),
            pack(Report(Done())),
            pack(Report(Failed{FailureKind::full, "no room"}))};
}

template <typename Message>
Message given_back(const Message& message) {
    if constexpr (std::is_same_v<Message, Order>) return unpack_order(pack(message));
    if constexpr (std::is_same_v<Message, Report>) return unpack_report(pack(message));
}

TEST(WorkerMessages, OrderToListDaysArrivesWhole) {
    const auto order = std::get<ListDays>(given_back(Order(ListDays{"/r", "first", "last"})));
    EXPECT_EQ(order.recordings, "/r");
    EXPECT_EQ(order.first, "first");
    EXPECT_EQ(order.last, "last");
}

TEST(WorkerMessages, OrderToListADayArrivesWhole) {
    for (const bool flag : {false, true}) {
        const ListDay sent{.recordings = "/r",
                           .day = "day",
                           .normal = flag,
                           .alarm = !flag,
                           .remote = "a/b",
                           .ask_share = flag};
        const auto order = std::get<ListDay>(given_back(Order(sent)));
        EXPECT_EQ(order.recordings, "/r");
        EXPECT_EQ(order.day, "day");
        EXPECT_EQ(order.normal, flag);
        EXPECT_EQ(order.alarm, !flag);
        EXPECT_EQ(order.remote, "a/b");
        EXPECT_EQ(order.ask_share, flag);
    }
}

TEST(WorkerMessages, OrderToCopyArrivesWhole) {
    const auto copy = std::get<CopyJob>(given_back(Order(JOB)));
    EXPECT_EQ(copy.source, JOB.source);
    EXPECT_EQ(copy.target, "t");
    EXPECT_EQ(copy.temporary, "p");
    EXPECT_EQ(copy.recorded_size, 7);
    EXPECT_EQ(copy.offset, 8LL << 40);
    EXPECT_EQ(copy.prefix_sha256, "ab");
    EXPECT_FALSE(copy.check);
    ASSERT_TRUE(copy.side_file);
    EXPECT_EQ(copy.side_file->channel, 3);
    EXPECT_EQ(copy.side_file->guid, "g");
    EXPECT_EQ(copy.side_file->start, -1);
    CopyJob plain = JOB;
    plain.side_file.reset();
    plain.check = true;
    EXPECT_FALSE(std::get<CopyJob>(given_back(Order(plain))).side_file);
    EXPECT_TRUE(std::get<CopyJob>(given_back(Order(plain))).check);
}

TEST(WorkerMessages, OrderToRemoveArrivesWhole) {
    const auto order = std::get<RemoveFiles>(given_back(Order(RemoveFiles{{"a", "b"}, {"c"}})));
    EXPECT_EQ(order.files, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(order.folders, std::vector<std::string>{"c"});
}

TEST(WorkerMessages, ReportsOfADayArriveWhole) {
    EXPECT_EQ(std::get<Days>(given_back(Report(Days{{"a", "b"}}))).names,
              (std::vector<std::string>{"a", "b"}));
    const auto entries = std::get<Entries>(given_back(Report(Entries{{ENTRY, {}}}))).entries;
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(entries[0].name, "n");
    EXPECT_TRUE(entries[0].alarm);
    EXPECT_EQ(entries[0].size, 5);
    EXPECT_EQ(entries[0].modified_ns, 6LL << 50);
    EXPECT_EQ(entries[0].remote_size, -1);
    EXPECT_TRUE(std::get<Entries>(given_back(Report(Entries()))).entries.empty());
    EXPECT_TRUE(std::holds_alternative<Done>(given_back(Report(Done()))));
}

TEST(WorkerMessages, ReportsOfACopyArriveWhole) {
    EXPECT_TRUE(std::holds_alternative<Ready>(given_back(Report(Ready()))));
    EXPECT_EQ(std::get<At>(given_back(Report(At{1LL << 40}))).offset, 1LL << 40);
    const auto noted = std::get<Noted>(given_back(Report(Noted{5, "ab"})));
    EXPECT_EQ(noted.offset, 5);
    EXPECT_EQ(noted.sha256, "ab");
    const auto copied = std::get<Copied>(given_back(Report(Copied{{6, 7, "cd"}}))).result;
    EXPECT_EQ(copied.size, 6);
    EXPECT_EQ(copied.modified_ns, 7);
    EXPECT_EQ(copied.sha256, "cd");
}

TEST(WorkerMessages, EveryKindOfFailureArrivesAndOthersAreRefused) {
    const long long last = static_cast<long long>(LAST_FAILURE_KIND);
    for (long long number = 0; number <= last; ++number) {
        const auto kind = static_cast<FailureKind>(number);
        const auto failed = std::get<Failed>(given_back(Report(Failed{kind, "why"})));
        EXPECT_EQ(failed.kind, kind);
        EXPECT_EQ(failed.text, "why");
    }
    for (const long long number : {-1LL, last + 1, 1LL << 32}) {
        std::string packet = pack(Report(Failed{FailureKind::full, "no room"}));
        packet.replace(sizeof number, sizeof number, reinterpret_cast<const char*>(&number),
                       sizeof number);
        EXPECT_THROW(unpack_report(packet), std::runtime_error);
    }
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
    EXPECT_THROW(unpack_order(pack(Report(Done()))), std::runtime_error);
    std::string packet = pack(Report(Ready()));
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
        for (std::string packet : {orders[round % 4], reports[round % 8]}) {
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
