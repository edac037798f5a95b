// Turns the daemon's HTTP requests into queue operations and their results into replies.
#include "services/backup_daemon/front/daemon_routes.h"

#include <cstdio>

#include "platform/daemon_messages.h"
#include "platform/service_addresses.h"
#include "platform/standalone/store/strict_json.h"
#include "services/backup_daemon/front/notice.h"
#include "services/backup_daemon/run/run_settings.h"

namespace services {
namespace {

standalone::JsonPtr new_success() {
    standalone::JsonPtr reply(json_object_new_object());
    json_object_object_add(reply.get(), "retCode", json_object_new_int(0));
    return reply;
}

/// A number with one decimal.
json_object* new_decimal(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.1f", value);
    return json_object_new_double_s(value, text);
}

/// A query parameter that has to be there.
const std::string& parameter(const HttpRequest& request, const std::string& name) {
    const auto found = request.parameters.find(name);
    if (found == request.parameters.end() || found->second.empty())
        throw HttpError(400, "Parameter \"" + name + "\" is missing.");
    return found->second;
}

Notice read_notice(const HttpRequest& request) {
    try {
        return parse_notice(request.body);
    } catch (const BadNotice& error) {
        throw HttpError(400, error.what());
    }
}

void obey(RunQueue& queue, const Notice& notice) {
    switch (notice.kind) {
        case Notice::Kind::reload:
            queue.reload();
            break;
        case Notice::Kind::stop:
            queue.stop(notice.task_id);
            break;
        case Notice::Kind::start:
            if (!queue.start(notice))
                throw HttpError(404, "There is no task " + notice.task_id + ".");
            break;
    }
    queue.dispatch();
}

HttpReply waiting_reply(RunQueue& queue) {
    const standalone::JsonPtr reply = new_success();
    json_object* entries = json_object_new_array();
    json_object_object_add(reply.get(), "watinTask_info", entries);
    int place = 0;
    for (const std::string& task_id : queue.waiting()) {
        if (place > LAST_SHOWN_POSITION) break;
        json_object* entry = json_object_new_object();
        json_object_object_add(entry, "taskID", new_json_text(task_id));
        json_object_object_add(entry, "seq", json_object_new_int(place++));
        json_object_array_add(entries, entry);
    }
    return json_reply(reply);
}

HttpReply running_reply(BackupRunner& runner) {
    const standalone::JsonPtr reply = new_success();
    json_object_object_add(reply.get(), "max_parallel_task_num",
                           json_object_new_int(parallel_limit()));
    json_object* entries = json_object_new_array();
    json_object_object_add(reply.get(), "runningTask_info", entries);
    for (const RunningTask& task : runner.running()) {
        json_object* entry = json_object_new_object();
        json_object_object_add(entry, "taskID", new_json_text(task.task_id));
        json_object_object_add(entry, "finishRate", new_decimal(task.percent));
        json_object_object_add(entry, "transferRate", new_decimal(task.rate));
        json_object_array_add(entries, entry);
    }
    return json_reply(reply);
}

HttpReply query(RunQueue& queue, BackupRunner& runner, const HttpRequest& request) {
    const std::string& act = parameter(request, "act");
    if (act == WAITING_QUERY) return waiting_reply(queue);
    if (act == RUNNING_QUERY) return running_reply(runner);
    throw HttpError(400, "There is no query \"" + act + "\".");
}

}  // namespace

void add_daemon_routes(HttpService& service, RunQueue& queue, BackupRunner& runner) {
    service.route(NOTICE_PORT, Method::put, NOTICE_PATH, [&queue](const HttpRequest& request) {
        obey(queue, read_notice(request));
        return json_reply(new_success());
    });
    service.route(NOTICE_PORT, Method::get, NOTICE_PATH,
                  [&](const HttpRequest& request) { return query(queue, runner, request); });
    service.route(TASK_PORT, Method::remove, TASK_PATH, [&queue](const HttpRequest& request) {
        queue.remove(parameter(request, "taskID"));
        return json_reply(new_success());
    });
}

}  // namespace services
