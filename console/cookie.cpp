// The cookie that a session lives in.
#include "console/cookie.h"

namespace console {

std::string session_cookie(const std::string& sid, long long seconds, bool behind_tls) {
    return "Set-Cookie: sid=" + sid + "; Path=/cgi-bin/; Max-Age=" + std::to_string(seconds) +
           "; HttpOnly; SameSite=Strict" + (behind_tls ? "; Secure" : "");
}

}  // namespace console
