// The daemon's replies to notices and queries as JSON; docs/formats.md, "Daemon messages".
#include "services/backup_daemon/front/daemon_replies.h"

#include <cstdio>

#include "platform/daemon_messages.h"

namespace services {
namespace {

JsonPtr new_success() {
    JsonPtr reply(json_object_new_object());
    json_object_object_add(reply.get(), "retCode", json_object_new_int(0));
    return reply;
}

/// A number with one decimal.
json_object* new_decimal(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f", value);
    return json_object_new_double_s(value, text);
}

}  // namespace

HttpReply done_reply() {
    return json_reply(new_success());
}

HttpReply waiting_reply(const std::vector<std::string>& waiting) {
    const JsonPtr reply = new_success();
    json_object* entries = json_object_new_array();
    json_object_object_add(reply.get(), "watinTask_info", entries);
    int place = 0;
    for (const std::string& task_id : waiting) {
        if (place > LAST_SHOWN_POSITION) break;
        json_object* entry = json_object_new_object();
        json_object_object_add(entry, "taskID", new_json_text(task_id));
        json_object_object_add(entry, "seq", json_object_new_int(place++));
        json_object_array_add(entries, entry);
    }
    return json_reply(reply);
}

HttpReply running_reply(int limit, const std::vector<RunningTask>& running) {
    const JsonPtr reply = new_success();
    json_object_object_add(reply.get(), "max_parallel_task_num", json_object_new_int(limit));
    json_object* entries = json_object_new_array();
    json_object_object_add(reply.get(), "runningTask_info", entries);
    for (const RunningTask& task : running) {
        json_object* entry = json_object_new_object();
        json_object_object_add(entry, "taskID", new_json_text(task.task_id));
        json_object_object_add(entry, "finishRate", new_decimal(task.percent));
        json_object_object_add(entry, "transferRate", new_decimal(task.rate));
        json_object_array_add(entries, entry);
    }
    return json_reply(reply);
}

}  // namespace services
