// Reads a password from standard input.
#include "tools/recorderctl/password_input.h"

#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "tools/recorderctl/commands.h"

namespace recorderctl {

namespace {

constexpr int FEWEST_CHARACTERS = 10;

bool begins_character(unsigned char byte) {
    return (byte & 0xC0) != 0x80;
}

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

std::string read_account_password() {
    std::string password = read_password();
    if (std::ranges::count_if(password, begins_character) < FEWEST_CHARACTERS)
        throw Failure("a password has at least " + std::to_string(FEWEST_CHARACTERS) +
                      " characters");
    return password;
}

}  // namespace recorderctl
