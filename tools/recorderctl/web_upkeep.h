// What has to be done for the web server's certificate as time goes by.
#pragma once

#include <optional>
#include <string>

#include "tools/recorderctl/web_setting.h"

namespace recorderctl {

/// Makes a new certificate in the place of one of the recorder's own that is due, and says so on
/// standard error; says there, too, when one that was given is.
/// @return what is kept now
/// @throws Failure
std::optional<WebSetting> renew_if_due();

/// What the web server's start has to know, on one line: "plain" or "tls", where to listen, and the
/// host to which those are sent who speak plain HTTP there, "-" for the address that they have
/// reached. No line when there is nothing besides the port of 127.0.0.1.
/// @param local_port that port
/// @param held where the web server listens now, "192.0.2.10:8443"; it goes on with that socket
/// @throws Failure when the web server could not listen there; that a certificate cannot be renewed
///         is only complained of
void prepare(int local_port, const std::string& held);

}  // namespace recorderctl
