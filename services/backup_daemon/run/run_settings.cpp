// Reads what is configured of all runs from the configuration store.
#include "services/backup_daemon/run/run_settings.h"

#include "services/configured.h"

namespace services {
namespace {

constexpr int MOST_OVERDUE_GRACE = 1000;

}  // namespace

int parallel_limit() {
    return configured_number("backup", "max_parallel", DEFAULT_PARALLEL_LIMIT);
}

int overdue_grace() {
    const int percent = configured_number("backup", "overdue_grace", DEFAULT_OVERDUE_GRACE);
    return percent <= MOST_OVERDUE_GRACE ? percent : DEFAULT_OVERDUE_GRACE;
}

bool check_reading() {
    return configured_text("backup", "check_reading") != "0";
}

}  // namespace services
