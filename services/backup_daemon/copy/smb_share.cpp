// A share on an SMB2 or SMB3 server, through libsmbclient.
#include "services/backup_daemon/copy/smb_share.h"

extern "C" {
#include <libsmbclient.h>
}
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <limits>
#include <thread>
#include <utility>

#include "platform/standalone/store/text_buffer.h"
#include "services/backup_daemon/copy/host_name.h"
#include "services/backup_daemon/copy/login_words.h"
#include "services/backup_daemon/copy/pace.h"
#include "services/backup_daemon/copy/share_path.h"
#include "services/backup_daemon/copy/smb_failure.h"

namespace services {
namespace {

constexpr long long NANOSECONDS = 1'000'000'000;  // of a second

// A request has an answer long before, unless its sender's line is down.
constexpr std::chrono::seconds OTHERS_PAUSE(5);

/// What the library's callbacks know of the one connection that there is to be.
struct Connection {
    const SmbLogin& login;
    smbc_check_server_fn is_dead;  ///< the library's own question
    bool lost = false;             ///< a call found it dead
};

Connection& connection_of(SMBCCTX* context) {
    return *static_cast<Connection*>(smbc_getOptionUserData(context));
}

/// A call that finds the connection dead makes a new one in silence. What it then says may be of
/// that attempt: a login that is refused by now looks like a file that must not be touched, and a
/// share that is not there like a file that is gone.
int note_loss(SMBCCTX* context, SMBCSRV* server) {
    Connection& connection = connection_of(context);
    const int is_dead = connection.is_dead(context, server);
    if (is_dead != 0) connection.lost = true;
    return is_dead;
}

/// Whether the last call on a share failed with this errno, and meant what it was asked for.
bool says(SMBCCTX* context, int error) {
    return errno == error && !connection_of(context).lost;
}

bool has_lost(SMBCCTX* context) {
    return connection_of(context).lost || meaning_of(errno) == FailureKind::lost;
}

[[noreturn]] void fail(SMBCCTX* context, const std::string& what) {
    const int error = errno;
    if (connection_of(context).lost)
        throw CopyFailure(FailureKind::lost, what + ": the connection was lost");
    throw CopyFailure(meaning_of(error), what + ": " + std::strerror(error));
}

/// Into one of the library's buffers, which have room for something.
void fill(char* buffer, int size, const std::string& text) {
    standalone::copy_text(text, buffer, static_cast<std::size_t>(size));
}

void give_login(SMBCCTX* context, const char*, const char*, char* domain, int domain_size,
                char* user, int user_size, char* password, int password_size) {
    const SmbLogin& login = connection_of(context).login;
    const SmbUser parts = smb_user(login.user);
    // The library has put its own guess in place, which stands when the user names no domain.
    if (parts.domain) fill(domain, domain_size, *parts.domain);
    fill(user, user_size, parts.name);
    fill(password, password_size, login.password);
}

/// What no file can have counts as the largest that one can.
long long no_more_than_can_be(std::uint64_t bytes) {
    constexpr std::uint64_t LARGEST = std::numeric_limits<long long>::max();
    return static_cast<long long>(std::min(bytes, LARGEST));
}

/// A server may tell times that fit no clock; they are as good as any that never was.
long long nanoseconds(const timespec& time) {
    long long all = 0;
    if (__builtin_mul_overflow(time.tv_sec, NANOSECONDS, &all)) return 0;
    return __builtin_add_overflow(all, time.tv_nsec, &all) ? 0 : all;
}

int flags_of(Share::Open mode) {
    switch (mode) {
        case Share::Open::read:
            return O_RDONLY;
        case Share::Open::write:
            return O_RDWR | O_CREAT;
        case Share::Open::create:
            break;
    }
    return O_RDWR | O_CREAT | O_EXCL;
}

/// Who is told that a long call goes on. What he throws must not go through the library.
struct Liveliness {
    const std::function<void()>& alive;
    std::exception_ptr failure{};
};

int show_life(off_t, void* liveliness) {
    auto& told = *static_cast<Liveliness*>(liveliness);
    try {
        told.alive();
        return 1;
    } catch (...) {
        told.failure = std::current_exception();
        return 0;
    }
}

struct FreeContext {
    void operator()(SMBCCTX* context) const { smbc_free_context(context, 1); }
};

class SmbFile : public ShareFile {
public:
    SmbFile(SMBCCTX* context, SMBCFILE* file, std::string path)
        : context_(context), file_(file), path_(std::move(path)) {}
    ~SmbFile() override {
        if (file_) smbc_getFunctionClose(context_)(context_, file_);
    }

    void write(long long offset, const char* data, std::size_t size) override {
        seek(offset);
        while (size > 0) {
            const ssize_t put = smbc_getFunctionWrite(context_)(context_, file_, data, size);
            if (put <= 0) give_up();
            data += put;
            size -= static_cast<std::size_t>(put);
        }
    }

    /// Asked at once, the library sends several requests side by side where one does not do.
    std::size_t read(long long offset, char* data, std::size_t size) override {
        seek(offset);
        std::size_t total = 0;
        while (total < size) {
            const ssize_t got =
                smbc_getFunctionRead(context_)(context_, file_, data + total, size - total);
            if (got < 0) give_up();
            if (got == 0) break;
            total += static_cast<std::size_t>(got);
        }
        return total;
    }

    void truncate(long long size) override {
        if (smbc_getFunctionFtruncate(context_)(context_, file_, size) != 0) give_up();
    }

    void close() override {
        SMBCFILE* file = std::exchange(file_, nullptr);
        if (smbc_getFunctionClose(context_)(context_, file) != 0) fail(context_, path_);
    }

    /// Has the server copy the first `size` bytes of another file. Where it cannot, the library
    /// reads and writes them.
    void take_beginning(SmbFile& other, long long size, Liveliness& liveliness) {
        const off_t copied = smbc_getFunctionSplice(context_)(context_, other.file_, file_, size,
                                                              show_life, &liveliness);
        if (liveliness.failure) std::rethrow_exception(liveliness.failure);
        if (copied < 0) give_up();
        if (copied != size) throw CopyFailure(FailureKind::other, path_ + ": copied by halves");
    }

private:
    /// On a lost connection closing would only wait for the server once more.
    [[noreturn]] void give_up() {
        if (has_lost(context_)) file_ = nullptr;
        fail(context_, path_);
    }

    void seek(long long offset) {
        if (smbc_getFunctionLseek(context_)(context_, file_, offset, SEEK_SET) < 0) give_up();
    }

    SMBCCTX* context_;
    SMBCFILE* file_;
    std::string path_;
};

}  // namespace

struct SmbShare::Context {
    Context(SMBCCTX* made, const SmbLogin& login)
        : connection{login, smbc_getFunctionCheckServer(made)}, words(made), handle(made) {
        smbc_setOptionUserData(made, &connection);
        smbc_setFunctionCheckServer(made, note_loss);
        smbc_setFunctionAuthDataWithContext(made, give_login);
    }
    Connection connection;
    LoginWords words;  // outlives what it hears, as does the connection
    std::unique_ptr<SMBCCTX, FreeContext> handle;
};

SmbShare::SmbShare(SmbLogin login) : login_(std::move(login)) {
    SMBCCTX* context = smbc_new_context();
    if (!context) throw std::bad_alloc();
    context_ = std::make_unique<Context>(context, login_);
    smbc_setOptionNoAutoAnonymousLogin(context, 1);
    // Otherwise an empty password means that another program of the machine's knows it.
    smbc_setOptionUseCCache(context, 0);
    smbc_setTimeout(context, TIMEOUT_MS);
    if (!smbc_init_context(context))
        throw CopyFailure(FailureKind::other,
                          std::string("cannot prepare for SMB: ") + std::strerror(errno));
    // After the configuration of the machine was read, which might say otherwise.
    smbc_setOptionProtocols(context, "SMB2_02", "SMB3_11");
}

SmbShare::~SmbShare() = default;

std::string SmbShare::url(const std::string& path) const {
    return smb_url(login_, path);
}

std::chrono::nanoseconds SmbShare::connect() {
    if (const std::string problem = login_problem(login_); !problem.empty())
        throw CopyFailure(FailureKind::refused, problem + " cannot be used");
    SMBCCTX* context = context_->handle.get();
    struct stat root {};
    context_->words.start();
    const bool connected = smbc_getFunctionStat(context)(context, url("").c_str(), &root) == 0;
    const int error = errno;
    const std::string login = context_->words.stop();
    if (connected) return measure_round_trip();
    // The library has one number for a name that nobody knows and for all that it has none for.
    throw connection_failure(
        login_,
        {.error = error, .login = login, .name = error == EINVAL ? look_up(login_.server) : 0});
}

/// The shortest of some looks counts: the others waited for more than the line. One is enough of a
/// short line.
std::chrono::nanoseconds SmbShare::measure_round_trip() {
    constexpr int MOST_LOOKS = 3;
    auto shortest = look_for_nothing();
    for (int looks = 1; looks < MOST_LOOKS && shortest >= LONG_LINE; ++looks)
        shortest = std::min(shortest, look_for_nothing());
    return shortest;
}

/// Looks for what nobody has: that is one request, and any answer to it will do.
std::chrono::nanoseconds SmbShare::look_for_nothing() {
    using Clock = std::chrono::steady_clock;
    SMBCCTX* context = context_->handle.get();
    struct stat nothing {};
    const auto begin = Clock::now();
    const std::string none = url(".recording-backup.none");
    if (smbc_getFunctionStat(context)(context, none.c_str(), &nothing) != 0 && has_lost(context))
        fail(context, "the line's length");
    return Clock::now() - begin;
}

/// The library has the whole listing in memory by then, however long the server makes it: what ends
/// that is the process's limit of memory.
std::map<std::string, FileState> SmbShare::list(const std::string& folder,
                                                const std::set<std::string>& wanted) {
    SMBCCTX* context = context_->handle.get();
    std::map<std::string, FileState> files;
    SMBCFILE* handle = smbc_getFunctionOpendir(context)(context, url(folder).c_str());
    if (!handle && says(context, ENOENT)) return files;
    if (!handle) fail(context, folder);
    while (const libsmb_file_info* entry = smbc_getFunctionReaddirPlus(context)(context, handle))
        if ((entry->attrs & SMBC_DOS_MODE_DIRECTORY) == 0 && wanted.contains(entry->name))
            files[entry->name] = {no_more_than_can_be(entry->size), nanoseconds(entry->mtime_ts)};
    if (smbc_getFunctionClosedir(context)(context, handle) != 0) fail(context, folder);
    return files;
}

std::optional<FileState> SmbShare::look(const std::string& path) {
    SMBCCTX* context = context_->handle.get();
    struct stat found {};
    if (smbc_getFunctionStat(context)(context, url(path).c_str(), &found) == 0) {
        if (S_ISDIR(found.st_mode)) throw CopyFailure(FailureKind::denied, path + " is a folder");
        return FileState{std::max<long long>(found.st_size, 0), nanoseconds(found.st_mtim)};
    }
    if (says(context, ENOENT) || says(context, ENOTDIR)) return {};
    fail(context, path);
}

std::optional<ShareRoom> SmbShare::room() {
    SMBCCTX* context = context_->handle.get();
    struct statvfs found {};
    std::string root = url("");
    if (smbc_getFunctionStatVFS(context)(context, root.data(), &found) != 0) {
        if (has_lost(context)) fail(context, "room on the share");
        return {};
    }
    // What the library calls fragments are the sectors of a block; 0 where there are none.
    const std::uint64_t block = found.f_bsize * std::max<std::uint64_t>(found.f_frsize, 1);
    if (block == 0) return {};
    const std::uint64_t most = std::numeric_limits<long long>::max() / block;
    return ShareRoom{no_more_than_can_be(std::min<std::uint64_t>(found.f_bavail, most) * block),
                     no_more_than_can_be(std::min<std::uint64_t>(found.f_blocks, most) * block)};
}

/// From the last one upwards: mostly those above it are there.
void SmbShare::make_folders(const std::string& path) {
    if (make_folder(path)) return;
    const std::string above = folder_of(path);
    if (!above.empty()) make_folders(above);
    if (above.empty() || !make_folder(path)) {
        errno = ENOENT;
        fail(context_->handle.get(), path);
    }
}

/// @return false: what it should be in is not there
bool SmbShare::make_folder(const std::string& path) {
    SMBCCTX* context = context_->handle.get();
    if (smbc_getFunctionMkdir(context)(context, url(path).c_str(), 0755) == 0 || errno == EEXIST)
        return true;
    if (!says(context, ENOENT)) fail(context, path);
    return false;
}

std::unique_ptr<ShareFile> SmbShare::open(const std::string& path, Open mode) {
    SMBCCTX* context = context_->handle.get();
    SMBCFILE* file =
        smbc_getFunctionOpen(context)(context, url(path).c_str(), flags_of(mode), 0644);
    if (!file && errno == EEXIST && mode == Open::create)
        throw CopyFailure(FailureKind::occupied, path + ": something has this name already");
    if (!file) fail(context, path);
    return std::make_unique<SmbFile>(context, file, path);
}

void SmbShare::rename(const std::string& from, const std::string& to) {
    SMBCCTX* context = context_->handle.get();
    if (smbc_getFunctionRename(context)(context, url(from).c_str(), context, url(to).c_str()) != 0)
        fail(context, to);
}

/// Where something has the new name, the library deletes it and tries again. It cannot delete a
/// folder that is not empty, so of several who want a name for theirs exactly one gets it; a file,
/// and an empty folder, are looked for first.
void SmbShare::rename_folder(const std::string& from, const std::string& to) {
    SMBCCTX* context = context_->handle.get();
    struct stat found {};
    bool is_taken = smbc_getFunctionStat(context)(context, url(to).c_str(), &found) == 0;
    if (!is_taken) {
        if (!says(context, ENOENT)) fail(context, to);
        if (smbc_getFunctionRename(context)(context, url(from).c_str(), context, url(to).c_str()) ==
            0)
            return;
        is_taken = errno == EEXIST || errno == ENOTEMPTY;
    }
    if (!is_taken) fail(context, to);
    throw CopyFailure(FailureKind::occupied, to + ": something has this name already");
}

void SmbShare::copy_beginning(const std::string& from, const std::string& to, long long size,
                              const std::function<void()>& alive) {
    Liveliness liveliness{alive};
    const auto source = open(from, Open::read);
    const auto copy = open(to, Open::create);
    static_cast<SmbFile&>(*copy).take_beginning(static_cast<SmbFile&>(*source), size, liveliness);
    copy->close();
}

void SmbShare::set_modified(const std::string& path, long long modified_ns) {
    SMBCCTX* context = context_->handle.get();
    const timeval modified{modified_ns / NANOSECONDS, modified_ns % NANOSECONDS / 1000};
    timeval times[] = {modified, modified};
    if (smbc_getFunctionUtimes(context)(context, url(path).c_str(), times) != 0)
        fail(context, path);
}

void SmbShare::remove(const std::string& path) {
    SMBCCTX* context = context_->handle.get();
    if (smbc_getFunctionUnlink(context)(context, url(path).c_str()) != 0 && !says(context, ENOENT))
        fail(context, path);
}

void SmbShare::remove_folder(const std::string& path) {
    SMBCCTX* context = context_->handle.get();
    if (smbc_getFunctionRmdir(context)(context, url(path).c_str()) != 0 && !says(context, ENOENT) &&
        errno != ENOTEMPTY && errno != EEXIST)
        fail(context, path);
}

void SmbShare::wait_for_others() {
    std::this_thread::sleep_for(OTHERS_PAUSE);
}

}  // namespace services
