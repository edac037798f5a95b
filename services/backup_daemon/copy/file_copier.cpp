// Copies one file to a share: goes on where an earlier attempt stopped, checks, then names it.
#include "services/backup_daemon/copy/file_copier.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/sha256.h"
#include "services/backup_daemon/copy/side_file.h"

namespace services {
namespace {

// The check finds a difference: once is bad luck, twice is a broken share.
constexpr int ATTEMPTS = 2;

[[noreturn]] void fail_source(const std::string& path, int error) {
    const bool gone = error == ENOENT || error == ENOTDIR;
    throw CopyFailure(gone ? FailureKind::gone : FailureKind::source,
                      path + ": " + std::strerror(error));
}

/// The local file, up to the size that it had when it was opened.
class Source {
public:
    explicit Source(const std::string& path)
        : path_(path), file_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW)) {
        struct stat found {};
        if (!file_ || fstat(file_.get(), &found) != 0) fail_source(path_, errno);
        size_ = found.st_size;
        modified_ns_ =
            static_cast<long long>(found.st_mtim.tv_sec) * 1'000'000'000 + found.st_mtim.tv_nsec;
        posix_fadvise(file_.get(), 0, 0, POSIX_FADV_SEQUENTIAL);
    }

    long long size() const { return size_; }
    long long modified_ns() const { return modified_ns_; }

    /// Reads exactly `size` bytes.
    void read(long long offset, char* data, std::size_t size) const {
        while (size > 0) {
            const ssize_t got = pread(file_.get(), data, size, offset);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) fail_source(path_, errno);
            if (got == 0) throw CopyFailure(FailureKind::source, path_ + " has become shorter");
            data += got;
            size -= static_cast<std::size_t>(got);
            offset += got;
        }
    }

private:
    std::string path_;
    standalone::FileHandle file_;
    long long size_ = 0;
    long long modified_ns_ = 0;
};

}  // namespace

/// One file's way, with what is known of it so far.
class FileCopier::Attempt {
public:
    Attempt(FileCopier& copier, const CopyJob& job)
        : copier_(copier), share_(copier.share_), job_(job), source_(job.source) {}

    CopyResult run() {
        if (!is_there_already()) {
            copier_.make_folder(folder_of(job_.target));
            for (int attempt = 1; !send(); ++attempt)
                if (attempt == ATTEMPTS)
                    throw CopyFailure(
                        FailureKind::mismatch,
                        job_.target + ": the share gives back other bytes than it got");
            share_.rename(job_.temporary, job_.target);
        }
        CopyResult result{source_.size(), source_.modified_ns(), hash_ ? hash_->hex() : ""};
        if (job_.side_file) write_side_file(result);
        return result;
    }

private:
    /// Whether the hash of the content is of any use.
    bool wants_hash() const { return job_.check || job_.side_file; }

    void restart_hash() {
        hash_.reset();
        if (wants_hash()) hash_.emplace();
    }

    std::size_t chunk_at(long long offset, long long end) const {
        return static_cast<std::size_t>(std::min<long long>(CHUNK, end - offset));
    }

    void read_source(long long offset, std::size_t size) {
        source_.read(offset, copier_.mine_.data(), size);
    }

    /// Goes on from `offset` for as long as the remote file equals the source, `end` at most; gives
    /// the offset of the first chunk that differs. The hash goes along.
    long long compare(ShareFile& file, long long offset, long long end) {
        while (offset < end) {
            const std::size_t size = chunk_at(offset, end);
            read_source(offset, size);
            if (file.read(offset, copier_.theirs_.data(), size) != size ||
                std::memcmp(copier_.mine_.data(), copier_.theirs_.data(), size) != 0)
                return offset;
            if (hash_) hash_->add(copier_.mine_.data(), size);
            offset += static_cast<long long>(size);
            copier_.watcher_.alive();
        }
        return offset;
    }

    /// Looks at what has the target's name. What is not recorded was left by a daemon that was
    /// killed between naming and recording, or it is somebody else's and must stay.
    bool is_there_already() {
        const auto size = share_.size(job_.target);
        if (!size) return false;
        restart_hash();
        const bool fits = *size <= source_.size() && (*size == source_.size() || !is_recorded());
        const bool equal =
            fits && compare(*share_.open(job_.target, Share::Open::read), 0, *size) == *size;
        if (equal && *size == source_.size()) return true;
        if (!equal && !is_recorded())
            throw CopyFailure(FailureKind::occupied,
                              job_.target + ": another file, not of this recorder, has this name");
        return false;
    }

    bool is_recorded() const { return job_.recorded_size >= 0; }

    /// How much of the temporary file can stay.
    long long resume(ShareFile& file, long long there) {
        restart_hash();
        const long long end = std::min(there, source_.size());
        if (job_.offset > 0 && job_.offset <= end && !job_.prefix_sha256.empty()) {
            Sha256 prefix;
            for (long long at = 0; at < job_.offset;) {
                const std::size_t size = chunk_at(at, job_.offset);
                read_source(at, size);
                prefix.add(copier_.mine_.data(), size);
                at += static_cast<long long>(size);
                copier_.watcher_.alive();
            }
            if (prefix.hex() == job_.prefix_sha256) {
                if (hash_) hash_ = std::move(prefix);
                return compare(file, job_.offset, end);
            }
        }
        return compare(file, 0, end);
    }

    /// Writes the temporary file and reads it back; false when it differs, and then it is gone.
    bool send() {
        const long long there = share_.size(job_.temporary).value_or(0);
        const auto file = share_.open(job_.temporary, Share::Open::write);
        const long long begin = there > 0 ? resume(*file, there) : (restart_hash(), 0);
        if (there > source_.size()) file->truncate(source_.size());
        copier_.watcher_.at(begin);
        write_from(*file, begin);
        file->close();
        if (!job_.check || is_right()) return true;
        share_.remove(job_.temporary);
        copier_.watcher_.checkpoint(0, "");
        return false;
    }

    void write_from(ShareFile& file, long long offset) {
        long long noted = offset;
        while (offset < source_.size()) {
            const std::size_t size = chunk_at(offset, source_.size());
            read_source(offset, size);
            file.write(offset, copier_.mine_.data(), size);
            if (hash_) hash_->add(copier_.mine_.data(), size);
            offset += static_cast<long long>(size);
            copier_.watcher_.at(offset);
            if (offset - noted < CHECKPOINT_BYTES) continue;
            copier_.watcher_.checkpoint(offset, hash_ ? hash_->hex() : "");
            noted = offset;
        }
    }

    /// Reads back what the share has.
    bool is_right() {
        const auto file = share_.open(job_.temporary, Share::Open::read);
        Sha256 theirs;
        long long offset = 0;
        while (const std::size_t got = file->read(offset, copier_.theirs_.data(), CHUNK)) {
            theirs.add(copier_.theirs_.data(), got);
            offset += static_cast<long long>(got);
            copier_.watcher_.alive();
            if (got < CHUNK) break;
        }
        return offset == source_.size() && theirs.hex() == hash_->hex();
    }

    void write_side_file(const CopyResult& result) {
        const std::string text = side_file_text(*job_.side_file, result);
        const std::string path = side_file_path(job_.target);
        const std::string temporary = side_file_path(job_.temporary);
        const auto file = share_.open(temporary, Share::Open::write);
        file->truncate(0);
        file->write(0, text.data(), text.size());
        file->close();
        share_.rename(temporary, path);
    }

    FileCopier& copier_;
    Share& share_;
    const CopyJob& job_;
    Source source_;
    std::optional<Sha256> hash_;
};

FileCopier::FileCopier(Share& share, Watcher watcher)
    : share_(share), watcher_(std::move(watcher)), mine_(CHUNK), theirs_(CHUNK) {}

void FileCopier::make_folder(const std::string& folder) {
    if (folder == made_folder_) return;
    share_.make_folders(folder);
    made_folder_ = folder;
}

CopyResult FileCopier::copy(const CopyJob& job) {
    return Attempt(*this, job).run();
}

}  // namespace services
