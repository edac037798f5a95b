// Where the web server listens besides 127.0.0.1 and its own port: an address and a port.
#pragma once

#include <netinet/in.h>

#include <string>
#include <string_view>
#include <vector>

namespace recorderctl {

/// An address of this machine, or all of them, and a port. Addresses are written as inet_ntop(3)
/// writes them.
struct WebAddress {
    std::string host;  ///< "192.0.2.10", "2001:db8::1", "0.0.0.0", "::"
    int port = 0;

    bool is_ipv6() const { return host.find(':') != std::string::npos; }
    /// 127.0.0.0/8 and ::1, where nobody else can listen in: plain HTTP.
    bool is_loopback() const;
    /// Every address of the machine.
    bool is_any() const { return host == "0.0.0.0" || host == "::"; }
    /// As it stands in an address that a browser opens: "192.0.2.10:8443", "[2001:db8::1]:8443".
    std::string text() const;
    bool operator==(const WebAddress&) const = default;
};

/// The host as it stands before a port.
std::string bracketed(const std::string& host);

/// Reads "ADDRESS:PORT", an IPv6 address in brackets.
/// @throws Failure for names, addresses of one link alone, and ports beyond 1 to 65535
WebAddress parse_web_address(std::string_view text);

/// As bind(2) and connect(2) take it; of every address, the loopback one when `to_connect`.
struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t length = 0;

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&storage); }
};
SocketAddress socket_address(const WebAddress& address, bool to_connect);

/// @throws Failure when this machine does not have the address now
void require_own_address(const WebAddress& address);

/// @throws Failure when somebody listens there
void require_free_port(const WebAddress& address);

/// The addresses under which others reach this one: itself, or those of all network interfaces but
/// loopback.
std::vector<std::string> reachable_hosts(const WebAddress& address);

}  // namespace recorderctl
