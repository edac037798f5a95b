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

    void write(const std::string& text = "{}\n") {
        write_side_file(share, {"a/.f.part.json", "a/f.json", "claimed\n"}, described, text);
    }

    MemoryServer server;
    MemoryShare share{server};
    const SideFile described{.channel = 3, .guid = "g", .start = 5};
    const std::string older = side_file_text(described, 1LL << 40, "an older hash");
};

TEST_F(SideFileTest, IsWrittenUnderATemporaryNameAndNamedLast) {
    write();
    EXPECT_EQ(server.calls,
              (Texts{"open write a/.f.part.json", "truncate a/.f.part.json 0",
                     "write a/.f.part.json 0 3", "close a/.f.part.json", "create a/f.json",
                     "write a/f.json 0 8", "close a/f.json", "rename a/.f.part.json -> a/f.json"}));
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", "{}\n"}}));
}

TEST_F(SideFileTest, TakesThePlaceOfAnOlderOneAndOfAnUnfinishedOne) {
    server.put("a/.f.part.json", "an unfinished description");
    const SideFile of_another_index{.channel = 4, .guid = "g", .start = 5};
    for (const std::string& there :
         {older, side_file_text(of_another_index, 1, ""), std::string("claimed\n"),
          std::string("clai"), std::string(), std::string("{"), std::string("{}\n")}) {
        server.put("a/f.json", there);
        write();
        EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", "{}\n"}}));
    }
}

TEST_F(SideFileTest, TakesThePlaceOfWhatAServerLeftOfOneWhenThatStaysAsItIs) {
    for (const std::size_t size :
         {older.size() - 9, older.size(), std::string("claimed\n").size()}) {
        server.calls.clear();
        server.put("a/f.json", std::string(size, '\0'));
        write(older);
        EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", older}}));
        EXPECT_EQ(server.calls_of("wait_for_others").size(), 1U);
    }
    server.put("a/f.json", std::string(9, '\0'));
    server.before_call = [this](const std::string& call) {
        if (call == "wait_for_others") server.put("a/f.json", "somebodys");  // as long
    };
    EXPECT_EQ(failure_of([&] { write(older); }), FailureKind::occupied);
    EXPECT_EQ(server.files.at("a/f.json"), "somebodys");
}

TEST_F(SideFileTest, TakesThePlaceOfNothingElse) {
    const SideFile of_another_time{.channel = 3, .guid = "g", .start = 6};
    const SideFile of_another_camera{.channel = 3, .guid = "h", .start = 5};
    for (const std::string& there :
         {std::string("a list of things to do"), std::string(R"({"guid":"g","start":"5"})"),
          std::string(R"({"guid":"g"})"), std::string(R"({"guid":null,"start":5})"),
          side_file_text(of_another_time, 1, ""), side_file_text(of_another_camera, 1, ""),
          older + std::string(65536, ' ')}) {
        server.put("a/f.json", there);
        EXPECT_EQ(failure_of([&] { write(); }), FailureKind::occupied) << there;
        EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/f.json", there}}));
    }
}

TEST_F(SideFileTest, FileThatAppearsWhileItIsWrittenStays) {
    server.before_call = [this](const std::string& call) {
        if (call == "create a/f.json") server.put("a/f.json", "somebody's");
    };
    EXPECT_EQ(failure_of([&] { write(); }), FailureKind::occupied);
    EXPECT_EQ(server.files.at("a/f.json"), "somebody's");
}

TEST_F(SideFileTest, FileThatTakesTheOldOnesPlaceMeanwhileStays) {
    server.put("a/f.json", older);
    server.before_call = [this](const std::string& call) {
        if (call == "look a/f.json" && server.calls_of("look").size() == 2)
            server.put("a/f.json", "somebody's");
    };
    EXPECT_EQ(failure_of([&] { write(); }), FailureKind::occupied);
    EXPECT_EQ(server.files.at("a/f.json"), "somebody's");
}

TEST_F(SideFileTest, OldOneStaysUntilTheNewOneIsWhole) {
    for (std::size_t call = 0; call < 9; ++call) {
        server = {};
        server.put("a/f.json", older);
        server.failure = PlannedFailure{.call = call};
        EXPECT_THROW(write("new"), CopyFailure);
        EXPECT_EQ(server.files.at("a/f.json"), older) << call;
    }
}

}  // namespace
