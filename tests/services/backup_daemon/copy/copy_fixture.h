// A source, a share in memory and a watcher that notes what it is told, for tests of the copying.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/copy_job.h"
#include "services/backup_daemon/copy/copy_state.h"
#include "services/backup_daemon/copy/sha256.h"
#include "services/backup_daemon/run/open_recording.h"
#include "tests/services/backup_daemon/copy/memory_share.h"
#include "tests/support/temporary_state.h"

constexpr long long MIB = 1024 * 1024;
constexpr long long CHUNK_SIZE = services::CHUNK;

/// The same bytes for the same size, no two chunks alike; a smaller content begins a larger one.
inline std::string content_of(long long size) {
    static const std::string noise = [] {
        std::string made(static_cast<std::size_t>(24 * MIB), '\0');
        unsigned state = 1;
        for (char& byte : made) {
            state = state * 1664525 + 1013904223;
            byte = static_cast<char>(state >> 24);
        }
        return made;
    }();
    return noise.substr(0, static_cast<std::size_t>(size));
}

inline std::string hash_of(const std::string& content) {
    services::Sha256 hash;
    hash.add(content.data(), content.size());
    return hash.hex();
}

/// With one bit turned.
inline std::string spoilt(std::string content, long long at) {
    content[static_cast<std::size_t>(at)] ^= 1;
    return content;
}

/// With zeros from `begin` to `end`, as after a server's power cut.
inline std::string holed(std::string content, long long begin, long long end) {
    const auto size = static_cast<std::size_t>(end - begin);
    return content.replace(static_cast<std::size_t>(begin), size, size, '\0');
}

/// The failure's kind; a test error when nothing fails.
template <typename Action>
services::FailureKind failure_of(Action action) {
    try {
        action();
    } catch (const services::CopyFailure& failure) {
        return failure.kind;
    }
    throw std::runtime_error("it did not fail");
}

class CopyFixture : public testing::Test {
protected:
    CopyFixture() {
        job.recordings = folder.path();
        job.source = "source";
        job.target = "a/b/file.mp4";
        job.temporary = "a/b/.file.mp4.1.part";
        job.claim = "claimed by this recorder\n";
    }

    void write_source(const std::string& content) {
        std::ofstream(source_path, std::ios::binary) << content;
    }

    /// The source as the daemon opens it for a copying process.
    services::SourceFile opened() const {
        auto recording = services::open_recording(job.recordings, job.source);
        return {std::move(recording.file), source_path, recording.size, recording.modified_ns};
    }

    /// A state for one step alone. The source has been written.
    services::CopyState new_state(bool hashed = true) {
        source.emplace(opened());
        return {.source = *source,
                .buffers = buffers,
                .watcher = watcher,
                .pace = pace,
                .hash = services::ContentHash(hashed)};
    }

    /// How often the watcher was told so.
    long long told_of(const std::string& what) const {
        return std::ranges::count_if(told,
                                     [&](const std::string& one) { return one.starts_with(what); });
    }

    TemporaryFolder folder;
    const std::string source_path = folder.path() + "/source";
    MemoryServer server;
    MemoryShare share{server};
    services::CopyJob job;
    services::ChunkBuffers buffers;
    std::vector<std::string> told;  ///< "at 5", "checkpoint 5 ab12...", "alive"
    services::CopyWatcher watcher{
        .begins = [this](long long offset) { told.push_back("at " + std::to_string(offset)); },
        .at = [this](long long offset) { told.push_back("at " + std::to_string(offset)); },
        .checkpoint =
            [this](long long offset, const std::string& sha256) {
                told.push_back("checkpoint " + std::to_string(offset) + " " + sha256);
            },
        .alive = [this] { told.push_back("alive"); }};
    services::Pace pace{[this] { return now; }};
    std::optional<services::SourceFile> source;

    services::Pace::Clock::time_point now{};  ///< time stands still but where a test says otherwise
};

using Texts = std::vector<std::string>;
