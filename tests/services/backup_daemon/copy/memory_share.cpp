// A share in memory that notes every call and fails on demand, for tests of the copying.
#include "tests/services/backup_daemon/copy/memory_share.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <utility>

#include "services/backup_daemon/copy/share_path.h"

using services::CopyFailure;
using services::FailureKind;

namespace {

/// One call: notes itself, and fails where that is planned.
class Call {
public:
    Call(MemoryServer& server, std::string text) : text_(std::move(text)) {
        if (server.failure && server.failure->call == server.calls.size()) plan_ = *server.failure;
        server.calls.push_back(text_);
        server.before_call(text_);
        if (breaks(Break::before)) fail();
    }

    const std::string& text() const { return text_; }
    bool breaks(Break when) const { return plan_ && plan_->when == when; }
    [[noreturn]] void fail() const { throw CopyFailure(plan_->kind, text_ + ": planned"); }

    /// To be called when the call has had its effect.
    void done() const {
        if (plan_) fail();
    }

private:
    std::string text_;
    std::optional<PlannedFailure> plan_;
};

const std::string MODES[] = {"open read ", "open write ", "create "};

[[noreturn]] void fail(FailureKind kind, const Call& call, const std::string& why) {
    throw CopyFailure(kind, call.text() + ": " + why);
}

void require_folder(const MemoryServer& server, const Call& call, const std::string& path) {
    const std::string folder = services::folder_of(path);
    if (!folder.empty() && !server.folders.contains(folder))
        fail(FailureKind::other, call, "there is no such folder");
}

void require_nothing(const MemoryServer& server, const Call& call, const std::string& path) {
    if (!server.files.contains(path)) return;
    call.done();
    fail(FailureKind::occupied, call, "something has this name already");
}

std::string place(long long offset, std::size_t size) {
    return " " + std::to_string(offset) + " " + std::to_string(size);
}

class MemoryFile : public services::ShareFile {
public:
    MemoryFile(MemoryServer& server, const std::string& path)
        : server_(server), path_(path), open_(server.open_files.insert(path)) {}
    ~MemoryFile() override { let_go(); }

    void write(long long offset, const char* data, std::size_t size) override {
        const Call call(server_, "write " + path_ + place(offset, size));
        std::string bytes(data, call.breaks(Break::halfway) ? size / 2 : size);
        const auto begin = static_cast<std::size_t>(offset);
        if (static_cast<long long>(begin + bytes.size()) > server_.room)
            fail(FailureKind::full, call, "no room");
        server_.written += static_cast<long long>(bytes.size());
        server_.spoil_write(call.text(), bytes);
        if (content().size() < begin + bytes.size()) content().resize(begin + bytes.size());
        content().replace(begin, bytes.size(), bytes);
        call.done();
    }

    std::size_t read(long long offset, char* data, std::size_t size) override {
        const Call call(server_, "read " + path_ + place(offset, size));
        const auto begin = std::min(static_cast<std::size_t>(offset), content().size());
        std::string bytes = content().substr(begin, size);
        server_.spoil_read(call.text(), bytes);
        call.done();
        return bytes.copy(data, size);
    }

    void truncate(long long size) override {
        const Call call(server_, "truncate " + path_ + " " + std::to_string(size));
        content().resize(static_cast<std::size_t>(size));
        call.done();
    }

    void close() override {
        const Call call(server_, "close " + path_);
        let_go();
        call.done();
    }

private:
    std::string& content() { return server_.files[path_]; }

    void let_go() {
        if (open_ != server_.open_files.end()) server_.open_files.erase(open_);
        open_ = server_.open_files.end();
    }

    MemoryServer& server_;
    std::string path_;
    std::multiset<std::string>::iterator open_;
};

}  // namespace

void MemoryServer::put(const std::string& path, const std::string& content) {
    files[path] = content;
    for (auto folder = services::folder_of(path); !folder.empty();
         folder = services::folder_of(folder))
        folders.insert(folder);
}

std::optional<services::FileState> MemoryServer::state(const std::string& path) const {
    const auto file = files.find(path);
    if (file == files.end()) return {};
    const auto time = modified_ns.find(path);
    return services::FileState{.size = static_cast<long long>(file->second.size()),
                               .modified_ns = time == modified_ns.end() ? 0 : time->second};
}

std::vector<std::string> MemoryServer::calls_of(const std::string& beginning) const {
    std::vector<std::string> found;
    std::ranges::copy_if(calls, std::back_inserter(found),
                         [&](const std::string& call) { return call.starts_with(beginning); });
    return found;
}

std::chrono::nanoseconds MemoryShare::connect() {
    Call(server_, "connect").done();
    return server_.round_trip;
}

std::map<std::string, services::FileState> MemoryShare::list(const std::string& folder,
                                                             const std::set<std::string>& wanted) {
    const Call call(server_, "list " + folder);
    std::map<std::string, services::FileState> found;
    for (const std::string& name : wanted)
        if (const auto file = server_.state(services::join_path(folder, name))) found[name] = *file;
    call.done();
    return found;
}

std::optional<services::FileState> MemoryShare::look(const std::string& path) {
    const Call call(server_, "look " + path);
    const auto found = server_.state(path);
    call.done();
    return found;
}

std::optional<services::ShareRoom> MemoryShare::room() {
    const Call call(server_, "room");
    call.done();
    return services::ShareRoom{server_.room, server_.room};
}

void MemoryShare::make_folders(const std::string& path) {
    const Call call(server_, "make_folders " + path);
    for (auto folder = path; !folder.empty(); folder = services::folder_of(folder))
        server_.folders.insert(folder);
    call.done();
}

std::unique_ptr<services::ShareFile> MemoryShare::open(const std::string& path, Open mode) {
    const Call call(server_, MODES[static_cast<std::size_t>(mode)] + path);
    require_folder(server_, call, path);
    if (mode == Open::create) require_nothing(server_, call, path);
    if (mode == Open::read && !server_.files.contains(path))
        fail(FailureKind::other, call, "there is no such file");
    server_.files[path];
    call.done();
    return std::make_unique<MemoryFile>(server_, path);
}

void MemoryShare::rename(const std::string& from, const std::string& to) {
    const Call call(server_, "rename " + from + " -> " + to);
    require_folder(server_, call, to);
    if (!server_.files.contains(from)) fail(FailureKind::other, call, "there is no such file");
    if (server_.open_files.contains(from) || server_.open_files.contains(to))
        fail(FailureKind::other, call, "it is open");
    server_.files.erase(to);
    if (call.breaks(Break::halfway)) call.fail();
    server_.files[to] = server_.files.at(from);
    server_.modified_ns[to] = server_.modified_ns[from];
    server_.files.erase(from);
    call.done();
}

void MemoryShare::rename_folder(const std::string& from, const std::string& to) {
    const Call call(server_, "rename_folder " + from + " -> " + to);
    require_folder(server_, call, to);
    if (!server_.folders.contains(from)) fail(FailureKind::other, call, "there is no such folder");
    if (server_.folders.contains(to) || server_.files.contains(to))
        fail(FailureKind::occupied, call, "something has this name already");
    std::map<std::string, std::string> files;
    for (auto& [path, content] : server_.files) {
        const bool moves = path.starts_with(from + "/");
        files[moves ? to + path.substr(from.size()) : path] = std::move(content);
    }
    server_.files = std::move(files);
    server_.folders.erase(from);
    server_.folders.insert(to);
    call.done();
}

void MemoryShare::copy_beginning(const std::string& from, const std::string& to, long long size,
                                 const std::function<void()>& alive) {
    const Call call(server_, "copy_beginning " + from + " -> " + to + " " + std::to_string(size));
    require_nothing(server_, call, to);
    const std::string beginning = server_.files.at(from).substr(0, static_cast<std::size_t>(size));
    const std::size_t half = call.breaks(Break::halfway) ? beginning.size() / 2 : beginning.size();
    server_.files[to] = beginning.substr(0, half);
    alive();
    call.done();
}

void MemoryShare::set_modified(const std::string& path, long long modified_ns) {
    const Call call(server_, "set_modified " + path);
    if (!server_.files.contains(path)) fail(FailureKind::other, call, "there is no such file");
    server_.modified_ns[path] = modified_ns;
    call.done();
}

void MemoryShare::remove(const std::string& path) {
    const Call call(server_, "remove " + path);
    server_.files.erase(path);
    call.done();
}

void MemoryShare::remove_folder(const std::string& path) {
    const Call call(server_, "remove_folder " + path);
    const auto is_below = [&](const std::string& other) { return other.starts_with(path + "/"); };
    const bool empty =
        std::ranges::none_of(server_.folders, is_below) &&
        std::ranges::none_of(server_.files, [&](const auto& file) { return is_below(file.first); });
    if (empty) server_.folders.erase(path);
    call.done();
}

void MemoryShare::wait_for_others() {
    Call(server_, "wait_for_others").done();
}
