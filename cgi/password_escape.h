// Escaping of passwords for a shell's double quotes.
#pragma once

#include <string>

/// Copies `password` into `escaped` with a backslash before each of ! " ' \ and the backquote.
/// @return 0, or CGI_PASSWORD_EMPTY for an empty password, and then `escaped` is unchanged
int check_passwoed_invalid_word(std::string password, std::string& escaped);
