// Escapes a password for a shell's double quotes.
#include "cgi/password_escape.h"

#include "cgi/result_code.h"

int check_passwoed_invalid_word(std::string password, std::string& escaped) {
    if (password.empty()) return CGI_PASSWORD_EMPTY;
    std::string text;
    for (const char c : password) {
        if (std::string_view("!\"'\\`").find(c) != std::string_view::npos) text += '\\';
        text += c;
    }
    escaped = text;
    return 0;
}
