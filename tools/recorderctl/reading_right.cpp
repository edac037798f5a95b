// Root's rights that are kept: to read every folder, and to listen on the lowest ports.
#include "tools/recorderctl/reading_right.h"

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdint>

#include "platform/process_rights.h"

namespace recorderctl {

namespace {

// Of the first 32 capabilities, which stand in the first of the two records.
constexpr std::uint32_t bit(int capability) {
    return 1U << capability;
}
constexpr std::uint32_t KEPT = bit(CAP_DAC_READ_SEARCH) | bit(CAP_NET_BIND_SERVICE);

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
    const std::uint32_t kept = rights.sets[0].permitted & KEPT;
    rights.sets[0] = {.effective = 0, .permitted = kept, .inheritable = 0};
    rights.sets[1] = {};
    rights.take();
}

void hand_down_reading_right() {
    Rights rights;
    rights.sets[0].inheritable |= rights.sets[0].permitted & bit(CAP_DAC_READ_SEARCH);
    rights.take();
    prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, CAP_DAC_READ_SEARCH, 0, 0);
}

Right::Right(int capability) : capability(capability) {
    Rights rights;
    rights.sets[0].effective |= rights.sets[0].permitted & bit(capability);
    rights.take();
}

Right::~Right() {
    if (geteuid() == 0) return;
    Rights rights;
    rights.sets[0].effective &= ~bit(capability);
    rights.take();
}

ReadingRight::ReadingRight() : Right(CAP_DAC_READ_SEARCH) {}

PortRight::PortRight() : Right(CAP_NET_BIND_SERVICE) {}

}  // namespace recorderctl
