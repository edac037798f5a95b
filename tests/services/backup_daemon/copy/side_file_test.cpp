// The description beside a copy: what it says, and that it is never there by halves.
#include "services/backup_daemon/copy/side_file.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copy_fixture.h"

using namespace services;

namespace {

TEST(SideFile, TellsChannelStartLengthAndHash) {
    const SideFile side_file{.channel = 3, .guid = "g-\"3\"", .start = 1'709'297'110};
    EXPECT_EQ(side_file_text(side_file, 5LL << 32, "ab12"),
              "{\"channel\":3,\"guid\":\"g-\\\"3\\\"\",\"start\":1709297110,"
              "\"length\":21474836480,\"sha256\":\"ab12\"}\n");
}

TEST(SideFile, LiesBesideTheFile) {
    EXPECT_EQ(side_file_path("a/b.mp4"), "a/b.mp4.json");
}

class SideFileTest : public testing::Test {
protected:
    SideFileTest() { server.folders = {"a"}; }

    MemoryServer server;
    MemoryShare share{server};
};

TEST_F(SideFileTest, IsWrittenUnderATemporaryNameAndNamedLast) {
    write_side_file(share, "a/f", "a/.f.part", "{}\n");
    EXPECT_EQ(server.calls, (Texts{"open write a/.f.part.json", "truncate a/.f.part.json 0",
                                   "write a/.f.part.json 0 3", "close a/.f.part.json",
                                   "rename a/.f.part.json -> a/f.json"}));
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", "{}\n"}}));
}

TEST_F(SideFileTest, TakesThePlaceOfALongerOneAndOfAnUnfinishedOne) {
    server.put("a/f.json", "a much longer description");
    server.put("a/.f.part.json", "an unfinished description");
    write_side_file(share, "a/f", "a/.f.part", "{}\n");
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", "{}\n"}}));
}

TEST_F(SideFileTest, OldOneStaysUntilTheNewOneIsWhole) {
    for (std::size_t call = 0; call < 5; ++call) {
        server = {};
        server.put("a/f.json", "old");
        server.failure = PlannedFailure{.call = call};
        EXPECT_THROW(write_side_file(share, "a/f", "a/.f.part", "new"), CopyFailure);
        EXPECT_EQ(server.files.at("a/f.json"), "old") << call;
    }
}

}  // namespace
