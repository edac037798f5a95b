// The file of kept looks: as it was written, or not at all, whatever has become of it.
#include "platform/standalone/store/look_file.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>

#include "platform/standalone/store/words.h"
#include "tests/support/temporary_state.h"

namespace {

using namespace standalone;

constexpr long long MAGIC = 0x31534b4f4f4c4352;

class LookFileTest : public ::testing::Test {
protected:
    static DayLook day(const std::string& name) {
        return {.name = name,
                .folder = {1, 2, 3, 4, 5, 6},
                .has_alarm_folder = true,
                .alarm_folder = {7, 8, 9, 10, 11, 12},
                .normal = true,
                .alarm = true,
                .first_second = 13,
                .last_second = 14,
                .newest = "alarm/10-00-00.mp4"};
    }

    static KeptLooks some_looks(int between) {
        ChannelLook look;
        look.folder = {15, 16, 17, 18, 19, 20};
        look.last_day = "2024-02-03";
        look.next_day = "2031-02-03";
        look.oldest = {day("2024-01-01"), day("2024-01-02")};
        look.newest = {day("2024-02-03")};
        look.between = between;
        look.alarm_between = 21;
        return {{"/recordings/one", {{22, 23}, look}}, {"/recordings/two", {}}};
    }

    void expect_nothing(const std::string& bytes, const std::string& how) const {
        write_file(path_, bytes);
        EXPECT_TRUE(read_looks(path_).empty()) << how;
    }

    /// A file that is sealed, with these numbers behind who wrote it.
    void write_sealed(const std::vector<long long>& numbers) const {
        WordWriter words;
        const int groups = getgroups(0, nullptr);
        std::vector<gid_t> list(static_cast<std::size_t>(groups));
        ASSERT_EQ(getgroups(groups, list.data()), groups);
        words.number(groups);
        words.number(geteuid());
        words.number(getegid());
        for (const gid_t group : list) words.number(group);
        for (const long long number : numbers) words.number(number);
        write_file(path_, sealed(MAGIC, words));
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/looks";
};

TEST_F(LookFileTest, ReadsWhatWasWritten) {
    write_looks(path_, some_looks(24));
    const KeptLooks read = read_looks(path_);
    ASSERT_EQ(read.size(), 2U);
    const KeptLook& one = read.at("/recordings/one");
    EXPECT_EQ(one.looked_at.now_ns, 22);
    EXPECT_EQ(one.looked_at.boot_ns, 23);
    EXPECT_EQ(one.look.folder, (FolderStamp{15, 16, 17, 18, 19, 20}));
    EXPECT_EQ(one.look.last_day + one.look.next_day, "2024-02-032031-02-03");
    EXPECT_EQ(one.look.between, 24);
    EXPECT_EQ(one.look.alarm_between, 21);
    ASSERT_EQ(one.look.oldest.size(), 2U);
    ASSERT_EQ(one.look.newest.size(), 1U);
    const DayLook& last = one.look.oldest[1];
    EXPECT_EQ(last.name, "2024-01-02");
    EXPECT_EQ(last.folder, (FolderStamp{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(last.alarm_folder, (FolderStamp{7, 8, 9, 10, 11, 12}));
    EXPECT_TRUE(last.has_alarm_folder && last.normal && last.alarm);
    EXPECT_EQ(last.first_second, 13);
    EXPECT_EQ(last.last_second, 14);
    EXPECT_EQ(last.newest, "alarm/10-00-00.mp4");
    EXPECT_TRUE(read.at("/recordings/two").look.empty());
}

TEST_F(LookFileTest, ReplacesALongerFile) {
    write_looks(path_, some_looks(1));
    write_looks(path_, {});
    EXPECT_TRUE(read_looks(path_).empty());
    EXPECT_LT(std::filesystem::file_size(path_), 200U);
    write_looks(path_, some_looks(2));
    EXPECT_EQ(read_looks(path_).at("/recordings/one").look.between, 2);
}

TEST_F(LookFileTest, IsItsOwnersAlone) {
    write_looks(path_, some_looks(1));
    EXPECT_EQ(std::filesystem::status(path_).permissions(), std::filesystem::perms(0600));
}

TEST_F(LookFileTest, NoFlippedByteIsBelieved) {
    write_looks(path_, some_looks(1));
    const std::string bytes = read_file(path_);
    for (std::size_t at = 0; at < bytes.size(); ++at)
        for (const unsigned char flip : {0x01, 0x80, 0xff}) {
            std::string damaged = bytes;
            damaged[at] = static_cast<char>(damaged[at] ^ flip);
            expect_nothing(damaged, "byte " + std::to_string(at));
        }
}

TEST_F(LookFileTest, NoPartIsBelievedNorAnythingMore) {
    write_looks(path_, some_looks(1));
    const std::string bytes = read_file(path_);
    for (std::size_t length = 0; length < bytes.size(); ++length)
        expect_nothing(bytes.substr(0, length), "length " + std::to_string(length));
    expect_nothing(bytes + '\0', "a byte more");
    expect_nothing(bytes + std::string(8, '\0'), "a word more");
    expect_nothing(bytes + bytes, "twice");
}

TEST_F(LookFileTest, PartsOfTwoFilesAreNotBelieved) {
    write_looks(path_, some_looks(1));
    const std::string one = read_file(path_);
    write_looks(path_, some_looks(2));
    const std::string other = read_file(path_);
    for (std::size_t at = 8; at < one.size(); at += 8) {
        const std::string mixed = one.substr(0, at) + other.substr(at);
        if (mixed != one && mixed != other) expect_nothing(mixed, "from " + std::to_string(at));
    }
}

TEST_F(LookFileTest, SealedNonsenseIsNotBelieved) {
    constexpr long long MOST = std::numeric_limits<long long>::max();
    for (const long long count : {1LL, 2LL, 1LL << 32, MOST})
        for (const long long length : {-1LL, -8LL, 1LL, 64LL, 1LL << 40, MOST, MOST - 6}) {
            write_sealed({count, length});
            EXPECT_TRUE(read_looks(path_).empty()) << count << ' ' << length;
            write_sealed({count, 0, 1, 2, 3, 4, 5, 6, 7, 8, 0, 0, length, 0, 0});
            EXPECT_TRUE(read_looks(path_).empty()) << count << " of days, " << length;
        }
    write_sealed({-1});
    EXPECT_TRUE(read_looks(path_).empty());
    write_sealed({});
    EXPECT_TRUE(read_looks(path_).empty());
}

TEST_F(LookFileTest, DayThatIsNoneIsNotBelieved) {
    KeptLooks looks = some_looks(1);
    looks["/recordings/one"].look.newest = {day("2024-02-30")};
    write_looks(path_, looks);
    EXPECT_TRUE(read_looks(path_).empty());
    looks["/recordings/one"].look.newest = {day("")};
    write_looks(path_, looks);
    EXPECT_TRUE(read_looks(path_).empty());
}

TEST_F(LookFileTest, WritersAtOnceLeaveOneOfTheirsOrNothing) {
    const auto write = [this](int between) {
        for (int times = 0; times < 300; ++times) write_looks(path_, some_looks(between));
    };
    std::thread one([&] { write(1); });
    std::thread other([&] { write(2); });
    for (int times = 0; times < 300; ++times)
        for (const auto& [name, kept] : read_looks(path_))
            if (name == "/recordings/one") {
                EXPECT_TRUE(kept.look.between == 1 || kept.look.between == 2);
            }
    one.join();
    other.join();
}

}  // namespace
