// Reads notices strictly: whatever is not exactly a notice is refused, nothing is guessed.
#include "services/backup_daemon/front/notice.h"

#include <json-c/json.h>

#include "platform/daemon_messages.h"
#include "platform/standalone/store/strict_json.h"

namespace services {
namespace {

/// A member of the given kind; null when it is absent.
json_object* member(json_object* object, const char* key, json_type type) {
    json_object* value = nullptr;
    if (!json_object_object_get_ex(object, key, &value)) return nullptr;
    if (!json_object_is_type(value, type))
        throw BadNotice(std::string("\"") + key + "\" is not of type " + json_type_to_name(type) +
                        ".");
    return value;
}

json_object* required(json_object* object, const char* key, json_type type) {
    json_object* value = member(object, key, type);
    if (!value) throw BadNotice(std::string("\"") + key + "\" is missing.");
    return value;
}

bool flag(json_object* task_info, const char* key) {
    return json_object_get_boolean(member(task_info, key, json_type_boolean));
}

void check_reason(json_object* notice) {
    json_object* reason = required(notice, "notice_reason", json_type_object);
    if (json_object_get_int64(required(reason, "type", json_type_int)) != NOTICE_TYPE ||
        json_object_get_int64(required(reason, "action", json_type_int)) != NOTICE_ACTION)
        throw BadNotice("\"notice_reason\" is not of type 1030, action 1.");
}

Notice read_task_info(json_object* info) {
    const bool start = json_object_get_boolean(required(info, "start_task", json_type_boolean));
    Notice notice;
    notice.kind = start ? Notice::Kind::start : Notice::Kind::stop;
    notice.stop_running = flag(info, "stop_running_task");
    notice.parallel = flag(info, "is_parallel_running");
    if (json_object* id = member(info, "taskID", json_type_int))
        notice.task_id = std::to_string(json_object_get_int64(id));
    else if (start)
        throw BadNotice("A start names no \"taskID\".");
    return notice;
}

}  // namespace

Notice parse_notice(const std::string& body) {
    const JsonPtr notice = standalone::parse_strict_object(body);
    if (!notice) throw BadNotice("The body is no JSON object.");
    check_reason(notice.get());
    json_object* info = member(notice.get(), "task_info", json_type_object);
    return info ? read_task_info(info) : Notice();
}

}  // namespace services
