// Turns the daemon's HTTP requests into queue operations and their results into replies.
#include "services/backup_daemon/front/daemon_routes.h"

#include "platform/daemon_messages.h"
#include "platform/service_addresses.h"
#include "services/backup_daemon/front/daemon_replies.h"
#include "services/backup_daemon/front/notice.h"
#include "services/backup_daemon/run/run_settings.h"

namespace services {
namespace {

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
            if (notice.task_id.empty())
                queue.stop_running();
            else
                queue.stop(notice.task_id);
            break;
        case Notice::Kind::start:
            if (!queue.start({notice.task_id, notice.stop_running, notice.parallel}))
                throw HttpError(404, "There is no task " + notice.task_id + ".");
            break;
    }
}

HttpReply query(RunQueue& queue, BackupRunner& runner, const HttpRequest& request) {
    const std::string& act = parameter(request, "act");
    if (act == WAITING_QUERY) return waiting_reply(queue.waiting());
    if (act == RUNNING_QUERY) return running_reply(parallel_limit(), runner.running());
    throw HttpError(400, "There is no query \"" + act + "\".");
}

}  // namespace

void add_daemon_routes(HttpService& service, RunQueue& queue, BackupRunner& runner) {
    service.route(NOTICE_PORT, Method::put, NOTICE_PATH, [&queue](const HttpRequest& request) {
        obey(queue, read_notice(request));
        return done_reply();
    });
    service.route(NOTICE_PORT, Method::get, NOTICE_PATH,
                  [&](const HttpRequest& request) { return query(queue, runner, request); });
    service.route(TASK_PORT, Method::remove, TASK_PATH, [&queue](const HttpRequest& request) {
        queue.remove(parameter(request, "taskID"));
        return done_reply();
    });
}

}  // namespace services
