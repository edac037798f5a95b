// Small texts on a share, and folders that are claimed: whole or not at all, whenever it breaks.
#include "services/backup_daemon/copy/share_text.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/memory_share.h"

using namespace services;

namespace {

class ShareTextTest : public testing::Test {
protected:
    FailureKind claim_failing(const std::string& text = "mine") {
        try {
            claim_folder(share, {"a/mark", "a/mark.1", "who", text});
        } catch (const CopyFailure& failure) {
            return failure.kind;
        }
        ADD_FAILURE() << "the claim succeeded";
        return FailureKind::other;
    }

    MemoryServer server;
    MemoryShare share{server};
};

TEST_F(ShareTextTest, IsReadWholeUpToItsBound) {
    EXPECT_FALSE(read_text(share, "a/text"));
    server.put("a/text", "words");
    EXPECT_EQ(read_text(share, "a/text"), "words");
    server.put("a/text", std::string(LONGEST_TEXT, 'x'));
    EXPECT_EQ(read_text(share, "a/text")->size(), LONGEST_TEXT);
    server.put("a/text", std::string(LONGEST_TEXT + 1, 'x'));
    EXPECT_EQ(read_text(share, "a/text"), "");
}

TEST_F(ShareTextTest, ThatMayNotBeReadIsNotTakenForAnEmptyOne) {
    server.put("a/text", "words");
    for (const std::size_t call : {0U, 1U, 2U})
        for (const FailureKind kind : {FailureKind::denied, FailureKind::lost}) {
            server.failure = {.call = server.calls.size() + call, .kind = kind};
            EXPECT_THROW(read_text(share, "a/text"), CopyFailure) << call;
        }
}

TEST_F(ShareTextTest, TakesThePlaceOfTheOneBeforeAsAWhole) {
    server.put("a/text", "the old words");
    server.put("a/text.part", "something that was begun and never completed");
    write_text(share, "a/text", "a/text.part", "new");
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/text", "new"}}));
}

TEST_F(ShareTextTest, ClaimedFolderAppearsWithItsFile) {
    claim_folder(share, {"a/mark", "a/mark.1", "who", "mine"});
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/mark/who", "mine"}}));
    EXPECT_FALSE(server.folders.contains("a/mark.1"));
}

TEST_F(ShareTextTest, FolderThatSomebodyHasStaysHisAndNothingElseStays) {
    server.put("a/mark/who", "another's");
    EXPECT_EQ(claim_failing(), FailureKind::occupied);
    EXPECT_EQ(server.files, (std::map<std::string, std::string>{{"a/mark/who", "another's"}}));
    EXPECT_FALSE(server.folders.contains("a/mark.1"));
}

TEST_F(ShareTextTest, FullShareKeepsNothingOfAClaim) {
    server.room = 2;
    EXPECT_EQ(claim_failing(), FailureKind::full);
    EXPECT_TRUE(server.files.empty());
    EXPECT_FALSE(server.folders.contains("a/mark.1"));
}

TEST_F(ShareTextTest, ClaimThatBreaksAnywhereLeavesNoHalfOfOneAndIsRepeated) {
    for (const Break when : {Break::before, Break::halfway, Break::after}) {
        for (std::size_t call = 0;; ++call) {
            MemoryServer fresh;
            MemoryShare first(fresh);
            fresh.failure = {.call = call, .when = when};
            bool broke = false;
            try {
                claim_folder(first, {"a/mark", "a/mark.1", "who", "mine"});
            } catch (const CopyFailure&) {
                broke = true;
            }
            const auto file = fresh.files.find("a/mark/who");
            EXPECT_TRUE(file == fresh.files.end() || file->second == "mine");
            if (file == fresh.files.end()) {
                MemoryShare second(fresh);
                fresh.failure.reset();
                claim_folder(second, {"a/mark", "a/mark.1", "who", "mine"});
            }
            EXPECT_EQ(fresh.files, (std::map<std::string, std::string>{{"a/mark/who", "mine"}}));
            if (!broke) break;
        }
    }
}

}  // namespace
