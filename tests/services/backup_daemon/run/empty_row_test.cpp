// How far a row of days is empty: beside full looks, while days change behind its back at random.
#include "services/backup_daemon/run/empty_row.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <functional>
#include <random>

#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/run/day_errand.h"
#include "tests/platform/standalone/store/index_fixture.h"

using namespace services;
using namespace std::chrono_literals;
using standalone::FolderStamp;
using standalone::Moment;

namespace {

namespace fs = std::filesystem;

class EmptyRowTest : public IndexTest {
protected:
    void make(const std::string& day) { fs::create_directories(channel_ + "/" + day); }

    EmptyRowTest() { order_.folders = channels_; }

    void ask(const std::string& day, const FolderStamp& empty = {}) {
        order_.beyond.push_back({.folder = 0, .day = day, .empty = empty});
    }

    std::size_t length(std::chrono::milliseconds step = 1h) const {
        return empty_row(order_, later(), step).size();
    }

    std::shared_ptr<std::vector<ChannelFolder>> channels_ =
        std::make_shared<std::vector<ChannelFolder>>(1, ChannelFolder{channel_, disk_of(channel_)});
    ListDay order_;
};

TEST_F(EmptyRowTest, EndsBeforeTheFirstDayThatIsNotEmpty) {
    for (const char* day : {"2024-03-01", "2024-03-02", "2024-03-03", "2024-03-04"}) {
        make(day);
        ask(day);
    }
    EXPECT_EQ(length(), 4U);
    record("2024-03-03/12-00-00.mp4");
    EXPECT_EQ(length(), 2U);
    record("2024-03-01/alarm/12-00-00.mp4");
    EXPECT_EQ(length(), 0U);
}

TEST_F(EmptyRowTest, EndsBeforeADayThatHasGoneOrOfAChannelThatHas) {
    make("2024-03-01");
    ask("2024-03-01");
    ask("2024-03-02");
    EXPECT_EQ(length(), 1U);
    fs::remove_all(channel_);
    EXPECT_EQ(length(), 0U);
}

TEST_F(EmptyRowTest, EndsBeforeADayOnAnotherDisk) {
    make("2024-03-01");
    ask("2024-03-01");
    channels_->at(0).disk = "another one";
    EXPECT_EQ(length(), 0U);
}

TEST_F(EmptyRowTest, StampOfADayOnAnotherDiskIsNotBelieved) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    make("2024-03-01");
    const auto folder = standalone::open_folder(AT_FDCWD, (channel_ + "/2024-03-01").c_str(), 0);
    ask("2024-03-01", stamp_of(folder, later()));
    order_.empty_since = later();
    EXPECT_EQ(length(), 1U);
    channels_->at(0).disk = "another one";
    EXPECT_EQ(length(), 0U);
}

TEST_F(EmptyRowTest, GoesFromOneChannelToTheNext) {
    const std::string other = folder_.path() + "/other";
    fs::create_directories(other + "/2024-03-01");
    make("2024-03-01");
    make("2024-03-02");
    ask("2024-03-01");
    channels_->push_back({other, disk_of(other)});
    order_.beyond.push_back({.folder = 1, .day = "2024-03-01"});
    ask("2024-03-02");
    EXPECT_EQ(length(), 3U);
    fs::remove(other + "/2024-03-01");
    EXPECT_EQ(length(), 1U);
}

TEST_F(EmptyRowTest, WhenItsTimeIsOverItHasLookedAtOneDayAtLeast) {
    for (const char* day : {"2024-03-01", "2024-03-02"}) {
        make(day);
        ask(day);
    }
    EXPECT_EQ(length(0ms), 1U);
}

/// Sees to it that it is the stamp that is looked at: a folder that it fits has been filled without
/// a trace, as nobody can but by setting the clock.
TEST_F(EmptyRowTest, DayThatHasItsStampIsNotRead) {
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system";
    record("2024-03-01/12-00-00.mp4");
    const auto folder = standalone::open_folder(AT_FDCWD, (channel_ + "/2024-03-01").c_str(), 0);
    ask("2024-03-01", stamp_of(folder, later()));
    order_.empty_since = later();
    EXPECT_EQ(length(), 1U);
}

TEST_F(EmptyRowTest, StampsFromBeforeTheClockWasSetAreNotBelieved) {
    record("2024-03-01/12-00-00.mp4");
    const auto folder = standalone::open_folder(AT_FDCWD, (channel_ + "/2024-03-01").c_str(), 0);
    ask("2024-03-01", stamp_of(folder, later()));
    order_.empty_since = later();
    order_.empty_since.boot_ns -= SECOND_NS;
    EXPECT_EQ(length(), 0U) << "set forward";
    order_.empty_since = later(60 * SECOND_NS);
    EXPECT_EQ(length(), 0U) << "set back";
    order_.empty_since = {};
    EXPECT_EQ(length(), 0U) << "nothing was measured";
}

/// Those that are open, and so many more.
class FewDescriptors {
public:
    explicit FewDescriptors(std::size_t more) {
        getrlimit(RLIMIT_NOFILE, &before_);
        std::vector<standalone::FileHandle> open_now;  // others may lie between
        for (std::size_t count = 0; count <= more; ++count)
            open_now.emplace_back(open("/", O_RDONLY | O_CLOEXEC));
        const rlimit few{static_cast<rlim_t>(open_now.back().get()), before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &few);
    }
    ~FewDescriptors() { setrlimit(RLIMIT_NOFILE, &before_); }

private:
    rlimit before_{};
};

/// The days of some channels in turn, as before copying.
class ManyChannelsTest : public EmptyRowTest {
protected:
    static constexpr std::size_t CHANNELS = 8;
    static constexpr std::size_t DAYS = 64;
    static constexpr std::size_t RECORDED = 43;

    ManyChannelsTest() {
        channels_->clear();
        for (std::size_t channel = 0; channel < CHANNELS; ++channel) {
            const std::string folder = channel_ + "/" + std::to_string(channel);
            fs::create_directories(folder);
            channels_->push_back({folder, disk_of(folder)});
        }
        for (std::size_t day = 0; day < DAYS; ++day) {
            make(path(day));
            order_.beyond.push_back({.folder = day % CHANNELS, .day = std::to_string(day)});
        }
        record(path(RECORDED) + "/12-00-00.mp4");
    }

    static std::string path(std::size_t day) {
        return std::to_string(day % CHANNELS) + "/" + std::to_string(day);
    }
};

TEST_F(ManyChannelsTest, RowThatHasNotEnoughDescriptorsEndsEarlier) {
    EXPECT_EQ(length(), RECORDED);
    for (std::size_t more = 0; more <= CHANNELS; ++more) {
        const FewDescriptors few(more);
        EXPECT_EQ(length(), more == 0 ? 0 : more - 1) << "one is for the day";
    }
    const FewDescriptors enough(CHANNELS + 1);
    EXPECT_EQ(length(), RECORDED);
}

/// Rows are asked for as runs ask: first without stamps, later with those that were told.
class RandomRowTest : public EmptyRowTest, public ::testing::WithParamInterface<unsigned> {
protected:
    static constexpr int DAYS = 6;
    static constexpr int STEPS = 200;

    RandomRowTest() {
        for (int day = 0; day < DAYS; ++day) ask(name(day));
        order_.empty_since = later();
    }

    int pick(int count) { return std::uniform_int_distribution(0, count - 1)(random_); }
    static std::string name(int day) { return "2024-01-0" + std::to_string(1 + day); }
    std::string day() { return channel_ + "/" + name(pick(DAYS)); }
    std::string recording() {
        return day() + (pick(3) == 0 ? "/alarm" : "") + "/1" + std::to_string(pick(3)) +
               "-00-00.mp4";
    }

    static void age(const fs::path& path) {
        const timespec times[2] = {{1, 0}, {1, 0}};
        utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
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
            [&] { fs::remove(recording(), ignored); },
            [&] { fs::remove_all(day() + "/alarm", ignored); },
            [&] { fs::rename(recording(), recording(), ignored); },
            [&] { fs::create_directories(day(), ignored); },
            [&] { fs::create_directories(day(), ignored); },
            [&] { fs::create_directories(day(), ignored); },
            [&] { fs::remove_all(day(), ignored); },
            [&] { fs::rename(day(), day(), ignored); },
            [&] { fs::rename(day(), channel_ + "/put-aside", ignored); },
            [&] { fs::rename(channel_ + "/put-aside", day(), ignored); },
            [&] { fs::create_directories(day() + "/alarm", ignored); },
            [&] { fs::create_directory_symlink(day(), day(), ignored); },
            [&] { make_file(day()); },
            [&] { age(day()); },
        };
        changes[pick(std::size(changes))]();
    }

    bool has_recordings(int day) const {
        return !standalone::recordings_of_day(channel_, name(day)).empty();
    }

    bool is_folder(int day) const {
        return fs::symlink_status(channel_ + "/" + name(day)).type() == fs::file_type::directory;
    }

private:
    std::mt19937 random_{GetParam()};
};

TEST_P(RandomRowTest, NoDayWithRecordingsIsEverPassedOver) {
    int passed = 0;
    int by_stamp = 0;
    for (int step = 0; step < STEPS && !HasFailure(); ++step) {
        for (int changes = pick(3); changes > 0; --changes) change();
        let_time_pass();
        for (int day = 0; day < DAYS; ++day) {
            DayBeyond& asked = order_.beyond[static_cast<std::size_t>(day)];
            ListDay alone = order_;
            alone.beyond = {asked};
            const auto stamps = empty_row(alone, later(), 1h);
            if (stamps.empty()) continue;
            EXPECT_TRUE(is_folder(day)) << "step " << step << ", day " << day;
            EXPECT_FALSE(has_recordings(day)) << "step " << step << ", day " << day;
            by_stamp += asked.empty == stamps[0] ? 1 : 0;
            asked.empty = stamps[0];
            ++passed;
        }
    }
    if (!spares_reading()) GTEST_SKIP() << "an unknown file system, of which no stamp tells";
    EXPECT_GT(passed, by_stamp) << "no day has become empty";
    EXPECT_GT(by_stamp, 20) << "stamps were hardly put to use";
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomRowTest, ::testing::Range(1U, 9U));

}  // namespace
