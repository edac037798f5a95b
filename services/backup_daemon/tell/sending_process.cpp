// A process that tries to send one alert: nobody waits for its server, and it can be ended.
#include "services/backup_daemon/tell/sending_process.h"

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <vector>

#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/utf8.h"
#include "services/backup_daemon/tell/sender_rights.h"

namespace services {
namespace {

constexpr int ANSWER = 3;
// So is what is written at once, and read as one.
constexpr std::size_t LONGEST_WORDS = PIPE_BUF / 4;

/// What has been killed belongs to the whole process, and may not end at once.
std::vector<pid_t>& killed_senders() {
    static std::vector<pid_t> processes;
    return processes;
}

constexpr char ARRIVED = '+';
constexpr char NOT_ARRIVED = '-';
constexpr char REFUSED_FOR_GOOD = '!';

char mark_of(const AttemptResult& result) {
    if (result.arrived) return ARRIVED;
    return result.refused_for_good ? REFUSED_FOR_GOOD : NOT_ARRIVED;
}

void tell_result(const AttemptResult& result) {
    const std::string words = standalone::valid_utf8(standalone::one_line(result.words));
    const std::string text =
        mark_of(result) + std::string(standalone::cut_utf8(words, LONGEST_WORDS));
    if (write(ANSWER, text.data(), text.size()) < 0) _exit(1);
}

void become_sender(int answer, pid_t daemon) {
    for (const int number : {SIGTERM, SIGINT, SIGPIPE}) signal(number, SIG_IGN);
    if (answer != ANSWER && dup2(answer, ANSWER) < 0) _exit(1);
    if (fcntl(ANSWER, F_SETFD, FD_CLOEXEC) < 0) _exit(1);
    close_range(ANSWER + 1, ~0U, 0);
    keep_sender_rights();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != daemon) _exit(0);
}

/// The new process's life. Nothing may get out of here and run as a second daemon.
[[noreturn]] void send_and_end(int answer, pid_t daemon, const Attempt& attempt) noexcept {
    try {
        become_sender(answer, daemon);
        attempt(tell_result);
    } catch (const std::exception& error) {
        tell_result({.arrived = false, .words = error.what()});
    }
    _exit(0);
}

}  // namespace

SendingProcess::SendingProcess(const Attempt& attempt) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe2");
    answer_ = standalone::FileHandle(ends[0]);
    const standalone::FileHandle theirs(ends[1]);
    const pid_t daemon = getpid();
    process_ = fork();
    if (process_ < 0) throw std::system_error(errno, std::generic_category(), "fork");
    if (process_ == 0) send_and_end(theirs.get(), daemon, attempt);
}

SendingProcess::~SendingProcess() {
    kill(process_, SIGKILL);
    killed_senders().push_back(process_);
    reap();
}

void SendingProcess::reap() {
    std::erase_if(killed_senders(),
                  [](pid_t process) { return waitpid(process, nullptr, WNOHANG) != 0; });
}

std::optional<AttemptResult> SendingProcess::result() {
    std::array<char, PIPE_BUF> buffer;
    const ssize_t got = read(answer_.get(), buffer.data(), buffer.size());
    if (got > 0)
        return AttemptResult{
            .arrived = buffer[0] == ARRIVED,
            .words = std::string(buffer.data() + 1, static_cast<std::size_t>(got) - 1),
            .refused_for_good = buffer[0] == REFUSED_FOR_GOOD};
    if (got == 0) return AttemptResult{.arrived = false, .words = "the sending process ended"};
    if (std::chrono::steady_clock::now() - begun_ < LONGEST) return {};
    return AttemptResult{.arrived = false,
                         .words = "was not done within " + std::to_string(LONGEST.count()) + " s"};
}

}  // namespace services
