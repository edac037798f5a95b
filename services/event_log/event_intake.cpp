// Takes events from other programs of the recorder and stores them.
#include "services/event_log/event_intake.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/event_letter.h"
#include "platform/standalone/store/socket_address.h"

namespace services {

using standalone::FileHandle;

/// An event, and where its sender waits for the answer.
struct EventIntake::Letter {
    standalone::NewEvent event;
    FileHandle line;
    const char* answer = nullptr;  ///< none: it is not stored
};

namespace {

/// So many messages are taken at once at most; queries have their turn in between.
constexpr std::size_t MOST_AT_ONCE = 256;

/// What a datagram has brought.
struct Mail {
    std::string text;
    FileHandle line;
};

/// @throws std::runtime_error
FileHandle bound_socket(const std::string& path) {
    const auto fail = [&path](const char* why) {
        throw std::runtime_error("cannot take events on " + path + ": " + why);
    };
    const auto address = standalone::socket_address(path);
    if (!address) fail("its name is too long for a socket");
    FileHandle made(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!made) fail(std::strerror(errno));
    unlink(path.c_str());
    // The mode before there is a name to come by.
    if (fchmod(made.get(), 0600) != 0 ||
        bind(made.get(), reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0)
        fail(std::strerror(errno));
    return made;
}

/// The descriptor that came with a message, if it was one: for another the message had no room.
FileHandle passed_descriptor(msghdr& message) {
    const cmsghdr* passed = CMSG_FIRSTHDR(&message);
    if (passed == nullptr || passed->cmsg_level != SOL_SOCKET || passed->cmsg_type != SCM_RIGHTS ||
        passed->cmsg_len != CMSG_LEN(sizeof(int)))
        return FileHandle();
    int descriptor = -1;
    std::memcpy(&descriptor, CMSG_DATA(passed), sizeof descriptor);
    FileHandle only(descriptor);
    return (message.msg_flags & MSG_CTRUNC) == 0 ? std::move(only) : FileHandle();
}

/// @return nothing when nothing waits
std::optional<Mail> receive(const FileHandle& socket) {
    static std::array<char, standalone::LONGEST_LETTER> room;
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
    iovec part{room.data(), room.size()};
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    // Without the padding, in which a second descriptor would find room.
    message.msg_controllen = CMSG_LEN(sizeof(int));
    const ssize_t size = recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC);
    if (size < 0) return {};
    FileHandle line = passed_descriptor(message);
    if ((message.msg_flags & MSG_TRUNC) != 0) return Mail{{}, std::move(line)};
    return Mail{{room.data(), static_cast<std::size_t>(size)}, std::move(line)};
}

/// Whoever has given up stores the event itself.
bool still_waits(const FileHandle& line) {
    pollfd end{.fd = line.get(), .events = 0, .revents = 0};
    return poll(&end, 1, 0) == 0;
}

}  // namespace

EventIntake::EventIntake(event_base* loop, std::string path) : path_(std::move(path)) {
    try {
        socket_ = bound_socket(path_);
        watch_ = EventWatch::readable(loop, socket_.get(), [this] { take(); });
    } catch (const std::runtime_error& error) {
        std::fprintf(stderr, "%s\n", error.what());
    }
}

EventIntake::~EventIntake() {
    if (socket_) unlink(path_.c_str());
}

std::vector<EventIntake::Letter> EventIntake::waiting_letters() const {
    std::vector<Letter> letters;
    for (std::size_t at = 0; at < MOST_AT_ONCE; ++at) {
        auto mail = receive(socket_);
        if (!mail) break;
        auto event = standalone::read_letter(mail->text);
        if (event && mail->line) letters.push_back({std::move(*event), std::move(mail->line)});
    }
    return letters;
}

/// Who waits is looked at within the transaction: whoever gives up later finds the event when it
/// has the database's lock.
void EventIntake::store(std::vector<Letter>& letters) {
    standalone::EventStore& log = standalone::event_log();
    standalone::Database& events = standalone::events_for_writing();
    // A request opens the one that is there now.
    if (events.was_replaced())
        throw std::runtime_error("the event database was replaced: start the services anew");
    standalone::Transaction transaction(events);
    for (Letter& letter : letters)
        if (still_waits(letter.line))
            letter.answer = log.append_within_limit(letter.event) ? standalone::LETTER_STORED
                                                                  : standalone::LETTER_LEFT_OUT;
    transaction.commit();
}

void EventIntake::take() {
    std::vector<Letter> letters = waiting_letters();
    if (letters.empty()) return;
    try {
        store(letters);
    } catch (const std::exception& error) {
        complaints_.print(error.what());
        return;
    }
    for (const Letter& letter : letters)
        if (letter.answer != nullptr)
            send(letter.line.get(), letter.answer, std::strlen(letter.answer),
                 MSG_DONTWAIT | MSG_NOSIGNAL);
}

}  // namespace services
