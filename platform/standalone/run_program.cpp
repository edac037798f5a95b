// Runs a program without a shell, with a time limit, its output pumped into files of limited size.
#include "platform/standalone/run_program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/standalone/store/file_handle.h"
#include "platform/utilities.h"

namespace standalone {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t LONGEST_OUTPUT = 64 * 1024 * 1024;
constexpr std::size_t PIECE = 64 * 1024;

/// An output of the program: the pipe it writes to and the file that keeps what fits.
struct Output {
    FileHandle file;
    FileHandle read_end;
    FileHandle write_end;
    std::size_t kept = 0;
    bool lost = false;  ///< something that fits could not be written
};

/// The program's outputs; the second is not open when both share the first.
struct Outputs {
    Output standard;
    Output error;
    bool shared = false;

    /// Where standard error goes.
    Output& said() { return shared ? standard : error; }
};

/// Others may know the path, and may have put anything there.
FileHandle make_output(const char* path) {
    unlink(path);
    return FileHandle(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

bool prepare(const char* path, Output& output) {
    if (path == nullptr && !output.file) {
        output.write_end = FileHandle(open("/dev/null", O_WRONLY | O_CLOEXEC));
        return static_cast<bool>(output.write_end);
    }
    std::array<int, 2> ends{};
    if (!output.file) output.file = make_output(path);
    if (!output.file || pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    output.read_end = FileHandle(ends[0]);
    output.write_end = FileHandle(ends[1]);
    return fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0;
}

bool prepare(const Program& program, Outputs& outputs) {
    if (program.output >= 0)
        outputs.standard.file = FileHandle(fcntl(program.output, F_DUPFD_CLOEXEC, 0));
    outputs.shared =
        program.output >= 0 || (program.stdout_path != nullptr && program.stderr_path != nullptr &&
                                std::strcmp(program.stdout_path, program.stderr_path) == 0);
    return prepare(program.stdout_path, outputs.standard) &&
           (outputs.shared || prepare(program.stderr_path, outputs.error));
}

/// An empty file would say that the program had run and had nothing to say, and so would one that a
/// full disk cut short.
void remove_made(const Program& program, const Outputs& outputs) {
    if (program.output >= 0) return;
    if (outputs.standard.file) unlink(program.stdout_path);
    if (outputs.error.file) unlink(program.stderr_path);
}

/// Says what became of a program, as a shell would. Safe after fork(2) in a threaded process.
/// @return whether that could be written
bool complain(int file, const char* program, const char* what) {
    const auto piece = [](const char* text) {
        return iovec{const_cast<char*>(text), std::strlen(text)};
    };
    const iovec line[] = {piece(program), piece(": "), piece(what), piece("\n")};
    return writev(file, line, std::size(line)) > 0;
}

void complain(Output& output, const char* program, const char* what) {
    if (output.file && !complain(output.file.get(), program, what)) output.lost = true;
}

/// Takes what has arrived. What does not fit is thrown away, so that the program is never held up.
/// @return false when the program has closed its end
bool drain(Output& output) {
    std::array<char, PIECE> buffer;
    for (;;) {
        const ssize_t got = read(output.read_end.get(), buffer.data(), buffer.size());
        if (got == 0) return false;
        if (got < 0) return errno == EAGAIN || errno == EINTR;
        const std::size_t room = LONGEST_OUTPUT - output.kept;
        const std::size_t keep = std::min(static_cast<std::size_t>(got), room);
        const ssize_t put = write(output.file.get(), buffer.data(), keep);
        if (put > 0) output.kept += static_cast<std::size_t>(put);
        if (put != static_cast<ssize_t>(keep)) output.lost = true;
    }
}

void reset_signals() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    for (int number = 1; number < NSIG; ++number) signal(number, SIG_DFL);
}

/// Nobody would be there to see that the time is up.
bool end_with(pid_t parent) {
    return prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && getppid() == parent;
}

bool take_effective_ids() {
    const gid_t group = getegid();
    const uid_t user = geteuid();
    return setresgid(group, group, group) == 0 && setresuid(user, user, user) == 0;
}

/// Runs in the child: nothing but calls that are safe after fork(2) in a threaded process.
[[noreturn]] void become(pid_t parent, char* const* arguments, int input, int output, int error) {
    static constexpr char PATH[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
    static constexpr char LOCALE[] = "LC_ALL=C.UTF-8";
    const char* environment[] = {PATH, LOCALE, nullptr};
    setpgid(0, 0);
    reset_signals();
    if (dup2(input, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
        dup2(error, STDERR_FILENO) >= 0 && take_effective_ids() && end_with(parent)) {
        closefrom(STDERR_FILENO + 1);
        execve(arguments[0], arguments, const_cast<char* const*>(environment));
    }
    complain(STDERR_FILENO, arguments[0], strerrordesc_np(errno));
    _exit(ZORV_EXEC_NOT_STARTED);
}

int exit_result(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

/// Pumps the outputs until the process ends.
/// @return false when the time is up
bool pump_until_end(int process, Outputs& outputs, Clock::time_point end) {
    std::array<pollfd, 3> waited{{{process, POLLIN, 0},
                                  {outputs.standard.read_end.get(), POLLIN, 0},
                                  {outputs.error.read_end.get(), POLLIN, 0}}};
    const std::array<Output*, 2> sources{&outputs.standard, &outputs.error};
    while (waited[0].revents == 0) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        if (left <= 0) return false;
        poll(waited.data(), waited.size(), static_cast<int>(left));
        for (std::size_t at = 0; at < sources.size(); ++at)
            if (waited[at + 1].revents != 0 && !drain(*sources[at])) waited[at + 1].fd = -1;
    }
    return true;
}

/// What the program wrote just before it ended.
void drain_rest(Outputs& outputs) {
    for (Output* output : {&outputs.standard, &outputs.error})
        if (output->read_end) drain(*output);
}

int wait_for(pid_t child, Outputs& outputs, const Program& program) {
    const FileHandle process(static_cast<int>(syscall(SYS_pidfd_open, child, 0)));
    const bool ended =
        process && pump_until_end(process.get(), outputs, Clock::now() + program.limit);
    if (!ended) kill(-child, SIGKILL);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
    drain_rest(outputs);
    if (ended) return exit_result(status);
    complain(outputs.said(), program.arguments[0], "timed out");
    return ZORV_EXEC_TIMED_OUT;
}

/// @return as zorv_exec; whether the outputs could be kept is not in it
int start_and_wait(const Program& program, Outputs& outputs) {
    const FileHandle input(program.input < 0 ? open("/dev/null", O_RDONLY | O_CLOEXEC)
                                             : fcntl(program.input, F_DUPFD_CLOEXEC, 0));
    std::vector<char*> arguments;
    for (const char* argument : program.arguments) arguments.push_back(const_cast<char*>(argument));
    arguments.push_back(nullptr);
    signal(SIGCHLD, SIG_DFL);  // where it is ignored, nobody learns how a program has ended
    const pid_t parent = getpid();
    const pid_t child = input ? fork() : -1;
    if (child == 0)
        become(parent, arguments.data(), input.get(), outputs.standard.write_end.get(),
               outputs.said().write_end.get());
    if (child < 0) {
        complain(outputs.said(), arguments[0], strerrordesc_np(errno));
        return ZORV_EXEC_NOT_STARTED;
    }
    setpgid(child, child);  // whoever comes first, the child or its parent
    outputs.standard.write_end.close();
    outputs.error.write_end.close();
    return wait_for(child, outputs, program);
}

}  // namespace

int run_program(const Program& program) {
    Outputs outputs;
    const bool prepared = prepare(program, outputs);
    const int result = prepared ? start_and_wait(program, outputs) : ZORV_EXEC_NO_OUTPUT;
    if (prepared && !outputs.standard.lost && !outputs.error.lost) return result;
    remove_made(program, outputs);
    return ZORV_EXEC_NO_OUTPUT;
}

}  // namespace standalone
