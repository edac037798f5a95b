// What the process is given to compare a copy with, and which of its answers are believed.
#include "services/backup_daemon/run/read_errand.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "services/backup_daemon/run/open_recording.h"
#include "tests/support/temporary_state.h"

using namespace services;

namespace {

class ReadErrandTest : public testing::Test {
protected:
    ReadErrandTest() {
        std::filesystem::create_directory(folder.path() + "/2024-03-01");
        std::ofstream(folder.path() + "/" + order.source) << "content";
        order.recordings = folder.path();
        order.modified_ns = open_recording(order.recordings, order.source).modified_ns;
    }

    bool has_source() const { return static_cast<bool>(ReadErrand(order).begin().file); }

    bool takes(const WorkerReport& said) const {
        ReadErrand errand(order);
        const ErrandStep begun = errand.begin();
        return errand.hear(said).has_value();
    }

    TemporaryFolder folder;
    ReadCopy order{.copy = {.path = "store/Door/copy", .size = 7, .sha256 = ""},
                   .recordings = "",
                   .source = "2024-03-01/08-00-00.mp4"};
};

TEST_F(ReadErrandTest, OrderGoesToTheProcessAsItIs) {
    const ErrandStep step = ReadErrand(order).begin();
    ASSERT_TRUE(step.ask);
    const auto& asked = std::get<ReadBack>(*step.ask);
    EXPECT_EQ(asked.path, "store/Door/copy");
    EXPECT_EQ(asked.size, 7);
    EXPECT_TRUE(step.tell.empty());
    EXPECT_FALSE(step.over);
}

TEST_F(ReadErrandTest, RecordingComesAlongWhereNoHashIsKnown) {
    EXPECT_TRUE(has_source());
    order.copy.sha256 = std::string(64, 'a');
    EXPECT_FALSE(has_source());
}

TEST_F(ReadErrandTest, RecordingThatIsNotTheOneThatWasCopiedStaysHere) {
    ReadCopy& changed = order;
    ++changed.copy.size;
    EXPECT_FALSE(has_source());
    --changed.copy.size;
    ++changed.modified_ns;
    EXPECT_FALSE(has_source());
    --changed.modified_ns;
    EXPECT_TRUE(has_source());
    changed.source = "2024-03-01/09-00-00.mp4";
    EXPECT_FALSE(has_source());
    changed.recordings = "";
    EXPECT_FALSE(has_source());
}

TEST_F(ReadErrandTest, ConditionEndsItAndSignsOfLifeDoNot) {
    ReadErrand errand(order);
    errand.begin();
    const auto alive = errand.hear(At{0});
    ASSERT_TRUE(alive && !alive->over);
    EXPECT_TRUE(std::holds_alternative<At>(alive->tell.at(0)));
    const auto seen = errand.hear(CopySeen{Condition::other_size});
    ASSERT_TRUE(seen && seen->over);
    EXPECT_EQ(std::get<CopySeen>(seen->tell.at(0)).condition, Condition::other_size);
}

TEST_F(ReadErrandTest, NothingElseIsBelieved) {
    for (const WorkerReport& said :
         {WorkerReport(Ready()), WorkerReport(Files()), WorkerReport(At{1}),
          WorkerReport(At{0, true}), WorkerReport(Noted()), WorkerReport(Whole()),
          WorkerReport(Removed()), WorkerReport(Room()), WorkerReport(Contents()),
          WorkerReport(Done())})
        EXPECT_FALSE(takes(said)) << said.index();
}

TEST_F(ReadErrandTest, WhoHadNothingToCompareWithKnowsOfNoOtherContent) {
    EXPECT_TRUE(takes(CopySeen{Condition::other_content}));
    order.recordings = "";
    EXPECT_FALSE(takes(CopySeen{Condition::other_content}));
    EXPECT_TRUE(takes(CopySeen{Condition::as_made}));
    EXPECT_TRUE(takes(CopySeen{Condition::missing}));
    order.copy.sha256 = std::string(64, 'a');
    EXPECT_TRUE(takes(CopySeen{Condition::other_content}));
}

}  // namespace
