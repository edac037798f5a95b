// Shuts a process off from this machine, for good, where the kernel can (Landlock, Linux 5.13).
#include "services/backup_daemon/lane/landlock.h"

#include <fcntl.h>
#include <linux/landlock.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

#include "platform/standalone/store/file_handle.h"
#include "services/backup_daemon/lane/errno_failure.h"

namespace services {
namespace {

using standalone::FileHandle;

// Libraries and their modules, character sets, name resolution, random numbers.
constexpr const char* READABLE[] = {"/usr",
                                    "/lib",
                                    "/lib64",
                                    "/etc",
                                    "/run/systemd/resolve",
                                    "/run/resolvconf",
                                    "/run/NetworkManager",
                                    "/dev/urandom"};

// Later kernels know more to forbid, and the system's header need not know it; to the kernels
// before, it must not be said.
constexpr std::uint64_t FORBIDDEN_AT_FIRST = LANDLOCK_ACCESS_FS_MAKE_SYM * 2 - 1;
constexpr std::uint64_t REFER = 1ULL << 13;     // second version: moving to another folder
constexpr std::uint64_t TRUNCATE = 1ULL << 14;  // third version
constexpr std::uint64_t CONNECT = 1ULL << 1;    // fourth version, in a member of its own
constexpr std::uint64_t OTHERS = 3;             // sixth version, too: signals, abstract sockets

// Names are asked for and Kerberos tickets fetched over TCP when an answer is too long.
constexpr std::uint64_t SERVICE_PORTS[] = {53, 88};

constexpr int RULE_OF_A_PORT = 2;

struct PortRule {
    std::uint64_t access;
    std::uint64_t port;
};

/// The kernel's structure as of the sixth version; those before know its beginning.
struct Forbidden {
    std::uint64_t files = 0;
    std::uint64_t ports = 0;
    std::uint64_t scopes = 0;
};

std::uint64_t forbidden_files(long version) {
    return FORBIDDEN_AT_FIRST | (version >= 2 ? REFER : 0) | (version >= 3 ? TRUNCATE : 0);
}

/// Bytes of the structure that the kernel knows.
std::size_t known_size(long version) {
    if (version >= 6) return sizeof(Forbidden);
    return version >= 4 ? offsetof(Forbidden, scopes) : offsetof(Forbidden, ports);
}

/// A file has no entries that could be read.
std::uint64_t reading(int place) {
    struct stat found {};
    if (fstat(place, &found) != 0) fail_with_errno("fstat");
    return LANDLOCK_ACCESS_FS_READ_FILE |
           (S_ISDIR(found.st_mode) ? LANDLOCK_ACCESS_FS_READ_DIR : 0);
}

void allow_reading(int rules, const char* path) {
    const FileHandle place(open(path, O_PATH | O_CLOEXEC));
    if (!place) return;
    const landlock_path_beneath_attr rule{reading(place.get()), place.get()};
    if (syscall(SYS_landlock_add_rule, rules, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) != 0)
        fail_with_errno("landlock_add_rule");
}

void allow_port(int rules, std::uint64_t port) {
    const PortRule rule{CONNECT, port};
    if (syscall(SYS_landlock_add_rule, rules, RULE_OF_A_PORT, &rule, 0) != 0)
        fail_with_errno("landlock_add_rule");
}

void allow_connecting(int rules, int port) {
    for (const std::uint64_t service : SERVICE_PORTS) allow_port(rules, service);
    allow_port(rules, static_cast<std::uint64_t>(port));
}

}  // namespace

bool shut_off(int port) {
    const long version =
        syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
    if (version < 1) return false;
    const bool knows_ports = version >= 4;
    const Forbidden forbidden{forbidden_files(version), knows_ports ? CONNECT : 0,
                              version >= 6 ? OTHERS : 0};
    const FileHandle rules(
        static_cast<int>(syscall(SYS_landlock_create_ruleset, &forbidden, known_size(version), 0)));
    if (!rules) fail_with_errno("landlock_create_ruleset");
    if (knows_ports) allow_connecting(rules.get(), port);
    for (const char* path : READABLE) allow_reading(rules.get(), path);
    if (syscall(SYS_landlock_restrict_self, rules.get(), 0) != 0)
        fail_with_errno("landlock_restrict_self");
    return true;
}

}  // namespace services
