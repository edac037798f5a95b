// Takes from a copying process every right that its work does not need, once and for good.
#include "services/backup_daemon/lane/fence.h"

#include <linux/capability.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>

#include "services/backup_daemon/lane/call_filter.h"
#include "services/backup_daemon/lane/errno_failure.h"
#include "services/backup_daemon/lane/landlock.h"

namespace services {
namespace {

// The socket, the standard ones, a connection, a recording, and what the library opens for itself.
constexpr rlim_t DESCRIPTORS = 64;

void require(bool done, const char* what) {
    if (!done) fail_with_errno(what);
}

/// What no program that is run can ever have again. Only whoever has CAP_SETPCAP may drop it; for
/// others no_new_privs says the same.
void drop_bounding_set() {
    for (int number = 0; prctl(PR_CAPBSET_READ, number) >= 0; ++number)
        require(prctl(PR_CAPBSET_DROP, number) == 0 || errno == EPERM, "PR_CAPBSET_DROP");
}

void drop_capabilities() {
    drop_bounding_set();
    require(prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0) == 0, "PR_CAP_AMBIENT");
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[_LINUX_CAPABILITY_U32S_3]{};
    require(syscall(SYS_capset, &header, none) == 0, "capset");
    require(prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0, "PR_SET_NO_NEW_PRIVS");
}

void limit(__rlimit_resource which, rlim_t most) {
    const rlimit both{most, most};
    require(setrlimit(which, &both) == 0, "setrlimit");
}

/// Bytes of address space that the process has now. Some builds reserve terabytes, so what is
/// allowed is counted from there.
rlim_t mapped() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/statm", "re"),
                                                     std::fclose);
    unsigned long long pages = 0;
    require(file && std::fscanf(file.get(), "%llu", &pages) == 1, "/proc/self/statm");
    return pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE));
}

/// Where the machine itself runs out of memory, the kernel takes such a process first and not the
/// daemon. No part of the fence: a process that may not say so of itself is as good as any.
void be_taken_first() {
    const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen("/proc/self/oom_score_adj", "we"),
                                                     std::fclose);
    if (file) std::fputs("1000", file.get());
}

void set_limits(rlim_t memory) {
    limit(RLIMIT_AS, memory);
    limit(RLIMIT_NOFILE, DESCRIPTORS);
    // Counts a user's processes, so the daemon's as well: from now on it starts no further one.
    limit(RLIMIT_NPROC, 0);
    limit(RLIMIT_CORE, 0);
    // Writing to a file fails; the signal that comes with it would end the process. Standard error
    // is heard of all the same where it is a terminal, a pipe or the journal's socket.
    signal(SIGXFSZ, SIG_IGN);
    limit(RLIMIT_FSIZE, 0);
}

}  // namespace

void fence_in(int port) {
    const rlim_t memory = mapped() + FENCED_MEMORY;
    be_taken_first();
    drop_capabilities();
    require(prctl(PR_SET_DUMPABLE, 0, 0, 0, 0) == 0, "PR_SET_DUMPABLE");
    shut_off(port);
    set_limits(memory);
    filter_calls();
}

}  // namespace services
