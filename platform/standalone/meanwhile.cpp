// Work for the time in which a service answers.
#include "platform/standalone/meanwhile.h"

#include <exception>
#include <utility>

namespace standalone {

namespace {

std::function<void()>& waiting_work() {
    thread_local std::function<void()> work;
    return work;
}

}  // namespace

void prepare_meanwhile(std::function<void()> work) {
    waiting_work() = std::move(work);
}

void do_meanwhile() {
    const auto work = std::exchange(waiting_work(), nullptr);
    if (!work) return;
    try {
        work();
    } catch (const std::exception&) {
        // It is done anew where it is needed.
    }
}

}  // namespace standalone
