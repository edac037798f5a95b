// The debug file: lines of several processes, rotation, what it refuses.
#include "platform/standalone/debug_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <set>
#include <sstream>

#include "platform/recorder_log.h"
#include "tests/support/patience.h"
#include "tests/support/temporary_state.h"

namespace {

using standalone::DEBUG_FILE_LIMIT;
using standalone::DebugFile;

class DebugFileTest : public ::testing::Test {
protected:
    static mode_t mode_of(const std::string& path) {
        struct stat found {};
        return stat(path.c_str(), &found) == 0 ? found.st_mode & 0777 : 0;
    }

    TemporaryFolder folder_;
    std::string path_ = folder_.path() + "/a/b/debug.log";
};

TEST_F(DebugFileTest, MakesFileAndFoldersForItsOwnerAlone) {
    log_File_Debug(path_.c_str(), "(%s)(%d) text\n", "function", 7);
    log_File_Debug(path_.c_str(), "no newline");
    EXPECT_EQ(read_file(path_), "(function)(7) text\nno newline");
    EXPECT_EQ(mode_of(path_), 0600U);
    EXPECT_EQ(mode_of(folder_.path() + "/a"), 0700U);
    EXPECT_EQ(mode_of(folder_.path() + "/a/b"), 0700U);
}

TEST_F(DebugFileTest, KeepsEveryByteOfALineWhateverItsLength) {
    std::string all;
    for (std::size_t length = 1000; length < 1050; ++length) {
        const std::string text(length, static_cast<char>('a' + length % 26));
        log_File_Debug(path_.c_str(), "(%s)(%d)%s|\n", text.c_str(), 7, text.c_str() + 990);
        all += '(' + text + ")(7)" + text.substr(990) + "|\n";
    }
    EXPECT_EQ(read_file(path_), all);
}

TEST_F(DebugFileTest, CutsALineAt64Kibibytes) {
    log_File_Debug(path_.c_str(), "%s\n", std::string(65535, 'x').c_str());
    EXPECT_EQ(read_file(path_), std::string(65535, 'x') + "\n");
    std::filesystem::remove(path_);
    log_File_Debug(path_.c_str(), "%s\n", std::string(70000, 'x').c_str());
    EXPECT_EQ(read_file(path_), std::string(65536 - 4, 'x') + "...\n");
}

TEST_F(DebugFileTest, LetsNoArgumentWriteALineOfItsOwn) {
    log_File_Debug(path_.c_str(), "(f)(1) file name = %s\n",
                   "x\n(f)(2) file name = y\r\x1B[2K\x7F");
    log_File_Debug(path_.c_str(), "(f) get buf=[%s]\n", "Disk|\tone|\n");
    EXPECT_EQ(read_file(path_),
              "(f)(1) file name = x\\n(f)(2) file name = y\\r\\x1B[2K\\x7F\n"
              "(f) get buf=[Disk|\tone|\\n]\n");
}

TEST_F(DebugFileTest, LeavesLineEndsAtTheEndOfALineAlone) {
    log_File_Debug(path_.c_str(), "strCommandResult: %s\n", "mount error(13)\n");
    log_File_Debug(path_.c_str(), "\n\n");
    EXPECT_EQ(read_file(path_), "strCommandResult: mount error(13)\n\n\n\n");
}

TEST_F(DebugFileTest, CutsALineThatIsTooLongOnceItIsSpeltOut) {
    log_File_Debug(path_.c_str(), "%s\n", std::string(40000, '\r').c_str());
    const std::string line = read_file(path_);
    EXPECT_EQ(line.size(), 65536U);
    EXPECT_EQ(line.substr(65536 - 10), "\\r\\r\\r...\n");
}

TEST_F(DebugFileTest, PutsAFullFileAside) {
    DebugFile file(path_);
    const std::string line = std::string(999'999, 'x') + "\n";
    for (int at = 0; at < 10; ++at) file.append(line);
    EXPECT_EQ(std::filesystem::file_size(path_), 2'000'000U);
    EXPECT_EQ(std::filesystem::file_size(path_ + ".1"), 4'000'000U);
    EXPECT_EQ(mode_of(path_), 0600U);
}

TEST_F(DebugFileTest, FollowsAFileThatAnotherProcessPutAside) {
    DebugFile file(path_);
    file.append("one\n");
    std::filesystem::rename(path_, path_ + ".1");
    write_file(path_, "from the other process\n");
    file.append("two\n");
    EXPECT_EQ(read_file(path_), "from the other process\ntwo\n");
    EXPECT_EQ(read_file(path_ + ".1"), "one\n");
}

TEST_F(DebugFileTest, WritesThroughNoLinkAndIntoNoPipe) {
    const std::string target = folder_.path() + "/target";
    const std::string place = folder_.path() + "/place";
    write_file(target, "precious");
    ASSERT_EQ(symlink(target.c_str(), place.c_str()), 0);
    log_File_Debug(place.c_str(), "text\n");
    EXPECT_EQ(read_file(target), "precious");
    std::filesystem::remove(target);
    log_File_Debug(place.c_str(), "text\n");
    EXPECT_FALSE(std::filesystem::exists(target));
    unlink(place.c_str());
    ASSERT_EQ(mkfifo(place.c_str(), 0600), 0);
    log_File_Debug(place.c_str(), "text\n");
    const standalone::FileHandle reader(open(place.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    log_File_Debug(place.c_str(), "text\n");
    char byte = 0;
    EXPECT_LE(read(reader.get(), &byte, 1), 0);
}

TEST_F(DebugFileTest, WritesToNoFileThatHasASecondName) {
    const std::string target = folder_.path() + "/target";
    const std::string place = folder_.path() + "/place";
    write_file(target, "precious");
    ASSERT_EQ(link(target.c_str(), place.c_str()), 0);
    log_File_Debug(place.c_str(), "text\n");
    EXPECT_EQ(read_file(target), "precious");
}

TEST_F(DebugFileTest, WritesToNoFileOfAnybodyButTheFoldersOwner) {
    if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
    ASSERT_EQ(chown(folder_.path().c_str(), 4711, 4712), 0);
    const std::string place = folder_.path() + "/place";
    write_file(place, "root's");
    log_File_Debug(place.c_str(), "text\n");
    EXPECT_EQ(read_file(place), "root's");
    ASSERT_EQ(chown(place.c_str(), 4711, 4712), 0);
    log_File_Debug(place.c_str(), ", now the owner's\n");
    EXPECT_EQ(read_file(place), "root's, now the owner's\n");
}

TEST_F(DebugFileTest, BelongsToTheFoldersOwnerWhenRootMakesIt) {
    if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
    ASSERT_EQ(chown(folder_.path().c_str(), 4711, 4712), 0);
    const std::string place = folder_.path() + "/log";
    log_File_Debug(place.c_str(), "text\n");
    struct stat found {};
    ASSERT_EQ(lstat(place.c_str(), &found), 0);
    EXPECT_EQ(found.st_uid, 4711U);
    EXPECT_EQ(found.st_gid, 4712U);
    EXPECT_EQ(found.st_mode & 0777, 0600U);
}

TEST_F(DebugFileTest, HandsItsDescriptorToNoProgram) {
    DebugFile file(path_);
    file.append("text\n");
    int open_files = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;  // the folder's own descriptor
        if (std::filesystem::read_symlink(entry.path(), gone) != path_) continue;
        ++open_files;
        EXPECT_EQ(fcntl(std::stoi(entry.path().filename()), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_EQ(open_files, 1);
}

TEST_F(DebugFileTest, IsPutAsideWhenALineWouldMakeItLongerThan4Mebibytes) {
    constexpr std::size_t LIMIT = 4 * 1024 * 1024;
    write_file(path_, std::string(LIMIT - 5, 'x'));
    log_File_Debug(path_.c_str(), "1234\n");
    EXPECT_EQ(std::filesystem::file_size(path_), LIMIT);
    EXPECT_FALSE(std::filesystem::exists(path_ + ".1"));
    log_File_Debug(path_.c_str(), "\n");
    EXPECT_EQ(read_file(path_), "\n");
    EXPECT_EQ(std::filesystem::file_size(path_ + ".1"), LIMIT);
}

TEST_F(DebugFileTest, ReplacesTheOneThatWasPutAsideBefore) {
    write_file(path_, std::string(4 * 1024 * 1024, 'x'));
    write_file(path_ + ".1", "older");
    log_File_Debug(path_.c_str(), "new\n");
    EXPECT_EQ(std::filesystem::file_size(path_ + ".1"), 4U * 1024 * 1024);
}

TEST_F(DebugFileTest, WaitsForAProcessThatIsPuttingTheFileAside) {
    write_file(path_, std::string(DEBUG_FILE_LIMIT, 'x'));
    const standalone::FileHandle file(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    ASSERT_EQ(flock(file.get(), LOCK_EX), 0);
    const pid_t other = fork();
    if (other == 0) {
        DebugFile(path_).append("mine\n");
        _exit(0);
    }
    const std::string waiter = "-> FLOCK  ADVISORY  WRITE " + std::to_string(other) + " ";
    siginfo_t ended{};
    for (int waited = 0; waited < PATIENCE_MS && ended.si_pid == 0; ++waited) {
        if (read_file("/proc/locks").find(waiter) != std::string::npos) break;
        waitid(P_PID, static_cast<id_t>(other), &ended, WEXITED | WNOHANG | WNOWAIT);
        usleep(1000);
    }
    std::filesystem::rename(path_, path_ + ".1");
    write_file(path_, "theirs\n");
    flock(file.get(), LOCK_UN);
    waitpid(other, nullptr, 0);
    EXPECT_EQ(read_file(path_), "theirs\nmine\n");
    EXPECT_EQ(std::filesystem::file_size(path_ + ".1"),
              static_cast<std::uintmax_t>(DEBUG_FILE_LIMIT));
}

TEST_F(DebugFileTest, KeepsLinesOfSeveralFilesApart) {
    const std::string other = folder_.path() + "/other.log";
    log_File_Debug(path_.c_str(), "1\n");
    log_File_Debug(other.c_str(), "2\n");
    log_File_Debug(path_.c_str(), "3\n");
    EXPECT_EQ(read_file(path_), "1\n3\n");
    EXPECT_EQ(read_file(other), "2\n");
}

TEST_F(DebugFileTest, LeavesOutWhatCannotBeWritten) {
    log_File_Debug("/proc/no/such/folder/debug.log", "text\n");
    log_File_Debug(folder_.path().c_str(), "text\n");
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(DebugFileTest, KeepsTheLinesOfSeveralProcessesWholeAcrossRotation) {
    constexpr int PROCESSES = 4;
    constexpr int LINES = 1500;
    const std::string filler(1000, 'x');
    for (int process = 0; process < PROCESSES; ++process)
        if (fork() == 0) {
            DebugFile file(path_);
            for (int at = 0; at < LINES; ++at)
                file.append(std::to_string(process * LINES + at) + " " + filler + "\n");
            _exit(0);
        }
    for (int process = 0; process < PROCESSES; ++process) wait(nullptr);
    // 6 MB were written, 4 MiB fit into one file: together the two still hold every line.
    std::istringstream all(read_file(path_ + ".1") + read_file(path_));
    std::set<int> seen;
    for (std::string line; std::getline(all, line);) {
        EXPECT_EQ(line.substr(line.find(' ') + 1), filler);
        EXPECT_TRUE(seen.insert(std::stoi(line)).second);
    }
    EXPECT_EQ(seen.size(), static_cast<std::size_t>(PROCESSES * LINES));
    EXPECT_TRUE(std::filesystem::exists(path_ + ".1"));
}

}  // namespace
