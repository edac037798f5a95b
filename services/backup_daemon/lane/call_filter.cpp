// Refuses a process the system calls by which it reaches other processes and what outlives it.
#include "services/backup_daemon/lane/call_filter.h"

#include <fcntl.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <seccomp.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <initializer_list>
#include <memory>
#include <new>
#include <system_error>

namespace services {
namespace {

// Younger than the library; the same numbers on all architectures.
constexpr int FCHMODAT2 = 452;
constexpr int SETXATTRAT = 463;
constexpr int REMOVEXATTRAT = 466;
constexpr int FILE_SETATTR = 469;

constexpr int REFUSED[] = {
    SCMP_SYS(chmod), SCMP_SYS(chown), SCMP_SYS(lchown), SCMP_SYS(utime), SCMP_SYS(utimes),
    SCMP_SYS(futimesat),
    // What Landlock does not know, or not from the beginning.
    SCMP_SYS(fchmod), SCMP_SYS(fchmodat), FCHMODAT2, SCMP_SYS(fchown), SCMP_SYS(fchownat),
    SCMP_SYS(utimensat), SCMP_SYS(truncate), SCMP_SYS(setxattr), SCMP_SYS(lsetxattr),
    SCMP_SYS(fsetxattr), SETXATTRAT, SCMP_SYS(removexattr), SCMP_SYS(lremovexattr),
    SCMP_SYS(fremovexattr), REMOVEXATTRAT, FILE_SETATTR,
    // Other processes of the user, the recorder's other programs among them.
    SCMP_SYS(kill), SCMP_SYS(tkill), SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo),
    SCMP_SYS(pidfd_open), SCMP_SYS(pidfd_send_signal), SCMP_SYS(pidfd_getfd), SCMP_SYS(ptrace),
    SCMP_SYS(process_vm_readv), SCMP_SYS(process_vm_writev), SCMP_SYS(process_madvise),
    SCMP_SYS(kcmp), SCMP_SYS(perf_event_open), SCMP_SYS(setpriority), SCMP_SYS(ioprio_set),
    SCMP_SYS(sched_setaffinity), SCMP_SYS(sched_setattr), SCMP_SYS(sched_setparam),
    SCMP_SYS(sched_setscheduler), SCMP_SYS(migrate_pages), SCMP_SYS(move_pages),
    // Memory that counts for nobody, or stays when the process is gone.
    SCMP_SYS(shmget), SCMP_SYS(msgget), SCMP_SYS(semget), SCMP_SYS(mq_open), SCMP_SYS(add_key),
    SCMP_SYS(request_key), SCMP_SYS(keyctl),
    // Ways to more of the kernel than a copy needs, and round this filter.
    SCMP_SYS(unshare), SCMP_SYS(setns), SCMP_SYS(io_uring_setup), SCMP_SYS(bpf),
    SCMP_SYS(userfaultfd)};

/// A call that is refused when these bits of one of its arguments are so. The kernel takes the
/// lower half of such an argument alone.
struct Refusal {
    int call;
    unsigned argument;
    scmp_datum_t value;
    scmp_datum_t bits = 0xffffffff;
};

constexpr Refusal REFUSED_WITH[] = {
    // The kernel's signals, sent in this process's name, and leases on files of its user.
    {SCMP_SYS(fcntl), 1, F_SETOWN},
    {SCMP_SYS(fcntl), 1, F_SETOWN_EX},
    {SCMP_SYS(fcntl), 1, F_SETSIG},
    {SCMP_SYS(fcntl), 1, F_SETLEASE},
    {SCMP_SYS(ioctl), 1, FIOSETOWN},
    {SCMP_SYS(ioctl), 1, SIOCSPGRP},
    // Words put into a terminal, as if somebody had typed them.
    {SCMP_SYS(ioctl), 1, TIOCSTI},
    {SCMP_SYS(ioctl), 1, TIOCLINUX},
    // Whoever closes such a socket last waits, and that is the daemon when it was sent to it.
    {SCMP_SYS(setsockopt), 2, SO_LINGER},
    // Connections over TCP that Landlock does not take for such.
    {SCMP_SYS(socket), 0, AF_SMC},
    {SCMP_SYS(socket), 2, IPPROTO_MPTCP},
    {SCMP_SYS(sendto), 3, MSG_FASTOPEN, MSG_FASTOPEN},
    {SCMP_SYS(sendmsg), 2, MSG_FASTOPEN, MSG_FASTOPEN},
    {SCMP_SYS(sendmmsg), 3, MSG_FASTOPEN, MSG_FASTOPEN}};

struct Release {
    void operator()(scmp_filter_ctx filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, Release>;

/// @param result 0, or an error number below 0
void require(int result, const char* what) {
    if (result != 0) throw std::system_error(-result, std::generic_category(), what);
}

void refuse(const Filter& filter, int call) {
    require(seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0), "seccomp_rule_add");
}

/// @param when all of these, each of another argument
void refuse(const Filter& filter, int call, std::initializer_list<scmp_arg_cmp> when) {
    require(seccomp_rule_add_array(filter.get(), SCMP_ACT_ERRNO(EPERM), call,
                                   static_cast<unsigned>(when.size()), when.begin()),
            "seccomp_rule_add_array");
}

scmp_arg_cmp is(unsigned argument, scmp_datum_t value, scmp_datum_t bits) {
    return {.arg = argument, .op = SCMP_CMP_MASKED_EQ, .datum_a = bits, .datum_b = value};
}

/// A call that names a process may name this one.
void refuse_unless(const Filter& filter, int call, pid_t self) {
    const auto value = static_cast<scmp_datum_t>(self);
    refuse(filter, call, {{.arg = 0, .op = SCMP_CMP_NE, .datum_a = value, .datum_b = 0}});
}

/// Datagrams to sockets with paths, which Landlock lets pass: the log service takes the user's for
/// events. The kernel makes one kind of the two.
void refuse_letters(const Filter& filter) {
    constexpr scmp_datum_t TYPE = 0xf;  // the bits beside it are flags
    for (const scmp_datum_t type : {SOCK_DGRAM, SOCK_RAW}) {
        refuse(filter, SCMP_SYS(socket), {is(0, AF_UNIX, 0xffffffff), is(1, type, TYPE)});
        refuse(filter, SCMP_SYS(socketpair), {is(1, type, TYPE)});
    }
}

}  // namespace

void filter_calls() {
    const Filter filter(seccomp_init(SCMP_ACT_ALLOW));
    if (!filter) throw std::bad_alloc();
    for (const int call : REFUSED) refuse(filter, call);
    for (const auto& [call, argument, value, bits] : REFUSED_WITH)
        refuse(filter, call, {is(argument, value, bits)});
    refuse_letters(filter);
    refuse_unless(filter, SCMP_SYS(prlimit64), 0);
    refuse_unless(filter, SCMP_SYS(tgkill), getpid());
    require(seccomp_load(filter.get()), "seccomp_load");
}

}  // namespace services
