// What the daemon writes into the event log; services/event_log/event_text has the words.
#include "services/backup_daemon/tell/run_events.h"

#include <cstdio>

#include "platform/recorder_log.h"
#include "platform/service_addresses.h"
#include "platform/standalone/store/one_line.h"

namespace services {

bool try_run_event(RunEvent event, const std::string& task_name, const std::string& detail) {
    const char* last = detail.empty() ? nullptr : detail.c_str();
    return send_surveillance_event_log(event, -1, LOOPBACK, events::APPLICATION, task_name.c_str(),
                                       last, nullptr) == 0;
}

void print_run_event(RunEvent event, const std::string& task_name, const std::string& detail,
                     const char* fate) {
    std::fprintf(stderr, "event %08X of task \"%s\" %s: %s\n", event,
                 standalone::one_line(task_name).c_str(), fate,
                 standalone::one_line(detail).c_str());
}

void write_run_event(RunEvent event, const std::string& task_name, const std::string& detail) {
    if (!try_run_event(event, task_name, detail))
        print_run_event(event, task_name, detail, "is lost");
}

}  // namespace services
