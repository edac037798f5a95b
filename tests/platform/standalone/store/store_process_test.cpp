// The stand-alone store under several processes and under sudden death.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <thread>

#include "backup/task_record.h"
#include "platform/nvrcfg.h"
#include "tests/support/temporary_state.h"

namespace {

class StoreProcesses : public StateTest {
protected:
    /// Reads in a thread of its own, whose connection ends with it: SQLite's connections must not
    /// live across fork(2).
    static std::list<TDataBackupConfig> tasks() {
        std::list<TDataBackupConfig> list;
        std::thread([&list] { EXPECT_EQ(__nvrcfg_get_rr_settings("test", 1, list), 0); }).join();
        return list;
    }
};

int create(const std::string& name) {
    std::string text = R"({"taskName": ")";
    text.append(name).append(R"("})");
    return __nvrcfg_set_rr_settings("test", 1, text);
}

pid_t start_creator(int creator, int count) {
    const pid_t child = fork();
    if (child != 0) return child;
    bool all = true;
    for (int at = 0; at < count; ++at)
        all = create(std::to_string(creator * count + at)) == 0 && all;
    _exit(all ? 0 : 1);
}

/// Creates tasks without end and reports each one that was stored by one byte.
pid_t start_reporting_creator(int report) {
    const pid_t child = fork();
    if (child != 0) return child;
    while (create("n") == 0 && write(report, "+", 1) == 1) continue;
    _exit(1);
}

TEST_F(StoreProcesses, EightAtOnceGetNumbersWithoutGapsOrRepeats) {
    constexpr int PROCESSES = 8;
    constexpr int EACH = 25;
    std::vector<pid_t> children;
    for (int creator = 0; creator < PROCESSES; ++creator)
        children.push_back(start_creator(creator, EACH));
    for (const pid_t child : children) {
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    }
    std::set<std::string> names;
    int number = 0;
    for (const TDataBackupConfig& task : tasks()) {
        EXPECT_EQ(task.taskID, std::to_string(++number));
        names.insert(task.taskName);
    }
    EXPECT_EQ(number, PROCESSES * EACH);
    EXPECT_EQ(names.size(), static_cast<std::size_t>(PROCESSES * EACH));
}

TEST_F(StoreProcesses, KillingACreatorLosesNothingThatWasReported) {
    std::size_t reported = 0;
    for (int round = 0; round < 10; ++round) {
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        const pid_t child = start_reporting_creator(ends[1]);
        close(ends[1]);
        char byte = 0;
        for (int at = 0; at < 3 + round; ++at) reported += read(ends[0], &byte, 1) == 1 ? 1 : 0;
        kill(child, SIGKILL);
        while (read(ends[0], &byte, 1) == 1) ++reported;
        close(ends[0]);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        // At most the one task that was stored but not yet reported is more.
        const std::size_t stored = tasks().size();
        EXPECT_GE(stored, reported);
        EXPECT_LE(stored, reported + static_cast<std::size_t>(round) + 1);
    }
    EXPECT_EQ(create("after"), 0);
    const auto all = tasks();
    EXPECT_EQ(all.back().taskID, std::to_string(all.size()));
}

TEST_F(StoreProcesses, AReaderSeesWhatAnotherProcessStored) {
    EXPECT_TRUE(tasks().empty());
    const pid_t child = start_creator(1, 1);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_EQ(tasks().size(), 1U);
}

}  // namespace
