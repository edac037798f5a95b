// The recorder's CGI library: the parsed request, its parameters, the session check and the path
// splitter.
#pragma once

#include <string>
#include <vector>

/// One parsed CGI request. Opaque: made by CGI_Get_Input_URL, released by CGI_Free_Input.
struct tagINPUT;

/// One parameter of the query string.
struct tagPARAMETER {
    char* name;   ///< percent-decoded, NUL-terminated
    char* value;  ///< percent-decoded, NUL-terminated, "" where the request gave no "="; a value
                  ///< with a NUL inside ends there
};

/// The level of an administrator.
inline constexpr unsigned ADMINISTRATOR_LEVEL = 11;

/// Who is asking. Filled by cgi_check_user_authentication_v3.
struct t_ostra_auth_info {
    char user[256];        ///< primary user name, NUL-terminated
    char user_name[1024];  ///< second name area: set only for accounts whose name does not fit
                           ///< `user`; the caller zeroes it before the call and prefers it when it
                           ///< is not empty
    unsigned level;        ///< the account's level
};

/// Parses the request described by the environment: QUERY_STRING (RFC 3986, "+" for a blank as in
/// HTML forms) and HTTP_COOKIE (RFC 6265). Standard input is not touched: the body is the caller's.
/// @return the request, owned by the caller until CGI_Free_Input; null when QUERY_STRING holds more
///         than 64 KiB or more than 256 parameters. A request without a query string is valid.
tagINPUT* CGI_Get_Input_URL();

/// Releases `input` and every parameter it handed out. Null is allowed and does nothing.
void CGI_Free_Input(tagINPUT* input);

/// Looks up a query parameter by its exact, whole name. Further arguments are accepted, as the recorder's
/// library takes hints there, and never read.
/// @return the first parameter of that name, owned by `input`; null when there is none or `input`
///         is null.
tagPARAMETER* _CGI_Find_Parameter(tagINPUT* input, const char* name, ...);

/// Checks the request's session: parameter "sid" of the query string, all of it, otherwise cookie
/// "sid".
/// @param level the least level the session's user must have
/// @param info filled on success; on failure unspecified
/// @return 0 when the session exists, has not expired and its user's level is at least `level`;
///         non-zero otherwise, also when the session store cannot be read or `input` is null.
int cgi_check_user_authentication_v3(tagINPUT* input, t_ostra_auth_info* info, unsigned level);

/// Splits PATH_INFO at each "/" and appends the segments to `segments`. Empty segments are dropped,
/// so "/task/", "task" and "//task" all give one segment. Nothing is percent-decoded: RFC 3875
/// section 4.1.5 has the server hand over PATH_INFO decoded.
/// @return the number of segments appended
int cgi_uri_token_paser(char* path_info, std::vector<std::string>* segments);
