// A channel's folder with an index of it, and a clock that is far enough ahead for every change to
// be long past.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <string>

#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/recording_index.h"
#include "tests/support/temporary_state.h"

inline constexpr long long SECOND_NS = 1'000'000'000;

/// What both ways of looking tell.
struct ChannelAnswer {
    int normal_days = 0;
    int alarm_days = 0;
    std::optional<long long> earliest;
    std::optional<long long> latest;
    std::optional<long long> newest_write;

    bool operator==(const ChannelAnswer&) const = default;
};

inline void PrintTo(const ChannelAnswer& answer, std::ostream* out) {
    *out << answer.normal_days << " days, " << answer.alarm_days << " with alarm, from "
         << answer.earliest.value_or(-1) << " to " << answer.latest.value_or(-1) << ", written "
         << answer.newest_write.value_or(-1);
}

class IndexTest : public ::testing::Test {
protected:
    IndexTest() { std::filesystem::create_directories(channel_); }

    /// The clock in `ahead_ns` nanoseconds, when nothing of what a test has done is recent.
    static standalone::Moment later(long long ahead_ns = 10 * SECOND_NS) {
        standalone::Moment clock = standalone::Moment::now();
        clock.now_ns += ahead_ns;
        return clock;
    }

    /// The clock so long after a folder's last change, however long that has been; before it if
    /// less than nothing.
    static standalone::Moment since_change(const std::string& folder, long long nanoseconds) {
        struct stat found {};
        EXPECT_EQ(stat(folder.c_str(), &found), 0);
        standalone::Moment clock = standalone::Moment::now();
        clock.now_ns = standalone::nanoseconds(found.st_ctim) + nanoseconds;
        return clock;
    }

    /// Whether folders have stamps here; on an unknown file system they are always read.
    bool spares_reading() const {
        const standalone::Folder folder = standalone::open_folder(AT_FDCWD, channel_.c_str(), 0);
        return standalone::stamp_of(folder, later()).inode != 0;
    }

    ChannelAnswer through_index(const standalone::Moment& clock = later(), bool save = true) const {
        standalone::RecordingIndex index(path_, clock);
        const auto newest = index.newest_write(channel_);
        const ChannelAnswer answer = put_together(index.summarize(channel_), newest);
        if (save) index.save();
        return answer;
    }

    ChannelAnswer full_look() const {
        return put_together(standalone::summarize_recordings(channel_),
                            standalone::newest_write(channel_));
    }

    void record(const std::string& name) const { write_file(channel_ + '/' + name, "x"); }

    /// A change that follows gets another time than any before.
    void let_time_pass() const {
        const auto changed = [&] {
            write_file(folder_.path() + "/probe", "x");
            struct stat found {};
            EXPECT_EQ(stat((folder_.path() + "/probe").c_str(), &found), 0);
            return std::pair(found.st_ctim.tv_sec, found.st_ctim.tv_nsec);
        };
        const auto before = changed();
        while (changed() == before) {
        }
    }

    TemporaryFolder folder_;
    std::string channel_ = folder_.path() + "/channel";
    std::string path_ = folder_.path() + "/index";

private:
    static ChannelAnswer put_together(const standalone::RecordingSummary& summary,
                                      std::optional<long long> newest) {
        return {.normal_days = summary.normal_days,
                .alarm_days = summary.alarm_days,
                .earliest = summary.earliest,
                .latest = summary.latest,
                .newest_write = newest};
    }
};
