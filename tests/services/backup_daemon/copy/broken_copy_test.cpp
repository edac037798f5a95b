// Whatever call on the share fails, nothing half-done has the name, and the next copy succeeds.
#include <gtest/gtest.h>

#include <random>

#include "tests/services/backup_daemon/copy/copier_fixture.h"

using namespace services;

namespace {

/// What the share has, and what is asked for, before a copy that breaks.
struct Scene {
    std::string name;
    std::string source;
    std::string standing = {};   ///< recorded copy of an older source; "" when the name is free
    std::string temporary = {};  ///< of an attempt before; "" when there was none
    bool has_checkpoint = false;
    bool check = true;
    bool side_file = false;
    bool recorded_hash = false;  ///< of what stands there, so that its beginning may serve
    bool fresh = false;          ///< the name was free and nothing was begun
    bool claimed = false;        ///< a daemon was killed when it had claimed the name
};

class BrokenCopyTest : public CopierFixture {
protected:
    void set(const Scene& scene) {
        server = {};
        write_source(scene.source);
        job.recorded.reset();
        job.offset = 0;
        job.prefix_sha256.clear();
        job.check = scene.check;
        job.side_file.reset();
        if (!scene.standing.empty()) {
            server.put(job.target, scene.standing);
            record(scene.recorded_hash ? hash_of(scene.standing) : "");
        }
        if (!scene.temporary.empty()) server.put(job.temporary, scene.temporary);
        if (scene.has_checkpoint) {
            job.offset = static_cast<long long>(scene.temporary.size());
            job.prefix_sha256 = hash_of(scene.temporary);
        }
        job.fresh = scene.fresh;
        if (scene.claimed) server.put(job.target, job.claim);
        if (scene.side_file) job.side_file = SideFile{.channel = 3, .guid = "g", .start = 1};
    }

    void expect_nothing_half_done(const Scene& scene) const {
        const auto target = server.files.find(job.target);
        if (target == server.files.end()) {
            const bool whole =
                scene.standing.empty() || server.files.at(job.temporary) == scene.source;
            EXPECT_TRUE(whole) << "both are gone";
        } else if (target->second != scene.standing && !job.claim.starts_with(target->second)) {
            EXPECT_TRUE(target->second == scene.source);
        }
        const auto description = server.files.find(job.target + ".json");
        if (description == server.files.end() || job.claim.starts_with(description->second)) return;
        EXPECT_EQ(description->second, expected_description(scene));
        EXPECT_TRUE(server.files.contains(job.target)) << "it describes nothing";
    }

    void expect_complete(const Scene& scene, const std::string& sha256) const {
        EXPECT_EQ(sha256, scene.check || scene.side_file ? hash_of(scene.source) : "");
        ASSERT_TRUE(server.files.contains(job.target));
        EXPECT_TRUE(server.files.at(job.target) == scene.source);
        EXPECT_EQ(server.files.size(), scene.side_file ? 2U : 1U) << "something was left behind";
        if (scene.side_file) {
            EXPECT_EQ(server.files.at(job.target + ".json"), expected_description(scene));
        }
    }

    std::string expected_description(const Scene& scene) const {
        return side_file_text(*job.side_file, static_cast<long long>(scene.source.size()),
                              hash_of(scene.source));
    }

    /// Whether the last call took back a claim that had no room.
    bool takes_back_claim(const PlannedFailure& failure) const {
        if (failure.kind != FailureKind::full) return false;
        return server.calls.back() == "remove " + job.target ||
               server.calls.back() == "remove " + job.target + ".json";
    }

    /// Whether a call is about the copy's own name, which may be refused for a moment.
    bool is_asked_again(const std::string& call, FailureKind kind) const {
        const bool may_pass = kind == FailureKind::denied || kind == FailureKind::other;
        return may_pass && call.find(job.target) != std::string::npos &&
               call.find(job.target + ".json") == std::string::npos;
    }

    /// Breaks the copy's call of this number and copies again.
    /// @return false: the copy has no such call
    bool breaks(const Scene& scene, const PlannedFailure& failure, bool keep_checkpoint) {
        set(scene);
        const CopyJob before = job;
        server.failure = failure;
        try {
            const std::string sha256 = copy();
            if (server.calls.size() <= failure.call) return false;
            // What a copy can do without, a time and a beginning that the server makes, and what is
            // asked of its name.
            const std::string& call = server.calls[failure.call];
            EXPECT_TRUE(call.starts_with("set_modified ") || call.starts_with("copy_beginning ") ||
                        is_asked_again(call, failure.kind))
                << call;
            EXPECT_FALSE(ends_connection(failure.kind));
            expect_complete(scene, sha256);
            return true;
        } catch (const CopyFailure& thrown) {
            EXPECT_EQ(thrown.kind, failure.kind);
        }
        EXPECT_EQ(server.calls.size(), failure.call + (takes_back_claim(failure) ? 2 : 1))
            << "nothing else is done after a failure";
        expect_nothing_half_done(scene);
        if (!keep_checkpoint) {
            job.offset = before.offset;
            job.prefix_sha256 = before.prefix_sha256;
        }
        expect_complete(scene, copy());
        return true;
    }

    /// Breaks every call of a copy, one after the other.
    /// @return how many there are
    std::size_t break_each(const Scene& scene, Break when, bool keep_checkpoint = true) {
        PlannedFailure failure{.call = 0, .when = when, .kind = FailureKind::lost};
        while (!HasFailure()) {
            SCOPED_TRACE(scene.name + ", call " + std::to_string(failure.call) + ", way " +
                         std::to_string(static_cast<int>(when)));
            // The kinds take turns: each gets through as it is.
            failure.kind = static_cast<FailureKind>(failure.call % 5);
            if (!breaks(scene, failure, keep_checkpoint)) break;
            ++failure.call;
        }
        return failure.call;
    }
};

constexpr Break WAYS[] = {Break::before, Break::halfway, Break::after};

TEST_F(BrokenCopyTest, EveryCallOfASmallCopyMayFail) {
    const std::string small = content_of(CHUNK_SIZE + 1);
    const std::string older = "an older recording";
    const std::string begun = content_of(1000);
    const Scene scenes[] = {
        {.name = "new", .source = small},
        {.name = "empty", .source = ""},
        {.name = "unchecked", .source = small, .check = false},
        {.name = "described", .source = small, .side_file = true},
        {.name = "described, unchecked", .source = small, .check = false, .side_file = true},
        {.name = "fresh", .source = small, .fresh = true},
        {.name = "fresh, described", .source = small, .side_file = true, .fresh = true},
        {.name = "fresh, but begun", .source = small, .temporary = begun, .fresh = true},
        {.name = "claimed", .source = small, .temporary = small, .claimed = true},
        {.name = "claimed, looked over", .source = small, .fresh = true, .claimed = true},
        {.name = "replaced", .source = small, .standing = older},
        {.name = "grown",
         .source = content_of(2 * CHUNK_SIZE),
         .standing = small,
         .side_file = true,
         .recorded_hash = true},
        {.name = "equal", .source = small, .standing = small, .side_file = true},
        {.name = "begun", .source = small, .temporary = begun, .has_checkpoint = true},
        {.name = "begun, not noted", .source = small, .temporary = begun, .check = false},
        {.name = "begun wrongly", .source = small, .temporary = spoilt(begun, 7)},
        {.name = "begun too long", .source = small, .temporary = small + "x", .check = false},
        {.name = "all at once",
         .source = small,
         .standing = older,
         .temporary = spoilt(small, 7),
         .side_file = true}};
    for (const Scene& scene : scenes)
        for (const Break when : {Break::before, Break::halfway})
            EXPECT_GE(break_each(scene, when), 7U) << scene.name;
    EXPECT_EQ(break_each(scenes[0], Break::after), 17U);
}

TEST_F(BrokenCopyTest, EveryCallOfACopyWithACheckpointMayFail) {
    const Scene large{.name = "large", .source = content_of(8 * MIB + 5)};
    for (const bool keep_checkpoint : {true, false})
        EXPECT_EQ(break_each(large, Break::halfway, keep_checkpoint), 31U);
}

TEST_F(BrokenCopyTest, EveryCallOfARepairMayFail) {
    // The checkpoint vouches for what was damaged since: only the check finds it.
    const Scene damaged{.name = "damaged",
                        .source = content_of(CHUNK_SIZE + 1),
                        .temporary = content_of(CHUNK_SIZE),
                        .has_checkpoint = true};
    for (const Break when : WAYS) {
        for (std::size_t call = 0; !HasFailure(); ++call) {
            SCOPED_TRACE("call " + std::to_string(call));
            set(damaged);
            server.files[job.temporary][9] ^= 1;
            server.failure = PlannedFailure{.call = call, .when = when};
            try {
                copy();
                EXPECT_GE(call, 17U);
                break;
            } catch (const CopyFailure&) {
            }
            expect_nothing_half_done(damaged);
            expect_complete(damaged, copy());
        }
    }
}

TEST_F(BrokenCopyTest, ConnectionMayBreakAgainAndAgain) {
    const Scene scene{.name = "again", .source = content_of(8 * MIB + 5), .side_file = true};
    for (unsigned seed = 0; seed < 10; ++seed) {
        set(scene);
        std::mt19937 random(seed);
        for (bool complete = false; !complete;) {
            SCOPED_TRACE("seed " + std::to_string(seed));
            server.failure = PlannedFailure{.call = server.calls.size() + random() % 40,
                                            .when = WAYS[random() % 3]};
            try {
                expect_complete(scene, copy());
                complete = true;
            } catch (const CopyFailure&) {
                expect_nothing_half_done(scene);
            }
            ASSERT_LT(server.calls.size(), 2000U) << "it gets nowhere";
        }
    }
}

}  // namespace
