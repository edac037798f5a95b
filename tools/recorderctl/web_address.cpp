// Where the web server listens besides 127.0.0.1 and its own port: an address and a port.
#include "tools/recorderctl/web_address.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <optional>

#include "platform/standalone/store/file_handle.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/reading_right.h"

namespace recorderctl {

namespace {

constexpr int MOST_PORT = 65535;

std::string host_text(int family, const void* address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    inet_ntop(family, address, text.data(), text.size());
    return text.data();
}

/// "" when it is no such address.
std::string ipv6_host(const std::string& text) {
    in6_addr address{};
    if (inet_pton(AF_INET6, text.c_str(), &address) != 1) return "";
    if (IN6_IS_ADDR_V4MAPPED(&address) || IN6_IS_ADDR_MULTICAST(&address)) return "";
    if (IN6_IS_ADDR_LINKLOCAL(&address))
        throw Failure('"' + text + "\" is an address of one link alone, which no browser can open");
    return host_text(AF_INET6, &address);
}

std::string ipv4_host(const std::string& text) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return "";
    return IN_MULTICAST(ntohl(address.s_addr)) ? "" : host_text(AF_INET, &address);
}

int parse_port(std::string_view text) {
    int port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    if (!whole || port < 1 || port > MOST_PORT)
        throw Failure('"' + std::string(text) + "\" is not a port number (1 to 65535)");
    return port;
}

/// @return the error's number; 0 when somebody could listen there now
int try_to_bind(const WebAddress& address) {
    const SocketAddress wanted = socket_address(address, false);
    const standalone::FileHandle probe(
        socket(wanted.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const int yes = 1;  // as the web server does: connections that have just ended do not matter
    setsockopt(probe.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    const PortRight right;
    return bind(probe.get(), wanted.get(), wanted.length) == 0 ? 0 : errno;
}

bool answers_at(const std::string& host, int port) {
    const SocketAddress wanted = socket_address({.host = host, .port = port}, true);
    const standalone::FileHandle probe(
        socket(wanted.storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    return connect(probe.get(), wanted.get(), wanted.length) == 0;
}

/// Of all addresses one that somebody else has is enough to be in the way.
bool somebody_answers(const WebAddress& address) {
    std::vector<std::string> hosts = reachable_hosts(address);
    if (address.is_any()) hosts.push_back(address.host);
    return std::ranges::any_of(
        hosts, [&address](const std::string& host) { return answers_at(host, address.port); });
}

std::optional<std::string> host_of(const ifaddrs& entry) {
    if (entry.ifa_addr == nullptr || (entry.ifa_flags & IFF_LOOPBACK) != 0) return std::nullopt;
    if (entry.ifa_addr->sa_family == AF_INET)
        return host_text(AF_INET, &reinterpret_cast<sockaddr_in*>(entry.ifa_addr)->sin_addr);
    if (entry.ifa_addr->sa_family != AF_INET6) return std::nullopt;
    const in6_addr& address = reinterpret_cast<sockaddr_in6*>(entry.ifa_addr)->sin6_addr;
    if (IN6_IS_ADDR_LINKLOCAL(&address)) return std::nullopt;
    return host_text(AF_INET6, &address);
}

}  // namespace

std::string bracketed(const std::string& host) {
    return host.find(':') == std::string::npos ? host : '[' + host + ']';
}

bool WebAddress::is_loopback() const {
    return host.starts_with("127.") || host == "::1";
}

std::string WebAddress::text() const {
    return bracketed(host) + ':' + std::to_string(port);
}

WebAddress parse_web_address(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    const std::string written(text.substr(0, colon));
    if (colon == std::string_view::npos || written.empty())
        throw Failure('"' + std::string(text) + "\" is not ADDRESS:PORT");
    const bool brackets = written.starts_with('[') && written.ends_with(']');
    const std::string host =
        brackets ? ipv6_host(written.substr(1, written.size() - 2)) : ipv4_host(written);
    if (host.empty())
        throw Failure('"' + written +
                      "\" is no address of a machine: 192.0.2.10, for example, or [2001:db8::1]; "
                      "names are not taken");
    return {.host = host, .port = parse_port(text.substr(colon + 1))};
}

SocketAddress socket_address(const WebAddress& address, bool to_connect) {
    SocketAddress socket_address;
    const bool loopback = to_connect && address.is_any();
    if (address.is_ipv6()) {
        auto& ipv6 = reinterpret_cast<sockaddr_in6&>(socket_address.storage);
        ipv6.sin6_family = AF_INET6;
        ipv6.sin6_port = htons(static_cast<std::uint16_t>(address.port));
        inet_pton(AF_INET6, loopback ? "::1" : address.host.c_str(), &ipv6.sin6_addr);
        socket_address.length = sizeof ipv6;
    } else {
        auto& ipv4 = reinterpret_cast<sockaddr_in&>(socket_address.storage);
        ipv4.sin_family = AF_INET;
        ipv4.sin_port = htons(static_cast<std::uint16_t>(address.port));
        inet_pton(AF_INET, loopback ? "127.0.0.1" : address.host.c_str(), &ipv4.sin_addr);
        socket_address.length = sizeof ipv4;
    }
    return socket_address;
}

void require_own_address(const WebAddress& address) {
    const int error = try_to_bind({.host = address.host, .port = 0});
    if (error == EADDRNOTAVAIL)
        throw Failure("this machine has no address " + address.host +
                      "; \"ip address\" shows those it has");
    if (error != 0) throw Failure("cannot listen on " + address.host + ": " + std::strerror(error));
}

void require_free_port(const WebAddress& address) {
    const int error = try_to_bind(address);
    // Root alone may try the lowest ports; for others, whoever is there has to answer.
    if (error == EADDRINUSE || (error == EACCES && somebody_answers(address)))
        throw Failure("port " + std::to_string(address.port) + " of " + address.host +
                      " is taken; \"ss -ltnp sport = :" + std::to_string(address.port) +
                      "\", as root, shows by whom");
}

std::vector<std::string> reachable_hosts(const WebAddress& address) {
    if (!address.is_any()) return {address.host};
    ifaddrs* first = nullptr;
    if (getifaddrs(&first) != 0)
        throw Failure(std::string("cannot ask for this machine's addresses: ") +
                      std::strerror(errno));
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> all(first, freeifaddrs);
    std::vector<std::string> hosts;
    for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
        const std::optional<std::string> host = host_of(*entry);
        // A socket for all IPv6 addresses takes IPv4, too, and not the other way round.
        if (host && (address.is_ipv6() || host->find(':') == std::string::npos))
            hosts.push_back(*host);
    }
    return hosts;
}

}  // namespace recorderctl
