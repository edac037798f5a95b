// Takes from a process that sends alerts what it does not need.
#include "services/backup_daemon/tell/sender_rights.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace services {
namespace {

constexpr rlim_t MORE_MEMORY = 512ULL * 1024 * 1024;

void require_done(bool done, const char* what) {
    if (!done) throw std::system_error(errno, std::generic_category(), what);
}

/// Some builds reserve terabytes of address space, so what is allowed is counted from there.
rlim_t address_space() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/statm", "re"),
                                                     std::fclose);
    unsigned long long pages = 0;
    require_done(file && std::fscanf(file.get(), "%llu", &pages) == 1, "/proc/self/statm");
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

void set_limit(__rlimit_resource which, rlim_t most) {
    const rlimit both{most, most};
    require_done(setrlimit(which, &both) == 0, "setrlimit");
}

}  // namespace

void keep_sender_rights() {
    const rlim_t memory = address_space() + MORE_MEMORY;
    require_done(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) == 0, "PR_CAP_AMBIENT");
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    require_done(syscall(SYS_capset, &header, none) == 0, "capset");
    // Also where no unit says it: what works by hand must work in the service.
    require_done(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
    require_done(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "PR_SET_DUMPABLE");
    set_limit(RLIMIT_AS, memory);
    set_limit(RLIMIT_CORE, 0);
}

}  // namespace services
