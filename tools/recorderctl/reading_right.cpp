// The daemon's right to read every folder, for a look at what the daemon will see.
#include "tools/recorderctl/reading_right.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "platform/process_rights.h"

namespace recorderctl {

namespace {

// One of the first 32 capabilities, which stand in the first of the two records.
constexpr std::uint32_t RIGHT = 1U << CAP_DAC_READ_SEARCH;

struct Rights {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct sets[_LINUX_CAPABILITY_U32S_3]{};

    Rights() { syscall(SYS_capget, &header, sets); }
    void take() { syscall(SYS_capset, &header, sets); }
};

}  // namespace

void become_recorder() {
    prctl(PR_SET_KEEPCAPS, 1, 0, 0, 0);
    take_recorder_identity();
    give_up_root();
    if (geteuid() == 0) return;
    Rights rights;
    const std::uint32_t kept = rights.sets[0].permitted & RIGHT;
    rights.sets[0] = {.effective = 0, .permitted = kept, .inheritable = 0};
    rights.sets[1] = {};
    rights.take();
}

ReadingRight::ReadingRight() {
    Rights rights;
    rights.sets[0].effective |= rights.sets[0].permitted & RIGHT;
    rights.take();
}

ReadingRight::~ReadingRight() {
    if (geteuid() == 0) return;
    Rights rights;
    rights.sets[0].effective &= ~RIGHT;
    rights.take();
}

}  // namespace recorderctl
