// Reads what is configured of all runs from the configuration store.
#include "services/backup_daemon/run/run_settings.h"

#include "services/configured.h"

namespace services {

int parallel_limit() {
    return configured_number("backup", "max_parallel", DEFAULT_PARALLEL_LIMIT);
}

bool check_reading() {
    return configured_text("backup", "check_reading") != "0";
}

}  // namespace services
