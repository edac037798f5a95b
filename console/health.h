// Which of the recorder's services are there.
#pragma once

#include <optional>
#include <string>

#include "console/json.h"
#include "platform/standalone/store/file_handle.h"

namespace console {

/// Which services answer.
struct Health {
    bool backup = false;
    bool log = false;
};

/// {"backup", "log"}.
Json services_of(const Health& health);

/// A question to a service that is under way from its beginning on. Behind systemd's socket a
/// service that never starts is one that never answers. The platform's client would cost a poll of
/// the page a fifth of its time.
class ServiceQuestion {
public:
    /// @param target path and query
    ServiceQuestion(int port, const std::string& target);

    /// Whether it is answered well, within a second.
    bool is_answered() const;

private:
    bool is_connected(int port) const;
    bool is_sent(const std::string& target) const;

    standalone::FileHandle socket_;
    bool is_asked_ = false;
};

/// Asks the backup daemon what runs and the log service for its newest event, both at once; whoever
/// has something else to do meanwhile does it before the answer is waited for.
class HealthQuestion {
public:
    HealthQuestion();
    const Health& answer();

private:
    ServiceQuestion backup_;
    ServiceQuestion log_;
    std::optional<Health> answer_;
};

}  // namespace console
