// One password hash at a time in each of two lines: each takes 67 MB.
#include "console/hashing_turn.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <thread>

#include "console/refusal.h"
#include "platform/standalone/store/state_folder.h"

namespace console {

namespace {

constexpr std::chrono::milliseconds LONGEST_WAIT(3000);
constexpr std::chrono::milliseconds BETWEEN_LOOKS(10);

/// Each line has a byte of the file.
bool wait_for_lock(int file, Line line) {
    struct flock lock {};
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = static_cast<off_t>(line);
    lock.l_len = 1;
    const auto end = std::chrono::steady_clock::now() + LONGEST_WAIT;
    while (fcntl(file, F_OFD_SETLK, &lock) != 0) {
        if (std::chrono::steady_clock::now() >= end) return false;
        std::this_thread::sleep_for(BETWEEN_LOOKS);
    }
    return true;
}

}  // namespace

HashingTurn::HashingTurn(Line line)
    : file_(open((standalone::state_folder() + "/sign_in.lock").c_str(),
                 O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)) {
    if (file_ < 0) throw std::runtime_error("cannot open sign_in.lock in the state folder");
    if (wait_for_lock(file_, line)) return;
    close(file_);
    throw Refusal{.status = 503,
                  .code = "busy",
                  .text = "Too many are signing in just now.",
                  .retry_after = 1};
}

HashingTurn::~HashingTurn() {
    close(file_);
}

}  // namespace console
