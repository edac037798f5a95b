// Events that the log refuses for a while: kept, printed, and written in their order.
#include "services/backup_daemon/tell/event_outbox.h"

#include <filesystem>

#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/state_folder.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace services;

class EventOutboxTest : public StateTest {
protected:
    void close_log() { std::filesystem::rename(log_, log_ + ".away"); }
    void open_log() { std::filesystem::rename(log_ + ".away", log_); }

    /// What is written of a task, as it tells it.
    std::string printed(const std::string& task_name, const std::string& detail) {
        testing::internal::CaptureStderr();
        outbox_.write(RUN_FAILED, task_name, detail);
        return testing::internal::GetCapturedStderr();
    }

    /// The details of all events, oldest first.
    std::vector<std::string> written() const {
        standalone::Database database(log_, standalone::Database::Access::reading);
        std::vector<std::string> details;
        for (const auto& event : standalone::EventStore(database).newest({}, 10'000))
            details.insert(details.begin(), event.arguments.back());
        return details;
    }

    const std::string log_ = standalone::event_database_path();
    EventOutbox outbox_;
};

TEST_F(EventOutboxTest, WritesAtOnceAndPrintsNothing) {
    EXPECT_EQ(printed("Doors", "one"), "");
    EXPECT_EQ(written(), std::vector<std::string>{"one"});
}

TEST_F(EventOutboxTest, KeepsWhatIsRefusedAndWritesItInItsOrder) {
    close_log();
    EXPECT_EQ(printed("Doors", "one"), "event 23150013 of task \"Doors\" waits for the log: one\n");
    printed("Doors", "two");
    outbox_.write_kept();
    open_log();
    EXPECT_EQ(written(), std::vector<std::string>{});
    EXPECT_EQ(printed("Doors", "three"), "");
    EXPECT_EQ(written(), (std::vector<std::string>{"one", "two", "three"}));
}

TEST_F(EventOutboxTest, WritesWhatIsKeptWithoutANewOne) {
    close_log();
    printed("Doors", "one");
    open_log();
    outbox_.write_kept();
    outbox_.write_kept();
    EXPECT_EQ(written(), std::vector<std::string>{"one"});
}

/// Each of another task: the log takes so many alike a minute.
TEST_F(EventOutboxTest, KeepsNoMoreThanItsNumber) {
    close_log();
    for (std::size_t number = 0; number < EventOutbox::MOST_KEPT; ++number)
        printed("Doors " + std::to_string(number), "kept");
    EXPECT_EQ(printed("Doors", "x"), "event 23150013 of task \"Doors\" is lost: x\n");
    open_log();
    outbox_.write_kept();
    EXPECT_EQ(written(), std::vector<std::string>(EventOutbox::MOST_AT_ONCE, "kept"));
    EXPECT_NE(printed("Doors", "behind the others"), "");
    for (std::size_t number = 0; number < EventOutbox::MOST_KEPT; ++number) outbox_.write_kept();
    std::vector<std::string> all(EventOutbox::MOST_KEPT, "kept");
    all.emplace_back("behind the others");
    EXPECT_EQ(written(), all);
}

}  // namespace
