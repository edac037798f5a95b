// Messages between the daemon and its processes arrive as they were sent.
#include "services/backup_daemon/lane/worker_messages.h"

#include <gtest/gtest.h>

using namespace services;

namespace {

TEST(WorkerMessages, OrdersArriveWhole) {
    CopyJob job{"/s/ü\n", "t", "p", 7, 8LL << 40, "ab", false, SideFile{3, "g", -1}};
    const Order order = unpack_order(pack(Order(job)));
    const auto& copy = std::get<CopyJob>(order);
    EXPECT_EQ(copy.source, job.source);
    EXPECT_EQ(copy.target, "t");
    EXPECT_EQ(copy.temporary, "p");
    EXPECT_EQ(copy.recorded_size, 7);
    EXPECT_EQ(copy.offset, 8LL << 40);
    EXPECT_EQ(copy.prefix_sha256, "ab");
    EXPECT_FALSE(copy.check);
    EXPECT_EQ(copy.side_file->guid, "g");
    EXPECT_EQ(copy.side_file->start, -1);
    const Order removal = unpack_order(pack(Order(RemoveFiles{{"a", "b"}, {"c"}})));
    EXPECT_EQ(std::get<RemoveFiles>(removal).files, (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(std::get<RemoveFiles>(removal).folders, std::vector<std::string>{"c"});
}

TEST(WorkerMessages, ReportsArriveWhole) {
    const Report entries = unpack_report(pack(Report(Entries{{{"n", true, 5, 6, -1}, {}}})));
    ASSERT_EQ(std::get<Entries>(entries).entries.size(), 2U);
    EXPECT_EQ(std::get<Entries>(entries).entries[0].name, "n");
    EXPECT_TRUE(std::get<Entries>(entries).entries[0].alarm);
    EXPECT_EQ(std::get<Entries>(entries).entries[0].remote_size, -1);
    const Report failed = unpack_report(pack(Report(Failed{FailureKind::full, "no room"})));
    EXPECT_EQ(std::get<Failed>(failed).kind, FailureKind::full);
    EXPECT_EQ(std::get<Failed>(failed).text, "no room");
}

TEST(WorkerMessages, BrokenPacketsAreRefused) {
    const std::string whole = pack(Report(Failed{FailureKind::full, "no room"}));
    EXPECT_THROW(unpack_report(whole.substr(0, whole.size() - 1)), std::runtime_error);
    EXPECT_THROW(unpack_report(""), std::runtime_error);
    EXPECT_THROW(unpack_order(pack(Report(Done()))), std::runtime_error);
}

TEST(WorkerMessages, FailureOfNoKnownKindIsRefused) {
    const long long last = static_cast<long long>(LAST_FAILURE_KIND);
    for (long long number = 0; number <= last; ++number) {
        const auto kind = static_cast<FailureKind>(number);
        EXPECT_EQ(std::get<Failed>(unpack_report(pack(Report(Failed{kind, ""})))).kind, kind);
    }
    for (const long long number : {-1LL, last + 1, 1LL << 32}) {
        std::string packet = pack(Report(Failed{FailureKind::full, "no room"}));
        packet.replace(sizeof number, sizeof number, reinterpret_cast<const char*>(&number),
                       sizeof number);
        EXPECT_THROW(unpack_report(packet), std::runtime_error);
    }
}

}  // namespace
