// The words in which the SMB library tells why a server refuses a login.
#include "services/backup_daemon/copy/login_words.h"

extern "C" {
#include <libsmbclient.h>
}

#include <string_view>
#include <utility>

namespace services {
namespace {

// What is said at this level about a connection is some twenty lines.
constexpr int TALKATIVE = 3;
constexpr int SILENT = 0;

constexpr std::string_view REFUSAL = "login failed: ";

}  // namespace

LoginWords::LoginWords(_SMBCCTX* context) : context_(context) {
    smbc_setLogCallback(context, this, hear);
    smbc_setDebug(context, SILENT);
}

void LoginWords::start() {
    words_.clear();
    smbc_setDebug(context_, TALKATIVE);
}

std::string LoginWords::stop() {
    smbc_setDebug(context_, SILENT);
    return std::exchange(words_, "");
}

void LoginWords::hear(void* self, int, const char* message) {
    const std::string_view said(message);
    const auto found = said.find(REFUSAL);
    if (found == std::string_view::npos) return;
    const std::string_view words = said.substr(found + REFUSAL.size());
    static_cast<LoginWords*>(self)->words_ = words.substr(0, words.find('\n'));
}

}  // namespace services
