// A copy takes its name from nobody: files that appear, change or vanish while it is sent.
#include "services/backup_daemon/copy/final_name.h"

#include <gtest/gtest.h>

#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

class FinalNameTest : public CopierFixture {
protected:
    FinalNameTest() { write_source(content); }

    /// Has somebody do something before the first call whose text begins so.
    void before(const std::string& beginning, const std::function<void()>& change) {
        server.before_call = [this, beginning, change](const std::string& call) {
            if (server.calls_of(beginning).size() == 1 && call.starts_with(beginning)) change();
        };
    }

    void put(const std::string& file) { server.put(job.target, file); }

    std::string words() {
        try {
            copy();
        } catch (const CopyFailure& failure) {
            EXPECT_EQ(failure.kind, FailureKind::occupied);
            return failure.what();
        }
        return "it did not fail";
    }

    const std::string older = content_of(SIZE - 5);
};

TEST_F(FinalNameTest, FreshCopyLooksAtNothingBeforeItClaimsItsName) {
    job.fresh = true;
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("look"), Texts{"look " + job.temporary}) << "what became of the time";
    EXPECT_EQ(server.calls_of("create"),
              (Texts{"create " + job.temporary, "create " + job.target}));
}

TEST_F(FinalNameTest, FileThatAppearsWhileTheCopyIsSentStays) {
    for (const bool fresh : {true, false}) {
        server = {};
        job.fresh = fresh;
        before("write " + job.temporary, [this] { put("somebody's"); });
        EXPECT_EQ(words(), job.target + ": another file, not of this recorder, has this name");
        expect_only("somebody's");
    }
}

TEST_F(FinalNameTest, NameThatIsRefusedForAMomentIsAskedAgain) {
    for (const FailureKind kind : {FailureKind::denied, FailureKind::other}) {
        server = {};
        server.before_call = [this, kind](const std::string& call) {
            if (call == "create " + job.target && server.calls_of(call).size() == 1) put("theirs");
            const bool is_refused =
                call == "open read " + job.target && server.calls_of(call).size() <= 2;
            if (is_refused) throw CopyFailure(kind, "it is being deleted");
        };
        EXPECT_EQ(words(), job.target + ": another file, not of this recorder, has this name");
        expect_only("theirs");
    }
}

TEST_F(FinalNameTest, ClaimThatBecomesTheSameCopyWhileItIsLookedOverIsNoForeignFile) {
    put(job.claim);
    before("open read " + job.target, [this] { put(content); });
    copy();
    expect_only(content);
}

TEST_F(FinalNameTest, NameThatIsRefusedEachTimeIsTheServersFailure) {
    server.before_call = [this](const std::string& call) {
        if (call == "look " + job.target) throw CopyFailure(FailureKind::denied, "no");
    };
    EXPECT_EQ(failure(), FailureKind::denied);
    EXPECT_EQ(server.calls_of("look " + job.target).size(), 4U);
}

TEST_F(FinalNameTest, FileThatAppearsRightBeforeTheClaimStays) {
    before("create " + job.target, [this] { put("somebody's"); });
    EXPECT_EQ(failure(), FailureKind::occupied);
    expect_only("somebody's");
}

TEST_F(FinalNameTest, OnlyTheClaimIsReplaced) {
    before("rename", [this] { EXPECT_EQ(server.files.at(job.target), job.claim); });
    copy();
    expect_only(content);
}

TEST_F(FinalNameTest, EqualFileThatAppearsIsTheCopy) {
    job.fresh = true;
    before("create " + job.target, [this] {
        put(content);
        server.modified_ns[job.target] = 77;
    });
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
    EXPECT_EQ(share_modified_ns, 77);
}

TEST_F(FinalNameTest, EqualFileLeavesNothingOfAnAttemptBefore) {
    put(content);
    server.put(job.temporary, content);
    EXPECT_EQ(copy(), hash_of(content));
    expect_only(content);
}

TEST_F(FinalNameTest, ClaimOfAnAttemptBeforeIsTakenOver) {
    for (const bool fresh : {true, false}) {
        server = {};
        job.fresh = fresh;
        put(job.claim);
        copy();
        expect_only(content);
    }
}

TEST_F(FinalNameTest, EmptyFileThatBecomesSomebodysClaimStays) {
    put("");
    before("wait_for_others", [this] { put("claimed by another recorder\n"); });
    EXPECT_EQ(words(), job.target + ": another file, not of this recorder, has this name");
    expect_only("claimed by another recorder\n");
}

TEST_F(FinalNameTest, EmptyFileThatStaysAsItIsIsReplaced) {
    put("");
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("wait_for_others").size(), 1U);
}

TEST_F(FinalNameTest, WhatAServerLeftOfACopyOrAClaimIsReplacedWhenItStaysAsItIs) {
    for (const std::string& left : {holed(content, 5, SIZE), std::string(job.claim.size(), '\0')}) {
        server = {};
        put(left);
        copy();
        expect_only(content);
        EXPECT_EQ(server.calls_of("wait_for_others").size(), 1U);
    }
}

TEST_F(FinalNameTest, ZerosThatSomebodyFillsMeanwhileStay) {
    put(std::string(100, '\0'));
    before("wait_for_others", [this] {
        put(std::string(100, 'x'));
        server.modified_ns[job.target] = 1;
    });
    EXPECT_EQ(words(), job.target + ": another file, not of this recorder, has this name");
    expect_only(std::string(100, 'x'));
}

TEST_F(FinalNameTest, ZerosThatSomebodyFillsStayThoughTheServerTellsTheSameTime) {
    put(std::string(100, '\0'));
    before("wait_for_others", [this] { put(std::string(100, 'x')); });
    EXPECT_EQ(words(), job.target + ": another file, not of this recorder, has this name");
    expect_only(std::string(100, 'x'));
}

TEST_F(FinalNameTest, ClaimThatHasNoRoomLeavesNothingAtTheName) {
    server.before_call = [this](const std::string& call) {
        if (call.starts_with("write " + job.target))
            throw CopyFailure(FailureKind::full, "No space left on device");
    };
    EXPECT_EQ(failure(), FailureKind::full);
    EXPECT_FALSE(server.files.contains(job.target));
}

TEST_F(FinalNameTest, ClaimOfAnotherRecorderStays) {
    put("claimed by another recorder\n");
    EXPECT_EQ(failure(), FailureKind::occupied);
    expect_only("claimed by another recorder\n");
}

TEST_F(FinalNameTest, OfTwoRecordersOneGetsTheNameAndTheOtherIsTold) {
    CopyJob other = job;
    other.temporary = "a/b/.file.mp4.other.part";
    other.claim = "claimed by the other recorder\n";
    const std::string theirs = spoilt(content, 7);
    server.put(other.temporary, theirs);
    // At each call of this recorder's in turn the other one goes through its whole last step.
    std::size_t calls = 1;
    for (std::size_t at = 0; at < calls; ++at) {
        server = {};
        server.put(other.temporary, theirs);
        bool other_won = false;
        server.before_call = [&](const std::string&) {
            if (server.calls.size() != at + 1) return;
            MemoryShare connection(server);
            other_won = take_free_name(connection, {other.temporary, other.target, other.claim});
        };
        bool won = true;
        try {
            copy();
        } catch (const CopyFailure& failure) {
            EXPECT_EQ(failure.kind, FailureKind::occupied);
            won = false;
        }
        calls = std::max(calls, server.calls.size() - (won ? 0 : 4));
        EXPECT_NE(won, other_won) << at;
        EXPECT_TRUE(server.files.at(job.target) == (won ? content : theirs)) << at;
        EXPECT_EQ(server.files.contains(other.temporary), won) << "what was not named is whole";
    }
    EXPECT_GE(calls, 45U);
}

TEST_F(FinalNameTest, RecordedCopyThatChangesWhileTheNewOneIsSentStays) {
    put(older);
    record();
    for (const std::string& changed : {older + "x", spoilt(older, 5), std::string("other")}) {
        put(older);
        server.calls.clear();
        before("write " + job.temporary, [&] {
            put(changed);
            server.modified_ns[job.target] = 5'000'000'000;
        });
        EXPECT_EQ(words(),
                  job.target + ": the copy there was changed by somebody else, and stays as it is");
        expect_only(changed);
        server.modified_ns.clear();
    }
}

TEST_F(FinalNameTest, RecordedCopyThatVanishesMeanwhileLeavesAFreeName) {
    put(older);
    record();
    before("write " + job.temporary, [this] { server.files.erase(job.target); });
    copy();
    expect_only(content);
    EXPECT_EQ(server.calls_of("create " + job.target).size(), 1U);
}

TEST_F(FinalNameTest, CopyThatWasChangedOnTheShareStaysAndNothingIsSent) {
    put(spoilt(content, 9));
    job.recorded = RecordedCopy{SIZE, 3'000'000'000, hash_of(content)};
    EXPECT_EQ(words(),
              job.target + ": the copy there was changed by somebody else, and stays as it is");
    expect_only(spoilt(content, 9));
    EXPECT_EQ(server.written, 0);
}

TEST_F(FinalNameTest, TargetThatKeepsChangingIsLeftAlone) {
    put("");
    long long size = 0;
    server.before_call = [&](const std::string& call) {
        if (call == "look " + job.target) put(content_of(++size));
    };
    EXPECT_EQ(failure(), FailureKind::occupied);
    EXPECT_FALSE(server.files.contains(job.temporary));
}

}  // namespace
