// Takes events from other programs of the recorder and stores them.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/standalone/store/event_store.h"
#include "platform/standalone/store/file_handle.h"
#include "services/complaints.h"
#include "services/event_watch.h"

namespace services {

/// Stores the letters that come to a socket (docs/formats.md, "Event letters"), all that are there
/// in one transaction, so that many at once wait for the disk once. Each sender is answered when
/// its event is on disk. Where an event cannot be stored, or is no letter, the sender's line ends
/// without an answer, and it stores the event itself.
class EventIntake {
public:
    /// @param path of the socket, which may be left from before; one too long for a socket, or one
    ///             that cannot be made, is one line on standard error, and nothing is taken
    EventIntake(event_base* loop, std::string path);
    /// Removes the socket. Whoever waits stores its event itself.
    ~EventIntake();
    EventIntake(const EventIntake&) = delete;
    EventIntake& operator=(const EventIntake&) = delete;

private:
    struct Letter;

    void take();
    std::vector<Letter> waiting_letters() const;
    static void store(std::vector<Letter>& letters);

    std::string path_;
    standalone::FileHandle socket_;
    Complaints complaints_;
    std::unique_ptr<EventWatch> watch_;
};

}  // namespace services
