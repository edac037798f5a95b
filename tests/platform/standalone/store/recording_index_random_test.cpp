// The index beside full looks, while days and alarm folders change behind its back at random.
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <functional>
#include <random>

#include "tests/platform/standalone/store/index_fixture.h"

namespace {

namespace fs = std::filesystem;

constexpr int STEPS = 150;
constexpr int DAYS = 9;

class RandomIndexTest : public IndexTest, public ::testing::WithParamInterface<unsigned> {
protected:
    int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }

    std::string day() { return channel_ + "/2024-01-0" + std::to_string(1 + pick(DAYS)); }

    std::string recording() {
        const std::string alarm = pick(3) == 0 ? "/alarm" : "";
        return day() + alarm + "/1" + std::to_string(pick(10)) + "-00-00.mp4";
    }

    /// Sets a folder's or file's modification time to one of long ago.
    static void age(const fs::path& path) {
        const timespec times[2] = {{1, 0}, {1, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
    }

    /// Another folder with the same names in the place of this one.
    static void replace(const fs::path& folder) {
        std::error_code ignored;
        fs::copy(folder, folder.string() + "~", fs::copy_options::recursive, ignored);
        fs::remove_all(folder, ignored);
        fs::rename(folder.string() + "~", folder, ignored);
    }

    static void make_file(const fs::path& path) {
        std::error_code ignored;
        fs::create_directories(path.parent_path(), ignored);
        std::ofstream(path) << "x";
    }

    void change() {
        std::error_code ignored;
        const std::function<void()> changes[] = {
            [&] { make_file(recording()); },
            [&] { make_file(recording()); },
            [&] { make_file(recording()); },
            [&] { fs::remove(recording(), ignored); },
            [&] { fs::rename(recording(), recording(), ignored); },
            [&] { fs::create_directories(day(), ignored); },
            [&] { fs::remove_all(day(), ignored); },
            [&] { fs::rename(day(), day(), ignored); },
            [&] { fs::rename(day(), channel_ + "/put-aside", ignored); },
            [&] { fs::rename(channel_ + "/put-aside", day(), ignored); },
            [&] { fs::create_directories(day() + "/alarm", ignored); },
            [&] { fs::remove_all(day() + "/alarm", ignored); },
            [&] { fs::rename(day() + "/alarm", day() + "/alarm", ignored); },
            [&] { fs::rename(day() + "/alarm", day() + "/alarms", ignored); },
            [&] { fs::rename(day() + "/alarms", day() + "/alarm", ignored); },
            [&] { fs::create_directory_symlink(day(), day(), ignored); },
            [&] { fs::create_directory_symlink(day(), day() + "/alarm", ignored); },
            [&] { make_file(day()); },
            [&] { make_file(day() + "/alarm"); },
            [&] { replace(day()); },
            [&] { replace(channel_); },
            [&] { fs::remove_all(channel_, ignored); },
            [&] { fs::create_directories(channel_, ignored); },
            [&] { age(recording()); },
            [&] { age(day()); },
            [&] { age(channel_); },
        };
        changes[pick(std::size(changes))]();
    }

    /// All but the one number that may be of an earlier look.
    static ChannelAnswer without_alarm_days(ChannelAnswer answer) {
        answer.alarm_days = 0;
        return answer;
    }

private:
    std::mt19937 random_{GetParam()};
};

TEST_P(RandomIndexTest, SaysWhatAFullLookSays) {
    for (int step = 0; step < STEPS && !HasFailure(); ++step) {
        for (int changes = pick(3); changes >= 0; --changes) change();
        let_time_pass();
        const ChannelAnswer told = through_index();
        const ChannelAnswer full = full_look();
        EXPECT_EQ(without_alarm_days(told), without_alarm_days(full)) << "step " << step;
        EXPECT_EQ(told.normal_days + told.alarm_days > 0, full.earliest.has_value());
        EXPECT_EQ(through_index(later(25 * 3600 * SECOND_NS), false), full) << "step " << step;
    }
}

/// The clock stops before the first change is long past: all have just happened, however long the
/// test takes.
TEST_P(RandomIndexTest, SaysSoRightAfterAChangeToo) {
    const long long latest = since_change(channel_, SECOND_NS).now_ns;
    for (int step = 0; step < STEPS && !HasFailure(); ++step) {
        change();
        standalone::Moment clock = standalone::Moment::now();
        clock.now_ns = std::min(clock.now_ns, latest);
        EXPECT_EQ(through_index(clock), full_look()) << "step " << step;
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomIndexTest, ::testing::Range(1U, 9U));

}  // namespace
