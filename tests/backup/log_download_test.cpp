// Tests of the log download on the recorder's fixed paths: the stored file, its link, its name, the
// redirect. Runs in a sandbox, where /share is private.
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "backup/recording_backup_function.h"
#include "cgi/result_code.h"
#include "cgi/routes.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/whole_file.h"

namespace {

mode_t mode_when_given_away = 0;

}  // namespace

// Put in the place of fchown(2) by the linker (--wrap): by then the file is made, and still empty.
extern "C" {
int __real_fchown(int file, uid_t user, gid_t group);

int __wrap_fchown(int file, uid_t user, gid_t group) {
    struct stat found {};
    fstat(file, &found);
    mode_when_given_away = found.st_mode & 07777;
    return __real_fchown(file, user, group);
}
}

namespace {

namespace fs = std::filesystem;
using Calls = std::vector<fake::Call>;

constexpr char FAILED[] = "Download task log fail.";
constexpr char STORED[] = "/share/Ostra-RecordingbackLog.csv";
constexpr char EVENT_IDS[] =
    "strEvtID:1644429313,1644429314,1644429315,1644429316,1644429317,1644429318,1644429319,"
    "1644429320,1644429321,1644429322,1644429323,1644429324,1644429325\n";
constexpr char COMMAND[] =
    "c_strCommand = /bin/ln -sf /share/Ostra-RecordingbackLog.csv "
    "/home/httpd/cgi-bin/Ostra-RecordingbackLog.csv\n";

const fake::Call QUERY = {
    "ssci_GET_request",
    {"127.0.0.1", "10150", "/logs/logs/file", "max_results=100&sub_type=8981,8983,25092", "5",
     "false", "false", "0", "(null)"}};

const fake::Call LINK = {"zorv_exec",
                         {"(null)", "(null)", "(null)", "/bin/ln", "-sf", STORED,
                          "/home/httpd/cgi-bin/Ostra-RecordingbackLog.csv"}};

// The fake clock's first time, 2023-11-14 22:13:20 UTC.
constexpr char NAME[] = "Ostra-RecordingbackLog-20231114.csv";

/// A file system of a few pages in place of /share, as long as it lives.
class TinyShare {
public:
    explicit TinyShare(const char* options, unsigned long flags = 0)
        : mounted_(mount("tiny", "/share", "tmpfs", flags, options) == 0) {}
    ~TinyShare() {
        if (mounted_) umount2("/share", MNT_DETACH);
    }
    TinyShare(const TinyShare&) = delete;
    TinyShare& operator=(const TinyShare&) = delete;
    bool mounted() const { return mounted_; }

private:
    bool mounted_;
};

class LogDownload : public PlatformTest {
protected:
    /// The sandbox mounts /share; a plain folder can be taken away.
    static void SetUpTestSuite() { umount2("/share", MNT_DETACH); }

    void SetUp() override {
        PlatformTest::SetUp();
        fs::create_directory("/share");
        for (const auto& entry : fs::directory_iterator("/share")) fs::remove_all(entry);
    }

    int download(const std::string& csv) {
        fake::answer("ssci_GET_request", csv);
        return download();
    }

    /// `text` becomes the error reply, "" when the slot was left as it was.
    int download() {
        name = "unchanged";
        json_object* reply = nullptr;
        const int result = download_backup_task_log(&reply, &name);
        text = reply == nullptr ? "" : printed(reply);
        return result;
    }

    void expect_not_written() {
        EXPECT_EQ(text, error_reply("2500460552.0", FAILED));
        EXPECT_EQ(name, "unchanged");
        EXPECT_EQ(fake::calls_of("zorv_exec"), Calls{});
    }

    static Strings in_share() {
        Strings names;
        for (const auto& entry : fs::directory_iterator("/share"))
            names.push_back(entry.path().filename());
        return names;
    }

    std::string name;
    std::string text;
};

TEST_F(LogDownload, StoresTheCsvThenLinksItAndNamesTheDownload) {
    EXPECT_EQ(download("a,b\r\n1,2\r\n"), 0);
    EXPECT_EQ(name, NAME);
    EXPECT_EQ(text, "");
    EXPECT_EQ(read_file(STORED), "a,b\r\n1,2\r\n");
    EXPECT_EQ(fake::effects(), (Calls{QUERY, LINK}));
    EXPECT_EQ(fake::debug_texts(),
              (Strings{EVENT_IDS, "c_strFileName:" + std::string(NAME) + "\n", COMMAND}));
}

TEST_F(LogDownload, CsvIsStoredByteForByte) {
    std::string every_byte;
    for (int byte = 0; byte < 256; ++byte) every_byte += static_cast<char>(byte);
    for (const std::string& csv : {std::string("\0a\0", 3), std::string("\xff\xfe\xc3"), every_byte,
                                   std::string("no line end"), std::string(5'000'000, '\0')}) {
        EXPECT_EQ(download(csv), 0);
        EXPECT_TRUE(read_file(STORED) == csv) << csv.size();
    }
}

TEST_F(LogDownload, EmptyReplyIsAnEmptyFileAFreshLinkAndASuccess) {
    write_file(STORED, "before");
    EXPECT_EQ(download(""), 0);
    EXPECT_EQ(read_file(STORED), "");
    EXPECT_EQ(fake::effects(), (Calls{QUERY, LINK}));
    EXPECT_EQ(name, NAME);
}

TEST_F(LogDownload, SecondExportOfADayReplacesTheFileUnderTheSameName) {
    EXPECT_EQ(download("the longer first one"), 0);
    EXPECT_EQ(download("second"), 0);
    EXPECT_EQ(name, NAME);
    EXPECT_EQ(read_file(STORED), "second");
    EXPECT_EQ(in_share(), Strings{"Ostra-RecordingbackLog.csv"});
}

TEST_F(LogDownload, WebServerMayReadTheFileWhateverTheUmask) {
    const mode_t before = umask(0777);
    EXPECT_EQ(download("x"), 0);
    umask(before);
    struct stat stored {};
    ASSERT_EQ(lstat(STORED, &stored), 0);
    EXPECT_EQ(stored.st_mode & 07777, 0640U);
}

TEST_F(LogDownload, NobodyElseCanOpenTheFileWhileItIsMade) {
    const mode_t before = umask(0);
    EXPECT_EQ(download("x"), 0);
    umask(before);
    EXPECT_EQ(mode_when_given_away, 0600U);
}

TEST_F(LogDownload, NameCarriesTheLocalDateFromMidnightOn) {
    const struct {
        const char* zone;
        unsigned long long midnight_ms;  // the beginning of 2024-03-01 there
    } rows[] = {{"UTC0", 1709251200000},
                {"CET-1CEST,M3.5.0,M10.5.0/3", 1709247600000},
                {"<-0330>3:30", 1709263800000},
                {"<+14>-14", 1709200800000}};
    for (const auto& row : rows) {
        set_zone(row.zone);
        fake::platform.now_ms = row.midnight_ms - 1;
        EXPECT_EQ(download("x"), 0);
        EXPECT_EQ(name, "Ostra-RecordingbackLog-20240229.csv") << row.zone;
        fake::platform.now_ms = row.midnight_ms;
        EXPECT_EQ(download("x"), 0);
        EXPECT_EQ(name, "Ostra-RecordingbackLog-20240301.csv") << row.zone;
    }
}

TEST_F(LogDownload, NameFollowsSummerTime) {
    set_zone("CET-1CEST,M3.5.0,M10.5.0/3");
    fake::platform.now_ms = 1719784799999;
    EXPECT_EQ(download("x"), 0);
    EXPECT_EQ(name, "Ostra-RecordingbackLog-20240630.csv");
    fake::platform.now_ms = 1719784800000;
    EXPECT_EQ(download("x"), 0);
    EXPECT_EQ(name, "Ostra-RecordingbackLog-20240701.csv");
}

// --- failures ------------------------------------------------------------------------------------

TEST_F(LogDownload, FailedRequestGivesTheClientsOwnStatusAndLeavesTheFileAlone) {
    for (const auto& [status, shown] : {std::pair(-1, "-1"), {-2, "-2"}, {404, "404"}}) {
        fake::reset();
        write_file(STORED, "before");
        fake::fail("ssci_GET_request", status);
        EXPECT_EQ(download(), status);
        EXPECT_EQ(text, error_reply(shown + std::string(".0"), FAILED));
        EXPECT_EQ(name, "unchanged");
        EXPECT_EQ(read_file(STORED), "before");
        EXPECT_EQ(fake::effects(), Calls{QUERY});
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{EVENT_IDS, "c_strFileName:" + std::string(NAME) + "\n", "SSCI fail\n",
                           "error code = " + std::string(shown) + "\n"}));
    }
}

TEST_F(LogDownload, FailedLinkCommandIsACommandFailureAfterTheFileWasReplaced) {
    for (const int status : {1, 127, 137}) {
        fake::reset();
        write_file(STORED, "before");
        fake::fail("zorv_exec", status);
        EXPECT_EQ(download("after"), CGI_CMD_EXEC_FAIL);
        EXPECT_EQ(text, error_reply("2500460552.0", FAILED));
        EXPECT_EQ(name, "unchanged");
        EXPECT_EQ(read_file(STORED), "after");
        EXPECT_EQ(fake::debug_texts(),
                  (Strings{EVENT_IDS, "c_strFileName:" + std::string(NAME) + "\n", COMMAND,
                           "soft command fail,nStatus = " + std::to_string(status) + "\n",
                           "error code = 2500460552\n"}));
    }
}

TEST_F(LogDownload, AnyOtherExceptionBecomesCode0AndNamesNoDownload) {
    for (const char* call : {"ssci_GET_request", "zorv_exec", "current_time_stamp"}) {
        fake::reset();
        fake::throw_from(call);
        int result = -1;
        EXPECT_NO_THROW(result = download()) << call;
        EXPECT_EQ(result, 0) << call;
        EXPECT_EQ(text, error_reply("0.0", FAILED)) << call;
        EXPECT_EQ(name, "unchanged") << call;
    }
}

TEST_F(LogDownload, MissingFolderFailsAndMakesNoLink) {
    ASSERT_TRUE(fs::remove("/share"));
    EXPECT_EQ(download("x"), CGI_CMD_EXEC_FAIL);
    expect_not_written();
    EXPECT_FALSE(fs::exists("/share"));
}

TEST_F(LogDownload, FolderThatCannotBeWrittenFailsAndMakesNoLink) {
    const TinyShare tiny("size=4k", MS_RDONLY);
    if (!tiny.mounted()) GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(download("x"), CGI_CMD_EXEC_FAIL);
    expect_not_written();
}

TEST_F(LogDownload, FullDiskFailsKeepsThePreviousFileWholeAndLeavesNoRest) {
    const TinyShare tiny("size=64k");
    if (!tiny.mounted()) GTEST_SKIP() << "mounting is not allowed here";
    write_file(STORED, "before");
    EXPECT_EQ(download(std::string(1'000'000, 'x')), CGI_CMD_EXEC_FAIL);
    expect_not_written();
    EXPECT_EQ(read_file(STORED), "before");
    EXPECT_EQ(in_share(), Strings{"Ostra-RecordingbackLog.csv"});
}

TEST_F(LogDownload, DiskThatIsFullOnlyAtTheCloseFailsLikewise) {
    const TinyShare tiny("size=8k");
    if (!tiny.mounted()) GTEST_SKIP() << "mounting is not allowed here";
    write_file(STORED, "before");
    write_file("/share/other", std::string(4096, 'o'));
    EXPECT_EQ(download("short enough for a buffer"), CGI_CMD_EXEC_FAIL);
    expect_not_written();
    EXPECT_EQ(read_file(STORED), "before");
}

TEST_F(LogDownload, FullDiskWithoutAnEarlierExportLeavesNothing) {
    const TinyShare tiny("size=4k,nr_inodes=2");
    if (!tiny.mounted()) GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(download(std::string(100'000, 'x')), CGI_CMD_EXEC_FAIL);
    expect_not_written();
    EXPECT_EQ(in_share(), Strings{});
}

TEST_F(LogDownload, LinkInTheStoredFilesPlaceIsReplacedAndNotFollowed) {
    write_file("/share/victim", "untouched");
    for (const char* target : {"/share/victim", "/share/nowhere", "/share"}) {
        fs::remove(STORED);
        fs::create_symlink(target, STORED);
        EXPECT_EQ(download("exported"), 0) << target;
        EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(STORED))) << target;
        EXPECT_EQ(read_file(STORED), "exported") << target;
    }
    EXPECT_EQ(read_file("/share/victim"), "untouched");
    EXPECT_FALSE(fs::exists("/share/nowhere"));
}

TEST_F(LogDownload, LinkInTheTemporaryFilesPlaceIsReplacedAndNotFollowed) {
    write_file("/share/victim", "untouched");
    fs::create_symlink("/share/victim", STORED + ("." + std::to_string(getpid())));
    EXPECT_EQ(download("exported"), 0);
    EXPECT_EQ(read_file(STORED), "exported");
    EXPECT_EQ(read_file("/share/victim"), "untouched");
}

TEST_F(LogDownload, RestOfAnExportThatWasKilledIsNoObstacle) {
    write_file(STORED + ("." + std::to_string(getpid())), "half an exp");
    EXPECT_EQ(download("exported"), 0);
    EXPECT_EQ(read_file(STORED), "exported");
    EXPECT_EQ(in_share(), Strings{"Ostra-RecordingbackLog.csv"});
}

TEST_F(LogDownload, FolderInTheStoredFilesPlaceFails) {
    fs::create_directory(STORED);
    EXPECT_EQ(download("exported"), CGI_CMD_EXEC_FAIL);
    expect_not_written();
    EXPECT_EQ(in_share(), Strings{"Ostra-RecordingbackLog.csv"});
}

// --- the front end's answer ----------------------------------------------------------------------

class DownloadRoute : public LogDownload {
protected:
    int get() {
        Strings segments = {"task", "log", "file", "ignored"};
        EXPECT_EQ(vector_token_to_char(&segments), 0);
        json_object* reply = nullptr;
        testing::internal::CaptureStdout();
        const int result = get_method_fun(&segments, &reply, nullptr);
        output = testing::internal::GetCapturedStdout();
        json_object_put(reply);
        segments.clear();
        vector_token_to_char(&segments);
        return result;
    }

    std::string output;
};

TEST_F(DownloadRoute, SuccessIsARedirectWithMixedLineEndsAndNothingElse) {
    fake::answer("ssci_GET_request", "x");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(output,
              "Status: 200 OK\r\n"
              "Location: /cgi-bin/Ostra-RecordingbackLog.csv\n"
              "Content-Type: application/octet-stream\n"
              "Content-Disposition: attachment; filename=Ostra-RecordingbackLog-20231114.csv\r\n"
              "\r\n");
    EXPECT_EQ(fake::debug_texts().back(), "file name = " + std::string(NAME) + "\n");
}

TEST_F(DownloadRoute, FailurePrintsHeadersAndTheErrorReply) {
    fake::fail("ssci_GET_request", -2);
    EXPECT_EQ(get(), -2);
    EXPECT_EQ(output, "Status: 200 OK\r\nContent-type: application/json\r\n\r\n" +
                          error_reply("-2.0", FAILED) + "\n\n");
}

TEST_F(DownloadRoute, FailureOfCode0IsNoRedirectEither) {
    fake::throw_from("ssci_GET_request");
    EXPECT_EQ(get(), 0);
    EXPECT_EQ(output, "Status: 200 OK\r\nContent-type: application/json\r\n\r\n" +
                          error_reply("0.0", FAILED) + "\n\n");
}

}  // namespace
