// The events of the recording backup: their identifiers in the event log, and what is in them.
#pragma once

namespace events {

/// Identifiers. The upper 16 bits are the sub-type, by which the log is queried.
enum Id : unsigned {
    // A user changed a task. Up to 0x6204000D the numbers are this feature's.
    TASK_CREATED = 0x62040001,
    TASK_MODIFIED = 0x62040002,
    TASK_DELETED = 0x62040003,
    TASK_ENABLED = 0x62040004,
    TASK_DISABLED = 0x62040005,

    // A user had a task started or stopped. Up to 0x2315000F the numbers are the CGI program's.
    BACKUP_STARTED = 0x23150001,
    BACKUP_STOPPED = 0x23150002,
    BACKUP_FORCED = 0x23150003,  ///< in the place of a running one

    // What the backup daemon tells of runs.
    RUN_STARTED = 0x23150010,
    RUN_RESUMED = 0x23150011,  ///< taken up again after the daemon's end
    RUN_SUCCEEDED = 0x23150012,
    RUN_FAILED = 0x23150013,
    RUN_CANCELLED = 0x23150014,
    FILE_NOT_COPIED = 0x23150015,
    CONNECTION_LOST = 0x23150016,
    RETENTION_PASS = 0x23150017,
    ROOM_MADE = 0x23150018,  ///< a day was removed from a full share
    SHARE_FULL = 0x23150019,
    OWN_FOLDER_MADE = 0x2315001F,   ///< the task's folder is another recorder's
    WILL_NOT_FIT = 0x23150020,      ///< there is less room than a run is about to need
    COPY_NOT_REMOVED = 0x23150021,  ///< another file stands in its place
    COPY_SPOILT = 0x23150022,       ///< read back later, it was not what it was made

    // Somebody has failed to sign in.
    SIGN_IN_FAILED = 0x23180001,
    SIGN_IN_HELD_UP = 0x23180002,  ///< so often that the next attempt has to wait

    // A user changed how alerts get out.
    ALERTS_CHANGED = 0x23190001,

    // A user asked for a start while the file explorer was off.
    ACTIVATION_REFUSED = 0x23170001,
};

/// The kind of an event: 8981 for all of runs, 8983 for refusals, 8984 for
/// sign-ins, 8985 for settings of alerts, 25092 for changes of tasks.
constexpr unsigned sub_type(unsigned event_id) {
    return event_id >> 16;
}

/// Whether the backup daemon tells it of a run; the others of these are written by requests.
constexpr bool is_of_a_run(unsigned event_id) {
    return event_id >= RUN_STARTED && sub_type(event_id) == sub_type(RUN_STARTED);
}

/// The application that every event names first.
inline constexpr char APPLICATION[] = "Recording Backup";

}  // namespace events
