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
                                     .alive = watcher.alive});
        return copier.copy(job, opened());
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

    static constexpr long long SIZE = 20 * MIB + 17;
    const std::string content = content_of(SIZE);
};
