// A share in memory, with failures on demand, for tests of the copying.
#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/share.h"

/// The share's content outlives the connections to it, as on a server.
struct MemoryServer {
    std::map<std::string, std::string> files;
    std::set<std::string> folders;
    long long written = 0;  ///< bytes, in all
    long long room = 1LL << 40;
    /// Called before every write; may throw.
    std::function<void(long long offset)> before_write = [](long long) {};
    std::function<void(std::string& content)> spoil_read = [](std::string&) {};
};

class MemoryShare : public services::Share {
public:
    explicit MemoryShare(MemoryServer& server) : server_(server) {}

    void connect() override {}

    std::map<std::string, long long> list(const std::string& folder) override {
        std::map<std::string, long long> found;
        for (const auto& [path, content] : server_.files)
            if (path.starts_with(folder + "/"))
                found[path.substr(folder.size() + 1)] = static_cast<long long>(content.size());
        return found;
    }

    std::optional<long long> size(const std::string& path) override {
        const auto found = server_.files.find(path);
        if (found == server_.files.end()) return {};
        return static_cast<long long>(found->second.size());
    }

    void make_folders(const std::string& path) override { server_.folders.insert(path); }

    std::unique_ptr<services::ShareFile> open(const std::string& path, Open mode) override {
        if (mode == Open::read && !server_.files.contains(path))
            throw services::CopyFailure(services::FailureKind::other, path + " is not there");
        return std::make_unique<File>(server_, path);
    }

    void rename(const std::string& from, const std::string& to) override {
        server_.files[to] = server_.files.at(from);
        server_.files.erase(from);
    }

    void remove(const std::string& path) override { server_.files.erase(path); }
    void remove_folder(const std::string& path) override { server_.folders.erase(path); }

private:
    class File : public services::ShareFile {
    public:
        File(MemoryServer& server, const std::string& path)
            : server_(server), content_(server.files[path]) {}

        void write(long long offset, const char* data, std::size_t size) override {
            server_.before_write(offset);
            const auto begin = static_cast<std::size_t>(offset);
            if (static_cast<long long>(begin + size) > server_.room)
                throw services::CopyFailure(services::FailureKind::full, "no room");
            if (content_.size() < begin + size) content_.resize(begin + size);
            content_.replace(begin, size, data, size);
            server_.written += static_cast<long long>(size);
        }

        std::size_t read(long long offset, char* data, std::size_t size) override {
            std::string content = content_;
            server_.spoil_read(content);
            if (static_cast<std::size_t>(offset) >= content.size()) return 0;
            return content.copy(data, size, static_cast<std::size_t>(offset));
        }

        void truncate(long long size) override { content_.resize(static_cast<std::size_t>(size)); }
        void close() override {}

    private:
        MemoryServer& server_;
        std::string& content_;
    };

    MemoryServer& server_;
};
