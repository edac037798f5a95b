// Reads a password from a file that nobody else can read.
#include "services/backup_daemon/tell/password_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "platform/standalone/store/file_handle.h"

namespace services {
namespace {

constexpr std::size_t LONGEST_PASSWORD = 4096;

[[noreturn]] void refuse(const std::string& path, const std::string& why) {
    throw std::runtime_error("the password file " + path + ' ' + why);
}

bool is_private(const struct stat& file) {
    if (file.st_uid == geteuid()) return (file.st_mode & (S_IRWXG | S_IRWXO)) == 0;
    return file.st_uid == 0 && (file.st_mode & (S_IWGRP | S_IXGRP | S_IRWXO)) == 0;
}

}  // namespace

std::string password_of_file(const std::string& path) {
    // A pipe without a writer would not be opened ever.
    const standalone::FileHandle file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0) refuse(path, std::string("cannot be read: ") + std::strerror(errno));
    struct stat known {};
    if (fstat(file.get(), &known) != 0 || !S_ISREG(known.st_mode)) refuse(path, "is no file");
    if (!is_private(known)) refuse(path, "can be read or written by others: chmod 600");
    std::array<char, LONGEST_PASSWORD + 1> buffer;
    const ssize_t got = read(file.get(), buffer.data(), buffer.size());
    if (got < 0) refuse(path, std::string("cannot be read: ") + std::strerror(errno));
    const std::string text(buffer.data(), static_cast<std::size_t>(got));
    std::string line = text.substr(0, text.find('\n'));
    if (line.empty() || line.size() > LONGEST_PASSWORD)
        refuse(path, "has no password in its first line");
    return line;
}

}  // namespace services
