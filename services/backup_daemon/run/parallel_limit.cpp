// Reads what is configured of all runs from the configuration store.
#include "services/backup_daemon/run/parallel_limit.h"

#include <charconv>

#include "platform/nvrcfg.h"

namespace services {

int parse_parallel_limit(const std::string& text) {
    int limit = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, limit);
    return error == std::errc() && stop == end && limit >= 1 ? limit : DEFAULT_PARALLEL_LIMIT;
}

int parallel_limit() {
    std::string text;
    int reason = 0;
    if (__nvrcfg_get_key_value("parallel_limit", __LINE__, "backup", "max_parallel", text, &reason))
        return DEFAULT_PARALLEL_LIMIT;
    return parse_parallel_limit(text);
}

bool check_reading() {
    std::string text;
    int reason = 0;
    return __nvrcfg_get_key_value("parallel_limit", __LINE__, "backup", "check_reading", text,
                                  &reason) != 0 ||
           text != "0";
}

}  // namespace services
