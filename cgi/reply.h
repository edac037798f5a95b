// The reply object's error shape.
#pragma once

struct json_object;  // json-c

/// Puts an error reply into *reply: {"ret_code": double(code), "mesg": mesg}, and writes the debug
/// line "error code = <code>". An object that *reply held is not released (the process ends after
/// one reply). Cannot fail.
/// @param reply receives the new object, owned by whoever prints it
/// @param code see reply_code(); a plain result code stands as a negative number
/// @param mesg NUL-terminated text
void deal_with_error_code(json_object** reply, long code, const char* mesg);
