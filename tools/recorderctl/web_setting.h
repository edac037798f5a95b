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

/// The same as its text, also where that is damaged.
std::optional<std::string> kept_web_text();

std::string web_text(const WebSetting& setting);

/// Puts a text in the place of what was kept; nothing removes that. On disk when this returns.
/// Whoever calls it holds the state folder (hold_folder()).
/// @throws Failure
void keep_web_text(const std::optional<std::string>& text);

}  // namespace recorderctl
