// What has to be done for the web server's certificate as time goes by.
#include "tools/recorderctl/web_upkeep.h"

#include <algorithm>
#include <cctype>
#include <ctime>
#include <exception>

#include "platform/standalone/store/complain.h"
#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"
#include "tools/recorderctl/output.h"
#include "tools/recorderctl/web_certificate.h"

namespace recorderctl {

namespace {

std::string why_due(const CertificateFacts& facts, long long now) {
    if (facts.begins > now) return "is not valid before " + zoned_time(facts.begins);
    return "ends " + zoned_time(facts.ends);
}

/// With a certificate for the same names.
WebSetting renewed(const WebSetting& setting, const CertificateFacts& before) {
    const standalone::FileHandle ours_alone = hold_folder(standalone::state_folder());
    WebSetting renewed = setting;
    renewed.pem = make_certificate(before.names, std::time(nullptr));
    keep_web_text(web_text(renewed));
    standalone::complain("recorderctl", "the web server's certificate, which " +
                                            why_due(before, std::time(nullptr)) +
                                            ", is replaced; the new one's fingerprint is SHA-256 " +
                                            read_certificate(renewed.pem).fingerprint);
    return renewed;
}

/// It is served when it has ended, too: browsers say so better than silence.
void require_sound(const std::string& pem) {
    checked_certificate(pem, pem, read_certificate(pem).begins);
}

/// Whether it can stand in an address, and in the web server's configuration.
bool is_plain_name(const std::string& name) {
    return std::ranges::all_of(name, [](unsigned char letter) {
        return std::isalnum(letter) != 0 || letter == '-' || letter == '.' || letter == ':';
    });
}

/// The host to which those are sent who speak plain HTTP to the port: a name that the certificate
/// is for, or the address. "-" is whichever address they have reached.
std::string redirection_host(const WebSetting& setting) {
    if (setting.maker == CertificateMaker::foreign)
        for (const std::string& name : read_certificate(setting.pem).names)
            if (is_plain_name(name)) return bracketed(name);
    return setting.address.is_any() ? "-" : bracketed(setting.address.host);
}

/// What is kept is served also where there is no room for its successor.
std::optional<WebSetting> renewed_if_possible() {
    try {
        return renew_if_due();
    } catch (const std::exception& failure) {
        standalone::complain("recorderctl", std::string("cannot look after the web server's "
                                                        "certificate: ") +
                                                failure.what());
    }
    return kept_web_setting();
}

}  // namespace

std::optional<WebSetting> renew_if_due() {
    std::optional<WebSetting> kept = kept_web_setting();
    if (!kept || kept->maker == CertificateMaker::none) return kept;
    const CertificateFacts facts = read_certificate(kept->pem);
    const long long now = std::time(nullptr);
    if (!is_due(facts, now)) return kept;
    if (kept->maker == CertificateMaker::own) return renewed(*kept, facts);
    standalone::complain("recorderctl", "the certificate that the web server was given " +
                                            why_due(facts, now) +
                                            "; give it the next one with \"web listen\"");
    return kept;
}

void prepare(int local_port, const std::string& held) {
    const std::optional<WebSetting> kept = renewed_if_possible();
    if (!kept) return;
    const WebAddress& address = kept->address;
    require_own_address(address);
    if (address.port == local_port && (address.is_any() || address.host == "127.0.0.1"))
        throw Failure("port " + std::to_string(local_port) +
                      " is the one of 127.0.0.1 that is served by plain HTTP");
    if (address.text() != held) require_free_port(address);
    if (kept->maker != CertificateMaker::none) require_sound(kept->pem);
    const bool plain = kept->maker == CertificateMaker::none;
    print_row({plain ? "plain" : "tls", address.text(), redirection_host(*kept)});
}

}  // namespace recorderctl
