// Reads a password from standard input.
#include "tools/recorderctl/password_input.h"

#include <termios.h>
#include <unistd.h>

#include <iostream>

#include "tools/recorderctl/commands.h"

namespace recorderctl {

namespace {

/// Keeps the terminal from showing what is typed.
class SilentTerminal {
public:
    SilentTerminal() {
        if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        is_terminal_ = tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent) == 0;
        if (is_terminal_) std::cerr << "Password: " << std::flush;
    }
    ~SilentTerminal() {
        if (!is_terminal_) return;
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &before_);
        std::cerr << '\n';
    }
    SilentTerminal(const SilentTerminal&) = delete;
    SilentTerminal& operator=(const SilentTerminal&) = delete;

private:
    termios before_{};
    bool is_terminal_ = false;
};

}  // namespace

std::string read_password() {
    const SilentTerminal silent;
    std::string password;
    if (!std::getline(std::cin, password) || password.empty())
        throw Failure("no password on standard input");
    return password;
}

}  // namespace recorderctl
