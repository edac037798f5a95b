// Alerts on their way: what is put here is tried until it arrives, or for three days.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/standalone/store/alert_names.h"
#include "platform/standalone/store/database.h"

namespace services {

using standalone::AlertWay;

/// One alert, for people and for programs.
struct AlertMessage {
    std::string id;       ///< its own; servers that see it twice know it by that
    std::string subject;  ///< one line
    std::string text;     ///< lines, each ended by a newline
    std::string object;   ///< the same as a JSON object, for web hooks
    std::string about{};  ///< the problem, the same in all alerts of it; "" for none
};

/// Who is told: one row of the outbox each, so that none of them waits for another.
struct AlertReceiver {
    AlertWay way = AlertWay::mail;
    std::string recipient{};  ///< a mail address; "" for a web hook

    bool operator==(const AlertReceiver&) const = default;
};

/// An alert for one of its receivers.
struct WaitingAlert {
    long long number = 0;
    AlertReceiver receiver;
    long long made = 0;  ///< seconds since the epoch, as all times here
    long long attempts = 0;
    AlertMessage message;
    std::string last_failure;  ///< why the newest attempt failed; "" before the first one
};

/// The alerts of the daemon's database that have not arrived. Any call may throw
/// standalone::DatabaseError.
class AlertOutbox {
public:
    /// So many have three days, by the pauses of failed().
    static constexpr long long MOST_ATTEMPTS = 78;

    /// @param database outlives the outbox
    explicit AlertOutbox(standalone::Database& database) : database_(database) {}

    /// Puts an alert for each receiver. A transaction of the caller's holds it together with
    /// whatever it is about.
    void put(const AlertMessage& message, const std::vector<AlertReceiver>& receivers,
             long long now);

    /// The alert to be tried now, the oldest first; nothing when none is due on that way. One
    /// whose next attempt is farther off than any pause lasts is due: the clock was set back. One
    /// about a problem of which its receiver has yet to get an older alert is not: nobody hears
    /// that something is over before they hear of it.
    std::optional<WaitingAlert> due(AlertWay way, long long now);

    /// It has arrived: it is never sent again, and older ones for its receiver are due.
    void arrived(const WaitingAlert& alert);

    /// Something else has reached this receiver: whatever waits for it is due.
    void reached(const AlertReceiver& receiver);

    /// Nobody can get it: it is never sent again, and until the next one arrives there it stands in
    /// the database that this receiver gets none.
    void give_up(const WaitingAlert& alert, const std::string& why, long long now);

    /// It has not, and is tried again after a pause that grows from a minute to an hour, or given
    /// up with the last of MOST_ATTEMPTS. These are counted, not the days: neither the time for
    /// which the recorder is off nor a clock that jumps takes any of them away.
    /// @return whether it waits
    bool failed(const WaitingAlert& alert, const std::string& why, long long now);

    /// How many wait.
    long long waiting();

    /// Whoever is no receiver any more need not get anything. Without such nothing is written.
    void forget_others(const std::vector<AlertReceiver>& receivers);

private:
    bool is_anything_for(AlertWay way);
    void remove(long long number);
    void forget_given_up(const AlertReceiver& receiver);

    standalone::Database& database_;
};

}  // namespace services
