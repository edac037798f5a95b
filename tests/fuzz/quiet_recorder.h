// A recorder in memory that writes nothing anywhere, behind the real parsers of the platform.
#pragma once

#include <list>
#include <string>

#include "backup/task_record.h"
#include "platform/json_ptr.h"

namespace fuzz {

/// What the recorder holds and what its services answer. It stands in the place of the platform's
/// logs, configuration store and HTTP client; JSON getters, Base64 and the rest are the real ones.
struct QuietRecorder {
    std::list<TDataBackupConfig> tasks;
    std::string waiting_reply;  ///< the backup daemon's, to its two queries
    std::string running_reply;
    std::string log_reply;  ///< the log service's
};

extern QuietRecorder recorder;

/// Whether two records are equal in every field.
bool same_record(const TDataBackupConfig& one, const TDataBackupConfig& other);

/// An operation's reply as the front end prints it. Ends the program when there is none.
/// @param reply taken over
std::string printed(json_object* reply);

}  // namespace fuzz
