// A copier on a share in memory, for tests of whole copies.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "services/backup_daemon/copy/file_copier.h"
#include "tests/services/backup_daemon/copy/copy_fixture.h"

/// Copies as the daemon has it done, to whatever the share has.
class CopierFixture : public CopyFixture {
protected:
    /// Copies over a new connection, as a new process does. Keeps checkpoints as the daemon does.
    /// @return the hash
    std::string copy() {
        MemoryShare connection(server);
        services::FileCopier copier(connection,
                                    {.begins = watcher.begins,
                                     .at = watcher.at,
                                     .checkpoint =
                                         [this](long long offset, const std::string& sha256) {
                                             watcher.checkpoint(offset, sha256);
                                             job.offset = offset;
                                             job.prefix_sha256 = sha256;
                                         },
                                     .alive = watcher.alive},
                                    services::Pace([this] { return now; }));
        const services::WholeCopy whole = copier.copy(job, opened());
        share_modified_ns = whole.share_modified_ns;
        return whole.sha256;
    }

    services::FailureKind failure() {
        return failure_of([this] { copy(); });
    }

    /// Copies until the connection breaks in the write at `offset`.
    void cut_at(long long offset) {
        const std::string call = "write " + job.temporary + " " + std::to_string(offset) + " ";
        server.before_call = [call](const std::string& text) {
            if (text.starts_with(call))
                throw services::CopyFailure(services::FailureKind::lost, "cut");
        };
        EXPECT_EQ(failure(), services::FailureKind::lost);
        server.before_call = [](const std::string&) {};
    }

    /// Does something to the source when the first chunk is on its way.
    void while_copying(const std::function<void()>& change) {
        server.before_call = [this, change](const std::string& text) {
            if (text.starts_with("write " + job.temporary + " 0 ")) change();
        };
    }

    /// The target is the only file, and it is this.
    void expect_only(const std::string& expected) const {
        ASSERT_TRUE(server.files.contains(job.target));
        EXPECT_TRUE(server.files.at(job.target) == expected);
        EXPECT_EQ(server.files.size(), 1U);
    }

    /// Bytes that were sent, but for claims of the name.
    long long sent() const {
        const auto claims =
            static_cast<long long>(server.calls_of("write " + job.target + " ").size());
        return server.written - claims * static_cast<long long>(job.claim.size());
    }

    /// Records the copy that stands at the target, as it is.
    void record(const std::string& sha256 = "") {
        const auto there = server.state(job.target);
        job.recorded = services::RecordedCopy{there->size, there->modified_ns, sha256};
    }

    long long share_modified_ns = 0;  ///< of the last copy, as it was told
    static constexpr long long SIZE = 20 * MIB + 17;
    const std::string content = content_of(SIZE);
};
