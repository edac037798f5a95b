// Signs what web hooks get, so that they know whom it is from.
#include "services/backup_daemon/tell/signature.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <array>
#include <stdexcept>

namespace services {

std::string hmac_sha256(std::string_view secret, std::string_view text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned size = 0;
    if (HMAC(EVP_sha256(), secret.data(), static_cast<int>(secret.size()),
             reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data(),
             &size) == nullptr)
        throw std::runtime_error("the alert cannot be signed");
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string hexadecimal;
    for (unsigned at = 0; at < size; ++at) {
        hexadecimal += DIGITS[digest[at] >> 4];
        hexadecimal += DIGITS[digest[at] & 0xF];
    }
    return hexadecimal;
}

}  // namespace services
