// What "recorderctl web listen" keeps in the state folder: where the web server listens beyond its
// own port of 127.0.0.1, with the certificate for it.
#pragma once

#include <optional>
#include <string>

#include "tools/recorderctl/web_address.h"

namespace recorderctl {

/// Who made the certificate.
enum class CertificateMaker {
    none,     ///< there is none: a loopback address, where HTTP is plain
    own,      ///< recorderctl, which also renews it
    foreign,  ///< somebody else, who gave it with its key
};

struct WebSetting {
    WebAddress address;
    CertificateMaker maker = CertificateMaker::none;
    std::string pem{};  ///< the key, then the certificates; "" without
};

// All of it is one file, web.pem (docs/formats.md): whoever reads it sees the old or the new.

/// @return nothing when the web server listens on its own port of 127.0.0.1 alone
/// @throws Failure when the file cannot be read or is no such file
std::optional<WebSetting> kept_web_setting();

/// Puts it in the place of what was kept; nothing removes that. On disk when this returns.
/// @throws Failure
void keep_web_setting(const std::optional<WebSetting>& setting);

}  // namespace recorderctl
