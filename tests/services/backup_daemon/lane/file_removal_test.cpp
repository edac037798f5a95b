// Files that still are what they were go from a share; whatever else has their names stays.
#include "services/backup_daemon/lane/file_removal.h"

#include <gtest/gtest.h>

#include "services/backup_daemon/copy/side_file.h"
#include "tests/services/backup_daemon/copy/memory_share.h"

using namespace services;

namespace {

using Fates = std::vector<Fate>;
using Texts = std::vector<std::string>;

constexpr long long SECOND = 1'000'000'000;

class FileRemovalTest : public testing::Test {
protected:
    Fates remove(const std::vector<DoomedFile>& files) {
        MemoryShare share(server);
        return remove_files(share, {files, folders}, [this] { ++signs_of_life; });
    }

    bool is_there(const std::string& path) const { return server.files.contains(path); }

    MemoryServer server;
    std::vector<std::string> folders;
    int signs_of_life = 0;
};

TEST_F(FileRemovalTest, FileOfTheSizeGoesAndOneOfAnotherStays) {
    server.put("a/1", "12345");
    server.put("a/2", "1234");
    server.put("a/3", "");
    EXPECT_EQ(remove({{"a/1", 5}, {"a/2", 5}, {"a/3", 5}}),
              (Fates{Fate::gone, Fate::stayed, Fate::stayed}));
    EXPECT_FALSE(is_there("a/1"));
    EXPECT_EQ(server.files.at("a/2"), "1234");
    EXPECT_TRUE(is_there("a/3"));
}

TEST_F(FileRemovalTest, TimesMayDifferByTwoSeconds) {
    const long long recorded = 1000 * SECOND;
    const std::map<long long, Fate> wanted{{recorded, Fate::gone},
                                           {recorded + 2 * SECOND, Fate::gone},
                                           {recorded - 2 * SECOND, Fate::gone},
                                           {recorded + 2 * SECOND + 1, Fate::stayed},
                                           {recorded - 2 * SECOND - 1, Fate::stayed},
                                           {std::numeric_limits<long long>::min(), Fate::stayed},
                                           {std::numeric_limits<long long>::max(), Fate::stayed}};
    for (const auto& [time, fate] : wanted) {
        server.put("a/1", "12345");
        server.modified_ns["a/1"] = time;
        EXPECT_EQ(remove({{"a/1", 5, recorded}}), Fates{fate}) << time;
        EXPECT_EQ(is_there("a/1"), fate == Fate::stayed) << time;
    }
}

TEST_F(FileRemovalTest, FileThatIsNotThereIsMissingAndNothingIsAskedOfIt) {
    EXPECT_EQ(remove({{"a/1", 5}}), Fates{Fate::missing});
    EXPECT_TRUE(server.calls_of("remove").empty());
}

TEST_F(FileRemovalTest, EachFolderIsListedOnceBeforeAnythingGoes) {
    for (const char* path : {"a/1", "a/2", "b/1"}) server.put(path, "12345");
    remove({{"a/1", 5}, {"b/1", 5}, {"a/2", 5}});
    EXPECT_EQ(server.calls, (Texts{"list a", "list b", "remove a/1", "remove b/1", "remove a/2"}));
    EXPECT_EQ(signs_of_life, 5);
}

TEST_F(FileRemovalTest, TemporaryFilesGoWhateverTheyAre) {
    server.put("a/.1.part", "whatever");
    EXPECT_EQ(remove({{"a/.1.part"}, {"a/.2.part"}}), (Fates{Fate::gone, Fate::gone}));
    EXPECT_EQ(server.calls, (Texts{"remove a/.1.part", "remove a/.2.part"}));
}

TEST_F(FileRemovalTest, DescriptionGoesWithItsCopyAndStaysWithAnotherFile) {
    const std::string text = side_file_text({1, "guid", 77}, 5, "abc");
    const std::string end = side_file_end(5, "abc");
    for (const char* content : {"12345", "1234"}) {
        server.put("a/1", content);
        server.put("a/1.json", text);
        const bool ours = std::string(content).size() == 5;
        EXPECT_EQ(remove({{"a/1", 5, {}, end}}), Fates{ours ? Fate::gone : Fate::stayed});
        EXPECT_EQ(is_there("a/1.json"), !ours);
    }
}

TEST_F(FileRemovalTest, DescriptionThatWasNotWrittenForTheCopyStays) {
    const std::string end = side_file_end(5, "abc");
    for (const std::string& text :
         {std::string("{}"), std::string(), side_file_text({1, "guid", 77}, 5, "abd"),
          side_file_text({1, "guid", 77}, 15, "abc"), end + std::string(100'000, ' ') + end}) {
        server.put("a/1", "12345");
        server.put("a/1.json", text);
        EXPECT_EQ(remove({{"a/1", 5, {}, end}}), Fates{Fate::description_stayed});
        EXPECT_FALSE(is_there("a/1"));
        EXPECT_TRUE(is_there("a/1.json"));
    }
}

TEST_F(FileRemovalTest, DescriptionWhoseCopyIsGoneGoes) {
    server.put("a/1.json", side_file_text({1, "guid", 77}, 5, "abc"));
    EXPECT_EQ(remove({{"a/1", 5, {}, side_file_end(5, "abc")}}), Fates{Fate::missing});
    EXPECT_FALSE(is_there("a/1.json"));
}

}  // namespace
