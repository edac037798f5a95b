// Builds the error reply.
#include "cgi/reply.h"

#include <json-c/json.h>

#include "platform/recorder_log.h"

void deal_with_error_code(json_object** reply, long code, const char* mesg) {
    DEBUG_LINE("error code = %lld\n", static_cast<long long>(code));
    json_object* error = json_object_new_object();
    json_object_object_add(error, "ret_code", json_object_new_double(static_cast<double>(code)));
    json_object_object_add(error, "mesg", json_object_new_string(mesg));
    *reply = error;
}
