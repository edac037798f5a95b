// The log service's reply: a JSON object, or refused; what the page gets is JSON when the reply is.
#include "backup/recording_backup_function.h"
#include "backup/task_log.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_grammar.h"
#include "tests/fuzz/quiet_recorder.h"

namespace {

using fuzz::check;

bool has(json_object* object, const char* key) {
    return json_object_object_get_ex(object, key, nullptr) != 0;
}

void check_success(const std::string& reply) {
    const JsonPtr object(json_tokener_parse(reply.c_str()));
    check(json_object_is_type(object.get(), json_type_object), "the reply is an object");
    check(!has(object.get(), "code") && !has(object.get(), "responseItems") &&
              !has(object.get(), "totalItems"),
          "the service's own members are taken out");
    check(json_object_get_int(json_object_object_get(object.get(), "ret_code")) == 0 &&
              std::string("Success.") ==
                  json_object_get_string(json_object_object_get(object.get(), "mesg")),
          "a success says so");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::text(data, size);
    fuzz::recorder.log_reply = text;
    json_object* slot = nullptr;
    const int result = get_backup_task_log(&slot);
    const std::string reply = fuzz::printed(slot);
    check(result == 0 || result == CGI_PARSER_JSON_FAIL, "the reply is read or refused");
    check(fuzz::is_json(reply) || (result == 0 && !fuzz::is_json(text)), "of JSON comes JSON");
    if (result == 0) check_success(reply);
    return 0;
}
