// Hands events over to the log service: a datagram with the event, and with it the end of a
// connection for the answer. A service that ends without one takes that end with it, so nobody
// waits for a dead one.
#include "platform/standalone/event_handover.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/socket_address.h"
#include "platform/standalone/store/state_folder.h"

namespace standalone {

namespace {

struct AnswerLine {
    FileHandle ours;
    FileHandle theirs;
};

/// No time at all would be no limit (socket(7)).
bool limit(const FileHandle& socket, int direction, std::chrono::milliseconds longest) {
    const auto time = std::max(longest, std::chrono::milliseconds(1)).count();
    const timeval wait{time / 1000, time % 1000 * 1000};
    return setsockopt(socket.get(), SOL_SOCKET, direction, &wait, sizeof wait) == 0;
}

AnswerLine new_answer_line() {
    std::array<int, 2> ends{-1, -1};
    // What fails may have left numbers there.
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return {FileHandle(), FileHandle()};
    return {FileHandle(ends[0]), FileHandle(ends[1])};
}

bool send(const FileHandle& socket, sockaddr_un& address, std::string& text, int descriptor) {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof descriptor)> control{};
    iovec part{text.data(), text.size()};
    msghdr message{};
    message.msg_name = &address;
    message.msg_namelen = sizeof address;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    cmsghdr* passed = CMSG_FIRSTHDR(&message);
    passed->cmsg_level = SOL_SOCKET;
    passed->cmsg_type = SCM_RIGHTS;
    passed->cmsg_len = CMSG_LEN(sizeof descriptor);
    std::memcpy(CMSG_DATA(passed), &descriptor, sizeof descriptor);
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
}

Handover answer_on(const FileHandle& line) {
    std::array<char, 16> answer;
    const ssize_t size = recv(line.get(), answer.data(), answer.size(), 0);
    const std::string_view word(answer.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    if (word == LETTER_STORED) return Handover::stored;
    return word == LETTER_LEFT_OUT ? Handover::left_out : Handover::unanswered;
}

}  // namespace

Handover hand_over(const NewEvent& letter, std::chrono::milliseconds longest) {
    auto address = socket_address(event_socket_path());
    std::string text = print_letter(letter);
    if (!address || text.size() > LONGEST_LETTER) return Handover::not_taken;
    const FileHandle socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    AnswerLine line = new_answer_line();
    if (!socket || !line.ours || !limit(socket, SO_SNDTIMEO, longest) ||
        !limit(line.ours, SO_RCVTIMEO, longest) || !send(socket, *address, text, line.theirs.get()))
        return Handover::not_taken;
    line.theirs.close();
    return answer_on(line.ours);
}

}  // namespace standalone
