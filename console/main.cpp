// The console's CGI program: one request of the page in, one reply out.
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "console/identity.h"
#include "console/routes.h"
#include "platform/standalone/store/complain.h"
#include "platform/version.h"
#include "platform/version_question.h"

namespace {

using console::Refusal;
using console::refusal_reply;
using console::Reply;

/// The words of what fails inside are for the recorder's administrator, not for whoever asks.
Reply failure_reply(const std::exception& error) {
    standalone::complain("console.cgi", error.what());
    return refusal_reply({.status = 503,
                          .code = "state_unavailable",
                          .text = "The recorder's state cannot be read or written just now."});
}

Reply answer_request() {
    try {
        console::Request request = console::read_request();
        return console::answer(request);
    } catch (const Refusal& refusal) {
        return refusal_reply(refusal);
    } catch (const std::exception& error) {
        return failure_reply(error);
    }
}

}  // namespace

int main(int count, char** arguments) {
    if (asks_for_version(count, arguments)) {
        std::fprintf(stderr, "console.cgi %s\n", RECORDER_VERSION);
        return 0;
    }
    take_owner_identity();
    print(answer_request());
    // Ends without taking apart tables and connections, which the kernel drops faster.
    std::fflush(stdout);
    _exit(0);
}
