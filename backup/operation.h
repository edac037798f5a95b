// What all operations share: the error convention, the success reply, the request body.
#pragma once

#include <json-c/json.h>

#include <list>
#include <string>
#include <utility>

#include "backup/task_record.h"
#include "cgi/reply.h"
#include "cgi/result_code.h"
#include "platform/json_ptr.h"

/// Names this system to the configuration store, with the line of the call.
inline constexpr char SOURCE_NAME[] = "recording_backup_function";

/// Ends the steps that result_of() or run_operation() runs. What is called a step may call it, and
/// is called below one of the two only.
/// @param result not 0
[[noreturn]] inline void fail(int result) {
    throw reply_code(result);
}

/// Ends the steps with a result other than 0.
inline void require(int result) {
    if (result != 0) fail(result);
}

/// Runs the steps of a function that gives its callers a code.
/// @return 0, or the result that fail() was called with
template <class Steps>
int result_of(Steps&& steps) {
    try {
        std::forward<Steps>(steps)();
        return 0;
    } catch (long code) {
        return static_cast<int>(code);
    }
}

/// Runs an operation's steps and turns a failure into its error reply.
/// @param reply receives the error reply; untouched when the steps succeed
/// @param message the operation's one message, whatever went wrong
/// @return 0 when the steps succeed; the result that fail() was called with; 0, with an error reply
///         of code 0, after any other exception
template <class Steps>
int run_operation(json_object** reply, const char* message, Steps&& steps) {
    int result = 0;
    try {
        result = result_of(std::forward<Steps>(steps));
    } catch (...) {
        deal_with_error_code(reply, 0, message);
        return 0;
    }
    if (result != 0) deal_with_error_code(reply, reply_code(result), message);
    return result;
}

/// The members that every success reply begins with: "ret_code" 0 and "mesg" "Success.".
JsonPtr success_reply();

/// Parses a request body.
/// @param body may be null
/// @param request receives the JSON value on success
/// @return 0, or CGI_INPUT_FORMAT_ERROR when there is no body or it is not JSON
int parse_request_body(const char* body, JsonPtr& request);

/// Reads all stored tasks afresh.
/// @return 0 or the configuration store's status
int read_task_list(std::list<TDataBackupConfig>& tasks);
