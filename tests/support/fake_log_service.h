// Takes event letters in the log service's place and plays a script with each.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cstring>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "platform/standalone/store/event_letter.h"
#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/state_folder.h"

/// A socket with the name that letters are sent to.
inline standalone::FileHandle letter_socket(int type = SOCK_DGRAM) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path = standalone::event_socket_path();
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    standalone::FileHandle made(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
    if (bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("no socket for letters");
    return made;
}

/// Of the state folder that is current when it is made, for as long as it lives.
class FakeLogService {
public:
    /// @param line where the sender waits; it ends when the script lets go of it
    using Script = std::function<void(const std::string& text, standalone::FileHandle& line)>;

    explicit FakeLogService(Script script)
        : script_(std::move(script)), thread_([this] { play(); }) {}
    ~FakeLogService() {
        shutdown(socket_.get(), SHUT_RDWR);
        thread_.join();
    }
    FakeLogService(const FakeLogService&) = delete;
    FakeLogService& operator=(const FakeLogService&) = delete;

    static Script answering(std::string answer) {
        return [answer = std::move(answer)](const std::string&, standalone::FileHandle& line) {
            send(line.get(), answer.data(), answer.size(), MSG_NOSIGNAL);
        };
    }

private:
    /// A socket that is shut down has empty messages.
    void play() {
        std::string room(standalone::LONGEST_LETTER, '\0');
        alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(int))> control{};
        while (true) {
            iovec part{room.data(), room.size()};
            msghdr message{};
            message.msg_iov = &part;
            message.msg_iovlen = 1;
            message.msg_control = control.data();
            message.msg_controllen = control.size();
            const ssize_t size = recvmsg(socket_.get(), &message, MSG_CMSG_CLOEXEC);
            if (size <= 0) return;
            int descriptor = -1;
            std::memcpy(&descriptor, CMSG_DATA(CMSG_FIRSTHDR(&message)), sizeof descriptor);
            standalone::FileHandle line(descriptor);
            script_(room.substr(0, static_cast<std::size_t>(size)), line);
        }
    }

    Script script_;
    standalone::FileHandle socket_ = letter_socket();
    std::thread thread_;
};
