// The routes: which operation answers which method and path.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct json_object;  // json-c
struct tagINPUT;     // platform/cgi_input.h

/// Path segments of the request, null behind the last one. Fifteen at most, so the last entry is
/// always null.
extern char* uri_token[16];

/// Copies the segments into uri_token.
/// @return 0, or -1 when there are 16 or more segments; then uri_token is unchanged
int vector_token_to_char(std::vector<std::string>* tokens);

/// Gives up root for good (platform/process_rights.h) unless the route, named by uri_token and the
/// method, runs a tool as root. To be called before anything else of the request is read.
/// @param method REQUEST_METHOD as it came
void keep_rights_of_route(std::string_view method);

inline constexpr char STATUS_OK[] = "Status: 200 OK\r\n";

/// Prints `statusLine` (with its line end), the content type of a JSON reply and the empty line.
void http_header_output(const char* statusLine);

/// Prints a reply (null: the JSON text null) and the two line ends that close it. The entries of
/// its long lists are gone afterwards.
void print_reply(json_object* reply);

// One function per method. Each picks the route by uri_token alone, calls its operation and returns
// the operation's result; 0, with *reply left null, when there is no such route.
//
// tokens  the segments; not read
// reply   slot for the object to print, null before the call
// body    the request body, may be null; the caller's
// input   the parsed request

/// Prints the headers (none for an unknown route) and the reply itself.
int get_method_fun(std::vector<std::string>* tokens, json_object** reply, tagINPUT* input);

int put_method_fun(std::vector<std::string>* tokens, json_object** reply, char* body,
                   tagINPUT* input);

/// @param contentLength not used
int post_method_fun(std::vector<std::string>* tokens, json_object** reply, char* body,
                    int contentLength, tagINPUT* input);

int delete_method_fun(std::vector<std::string>* tokens, json_object** reply, char* body,
                      tagINPUT* input);
