// Folders and files that come to be as a whole or not at all, and stay.
#include "tools/recorderctl/folders.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/recorder_user.h"

namespace recorderctl {

UnreadyFolder::UnreadyFolder(const std::string& path) : path_(path) {
    make_folder(path);
}

UnreadyFolder::~UnreadyFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

void UnreadyFolder::become(const std::string& name) {
    sync_to_disk(path_);
    std::filesystem::rename(path_, name);
    path_.clear();
    sync_to_disk(std::filesystem::path(name).parent_path());
}

void make_folder(const std::string& path) {
    if (mkdir(path.c_str(), 0700) == 0) return;
    throw Failure("cannot make " + path + " as user " + user_name(geteuid()) + ": " +
                  std::strerror(errno));
}

standalone::FileHandle hold_folder(const std::string& path) {
    standalone::FileHandle folder(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder) throw Failure("cannot read " + path + ": " + std::strerror(errno));
    if (flock(folder.get(), LOCK_EX | LOCK_NB) != 0)
        throw Failure("another recorderctl is at work in " + path);
    return folder;
}

void sync_to_disk(const std::string& path) {
    const standalone::FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || fsync(file.get()) != 0)
        throw Failure("cannot write " + path + " to disk: " + std::strerror(errno));
}

std::string moment_for_names() {
    const std::time_t now = std::time(nullptr);
    std::tm utc{};
    gmtime_r(&now, &utc);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H-%M-%SZ", &utc);
    return text.data();
}

bool is_moment(std::string_view name) {
    constexpr std::string_view FORM = "0000-00-00T00-00-00Z";
    return std::ranges::equal(name, FORM, [](char letter, char form) {
        const bool is_digit = '0' <= letter && letter <= '9';
        return form == '0' ? is_digit : letter == form;
    });
}

}  // namespace recorderctl
