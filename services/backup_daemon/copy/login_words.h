// The words in which the SMB library tells why a server refuses a login.
#pragma once

#include <string>

struct _SMBCCTX;

namespace services {

/// Its error numbers have one for a wrong password and a disabled account, and none of their own
/// for an account that is locked or whose password has expired; its log has words for each. This
/// takes the place of that log, for all of the process: nothing of it is printed.
class LoginWords {
public:
    /// @param context is not used behind this object's end
    explicit LoginWords(_SMBCCTX* context);
    LoginWords(const LoginWords&) = delete;
    LoginWords& operator=(const LoginWords&) = delete;

    /// Listens from here on, until stop().
    void start();

    /// @return what was said of a refused login; "" when none was refused
    std::string stop();

private:
    static void hear(void* self, int level, const char* message);

    _SMBCCTX* context_;
    std::string words_;
};

}  // namespace services
