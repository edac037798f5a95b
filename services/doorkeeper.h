// Lets in only connections of those whom a service trusts, so many of each, each for so long.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

struct evconnlistener;     // libevent
struct event_base;         // libevent
struct evhttp;             // libevent
struct evhttp_connection;  // libevent

namespace services {

using Users = std::vector<uid_t>;

/// Root, and who owns the state folder: whoever runs the recorder.
/// @throws std::runtime_error when the folder cannot be looked at
Users trusted_users();

/// The user of this name; nobody when there is none, or none can be asked for now.
Users user_named(const std::string& name);

/// Looks at each connection right behind its accept and before a byte of it is read. One whose
/// other end is not held by a process of a trusted user is reset unanswered, and counts for
/// nothing. Where a user has MAX_CONNECTIONS already, the oldest one makes room: who holds
/// connections open keeps nobody out. LIFETIME after its accept every connection is closed, however
/// far it has come.
class Doorkeeper {
public:
    static constexpr std::size_t MAX_CONNECTIONS = 128;  ///< of one user, on all ports
    static constexpr std::chrono::seconds LIFETIME{10};

    Doorkeeper(event_base* loop, Users trusted);
    ~Doorkeeper();
    Doorkeeper(const Doorkeeper&) = delete;
    Doorkeeper& operator=(const Doorkeeper&) = delete;

    /// Guards what `server` accepts on `listener` from now on. Both must be gone before this.
    /// @param also are let in there, too
    void guard(evhttp* server, evconnlistener* listener, Users also = {});

    /// Whether a connection was let in. No other may be answered.
    bool knows(const evhttp_connection* connection) const;

private:
    struct House;
    std::unique_ptr<House> house_;
};

}  // namespace services
