// Asks the web server itself what it serves at an address.
#pragma once

#include <string>

#include "tools/recorderctl/web_address.h"

namespace recorderctl {

/// Whether somebody takes connections there.
bool answers(const WebAddress& address);

/// The fingerprint of the certificate that is shown there, as CertificateFacts have it; "" when
/// nobody shows one within some seconds. Nothing is trusted, nothing but this is asked.
std::string shown_fingerprint(const WebAddress& address);

}  // namespace recorderctl
