// Hands an alert to the machine's own sendmail.
#include "services/backup_daemon/tell/sendmail.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include "platform/standalone/store/file_handle.h"

namespace services {
namespace {

using standalone::FileHandle;

constexpr int NOT_STARTED = 127;
constexpr int NO_SUCH_USER = 67;  // EX_NOUSER of <sysexits.h>
constexpr std::size_t MOST_SAID = 200;
constexpr rlim_t LONGEST_OUTPUT = 1024 * 1024;  // what it says is kept in memory

void require_call(bool done, const char* what) {
    if (!done) throw std::system_error(errno, std::generic_category(), what);
}

FileHandle memory_file() {
    FileHandle file(memfd_create("mail", MFD_CLOEXEC));
    require_call(file.get() >= 0, "memfd_create");
    return file;
}

/// A file, since a program that does not read would keep whoever writes into a pipe.
FileHandle file_of(const std::string& text) {
    FileHandle file = memory_file();
    const ssize_t written = write(file.get(), text.data(), text.size());
    require_call(written == static_cast<ssize_t>(text.size()), "write");
    require_call(lseek(file.get(), 0, SEEK_SET) == 0, "lseek");
    return file;
}

std::vector<std::string> arguments_of(const MailSettings& settings) {
    std::vector<std::string> arguments = {settings.sendmail, "-i", "-f", settings.from, "--"};
    arguments.insert(arguments.end(), settings.to.begin(), settings.to.end());
    return arguments;
}

/// In the new process.
[[noreturn]] void become_sendmail(std::vector<std::string> arguments, int input, int output) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (const int number : {SIGTERM, SIGINT, SIGPIPE}) signal(number, SIG_DFL);
    const rlimit output_limit{LONGEST_OUTPUT, LONGEST_OUTPUT};
    if (setrlimit(RLIMIT_FSIZE, &output_limit) != 0) _exit(NOT_STARTED);
    if (dup2(input, STDIN_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0 ||
        dup2(output, STDERR_FILENO) < 0)
        _exit(NOT_STARTED);
    std::vector<char*> texts;
    texts.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    char path[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    char locale[] = "LC_ALL=C.UTF-8";
    std::array<char*, 3> environment = {path, locale, nullptr};
    execve(texts[0], texts.data(), environment.data());
    dprintf(STDERR_FILENO, "%s", std::strerror(errno));
    _exit(NOT_STARTED);
}

std::string beginning_of(const FileHandle& file) {
    std::array<char, MOST_SAID> buffer;
    const ssize_t got = pread(file.get(), buffer.data(), buffer.size(), 0);
    const std::string text(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    return text.substr(0, text.find('\n'));
}

std::string why_not(const std::string& program, int status, const std::string& said) {
    std::string words = program;
    if (WIFSIGNALED(status)) words += " was ended by signal " + std::to_string(WTERMSIG(status));
    if (WIFEXITED(status)) words += " ended with status " + std::to_string(WEXITSTATUS(status));
    return said.empty() ? words : words + ": " + said;
}

}  // namespace

void send_by_sendmail(const MailSettings& settings, std::string mail, const AttemptReport& report) {
    // Lines as local programs have them.
    std::erase(mail, '\r');
    const FileHandle input = file_of(mail);
    const FileHandle output = memory_file();
    const pid_t process = fork();
    require_call(process >= 0, "fork");
    if (process == 0) become_sendmail(arguments_of(settings), input.get(), output.get());
    int status = 0;
    while (waitpid(process, &status, 0) < 0) require_call(errno == EINTR, "waitpid");
    if (WIFEXITED(status) && WEXITSTATUS(status) == 0)
        report({.arrived = true, .words = ""});
    else
        report({.arrived = false,
                .words = why_not(settings.sendmail, status, beginning_of(output)),
                .refused_for_good = WIFEXITED(status) && WEXITSTATUS(status) == NO_SUCH_USER});
}

}  // namespace services
