// The alerts that have not arrived, as the daemon's database has them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/alert_names.h"
#include "platform/standalone/store/database.h"

namespace standalone {

/// An alert that waits for one of its receivers. Times are seconds since the epoch.
struct UndeliveredAlert {
    AlertWay way = AlertWay::mail;
    std::string recipient;  ///< a mail address; "" for a web hook
    std::string id;         ///< the same for all receivers of the alert
    std::string subject;
    long long made = 0;
    long long attempts = 0;
    std::optional<long long> next_attempt;  ///< nothing: now
    std::string last_failure;               ///< why the newest attempt failed; "" before the first
};

/// In the order in which they were made.
std::vector<UndeliveredAlert> undelivered_alerts(Database& memory);

/// Somebody of whom an alert was given up, and none has reached since.
struct GivenUpReceiver {
    AlertWay way = AlertWay::mail;
    std::string recipient;
    long long time = 0;  ///< when it was given up
    std::string why;
};

std::vector<GivenUpReceiver> given_up_receivers(Database& memory);

/// Alerts that do not arrive, in one line for people: to whom, since when and why. They are given
/// up, or have waited for more than an hour and failed.
/// @return "" when there are none
std::string undelivered_text(const std::vector<UndeliveredAlert>& waiting,
                             const std::vector<GivenUpReceiver>& given_up, long long now);

}  // namespace standalone
