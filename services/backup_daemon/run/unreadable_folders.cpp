// Tells which channels' folders cannot be read, without anybody waiting for those that hang.
#include "services/backup_daemon/run/unreadable_folders.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/recording_folder.h"
#include "services/backup_daemon/lane/errno_failure.h"

namespace services {
namespace {

void tell(const std::vector<standalone::Channel>& channels) {
    for (const standalone::Channel& channel : channels)
        if (const auto problem = standalone::recordings_problem(channel.recordings);
            !problem.empty())
            std::fprintf(stderr, "channel %d \"%s\": %s\n", channel.index,
                         standalone::one_line(channel.name).c_str(),
                         standalone::one_line(problem).c_str());
}

/// The new process's life. The next daemon must be able to have the ports, and nothing may get out
/// of here and run as a second one.
[[noreturn]] void live(pid_t daemon, const std::vector<standalone::Channel>& channels) noexcept {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != daemon) _exit(0);
    for (const int number : {SIGTERM, SIGINT}) signal(number, SIG_IGN);
    close_range(STDERR_FILENO + 1, ~0U, 0);
    tell(channels);
    _exit(0);
}

}  // namespace

UnreadableFolders::UnreadableFolders(const std::vector<standalone::Channel>& channels) {
    const pid_t daemon = getpid();
    process_ = fork();
    if (process_ < 0) fail_with_errno("fork");
    if (process_ == 0) live(daemon, channels);
}

void UnreadableFolders::reap() {
    if (process_ > 0 && waitpid(process_, nullptr, WNOHANG) != 0) process_ = 0;
}

}  // namespace services
