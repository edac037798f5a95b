// Tests of the remote server's test: what is mounted, copied, measured and left behind. Runs in a
// sandbox, where /mnt, /storage and /tmp are private. The "share" is the unmounted folder itself.
#include "backup/remote_server.h"

#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "backup/recording_backup_function.h"
#include "backup/remote_mount.h"
#include "cgi/result_code.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/whole_file.h"

namespace {

namespace fs = std::filesystem;
using Calls = std::vector<fake::Call>;

constexpr char FAILED[] = "Test mount remote server fail.";
constexpr char MOUNT_POINT[] = "/mnt/Remote_Server_Test-1700000000000";
constexpr char REMOTE_FILE[] = "/mnt/Remote_Server_Test-1700000000000/1700000000000";
constexpr char LOCAL_FILE[] = "/storage/rec_bak_test";
constexpr char CREDENTIALS[] = "/tmp/.recording_backup_mnt_info";
constexpr char LOCK[] = "/mnt/.recording_backup_mnt_lock";
constexpr char MOUNT_OUTPUT[] = "/tmp/.recording_backup_mnt_std-1700000000000";
constexpr char FIRST_OPTIONS[] =
    ",port=445,file_mode=0664,dir_mode=0755,credentials=/tmp/.recording_backup_mnt_info";
constexpr char SECOND_OPTIONS[] =
    ",port=445,file_mode=0664,dir_mode=0755,vers=3.0,credentials=/tmp/.recording_backup_mnt_info";
constexpr char WORK[] = "/tmp/remote_server_test";
constexpr char POINT[] = "/tmp/remote_server_test/point";
constexpr char KEPT[] = "/mnt/Remote_Server_Test-kept";
constexpr std::size_t TEST_SIZE = 5242880;
constexpr uid_t NOBODY = 65534;

const fake::Call UNMOUNT = {"zorv_exec",
                            {"(null)", "(null)", "(null)", "/bin/umount", MOUNT_POINT}};

/// The mount command, its output in the file with time stamp `stamp`.
fake::Call mount_call(const std::string& unc, const std::string& options,
                      const std::string& stamp = "1700000000000",
                      const std::string& mount_point = MOUNT_POINT) {
    const std::string output = "/tmp/.recording_backup_mnt_std-" + stamp;
    return {"zorv_exec",
            {output, output, "/tmp/.recording_backup_mnt_log", "/usr/sbin/mount.cifs", unc,
             mount_point, "-o", options}};
}

/// A request; members are given as JSON.
struct Request {
    std::string serverIP = R"("192.0.2.10")";
    std::string port = "445";
    std::string username = R"("nvr")";
    std::string password = R"("secret")";
    std::string destPath = R"("cameras")";

    std::string body() const {
        return R"({"serverIP": )" + serverIP + R"(, "port": )" + port + R"(, "username": )" +
               username + R"(, "password": )" + password + R"(, "destPath": )" + destPath + "}";
    }
};

std::string body_for(const std::string& destination) {
    Request request;
    request.destPath = '"' + destination + '"';
    return request.body();
}

std::string success(const std::string& rate) {
    return R"({ "ret_code": 0, "mesg": "Success.", "transferRate": ")" + rate + R"(" })";
}

bool is_unmount(const fake::Call& program) {
    return program.args[3] == "/bin/umount";
}

/// Everything below a folder, by path relative to it.
Strings tree(const fs::path& folder) {
    Strings names;
    if (!fs::is_directory(folder)) return names;
    for (const auto& entry : fs::recursive_directory_iterator(folder))
        names.push_back(entry.path().lexically_relative(folder));
    std::ranges::sort(names);
    return names;
}

class RemoteServer : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        // Run outside a sandbox by mistake, this must do no harm: nothing else is removed.
        for (const std::string& name : left()) fs::remove_all(name);
        fs::remove_all(WORK);
        fs::create_directory(WORK);
        fs::current_path(WORK);
        share.clear();
        fake::platform.on_program = [this](const fake::Call& program) {
            if (is_unmount(program)) unmounted();
        };
    }

    void TearDown() override { fs::current_path("/"); }

    /// The share goes and takes its folders along.
    void unmounted() {
        share = tree(MOUNT_POINT);
        for (const auto& entry : fs::directory_iterator(MOUNT_POINT)) fs::remove_all(entry);
    }

    /// Gives the remote test file a second name, KEPT, under which it outlives the test.
    void keep_remote_file() {
        fake::platform.on_program = [this](const fake::Call& program) {
            if (is_unmount(program)) {
                unmounted();
            } else {
                write_file(KEPT, "");
                fs::create_hard_link(KEPT, REMOTE_FILE);
            }
        };
    }

    /// The reply to a test that returns `wanted`; "" when it left none.
    static std::string test(const std::string& body, int wanted = 0) {
        json_object* reply = nullptr;
        EXPECT_EQ(test_remote_server(&reply, body.c_str()), wanted) << body;
        return reply == nullptr ? "" : printed(reply);
    }

    static void expect_failure(const std::string& body, int code, const std::string& shown) {
        EXPECT_EQ(test(body, code), error_reply(shown + ".0", FAILED)) << body;
    }

    static Calls programs() { return fake::calls_of("zorv_exec"); }

    /// What a test may leave behind.
    static Strings left() {
        Strings names;
        const auto add = [&](const fs::path& folder, const std::string& prefix) {
            for (const fs::path& path : fs::directory_iterator(folder)) {
                if (!path.filename().string().starts_with(prefix)) continue;
                names.push_back(path);
                for (const std::string& name : tree(path)) names.push_back(path / name);
            }
        };
        add("/mnt", "Remote_Server_Test-");
        add("/storage", "rec_bak_test");
        add("/tmp", ".recording_backup_mnt");
        return names;
    }

    Strings share;  ///< what was on the share when it was unmounted
};

/// Runs some steps before each program.
template <class Steps>
void before_programs(Steps steps) {
    fake::platform.on_program = [steps, then = fake::platform.on_program](const fake::Call& call) {
        steps(call);
        then(call);
    };
}

// --- success -------------------------------------------------------------------------------------

TEST_F(RemoteServer, MountsCopiesUnmountsAndLeavesOnlyTheCredentials) {
    fake::platform.tick_ms = 1000;
    EXPECT_EQ(test(Request().body()), success("5242880"));
    EXPECT_EQ(programs(),
              (Calls{mount_call("//192.0.2.10/cameras", FIRST_OPTIONS, "1700000001000"), UNMOUNT}));
    EXPECT_EQ(share, Strings{});
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, CopyThatTookNoTimeHasTheProcessorsAnswerAsItsRate) {
    EXPECT_EQ(test(Request().body()), success("-2147483648"));
}

TEST_F(RemoteServer, ExitStatusOfTheMountDoesNotCount) {
    fake::fail("zorv_exec", 32, 1);
    EXPECT_EQ(test(Request().body()), success("-2147483648"));
    EXPECT_EQ(programs().size(), 2U);
}

TEST_F(RemoteServer, PortIsAnyIntegerOf32Bits) {
    for (const char* port : {"0", "-1", "70000", "2147483647"}) {
        SetUp();
        Request request;
        request.port = port;
        test(request.body());
        EXPECT_EQ(programs()[0].args[7],
                  ",port=" + std::string(port) +
                      ",file_mode=0664,dir_mode=0755,credentials=/tmp/.recording_backup_mnt_info");
    }
}

TEST_F(RemoteServer, EachBlockOfTheRemoteFileEndsInAZero) {
    keep_remote_file();
    test(Request().body());
    const std::string remote = read_file(KEPT);
    ASSERT_EQ(remote.size(), TEST_SIZE);
    std::string block(1023, 'a');
    block += '\0';
    for (std::size_t at = 0; at < remote.size(); at += 1024)
        ASSERT_EQ(remote.compare(at, 1024, block), 0) << at;
}

TEST_F(RemoteServer, FullLocalDiskStillSendsEveryByte) {
    if (mount("small", "/storage", "tmpfs", 0, "size=64k") != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    keep_remote_file();
    test(Request().body());
    umount2("/storage", MNT_DETACH);
    EXPECT_EQ(fs::file_size(KEPT), TEST_SIZE);
}

TEST_F(RemoteServer, RateIsASinglePrecisionQuotientCutToAnInteger) {
    const struct {
        unsigned long long begin;
        unsigned long long end;
        const char* rate;
    } rows[] = {
        {1000, 2000, "5242880"},
        {0, 1001, "5237642"},
        {0, 3, "1747626624"},
        {0, 9, "582542272"},  // 582542222 with more digits
        {0, 7, "748982848"},
        {0, 5242, "1000167"},
        {0, 123456, "42467"},
        {0, 2147483647, "2"},
        {5000, 4000, "-5242880"},  // the clock was set back
        {3, 0, "-1747626624"},
        {77, 77, "-2147483648"},
        {0, 1, "-2147483648"},  // too fast for 32 bits
        {0, 2, "-2147483648"},
        {1, 0, "-2147483648"},
        {0, 4294967296, "-2147483648"},  // a difference of 32 bits
        {0, 4294968296, "5242880"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(transfer_rate(row.begin, row.end), row.rate) << row.end - row.begin;
}

TEST_F(RemoteServer, TextsAreCutToTheBuffersOfTheRecorder) {
    const std::string longest(600, 'x');
    Request request;
    request.username = '"' + longest + '"';
    request.password = '"' + longest + '"';
    request.serverIP = '"' + longest + '"';
    test(request.body());
    const std::string cut(511, 'x');
    EXPECT_EQ(read_file(CREDENTIALS), "username=" + cut + "\npassword=" + cut);
    EXPECT_EQ(programs()[0].args[4], "//" + std::string(509, 'x'));
}

// --- the destination -----------------------------------------------------------------------------

TEST_F(RemoteServer, DestinationIsAShareAndTheFoldersOnIt) {
    const struct {
        const char* destination;
        const char* unc;
        Strings folders;
    } rows[] = {
        {"cameras", "//192.0.2.10/cameras", {}},
        {"/cameras", "//192.0.2.10/cameras", {}},
        {"cameras/", "//192.0.2.10/cameras", {}},
        {"/cameras/a//b/", "//192.0.2.10/cameras", {"a", "a/b"}},
        {"cameras/a/b/c", "//192.0.2.10/cameras", {"a", "a/b", "a/b/c"}},
        {"cameras////a", "//192.0.2.10/cameras", {"a"}},
        {"//a/b", "//192.0.2.10/", {"a", "a/b"}},
        {"/", "//192.0.2.10/", {}},
        {"", "//192.0.2.10/", {}},
        {"a b,c/\u00fc 1", "//192.0.2.10/a b,c", {"\u00fc 1"}},
    };
    for (const auto& row : rows) {
        SetUp();
        EXPECT_EQ(test(body_for(row.destination)), success("-2147483648")) << row.destination;
        EXPECT_EQ(programs(), (Calls{mount_call(row.unc, FIRST_OPTIONS), UNMOUNT}));
        EXPECT_EQ(share, row.folders) << row.destination;
    }
}

TEST_F(RemoteServer, ForbiddenCharactersAreRefusedBeforeAnythingHappens) {
    for (const char* character : {"\\\"", "\\\\", ":", "|", "*", "?", "<", ">"})
        for (const std::string& destination :
             {std::string(character), "cameras/" + std::string(character) + "x"}) {
            SetUp();
            expect_failure(body_for(destination), CGI_INVALID_VALUE, "2500460550");
            EXPECT_EQ(left(), Strings{});
            EXPECT_EQ(programs(), Calls{});
        }
    EXPECT_EQ(fake::debug_texts()[0], "invalid path input=[cameras/>x] blackset=[\"\\:|*?<>]\n");
}

class SubFolder : public RemoteServer {
protected:
    static int make(const std::string& sub_folder) {
        fs::create_directories(POINT);
        return create_remote_sub_folder(POINT, sub_folder.c_str());
    }
};

TEST_F(SubFolder, EmptyOnesMakeNothing) {
    for (const char* none : {"", "/", "////"}) EXPECT_EQ(make(none), 0);
    EXPECT_EQ(tree(POINT), Strings{});
}

TEST_F(SubFolder, ExistingEntriesAreTakenWhateverTheyAre) {
    fs::create_directories(std::string(POINT) + "/a");
    EXPECT_EQ(make("a/b"), 0);
    write_file(std::string(POINT) + "/file", "x");
    EXPECT_EQ(make("file"), 0);
    fs::create_symlink("/nonexistent", std::string(POINT) + "/link");
    EXPECT_EQ(make("link"), 0);
    EXPECT_EQ(tree(POINT), (Strings{"a", "a/b", "file", "link"}));
}

TEST_F(SubFolder, FailingFolderGivesMinus1AndLeavesTheOnesBefore) {
    EXPECT_EQ(make("a/b/" + std::string(256, 'x') + "/c"), -1);
    EXPECT_EQ(tree(POINT), (Strings{"a", "a/b"}));
    write_file(std::string(POINT) + "/file", "x");
    EXPECT_EQ(make("file/d"), -1);
}

TEST_F(SubFolder, FoldersGetTheModeThatTheUmaskLeaves) {
    const mode_t before = umask(0022);
    EXPECT_EQ(make("a"), 0);
    umask(before);
    EXPECT_EQ(fs::status(std::string(POINT) + "/a").permissions(), fs::perms(0755));
}

TEST_F(SubFolder, SplittingStopsAfter256Passes) {
    const auto parts = [](int count, const std::string& part) {
        std::string path;
        for (int i = 0; i < count; ++i) path += part;
        return path;
    };
    EXPECT_EQ(make(parts(256, "a/")), 0);
    EXPECT_EQ(tree(POINT).size(), 256U);
    EXPECT_EQ(make(parts(300, "b/")), 0);
    EXPECT_EQ(tree(POINT).size(), 512U);
    // Dropping an empty name is a pass, too: of these 255 are made.
    EXPECT_EQ(make(parts(300, "/c")), 0);
    EXPECT_EQ(tree(POINT).size(), 767U);
    EXPECT_EQ(make(parts(256, "/") + "d"), 0);
    EXPECT_EQ(tree(POINT).size(), 767U);
    EXPECT_EQ(make(parts(255, "/") + "d"), 0);
    EXPECT_EQ(tree(POINT).size(), 768U);
}

TEST_F(SubFolder, DotsWithinTheShareAreAsGoodAsNames) {
    EXPECT_EQ(make("a/../c"), 0);
    EXPECT_EQ(make("./d/./e"), 0);
    EXPECT_EQ(make("a/b/../../f/.."), 0);
    EXPECT_EQ(tree(POINT), (Strings{"a", "a/b", "c", "d", "d/e", "f"}));
}

TEST_F(SubFolder, NothingIsMadeOutsideTheShare) {
    for (const char* outside : {"..", "../x", "/../x", "../../tmp/x", "a/../../x", "./../point/x",
                                "a/../../../../../../tmp/x"})
        EXPECT_EQ(make(outside), -1) << outside;
    EXPECT_EQ(tree(WORK), (Strings{"point", "point/a"}));
}

TEST_F(SubFolder, NoLinkOnTheShareIsFollowed) {
    fs::create_directories(std::string(WORK) + "/outside");
    fs::create_directories(std::string(POINT) + "/inside");
    fs::create_symlink(std::string(WORK) + "/outside", std::string(POINT) + "/absolute");
    fs::create_symlink("../outside", std::string(POINT) + "/relative");
    fs::create_symlink("inside", std::string(POINT) + "/within");
    fs::create_symlink("/proc/self/root", std::string(POINT) + "/magic");
    for (const char* link : {"absolute/x", "relative/x", "within/x", "magic/tmp/x"})
        EXPECT_EQ(make(link), -1) << link;
    EXPECT_EQ(tree(std::string(WORK) + "/outside"), Strings{});
    EXPECT_EQ(tree(std::string(POINT) + "/inside"), Strings{});
}

TEST_F(SubFolder, NothingIsMadeOnAnotherFileSystemBelow) {
    const std::string other = std::string(POINT) + "/other";
    fs::create_directories(other);
    if (mount("other", other.c_str(), "tmpfs", 0, nullptr) != 0)
        GTEST_SKIP() << "mounting is not allowed here";
    EXPECT_EQ(make("other/x"), -1);
    EXPECT_EQ(make("other"), -1);
    EXPECT_EQ(tree(other), Strings{});
    umount2(other.c_str(), MNT_DETACH);
}

TEST_F(SubFolder, MountPointThatIsALinkHasNothingBelow) {
    fs::create_directories(std::string(WORK) + "/outside");
    fs::create_symlink("outside", POINT);
    EXPECT_EQ(create_remote_sub_folder(POINT, "x"), -1);
    EXPECT_EQ(tree(std::string(WORK) + "/outside"), Strings{});
}

// --- mounting ------------------------------------------------------------------------------------

TEST_F(RemoteServer, FailedMountIsTriedOnceMoreWithSmb3) {
    fake::platform.tick_ms = 1000;
    fake::answer("zorv_exec", "mount error(95): Operation not supported\n");
    EXPECT_EQ(test(Request().body()), success("5242880"));
    EXPECT_EQ(
        programs(),
        (Calls{mount_call("//192.0.2.10/cameras", FIRST_OPTIONS, "1700000001000"),
               mount_call("//192.0.2.10/cameras", SECOND_OPTIONS, "1700000002000"), UNMOUNT}));
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, TwoFailedMountsReportTheSecondOneAndRemoveTheMountPoint) {
    fake::answer("zorv_exec", "mount error(13): Permission denied\n");
    fake::answer("zorv_exec", "mount error(112): Host is down\n");
    expect_failure(Request().body(), CGI_MOUNT_HOST_DOWN, "2500460561");
    EXPECT_EQ(programs(), (Calls{mount_call("//192.0.2.10/cameras", FIRST_OPTIONS),
                                 mount_call("//192.0.2.10/cameras", SECOND_OPTIONS)}));
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, EachOutputOfTheMountHasItsCode) {
    const struct {
        std::string output;
        int code;
        const char* shown;
    } rows[] = {
        {"mount error(13): Permission denied\n", CGI_MOUNT_PERMISSION_DENIED, "2500460554"},
        {"mount error(112): Host is down\n", CGI_MOUNT_HOST_DOWN, "2500460561"},
        {"mount error(115): in progress\n", CGI_MOUNT_SERVER_CONNECT_ERROR, "2500460555"},
        {"Unable to find suitable address.\n", CGI_MOUNT_SERVER_CONNECT_ERROR, "2500460555"},
        {"mount error(113): No route to host\n", CGI_MOUNT_PERMISSION_DENIED, "2500460554"},
        {"115 and 112", CGI_MOUNT_HOST_DOWN, "2500460561"},
        {"suitable address, 112, 13", CGI_MOUNT_PERMISSION_DENIED, "2500460554"},
        {"Permission denied\n", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
        {"Suitable Address\n", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
        {"\n", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
        {"unknown\nmount error(13)\n", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
        {"11 2", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
        {std::string(1021, 'x') + "13", CGI_MOUNT_PERMISSION_DENIED, "2500460554"},
        {std::string(1022, 'x') + "13", CGI_MOUNT_UNKNOWN_ERROR, "2500460556"},
    };
    for (const auto& row : rows) {
        SetUp();
        fake::answer("zorv_exec", row.output);
        fake::answer("zorv_exec", row.output);
        expect_failure(Request().body(), row.code, row.shown);
        EXPECT_EQ(left(), Strings{CREDENTIALS}) << row.output;
    }
}

TEST_F(RemoteServer, MountOutputThatIsNotThereIsItsOwnFailure) {
    fake::platform.on_program = [](const fake::Call& program) { fs::remove(program.args[0]); };
    expect_failure(Request().body(), CGI_MOUNT_RESULT_FILE_ERR, "2500460560");
    EXPECT_EQ(programs().size(), 2U);
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, OutputThatIsNotSurelyOurOwnIsNeverJudged) {
    write_file("foreign", "");
    const auto expect_refused = [](const char* what) {
        EXPECT_EQ(check_mount_result("output"), CGI_MOUNT_RESULT_FILE_ERR) << what;
        EXPECT_FALSE(fs::exists(fs::symlink_status("output"))) << what;
    };
    fs::create_symlink("foreign", "output");
    expect_refused("link");
    fs::create_hard_link("foreign", "output");
    expect_refused("second name");
    ASSERT_EQ(mkfifo("output", 0600), 0);
    expect_refused("FIFO");
    if (getuid() != 0) GTEST_SKIP() << "only root can give files away";
    write_file("output", "");
    ASSERT_EQ(chown("output", NOBODY, NOBODY), 0);
    expect_refused("file of another user");
}

TEST_F(RemoteServer, FolderInTheOutputsPlaceIsNotTakenForSilence) {
    fs::create_directory(MOUNT_OUTPUT);
    expect_failure(Request().body(), CGI_MOUNT_RESULT_FILE_ERR, "2500460560");
    EXPECT_EQ(left(), (Strings{CREDENTIALS, MOUNT_OUTPUT}));
}

TEST_F(RemoteServer, OutputsThatWerePlantedAreReplaced) {
    write_file("victim", "13");
    fs::create_symlink(fs::absolute("victim"), MOUNT_OUTPUT);
    EXPECT_EQ(test(Request().body()), success("-2147483648"));
    EXPECT_EQ(read_file("victim"), "13");
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, ShareIsOutOfSightAndMadeHarmlessBeforeItIsUsed) {
    test(body_for("cameras/a"));
    EXPECT_EQ(fake::effect_names(),
              (Strings{"enter_private_mounts", "zorv_exec", "restrict_mount", "zorv_exec"}));
    EXPECT_EQ(fake::calls_of("restrict_mount")[0].args, Strings{MOUNT_POINT});
}

TEST_F(RemoteServer, MountsThatOthersWouldSeeAreNotMade) {
    fake::fail("enter_private_mounts", -1);
    expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
    EXPECT_EQ(fake::debug_texts()[0], "CGI_CMD_EXEC_FAIL: -1794506744\n");
    EXPECT_EQ(programs(), Calls{});
    EXPECT_EQ(left(), Strings{});
}

TEST_F(RemoteServer, ShareThatCannotBeMadeHarmlessIsNotUsed) {
    fake::fail("restrict_mount", -1);
    expect_failure(body_for("cameras/a"), CGI_MOUNT_UNKNOWN_ERROR, "2500460556");
    EXPECT_EQ(programs(), (Calls{mount_call("//192.0.2.10/cameras", FIRST_OPTIONS),
                                 mount_call("//192.0.2.10/cameras", SECOND_OPTIONS)}));
    EXPECT_EQ(left(), Strings{CREDENTIALS});
    SetUp();
    fake::fail("restrict_mount", -1, 1);
    EXPECT_EQ(test(body_for("cameras/a")), success("-2147483648"));
    EXPECT_EQ(share, Strings{"a"});
}

TEST_F(RemoteServer, CheckOfTheOutputAlwaysDeletesIt) {
    for (const auto& [text, code] :
         {std::pair("", 0), {"13", CGI_MOUNT_PERMISSION_DENIED}, {"?", CGI_MOUNT_UNKNOWN_ERROR}}) {
        write_file("output", text);
        EXPECT_EQ(check_mount_result("output"), code);
        EXPECT_FALSE(fs::exists("output"));
    }
    EXPECT_EQ(check_mount_result("output"), CGI_MOUNT_RESULT_FILE_ERR);
    fs::create_symlink("/nonexistent", "output");
    EXPECT_EQ(check_mount_result("output"), CGI_MOUNT_RESULT_FILE_ERR);
    EXPECT_FALSE(fs::is_symlink("output"));
}

TEST_F(RemoteServer, MountTakesAnyMountPointAndCredentials) {
    fs::create_directory(POINT);
    EXPECT_EQ(zorv_exec_mount("//a/b", "c", POINT, 1, "/some/file", true), 0);
    EXPECT_EQ(programs(),
              Calls{mount_call(
                  "//a/b", ",port=1,file_mode=0664,dir_mode=0755,vers=3.0,credentials=/some/file",
                  "1700000000000", POINT)});
    EXPECT_EQ(tree(POINT), Strings{"c"});
    EXPECT_EQ(left(), Strings{});
}

TEST_F(RemoteServer, FolderThatCannotBeMadeLeavesTheShareMountedAndTriesAgain) {
    const std::string too_long(256, 'x');
    expect_failure(body_for("cameras/a/" + too_long), -1, "-1");
    EXPECT_EQ(programs(), (Calls{mount_call("//192.0.2.10/cameras", FIRST_OPTIONS),
                                 mount_call("//192.0.2.10/cameras", SECOND_OPTIONS)}));
    // What is mounted keeps its mount point.
    EXPECT_EQ(left(), (Strings{MOUNT_POINT, std::string(MOUNT_POINT) + "/a", CREDENTIALS}));
}

// --- credentials ---------------------------------------------------------------------------------

TEST_F(RemoteServer, CredentialsAreWrittenUnchangedForTheirOwnerAlone) {
    Request request;
    request.username = R"("DOM\\u,ser=1")";
    request.password = R"(" p%w\"'`$(x) \u00fc#")";
    const mode_t before = umask(0);
    test(request.body());
    umask(before);
    EXPECT_EQ(read_file(CREDENTIALS), "username=DOM\\u,ser=1\npassword= p%w\"'`$(x) \u00fc#");
    EXPECT_EQ(fs::status(CREDENTIALS).permissions(), fs::perms(0600));
}

TEST_F(RemoteServer, CredentialsOfAnEarlierTestAreReplaced) {
    write_file(CREDENTIALS, "username=someone with a much longer name\npassword=and word");
    fs::permissions(CREDENTIALS, fs::perms(0666));
    test(Request().body());
    EXPECT_EQ(read_file(CREDENTIALS), "username=nvr\npassword=secret");
    EXPECT_EQ(fs::status(CREDENTIALS).permissions(), fs::perms(0600));
}

TEST_F(RemoteServer, LinkInTheCredentialsPlaceIsNotFollowed) {
    write_file("/tmp/remote_server_test/victim", "untouched");
    fs::create_symlink("/tmp/remote_server_test/victim", CREDENTIALS);
    test(Request().body());
    EXPECT_EQ(read_file("/tmp/remote_server_test/victim"), "untouched");
    EXPECT_EQ(read_file(CREDENTIALS), "username=nvr\npassword=secret");
}

TEST_F(RemoteServer, CredentialsBelongToOneTestUntilItsShareIsMounted) {
    std::vector<int> locked;
    before_programs([&](const fake::Call&) {
        const int other = open(LOCK, O_RDWR | O_CLOEXEC);
        locked.push_back(other < 0 ? ENOENT : flock(other, LOCK_EX | LOCK_NB) != 0 ? errno : 0);
        close(other);
    });
    fake::answer("zorv_exec", "mount error(95)\n");
    test(Request().body());
    EXPECT_EQ(locked, (std::vector<int>{EWOULDBLOCK, EWOULDBLOCK, ENOENT}));
}

TEST_F(RemoteServer, CredentialsThatCannotBeLockedAreNotWritten) {
    fs::create_directory(LOCK);
    expect_failure(Request().body(), CGI_MOUNT_CIFS_FILE_ERR, "2500460559");
    EXPECT_EQ(left(), Strings{MOUNT_POINT});
    EXPECT_TRUE(fs::remove(LOCK));
}

TEST_F(RemoteServer, CredentialsThatCannotBeMadeLeaveTheEmptyMountPoint) {
    fs::create_directory(CREDENTIALS);
    expect_failure(Request().body(), CGI_MOUNT_CIFS_FILE_ERR, "2500460559");
    EXPECT_EQ(programs(), Calls{});
    EXPECT_EQ(left(), (Strings{MOUNT_POINT, CREDENTIALS}));
    EXPECT_EQ(fake::debug_texts()[1], "CGI_MOUNT_CIFS_FILE_ERR: -1794506737\n");
}

TEST_F(RemoteServer, CredentialsReachNoProgramsArguments) {
    Request request;
    request.username = R"("the-user")";
    request.password = R"("the-password")";
    test(request.body());
    for (const fake::Call& program : programs())
        for (const std::string& argument : program.args) {
            EXPECT_EQ(argument.find("the-user"), std::string::npos);
            EXPECT_EQ(argument.find("the-password"), std::string::npos);
        }
    for (const std::string& line : fake::debug_texts())
        EXPECT_EQ(line.find("the-password"), std::string::npos);
}

// --- what ends a test early ----------------------------------------------------------------------

TEST_F(RemoteServer, BodyThatIsAbsentIsRefused) {
    json_object* reply = nullptr;
    EXPECT_EQ(test_remote_server(&reply, nullptr), CGI_INPUT_FORMAT_ERROR);
    EXPECT_EQ(printed(reply), error_reply("2500460548.0", FAILED));
    EXPECT_EQ(fake::debug_texts(), (Strings{"input format error\n", "error code = 2500460548\n"}));
    EXPECT_EQ(left(), Strings{});
}

TEST_F(RemoteServer, BodyThatIsNoJsonIsRefused) {
    for (const char* body : {"", "null", "{", "no JSON"}) {
        SetUp();
        expect_failure(body, CGI_INPUT_FORMAT_ERROR, "2500460548");
        EXPECT_EQ(fake::debug_texts()[0], "json_tokener_parse fail\n");
        EXPECT_EQ(left(), Strings{});
    }
}

TEST_F(RemoteServer, EachMissingOrMistypedMemberIsRefusedInTheOrderOfReading) {
    const Strings keys = {"serverIP", "port", "username", "password", "destPath"};
    std::string Request::*const members[] = {&Request::serverIP, &Request::port, &Request::username,
                                             &Request::password, &Request::destPath};
    for (std::size_t missing = 0; missing < keys.size(); ++missing) {
        const std::string mistyped = missing == 1 ? R"("445")" : "1";
        for (const std::string& value : {mistyped, std::string("null")}) {
            SetUp();
            Request request;
            request.*members[missing] = value;
            expect_failure(request.body(), CGI_PARSER_JSON_FAIL, "2500460549");
            Strings read;
            for (const fake::Call& call : fake::platform.calls)
                if (call.name.starts_with("comutil_get_json")) read.push_back(call.args[0]);
            EXPECT_EQ(read, Strings(keys.begin(), keys.begin() + static_cast<long>(missing) + 1));
            EXPECT_EQ(fake::debug_texts()[0], "parser json fail\n");
            EXPECT_EQ(left(), Strings{});
        }
    }
    for (const char* other : {"[]", "1", "\"x\"", "{}"})
        expect_failure(other, CGI_PARSER_JSON_FAIL, "2500460549");
}

TEST_F(RemoteServer, MountPointsNameInTheWorkingDirectoryIsRefused) {
    for (const bool folder : {true, false}) {
        SetUp();
        if (folder)
            fs::create_directory("Remote_Server_Test-1700000000000");
        else
            write_file("Remote_Server_Test-1700000000000", "");
        expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
        EXPECT_EQ(fake::debug_texts(), (Strings{"DIR exist\n", "CGI_CMD_EXEC_FAIL: -1794506744\n",
                                                "error code = 2500460552\n"}));
        EXPECT_EQ(left(), Strings{});
        EXPECT_EQ(programs(), Calls{});
    }
}

TEST_F(RemoteServer, MountPointThatExistsBelowMntIsUsed) {
    fs::create_directory(MOUNT_POINT);
    EXPECT_EQ(test(Request().body()), success("-2147483648"));
    EXPECT_EQ(left(), Strings{CREDENTIALS});
}

TEST_F(RemoteServer, LinkInTheMountPointsPlaceIsRefused) {
    fs::create_symlink(WORK, MOUNT_POINT);
    expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
    EXPECT_EQ(programs(), Calls{});
    EXPECT_EQ(tree(WORK), Strings{});
}

TEST_F(RemoteServer, LocalTestFileIsNeverMadeThroughWhatWasPlanted) {
    const auto plant = [](int what) {
        if (what == 0) fs::create_symlink(fs::absolute("victim"), LOCAL_FILE);
        if (what == 1) fs::create_symlink(fs::absolute("nowhere"), LOCAL_FILE);
        if (what == 2) fs::create_hard_link("/storage/rec_bak_test_victim", LOCAL_FILE);
        if (what == 3) {
            EXPECT_EQ(mkfifo(LOCAL_FILE, 0666), 0);
        }
    };
    for (int what = 0; what < 4; ++what) {
        SetUp();
        write_file("victim", "precious");
        write_file("/storage/rec_bak_test_victim", "precious");
        plant(what);
        EXPECT_EQ(test(Request().body()), success("-2147483648")) << what;
        EXPECT_EQ(read_file("victim"), "precious");
        EXPECT_EQ(read_file("/storage/rec_bak_test_victim"), "precious");
        EXPECT_FALSE(fs::exists("nowhere"));
        fs::remove("/storage/rec_bak_test_victim");
        EXPECT_EQ(left(), Strings{CREDENTIALS});
    }
}

TEST_F(RemoteServer, RemoteTestFileIsARegularFileOfTheShare) {
    for (const bool link : {true, false}) {
        SetUp();
        write_file("victim", "precious");
        before_programs([&](const fake::Call&) {
            if (link)
                fs::create_symlink(fs::absolute("victim"), REMOTE_FILE);
            else
                mkfifo(REMOTE_FILE, 0600);
        });
        expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
        EXPECT_EQ(read_file("victim"), "precious");
    }
}

TEST_F(RemoteServer, LocalTestFileThatCannotBeMadeLeavesTheShareMounted) {
    fs::create_directory(LOCAL_FILE);
    expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
    EXPECT_EQ(programs().size(), 1U);  // nothing is unmounted
    EXPECT_EQ(left(), (Strings{MOUNT_POINT, LOCAL_FILE, CREDENTIALS}));
}

TEST_F(RemoteServer, RemoteTestFileThatCannotBeMadeLeavesTheLocalOneToo) {
    fake::platform.on_program = [](const fake::Call&) { fs::create_directory(REMOTE_FILE); };
    expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
    EXPECT_EQ(programs().size(), 1U);
    EXPECT_EQ(left(), (Strings{MOUNT_POINT, REMOTE_FILE, LOCAL_FILE, CREDENTIALS}));
    EXPECT_EQ(read_file(LOCAL_FILE), std::string(TEST_SIZE, 'a'));
}

/// Can limit how many more files the process opens at a time.
class FileLimit {
public:
    FileLimit() { getrlimit(RLIMIT_NOFILE, &before_); }
    ~FileLimit() { setrlimit(RLIMIT_NOFILE, &before_); }
    FileLimit(const FileLimit&) = delete;
    FileLimit& operator=(const FileLimit&) = delete;

    void allow(rlim_t more) {
        const int next = dup(0);
        close(next);
        const rlimit few = {static_cast<rlim_t>(next) + more, before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
    }

private:
    rlimit before_{};
};

TEST_F(RemoteServer, LocalTestFileThatCannotBeReadBackEndsWithoutAReply) {
    std::string reply;
    {
        FileLimit limit;
        // In the lock's place, which is free later, the local file; then the share and its file.
        before_programs([&](const fake::Call&) { limit.allow(2); });
        reply = test(Request().body(), CGI_MOUNT_RESULT_FILE_ERR);
    }
    EXPECT_EQ(reply, "");
    EXPECT_EQ(programs().size(), 1U);
    EXPECT_EQ(left(), (Strings{MOUNT_POINT, REMOTE_FILE, CREDENTIALS}));
}

TEST_F(RemoteServer, FailedUnmountLeavesTheMountPointAndNoTestFiles) {
    for (const int status : {1, 32, 124, 127}) {
        SetUp();
        fake::fail("zorv_exec", status, 2);
        expect_failure(Request().body(), CGI_CMD_EXEC_FAIL, "2500460552");
        EXPECT_EQ(left(), (Strings{MOUNT_POINT, CREDENTIALS}));
        const Strings said = fake::debug_texts();
        EXPECT_EQ(said[said.size() - 2], "unmount fail,nStatus = " + std::to_string(status) + "\n");
    }
}

TEST_F(RemoteServer, AnyOtherExceptionEndsAsASuccessWithTheRateSoFar) {
    const struct {
        const char* call;
        int nth;
        const char* rate;
    } rows[] = {{"zorv_exec", 1, ""},
                {"current_time_stamp", 3, ""},  // the time before the copy
                {"current_time_stamp", 4, ""},  // the time after it
                {"zorv_exec", 2, "-2147483648"}};
    for (const auto& row : rows) {
        SetUp();
        fake::throw_from(row.call, row.nth);
        EXPECT_EQ(test(Request().body()), success(row.rate)) << row.call << row.nth;
        EXPECT_EQ(fake::debug_texts().back(), "error code = 0\n");
    }
}

// --- the user ------------------------------------------------------------------------------------

TEST_F(RemoteServer, EverythingFromTheMountOnRunsAsRoot) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    std::vector<uid_t> ids;
    fake::platform.on_program = [&](const fake::Call&) {
        ids.push_back(getuid());
        ids.push_back(geteuid());
    };
    ASSERT_EQ(setresuid(NOBODY, 0, 0), 0);  // as a web server's child is
    test(Request().body());
    ASSERT_EQ(setresuid(0, 0, 0), 0);
    EXPECT_EQ(ids, (std::vector<uid_t>{0, 0, 0, 0}));
    struct stat made {};
    ASSERT_EQ(stat(CREDENTIALS, &made), 0);
    EXPECT_EQ(made.st_uid, 0U);
}

// --- debug lines ---------------------------------------------------------------------------------

TEST_F(RemoteServer, DebugLinesTellTheSteps) {
    fake::answer("zorv_exec", "mount error(95)\n");
    test(body_for("/cameras/a"));
    const std::string point = MOUNT_POINT;
    const std::string made = "in_cMountServerPath=[" + point + "], in_cSubFolder=[a]\n";
    const auto mounting = [&](const char* options) {
        return "mount_path=[//192.0.2.10/cameras], subFolder=[a], mount_server_path=[" + point +
               "], c_strCredentials[" + options + "]\n";
    };
    const Strings said = fake::debug_texts();
    const Strings wanted = {"c_strPath=[/cameras/a] mountPath=[cameras] subFolder=[a]\n",
                            mounting(FIRST_OPTIONS),
                            "strCommandResult: mount error(95)\n\n",
                            "zorv_exec_mount ret=-1794506740\n",
                            mounting(SECOND_OPTIONS),
                            made};
    ASSERT_EQ(said.size(), wanted.size() + 1);
    EXPECT_EQ(Strings(said.begin(), said.end() - 1), wanted);
    EXPECT_NE(said.back().find("folder_list[0]=[a], will mkdir [" + point + "/a]"),
              std::string::npos);
}

}  // namespace
