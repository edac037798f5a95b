// Finds out whose process is at the other end of a TCP connection within this machine.
#include "services/peer.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>

namespace services {
namespace {

using standalone::FileHandle;

constexpr char SOCKET_LIST[] = "/proc/self/net/tcp";
constexpr __u32 ANY_COOKIE = INET_DIAG_NOCOOKIE;

struct Question {
    nlmsghdr head{};
    inet_diag_req_v2 about{};
};

using Answer = std::array<char, 4096>;

// A socket that is closed while its bytes are still on their way stays known, without an inode, and
// seems to be root's. What only listens on the same port is not the other end either.
bool is_held(unsigned state, unsigned long inode) {
    const bool connected =
        state == TCP_ESTABLISHED || state == TCP_FIN_WAIT1 || state == TCP_FIN_WAIT2;
    return connected && inode != 0;
}

Question new_question(int flags) {
    Question question;
    question.head.nlmsg_len = sizeof question;
    question.head.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    question.head.nlmsg_flags = static_cast<__u16>(NLM_F_REQUEST | flags);
    question.about.sdiag_family = AF_INET;
    question.about.sdiag_protocol = IPPROTO_TCP;
    return question;
}

/// The first message of the answer, which has come once the question is sent; none when there is
/// no whole one.
const nlmsghdr* ask(const FileHandle& kernel, const Question& question, Answer& answer) {
    if (send(kernel.get(), &question, sizeof question, 0) != sizeof question) return nullptr;
    const ssize_t size = recv(kernel.get(), answer.data(), answer.size(), MSG_DONTWAIT);
    const auto* head = reinterpret_cast<const nlmsghdr*>(answer.data());
    return size > 0 && NLMSG_OK(head, static_cast<unsigned>(size)) ? head : nullptr;
}

std::optional<TcpEnds> ends_of(int connection) {
    TcpEnds ends;
    socklen_t own = sizeof ends.own;
    socklen_t other = sizeof ends.other;
    if (getsockname(connection, reinterpret_cast<sockaddr*>(&ends.own), &own) != 0 ||
        getpeername(connection, reinterpret_cast<sockaddr*>(&ends.other), &other) != 0 ||
        ends.own.sin_family != AF_INET)
        return {};
    return ends;
}

// As the kernel prints them: addresses as numbers of this machine, ports as numbers.
std::string ends_in_list(const TcpEnds& socket) {
    std::array<char, 32> text;
    std::snprintf(text.data(), text.size(), " %08X:%04X %08X:%04X ", socket.own.sin_addr.s_addr,
                  ntohs(socket.own.sin_port), socket.other.sin_addr.s_addr,
                  ntohs(socket.other.sin_port));
    return text.data();
}

}  // namespace

SockDiag::SockDiag() : kernel_(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {
    // All sockets in no state at all: an empty list, where there are lists.
    alignas(nlmsghdr) Answer answer;
    const nlmsghdr* head = ask(kernel_, new_question(NLM_F_DUMP), answer);
    answers_ = head && head->nlmsg_type == NLMSG_DONE;
}

std::optional<uid_t> SockDiag::user(const TcpEnds& socket) const {
    Question question = new_question(0);
    inet_diag_sockid& id = question.about.id;
    id.idiag_sport = socket.own.sin_port;
    id.idiag_dport = socket.other.sin_port;
    id.idiag_src[0] = socket.own.sin_addr.s_addr;
    id.idiag_dst[0] = socket.other.sin_addr.s_addr;
    id.idiag_cookie[0] = id.idiag_cookie[1] = ANY_COOKIE;
    alignas(nlmsghdr) Answer answer;
    const nlmsghdr* head = ask(kernel_, question, answer);
    inet_diag_msg found;
    if (!head || head->nlmsg_type != SOCK_DIAG_BY_FAMILY ||
        head->nlmsg_len < NLMSG_LENGTH(sizeof found))
        return {};
    std::memcpy(&found, NLMSG_DATA(head), sizeof found);
    if (!is_held(found.idiag_state, found.idiag_inode)) return {};
    return found.idiag_uid;
}

std::optional<uid_t> user_in_socket_list(const TcpEnds& socket) {
    const std::string wanted = ends_in_list(socket);
    std::ifstream list(SOCKET_LIST);
    for (std::string line; std::getline(list, line);) {
        const auto at = line.find(wanted);
        if (at == std::string::npos) continue;
        unsigned state = 0;
        uid_t user = 0;
        unsigned long inode = 0;
        const char* rest = line.c_str() + at + wanted.size();
        if (std::sscanf(rest, "%x %*s %*s %*s %u %*s %lu", &state, &user, &inode) == 3 &&
            is_held(state, inode))
            return user;
    }
    return {};
}

std::optional<uid_t> Peers::look(const TcpEnds& socket) const {
    return diag_.answers() ? diag_.user(socket) : user_in_socket_list(socket);
}

std::optional<uid_t> Peers::user(int connection) const {
    const auto ends = ends_of(connection);
    if (!ends) return {};
    const TcpEnds peer{ends->other, ends->own};
    const auto user = look(peer);
    // The kernel reads user and inode one after the other, and a socket may be closed in between:
    // it was held all the while when it is held now. And the ends were still those of this
    // connection, and not taken over by another one, when this connection is up now.
    if (!user || look(peer) != user || !ends_of(connection)) return {};
    return user;
}

}  // namespace services
