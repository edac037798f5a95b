// Lets in only connections of those whom a service trusts, so many of each, each for so long.
#include "services/doorkeeper.h"

#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <event2/listener.h>
#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <list>
#include <stdexcept>
#include <string>
#include <utility>

#include "platform/standalone/store/state_folder.h"
#include "services/event_watch.h"
#include "services/peer.h"

namespace services {
namespace {

constexpr timeval ACCEPT_PAUSE = {0, 100 * 1000};

void resume_accepting(evutil_socket_t, short, void* listener) {
    evconnlistener_enable(static_cast<evconnlistener*>(listener));
}

// Out of file descriptors: without a pause the waiting connection would wake the loop without end.
void pause_accepting(evconnlistener* listener, void*) {
    event_base* base = evconnlistener_get_base(listener);
    if (event_base_once(base, -1, EV_TIMEOUT, resume_accepting, listener, &ACCEPT_PAUSE) == 0)
        evconnlistener_disable(listener);
}

/// The connection that reads from a bufferevent of the server's; none when it could not be made.
evhttp_connection* connection_of(bufferevent* channel) {
    void* reader = nullptr;
    bufferevent_getcb(channel, nullptr, nullptr, nullptr, &reader);
    return static_cast<evhttp_connection*>(reader);
}

/// Resets the connection. Otherwise whoever is sent away could keep the ports taken that they came
/// from, and with enough of those nobody could come any more.
void send_away(evhttp_connection* connection, int descriptor) {
    constexpr linger AT_ONCE{.l_onoff = 1, .l_linger = 0};
    setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &AT_ONCE, sizeof AT_ONCE);
    evhttp_connection_free(connection);
}

}  // namespace

Users trusted_users() {
    const std::string folder = standalone::state_folder();
    struct stat status {};
    if (stat(folder.c_str(), &status) != 0)
        throw std::runtime_error("cannot look at " + folder + ": " + std::strerror(errno));
    return {0, status.st_uid};
}

Users user_named(const std::string& name) {
    passwd entry{};
    passwd* found = nullptr;
    std::array<char, 4096> words;
    getpwnam_r(name.c_str(), &entry, words.data(), words.size(), &found);
    return found ? Users{found->pw_uid} : Users{};
}

struct Doorkeeper::House {
    struct Guest {
        evhttp_connection* connection;
        uid_t user;
        std::unique_ptr<EventWatch> deadline;
    };
    struct Door {
        House& house;
        evconnlistener* listener;
        Users also;
        bufferevent* arriving = nullptr;
    };

    bool trusts(uid_t user, const Door& door) const;
    bool let_in(evhttp_connection* connection, const Door& door, int descriptor);
    void make_room(uid_t user);
    // Called by the library, which no exception may go through: one ends the service.
    static void forget(evhttp_connection* connection, void* house) noexcept;
    static bufferevent* on_accept(event_base* loop, void* door) noexcept;
    static void on_arrival(evutil_socket_t, short, void* door) noexcept;

    event_base* loop;
    Users trusted;
    Peers peers{};
    std::list<Guest> guests{};  // the oldest first
    std::list<Door> doors{};
};

// The library tells neither who comes nor lets anybody be sent away. What it does is to ask for the
// bufferevent of each connection that it accepts. What is set off there comes before the loop looks
// for anything to read. Until then this door accepts nobody else: those who are sent away never use
// up more than one descriptor, and those who are in are served in between.
bufferevent* Doorkeeper::House::on_accept(event_base* loop, void* context) noexcept {
    Door& door = *static_cast<Door*>(context);
    bufferevent* arriving = bufferevent_socket_new(loop, -1, 0);
    if (!arriving) return nullptr;
    if (event_base_once(loop, -1, EV_TIMEOUT, on_arrival, &door, nullptr) != 0) return arriving;
    bufferevent_incref(arriving);
    door.arriving = arriving;
    evconnlistener_disable(door.listener);
    return arriving;
}

void Doorkeeper::House::on_arrival(evutil_socket_t, short, void* context) noexcept {
    Door& door = *static_cast<Door*>(context);
    bufferevent* arrived = std::exchange(door.arriving, nullptr);
    evhttp_connection* connection = connection_of(arrived);
    const int descriptor = bufferevent_getfd(arrived);
    if (connection && !door.house.let_in(connection, door, descriptor))
        send_away(connection, descriptor);
    bufferevent_decref(arrived);
    evconnlistener_enable(door.listener);
}

bool Doorkeeper::House::trusts(uid_t user, const Door& door) const {
    const auto has = [user](const Users& users) { return std::ranges::count(users, user) != 0; };
    return has(trusted) || has(door.also);
}

bool Doorkeeper::House::let_in(evhttp_connection* connection, const Door& door, int descriptor) {
    const auto user = peers.user(descriptor);
    if (!user || !trusts(*user, door)) return false;
    make_room(*user);
    const auto end = [connection] { evhttp_connection_free(connection); };
    guests.push_back({connection, *user, EventWatch::after(loop, LIFETIME, end)});
    evhttp_connection_set_closecb(connection, forget, this);
    return true;
}

void Doorkeeper::House::make_room(uid_t user) {
    const auto is_theirs = [user](const Guest& guest) { return guest.user == user; };
    const auto count = std::count_if(guests.begin(), guests.end(), is_theirs);
    if (static_cast<std::size_t>(count) < MAX_CONNECTIONS) return;
    evhttp_connection_free(std::find_if(guests.begin(), guests.end(), is_theirs)->connection);
}

void Doorkeeper::House::forget(evhttp_connection* connection, void* house) noexcept {
    static_cast<House*>(house)->guests.remove_if(
        [connection](const Guest& guest) { return guest.connection == connection; });
}

Doorkeeper::Doorkeeper(event_base* loop, Users trusted)
    : house_(new House{.loop = loop, .trusted = std::move(trusted)}) {}

Doorkeeper::~Doorkeeper() = default;

void Doorkeeper::guard(evhttp* server, evconnlistener* listener, Users also) {
    auto& door = house_->doors.emplace_back(
        House::Door{.house = *house_, .listener = listener, .also = std::move(also)});
    evconnlistener_set_error_cb(listener, pause_accepting);
    evhttp_set_bevcb(server, House::on_accept, &door);
}

bool Doorkeeper::knows(const evhttp_connection* connection) const {
    return std::any_of(
        house_->guests.begin(), house_->guests.end(),
        [connection](const House::Guest& guest) { return guest.connection == connection; });
}

}  // namespace services
