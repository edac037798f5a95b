// Tests of the share list: the tool's arguments, its output, whose rights it runs with. Runs in a
// sandbox, where /tmp is private.
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "backup/recording_backup_function.h"
#include "backup/share_lines.h"
#include "cgi/result_code.h"
#include "tests/support/fake_platform/platform_test.h"
#include "tests/support/whole_file.h"

namespace {

namespace fs = std::filesystem;
using Calls = std::vector<fake::Call>;

constexpr char OUTPUT[] = "/tmp/smb_share_kist-1700000000000";
constexpr char UNREADABLE[] = R"({ "ret_code": -718.0, "mesg": "Get Samba share fail." })";
constexpr char MISSING[] =
    R"({ "ret_code": -1794506746.0, "mesg": "ip | port | user | pwd length is 0" })";
constexpr uid_t NOBODY = 65534;

std::string listed(const std::string& names) {
    return R"({ "ret_code": 0, "mesg": "Success.", "shareList": [)" + names + "] }";
}

fake::Call tool(const std::string& ip, const std::string& port, const std::string& account) {
    return {"zorv_exec",
            {OUTPUT, OUTPUT, "(null)", "/usr/bin/smbclient", "-gL", ip, "-p", port, "-U", account}};
}

class ShareList : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        fake::platform.parameters = {
            {"ip", "192.0.2.10"}, {"port", "445"}, {"user", "nvr"}, {"pwd", "c2VjcmV0"}};
        fs::remove_all(OUTPUT);
    }

    /// The reply to a listing that ends with `wanted`.
    static std::string list(int wanted = 0) {
        tagINPUT* input = CGI_Get_Input_URL();
        json_object* reply = nullptr;
        EXPECT_EQ(get_samba_share(&reply, input), wanted);
        CGI_Free_Input(input);
        EXPECT_NE(reply, nullptr);
        return reply == nullptr ? "" : printed(reply);
    }

    /// The same, of a tool that prints `output`.
    static std::string list_output(const std::string& output) {
        fake::answer("zorv_exec", output);
        return list();
    }
};

TEST_F(ShareList, RunsTheToolWithTheseArgumentsAndRemovesItsOutput) {
    EXPECT_EQ(list_output("Disk|public|A comment\nDisk|cameras|\n"),
              listed(R"( "public", "cameras" )"));
    EXPECT_EQ(fake::calls_of("zorv_exec"), Calls{tool("192.0.2.10", "445", "nvr%secret")});
    EXPECT_FALSE(fs::exists(OUTPUT));
}

TEST_F(ShareList, ParametersArePassedOnUnchanged) {
    fake::platform.parameters = {
        {"ip", "-x $(id) \"';"}, {"port", "no number"}, {"user", "DOM\\u %"}, {"pwd", "JSUl"}};
    EXPECT_EQ(list(), listed(" "));
    EXPECT_EQ(fake::calls_of("zorv_exec"),
              Calls{tool("-x $(id) \"';", "no number", "DOM\\u %%%%%")});
}

TEST_F(ShareList, EmptyParametersAreNotRefused) {
    fake::platform.parameters = {{"ip", ""}, {"port", ""}, {"user", ""}, {"pwd", ""}};
    EXPECT_EQ(list(), listed(" "));
    EXPECT_EQ(fake::calls_of("zorv_exec"), Calls{tool("", "", "%")});
}

TEST_F(ShareList, EachMissingParameterIsRefusedBeforeAnythingRuns) {
    for (const char* name : {"ip", "port", "user", "pwd"}) {
        SetUp();
        fake::platform.parameters.erase(name);
        EXPECT_EQ(list(CGI_INVALID_VALUE), MISSING) << name;
        EXPECT_EQ(fake::calls_of("zorv_exec"), Calls{}) << name;
        EXPECT_EQ(fake::debug_texts(), Strings{"error code = -1794506746\n"}) << name;
    }
}

TEST_F(ShareList, RequestWithoutInputIsRefused) {
    json_object* reply = nullptr;
    EXPECT_EQ(get_samba_share(&reply, nullptr), CGI_INVALID_VALUE);
    EXPECT_EQ(printed(reply), MISSING);
}

// --- the tool's output ---------------------------------------------------------------------------

TEST_F(ShareList, NoOutputIsAnEmptyList) {
    EXPECT_EQ(list_output(""), listed(" "));
}

TEST_F(ShareList, OnlyLinesThatBeginWithDiskCount) {
    EXPECT_EQ(list_output("IPC|IPC$|IPC Service\nPrinter|laser|\n Disk|indented|\ndisk|small|\n"
                          "Domain=[X] OS=[]\nServer|Disk|x\n\nDisk|one|\nDis"),
              listed(R"( "one" )"));
}

TEST_F(ShareList, NameIsWhatFollowsOneSeparatorUpToTheNextBar) {
    const struct {
        const char* line;
        const char* name;
    } rows[] = {
        {"Disk|a b|c|d\n", R"("a b")"},
        {"Disk||comment\n", R"("")"},
        {"Disk;other separator|x\n", R"("other separator")"},
        {"Disks|x\n", R"("")"},
        {"Disk|without end\n", R"("without end\n")"},
        {"Disk|without end", R"("without end")"},
        {"Disk|", R"("")"},
        {"Disk\n", R"("")"},
        {"Disk", R"("")"},
        {"Disk|Stra\xc3\x9f"
         "e|\n",
         "\"Stra\xc3\x9f"
         "e\""},
        {"Disk|a\\b\"c|\n", R"("a\\b\"c")"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(list_output(row.line), listed(" " + std::string(row.name) + " ")) << row.line;
}

TEST_F(ShareList, SharesOfTheRecorderAreLeftOut) {
    EXPECT_EQ(list_output("Disk|HaldenAppData|\nDisk|OstraAppData|\nDisk|OstraAutoSnap|\n"
                          "Disk|VeskAutoSnap|\nDisk|OstraDB|\nDisk|OstraSpace_|\n"
                          "Disk|OstraSpace_1|\nDisk|OstraSpace_anything else|\n"),
              listed(" "));
}

TEST_F(ShareList, SharesNamedMuchLikeTheRecordersAreListed) {
    Strings names;
    std::string output;
    std::string quoted;
    for (const char* name :
         {"HaldenAppData2", "OstraAppData2", "OstraAppData ", "OstraAutoSnapshot", "VeskAutoSnaps",
          "OstraDB1", "xOstraDB", "Ostra", "ostradb", "OSTRADB", "OstraSpace", "ostraspace_1",
          "xOstraSpace_1", "haldenAppData", "VeskAppData", "HaldenAutoSnap"}) {
        output += "Disk|" + std::string(name) + "|\n";
        quoted += (quoted.empty() ? " \"" : ", \"") + std::string(name) + '"';
    }
    EXPECT_EQ(list_output(output), listed(quoted + " "));
}

TEST_F(ShareList, PlatformShareWithoutASecondBarIsListedWithItsLineEnd) {
    EXPECT_EQ(list_output("Disk|OstraDB\nDisk|OstraSpace_1\n"), listed(R"( "OstraDB\n" )"));
}

TEST_F(ShareList, LongLineCountsByItsFirstPiece) {
    // The first piece is "Disk|" and 1018 letters; what follows begins no line.
    const std::string name(1018, 'n');
    EXPECT_EQ(list_output("Disk|" + name + "Disk|second|\n"), listed(" \"" + name + "\" "));
    EXPECT_EQ(list_output("Disk|a|" + std::string(1016, 'c') + "Disk|forged|\nDisk|b|\n"),
              listed(R"( "a", "b" )"));
    EXPECT_EQ(list_output("Disk|" + name + "\nDisk|next|\n"),
              listed(" \"" + name + R"(", "next" )"));
    EXPECT_EQ(list_output("Disk|" + name + "|rest\nDisk|next|\n"),
              listed(" \"" + name + R"(", "next" )"));
    EXPECT_EQ(list_output("Disk|" + std::string(5000, 'x') + "|\n"),
              listed(" \"" + std::string(1018, 'x') + "\" "));
}

TEST_F(ShareList, ThousandsOfSharesKeepTheToolsOrder) {
    std::string output;
    std::string quoted;
    for (int share = 5000; share > 0; --share) {
        output += "Disk|s" + std::to_string(share) + "|\n";
        quoted += (quoted.empty() ? " \"s" : ", \"s") + std::to_string(share) + '"';
    }
    EXPECT_EQ(list_output(output), listed(quoted + " "));
}

TEST_F(ShareList, ListEndsAtItsLimit) {
    std::string output;
    for (std::size_t share = 0; share <= MAX_SHARES; ++share)
        output += "Disk|s" + std::to_string(share) + "|\n";
    const std::string reply = list_output(output);
    EXPECT_NE(reply.find('s' + std::to_string(MAX_SHARES - 1) + '"'), std::string::npos);
    EXPECT_EQ(reply.find('s' + std::to_string(MAX_SHARES) + '"'), std::string::npos);
}

TEST_F(ShareList, OutputIsReadUpToItsLimit) {
    const std::string line = "IPC|" + std::string(SHARE_LINE_PIECE - 5, 'x') + '\n';
    std::string output;
    while (output.size() < MAX_SHARE_OUTPUT - SHARE_LINE_PIECE) output += line;
    output += "Disk|last|" + std::string(2 * SHARE_LINE_PIECE, 'x') + "\nDisk|beyond|\n";
    EXPECT_EQ(list_output(output), listed(R"( "last" )"));
}

// --- failures ------------------------------------------------------------------------------------

TEST_F(ShareList, ToolsFailureIsItsStatusAndItsOwnLines) {
    for (const int status : {1, 124, 127, 255}) {
        SetUp();
        fake::fail("zorv_exec", status);
        fake::answer("zorv_exec", "session setup failed\n\nDisk|public|\nno line end");
        const std::string reply = list(status);
        EXPECT_EQ(reply,
                  error_reply(std::to_string(status) + ".0",
                              R"(session setup failed\n, \n, Disk|public|\n, no line end, )"));
        EXPECT_FALSE(fs::exists(OUTPUT));
    }
}

TEST_F(ShareList, ToolsFailureWithoutOutputHasAnEmptyMessage) {
    fake::fail("zorv_exec", 1);
    EXPECT_EQ(list(1), error_reply("1.0", ""));
    EXPECT_FALSE(fs::exists(OUTPUT));
}

TEST_F(ShareList, LongErrorLineIsPutTogetherFromItsPieces) {
    fake::fail("zorv_exec", 1);
    fake::answer("zorv_exec", std::string(1023, 'a') + "b\n");
    EXPECT_EQ(list(1), error_reply("1.0", std::string(1023, 'a') + R"(, b\n, )"));
}

TEST_F(ShareList, LongErrorIsCut) {
    fake::fail("zorv_exec", 1);
    fake::answer("zorv_exec", std::string(10 * MAX_SHARE_ERROR, 'a'));
    const std::string reply = list(1);
    EXPECT_GE(reply.size(), MAX_SHARE_ERROR);
    EXPECT_LE(reply.size(), MAX_SHARE_ERROR + 2 * SHARE_LINE_PIECE);
}

TEST_F(ShareList, OutputThatIsNotThereIsCode718WhateverTheStatus) {
    for (const int status : {0, 1}) {
        SetUp();
        if (status != 0) fake::fail("zorv_exec", status);
        fake::platform.on_program = [](const fake::Call&) { fs::remove(OUTPUT); };
        EXPECT_EQ(list(-718), UNREADABLE) << status;
        EXPECT_EQ(fake::debug_texts().back(), "error code = -718\n");
    }
}

TEST_F(ShareList, OutputThatCouldNotBeMadeIsCode718) {
    fs::create_directory(OUTPUT);
    EXPECT_EQ(list(-718), UNREADABLE);
    EXPECT_TRUE(fs::is_directory(OUTPUT));
}

TEST_F(ShareList, OutputsThatWerePlantedAreReplaced) {
    write_file("/tmp/share_list_test/secret", "Disk|secret|\n");
    fs::create_symlink("/tmp/share_list_test/secret", OUTPUT);
    EXPECT_EQ(list_output("Disk|public|\n"), listed(R"( "public" )"));
    EXPECT_EQ(read_file("/tmp/share_list_test/secret"), "Disk|secret|\n");
    fs::remove_all("/tmp/share_list_test");
}

TEST_F(ShareList, OutputThatIsNotSurelyOurOwnIsNeverRead) {
    const std::string secret = "/tmp/share_list_test/secret";
    write_file(secret, "Disk|secret|\n");
    const auto expect_refused = [](auto&& plant) {
        fake::platform.on_program = [&](const fake::Call&) {
            fs::remove(OUTPUT);
            plant();
        };
        EXPECT_EQ(list(-718), UNREADABLE);
        fs::remove(OUTPUT);
    };
    expect_refused([&] { fs::create_symlink(secret, OUTPUT); });
    expect_refused([&] { fs::create_hard_link(secret, OUTPUT); });
    expect_refused([] { ASSERT_EQ(mkfifo(OUTPUT, 0600), 0); });
    if (getuid() == 0)
        expect_refused([] {
            write_file(OUTPUT, "Disk|secret|\n");
            ASSERT_EQ(chown(OUTPUT, NOBODY, NOBODY), 0);
        });
    fs::remove_all("/tmp/share_list_test");
}

// --- debug lines ---------------------------------------------------------------------------------

TEST_F(ShareList, DebugLinesTellWhatWasReadAndDecided) {
    list_output("Disk|public|\nDisk|OstraDB|\n");
    const Strings said = fake::debug_texts();
    const char* wanted[] = {"get input ip=[192.0.2.10] port=[445] user=[nvr] pwd=[c2VjcmV0]",
                            "zorv_exec ret=0, cmd=[/usr/bin/smbclient -gL 192.0.2.10 -p 445 -U ",
                            "get buf=[Disk|public|\n]",
                            ">>>> get shareName=[public]",
                            "get buf=[Disk|OstraDB|\n]",
                            "will SKIP shareName=[OstraDB]",
                            ">>>> share_name_list[0]=[public]"};
    ASSERT_EQ(said.size(), std::size(wanted));
    for (std::size_t i = 0; i < said.size(); ++i)
        EXPECT_NE(said[i].find(wanted[i]), std::string::npos) << said[i];
}

// --- user ids ------------------------------------------------------------------------------------

/// Root while it lives in the way that a web server's child is, by the program's set-user-ID bit,
/// or root in name only.
class Ids {
public:
    Ids(uid_t real, uid_t effective) { EXPECT_EQ(setresuid(real, effective, 0), 0); }
    ~Ids() { EXPECT_EQ(setresuid(0, 0, 0), 0); }
    Ids(const Ids&) = delete;
    Ids& operator=(const Ids&) = delete;
};

TEST_F(ShareList, ToolRunsAsRootAndTheIdsAreRestoredOnEveryPath) {
    if (getuid() != 0) GTEST_SKIP() << "needs root";
    const std::pair<uid_t, uid_t> users[] = {{NOBODY, 0}, {0, NOBODY}};
    const struct {
        const char* path;
        int result;
    } paths[] = {
        {"success", 0}, {"failure", 1}, {"unreadable", -718}, {"missing", CGI_INVALID_VALUE}};
    for (const auto& [real, effective] : users)
        for (const auto& row : paths) {
            SetUp();
            const std::string path = row.path;
            std::vector<uid_t> during;
            fake::platform.on_program = [&](const fake::Call&) {
                during = {getuid(), geteuid()};
                if (path == "unreadable") fs::remove(OUTPUT);
            };
            if (path == "failure") fake::fail("zorv_exec", 1);
            if (path == "missing") fake::platform.parameters.erase("pwd");
            {
                const Ids ids(real, effective);
                list(row.result);
                EXPECT_EQ(getuid(), real) << path;
                EXPECT_EQ(geteuid(), effective) << path;
            }
            EXPECT_EQ(during,
                      path == "missing" ? std::vector<uid_t>{} : (std::vector<uid_t>{0, 0}));
        }
}

}  // namespace
