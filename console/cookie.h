// The cookie that a session lives in.
#pragma once

#include <string>

namespace console {

/// The header that has a browser keep a session, for both programs and nobody else: no script reads
/// it, no page of another site sends it along.
/// @param sid        "" to have it forgotten
/// @param seconds    until the browser forgets it
/// @param behind_tls the browser came by https, and is to send it by nothing else
std::string session_cookie(const std::string& sid, long long seconds, bool behind_tls);

}  // namespace console
