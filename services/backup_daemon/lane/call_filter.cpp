// Refuses a process the system calls by which it reaches other processes and what outlives it.
#include "services/backup_daemon/lane/call_filter.h"

#include <fcntl.h>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <linux/sockios.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <system_error>
#include <vector>

namespace services {
namespace {

#if defined(__x86_64__)
constexpr std::uint32_t ARCHITECTURE = AUDIT_ARCH_X86_64;
#elif defined(__aarch64__)
constexpr std::uint32_t ARCHITECTURE = AUDIT_ARCH_AARCH64;
#else
#error "the kernel's name of this architecture belongs here"
#endif

// The numbers behind these are another table of the same calls (x32).
constexpr std::uint32_t LAST_NUMBER = 0x3fffffff;

// Younger than some systems' headers; the same on all architectures.
constexpr std::uint32_t FCHMODAT2 = 452;
constexpr std::uint32_t SETXATTRAT = 463;
constexpr std::uint32_t REMOVEXATTRAT = 466;
constexpr std::uint32_t FILE_SETATTR = 469;

constexpr std::uint32_t REFUSED[] = {
#ifdef SYS_chmod
    SYS_chmod, SYS_chown, SYS_lchown, SYS_utime, SYS_utimes, SYS_futimesat,
#endif
    // What Landlock does not know, or not from the beginning.
    SYS_fchmod, SYS_fchmodat, FCHMODAT2, SYS_fchown, SYS_fchownat, SYS_utimensat, SYS_truncate,
    SYS_setxattr, SYS_lsetxattr, SYS_fsetxattr, SETXATTRAT, SYS_removexattr, SYS_lremovexattr,
    SYS_fremovexattr, REMOVEXATTRAT, FILE_SETATTR,
    // Other processes of the user, the recorder's other programs among them.
    SYS_kill, SYS_tkill, SYS_rt_sigqueueinfo, SYS_rt_tgsigqueueinfo, SYS_pidfd_open,
    SYS_pidfd_send_signal, SYS_pidfd_getfd, SYS_ptrace, SYS_process_vm_readv, SYS_process_vm_writev,
    SYS_process_madvise, SYS_kcmp, SYS_perf_event_open, SYS_setpriority, SYS_ioprio_set,
    SYS_sched_setaffinity, SYS_sched_setattr, SYS_sched_setparam, SYS_sched_setscheduler,
    SYS_migrate_pages, SYS_move_pages,
    // Memory that counts for nobody, or stays when the process is gone.
    SYS_shmget, SYS_msgget, SYS_semget, SYS_mq_open, SYS_add_key, SYS_request_key, SYS_keyctl,
    // Ways to more of the kernel than a copy needs, and round this filter.
    SYS_unshare, SYS_setns, SYS_io_uring_setup, SYS_bpf, SYS_userfaultfd};

/// A call that is refused when one of its arguments is this, or has this bit. The kernel takes the
/// lower half of such an argument alone.
struct Refusal {
    std::uint32_t call;
    unsigned argument;
    std::uint32_t value;
    bool is_bit = false;
};

constexpr Refusal REFUSED_WITH[] = {
    // The kernel's signals, sent in this process's name, and leases on files of its user.
    {SYS_fcntl, 1, F_SETOWN},
    {SYS_fcntl, 1, F_SETOWN_EX},
    {SYS_fcntl, 1, F_SETSIG},
    {SYS_fcntl, 1, F_SETLEASE},
    {SYS_ioctl, 1, FIOSETOWN},
    {SYS_ioctl, 1, SIOCSPGRP},
    // Words put into a terminal, as if somebody had typed them.
    {SYS_ioctl, 1, TIOCSTI},
    {SYS_ioctl, 1, TIOCLINUX},
    // Whoever closes such a socket last waits, and that is the daemon when it was sent to it.
    {SYS_setsockopt, 2, SO_LINGER},
    // Connections over TCP that Landlock does not take for such.
    {SYS_socket, 0, AF_SMC},
    {SYS_socket, 2, IPPROTO_MPTCP},
    {SYS_sendto, 3, MSG_FASTOPEN, true},
    {SYS_sendmsg, 2, MSG_FASTOPEN, true},
    {SYS_sendmmsg, 3, MSG_FASTOPEN, true}};

using Program = std::vector<sock_filter>;

void load(Program& program, std::size_t place) {
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(place)));
}

/// The next instructions, so many, are for what was loaded being this, or not being it.
void only_if(Program& program, std::uint32_t value, std::uint8_t instructions) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, instructions));
}

void only_unless(Program& program, std::uint32_t value, std::uint8_t instructions) {
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, instructions, 0));
}

void end_with(Program& program, std::uint32_t action) {
    program.push_back(BPF_STMT(BPF_RET | BPF_K, action));
}

constexpr std::size_t argument(unsigned number) {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    return offsetof(seccomp_data, args) + number * sizeof(std::uint64_t);
}

constexpr std::uint32_t REFUSE = SECCOMP_RET_ERRNO | EPERM;

void refuse(Program& program, std::uint32_t call) {
    only_if(program, call, 1);
    end_with(program, REFUSE);
}

void refuse_with(Program& program, const Refusal& refusal) {
    only_if(program, refusal.call, 4);
    load(program, argument(refusal.argument));
    const std::uint16_t question = refusal.is_bit ? BPF_JSET : BPF_JEQ;
    program.push_back(BPF_JUMP(BPF_JMP | BPF_K | question, refusal.value, 0, 1));
    end_with(program, REFUSE);
    load(program, offsetof(seccomp_data, nr));
}

/// Calls that name a process may name this one.
void refuse_for_others(Program& program, std::uint32_t call, std::uint32_t self) {
    only_if(program, call, 4);
    load(program, argument(0));
    only_unless(program, self, 1);
    end_with(program, REFUSE);
    load(program, offsetof(seccomp_data, nr));
}

Program program_of_the_filter() {
    Program program;
    load(program, offsetof(seccomp_data, arch));
    only_unless(program, ARCHITECTURE, 1);
    end_with(program, SECCOMP_RET_KILL_PROCESS);
    load(program, offsetof(seccomp_data, nr));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, LAST_NUMBER, 0, 1));
    end_with(program, SECCOMP_RET_KILL_PROCESS);
    for (const std::uint32_t call : REFUSED) refuse(program, call);
    for (const Refusal& refusal : REFUSED_WITH) refuse_with(program, refusal);
    refuse_for_others(program, SYS_prlimit64, 0);
    refuse_for_others(program, SYS_tgkill, static_cast<std::uint32_t>(getpid()));
    end_with(program, SECCOMP_RET_ALLOW);
    return program;
}

}  // namespace

void filter_calls() {
    Program program = program_of_the_filter();
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        throw std::system_error(errno, std::generic_category(), "PR_SET_SECCOMP");
}

}  // namespace services
