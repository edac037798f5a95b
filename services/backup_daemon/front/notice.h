// The notices that tell the backup daemon what to do; docs/formats.md, "Daemon messages".
#pragma once

#include <stdexcept>
#include <string>

namespace services {

/// One notice.
struct Notice {
    enum class Kind {
        reload,  ///< the stored tasks have changed
        start,   ///< start task `task_id`
        stop,    ///< stop task `task_id`; whatever runs when it is empty
    };
    Kind kind = Kind::reload;
    std::string task_id;        ///< decimal; never empty in a start notice
    bool stop_running = false;  ///< start: what runs makes room ("stop_running_task")
    bool parallel = false;      ///< start: beside what runs ("is_parallel_running")
};

/// A text is no notice; what() says why in one sentence.
class BadNotice : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads a notice. Unknown members are skipped, absent flags are false.
/// @throws BadNotice
Notice parse_notice(const std::string& body);

}  // namespace services
