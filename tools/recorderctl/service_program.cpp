// Runs a service's program for one answer, with the rights that the service has.
#include "tools/recorderctl/service_program.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "platform/standalone/store/file_handle.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/reading_right.h"

namespace recorderctl {

namespace {

using standalone::FileHandle;

std::string path_of(const std::string& program) {
    const auto folder = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    for (const auto& path : {folder / program, folder / SERVICES_FOLDER / program})
        if (std::filesystem::exists(path)) return path;
    throw Failure("there is no program " + program + " beside this one");
}

/// In the new process. Both outputs go into the pipe: a program that fails has printed nothing but
/// why.
[[noreturn]] void become(const std::string& path, std::vector<std::string> arguments, int output) {
    std::vector<char*> texts;
    texts.reserve(arguments.size() + 2);
    arguments.insert(arguments.begin(), path);
    for (std::string& argument : arguments) texts.push_back(argument.data());
    texts.push_back(nullptr);
    hand_down_reading_right();
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    execv(path.c_str(), texts.data());
    _exit(127);
}

std::string read_all(int descriptor) {
    std::string all;
    std::array<char, 4096> buffer;
    for (;;) {
        const ssize_t got = read(descriptor, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return all;
        all.append(buffer.data(), static_cast<std::size_t>(got));
    }
}

/// "program: why\n" without the program.
std::string words_of(const std::string& program, std::string said) {
    while (said.ends_with('\n')) said.pop_back();
    const std::string name = program + ": ";
    return said.starts_with(name) ? said.substr(name.size()) : said;
}

}  // namespace

std::string output_of_service(const std::string& program,
                              const std::vector<std::string>& arguments) {
    const std::string path = path_of(program);
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) throw Failure(std::strerror(errno));
    const FileHandle reading(ends[0]);
    FileHandle writing(ends[1]);
    const pid_t process = fork();
    if (process < 0) throw Failure(std::strerror(errno));
    if (process == 0) become(path, arguments, writing.get());
    writing.close();
    std::string said = read_all(reading.get());
    int status = 0;
    waitpid(process, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw Failure(words_of(program, said));
    return said;
}

}  // namespace recorderctl
