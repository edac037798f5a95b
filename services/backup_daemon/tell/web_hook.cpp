// Tells a web hook of an alert: HTTP POST of a JSON object, signed.
#include "services/backup_daemon/tell/web_hook.h"

#include "platform/standalone/store/utf8.h"
#include "platform/version.h"
#include "services/backup_daemon/tell/signature.h"
#include "services/backup_daemon/tell/transfer_handle.h"

namespace services {
namespace {

constexpr std::chrono::seconds LIMIT(30);
constexpr std::size_t MOST_READ = 4096;
constexpr std::size_t MOST_QUOTED = 200;

bool is_success(long status) {
    return status >= 200 && status < 300;
}

/// An answer's body. Of a success nobody needs it, of anything else its beginning.
struct Body {
    TransferHandle* transfer = nullptr;
    std::string beginning;
};

/// Less than there is ends the transfer.
std::size_t take_body(char* data, std::size_t, std::size_t size, void* taken) {
    auto& body = *static_cast<Body*>(taken);
    if (is_success(body.transfer->status())) return 0;
    body.beginning.append(data, size);
    return body.beginning.size() <= MOST_READ ? size : 0;
}

/// What comes behind the server's status is of no interest, whether it came whole or not.
AttemptResult result_of_status(long status, const std::string& said) {
    if (is_success(status)) return {.arrived = true, .words = ""};
    std::string words = "the web hook answers " + std::to_string(status);
    if (status >= 300 && status < 400) words += ", a redirection, which is not followed";
    if (!said.empty()) words += ": " + std::string(standalone::cut_utf8(said, MOST_QUOTED));
    return {.arrived = false, .words = words};
}

/// The id is the daemon's own; a line end in it would begin a header of its own.
std::string header_of_id(const std::string& id) {
    return "X-Recorder-Alert: " + id.substr(0, id.find_first_of("\r\n"));
}

}  // namespace

void tell_web_hook(const WebHookSettings& settings, const AlertMessage& message,
                   const AttemptReport& report) {
    CurlList headers;
    headers.add("Content-Type: application/json");
    headers.add(header_of_id(message.id));
    if (!settings.secret.empty())
        headers.add("X-Recorder-Signature: sha256=" + hmac_sha256(settings.secret, message.object));
    TransferHandle transfer(settings.address, "http,https", LIMIT, settings.ca_file);
    transfer.set(CURLOPT_USERAGENT, ("recorder/" + std::string(RECORDER_VERSION)).c_str());
    transfer.set(CURLOPT_HTTPHEADER, headers.get());
    transfer.set(CURLOPT_POSTFIELDSIZE, static_cast<long>(message.object.size()));
    transfer.set(CURLOPT_POSTFIELDS, message.object.c_str());
    transfer.set(CURLOPT_FOLLOWLOCATION, 0L);
    Body body{.transfer = &transfer, .beginning = ""};
    transfer.set(CURLOPT_WRITEFUNCTION, take_body);
    transfer.set(CURLOPT_WRITEDATA, static_cast<void*>(&body));
    const std::string failure = transfer.perform();
    const long status = transfer.status();
    report(status != 0 ? result_of_status(status, body.beginning)
                       : AttemptResult{.arrived = false, .words = failure});
}

}  // namespace services
