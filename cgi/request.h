// What the web server hands over besides the path: the session, the client and the body (RFC 3875).
#pragma once

#include <cstddef>
#include <vector>

struct tagINPUT;  // platform/cgi_input.h

/// Longest body taken. A task with every text at its limit stays below 8 KiB and a list of all
/// channels below 1 KiB, so this leaves ample room for white space and escapes, and 1 MiB per
/// request is memory that many concurrent requests can have.
inline constexpr long MAX_BODY_BYTES = 1024 * 1024;

/// Checks the caller's session (administrators only) and sets __ip and __user.
/// @return whether the session is valid
bool authenticate(tagINPUT* input);

/// The body on standard input, as long as `content_length` announces, followed by a NUL. A body
/// that is cut short keeps what arrived.
/// @param content_length the environment's CONTENT_LENGTH, null when unset
/// @return empty when no body was announced, or one of less than 0 or more than MAX_BODY_BYTES
///         bytes; a body that is too long is discarded
std::vector<char> read_body(const char* content_length);

/// Reads a body that nobody wants. A program that ends with input unread resets its connection to
/// the web server, which then cuts the reply off.
/// @param content_length as for read_body()
void discard_body(const char* content_length);
