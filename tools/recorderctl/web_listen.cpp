// Has the web server listen somewhere, and waits until it does.
#include "tools/recorderctl/web_listen.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"
#include "tools/recorderctl/reading_right.h"
#include "tools/recorderctl/web_certificate.h"
#include "tools/recorderctl/web_probe.h"

namespace recorderctl {

namespace {

// A web server that reads its configuration again needs one or two.
constexpr std::chrono::seconds TAKING_UP{30};
constexpr std::chrono::milliseconds BETWEEN_LOOKS{100};
constexpr std::uintmax_t LARGEST_PEM = 256 * 1024;

std::string read_pem(const std::string& path) {
    const ReadingRight right;  // root may name what only root can read
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    std::ifstream file(path);
    if (error || !file) throw Failure("cannot read " + path);
    if (size > LARGEST_PEM) throw Failure(path + " is too large for a certificate or a key");
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

/// The machine's own name, where it can stand in a certificate.
std::vector<std::string> host_names() {
    std::array<char, 256> name{};
    gethostname(name.data(), name.size() - 1);
    const std::string host = name.data();
    const bool plain = !host.empty() && std::ranges::all_of(host, [](unsigned char letter) {
        return std::isalnum(letter) != 0 || letter == '-' || letter == '.';
    });
    if (!plain || host == "localhost") return {"localhost"};
    return {host, "localhost"};
}

std::vector<std::string> names_for(const WebAddress& address) {
    std::vector<std::string> names = reachable_hosts(address);
    if (address.is_any()) names.insert(names.end(), {"127.0.0.1", "::1"});
    for (const std::string& name : host_names()) names.push_back(name);
    return names;
}

/// The one that is kept, where it is for these names, too: administrators know its fingerprint.
std::string own_certificate(const std::vector<std::string>& names,
                            const std::optional<WebSetting>& kept) {
    if (kept && kept->maker == CertificateMaker::own) {
        const CertificateFacts facts = read_certificate(kept->pem);
        if (facts.names == names && !is_due(facts, std::time(nullptr))) return kept->pem;
    }
    return make_certificate(names, std::time(nullptr));
}

/// As long as it lives, who interrupts the command is heard only here.
class Interruptions {
public:
    Interruptions() {
        sigemptyset(&signals);
        for (const int one : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals, one);
        sigprocmask(SIG_BLOCK, &signals, &before);
    }
    ~Interruptions() { sigprocmask(SIG_SETMASK, &before, nullptr); }
    Interruptions(const Interruptions&) = delete;
    Interruptions& operator=(const Interruptions&) = delete;

    /// Waits for that long, or for one.
    bool come_within(std::chrono::nanoseconds time) const {
        const timespec patience{.tv_sec = 0, .tv_nsec = time.count()};
        return sigtimedwait(&signals, nullptr, &patience) > 0;
    }

private:
    sigset_t signals{};
    sigset_t before{};
};

/// @return why it has not; "" when it has
std::string comes_true(const std::function<bool()>& condition, const Interruptions& ours) {
    const auto end = std::chrono::steady_clock::now() + TAKING_UP;
    while (!condition()) {
        if (ours.come_within(BETWEEN_LOOKS)) return "the command was interrupted";
        if (std::chrono::steady_clock::now() > end)
            return "the web server has not taken it up within " +
                   std::to_string(TAKING_UP.count()) + " seconds";
    }
    return "";
}

/// What is kept is what is served: what the web server does not take up is not kept either.
void keep_and_wait(const WebSetting& setting) {
    const std::optional<std::string> before = kept_web_text();
    if (before == web_text(setting) && is_served(setting)) return;  // so nobody is hung up on
    const Interruptions ours;
    keep_web_text(web_text(setting));
    const std::string why = comes_true([&setting] { return is_served(setting); }, ours);
    if (why.empty()) return;
    keep_web_text(before);
    throw Failure(why +
                  ", so all is as it was; does it run, and what does its log say? "
                  "With --later it is kept for its next start");
}

WebSetting ordered_setting(const ListenOrder& order, const std::optional<WebSetting>& kept) {
    const WebAddress address = parse_web_address(order.address);
    require_own_address(address);
    if (!kept || kept->address != address) require_free_port(address);
    if (address.is_loopback() && !order.certificate.empty())
        throw Failure(address.host + " is the machine's own, where HTTP is plain: no certificate");
    if (address.is_loopback()) return {.address = address};
    if (order.certificate.empty())
        return {.address = address,
                .maker = CertificateMaker::own,
                .pem = own_certificate(names_for(address), kept)};
    return {.address = address,
            .maker = CertificateMaker::foreign,
            .pem = checked_certificate(read_pem(order.certificate), read_pem(order.key),
                                       std::time(nullptr))};
}

/// What is kept, if it can be read: the order replaces it.
std::optional<WebSetting> readable_setting() {
    try {
        return kept_web_setting();
    } catch (const Failure&) {
        return std::nullopt;
    }
}

}  // namespace

bool is_served(const WebSetting& setting) {
    if (setting.maker == CertificateMaker::none) return answers(setting.address);
    return shown_fingerprint(setting.address) == read_certificate(setting.pem).fingerprint;
}

WebSetting listen(const ListenOrder& order) {
    const standalone::FileHandle ours_alone = hold_folder(standalone::state_folder());
    WebSetting setting = ordered_setting(order, readable_setting());
    if (order.later)
        keep_web_text(web_text(setting));
    else
        keep_and_wait(setting);
    return setting;
}

void listen_locally(bool later) {
    const standalone::FileHandle ours_alone = hold_folder(standalone::state_folder());
    const std::optional<WebSetting> kept = readable_setting();
    keep_web_text(std::nullopt);
    if (later || !kept) return;
    const std::string why = comes_true([&kept] { return !answers(kept->address); }, {});
    if (!why.empty())
        throw Failure(why + "; it listens there alone from its next start; what does its log say?");
}

}  // namespace recorderctl
