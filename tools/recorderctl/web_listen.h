// Has the web server listen somewhere, and waits until it does.
#pragma once

#include <string>

#include "tools/recorderctl/web_setting.h"

namespace recorderctl {

struct ListenOrder {
    std::string address;      ///< "ADDRESS:PORT"
    std::string certificate;  ///< a file; "" for one of the recorder's own making
    std::string key;          ///< a file, with the certificate
    bool later = false;       ///< for the web server to take it up
};

/// Does what is ordered, or nothing: whatever is wrong with it, should the web server not take it
/// up, or somebody interrupt this, what was kept before is kept.
/// @return what is kept now
/// @throws Failure
WebSetting listen(const ListenOrder& order);

/// Has it listen on its own port of 127.0.0.1 alone.
/// @throws Failure when it still answers where it did
void listen_locally(bool later);

/// Whether the web server answers there, and shows that certificate.
bool is_served(const WebSetting& setting);

}  // namespace recorderctl
