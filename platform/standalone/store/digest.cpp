// SHA-256 of texts that are only to be known again.
#include "platform/standalone/store/digest.h"

#include <sodium.h>

#include <array>

namespace standalone {

std::string hex(std::span<const unsigned char> bytes) {
    std::string text(bytes.size() * 2 + 1, '\0');
    sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
    text.pop_back();
    return text;
}

std::string sha256_hex(std::string_view text) {
    std::array<unsigned char, crypto_hash_sha256_BYTES> hash{};
    crypto_hash_sha256(hash.data(), reinterpret_cast<const unsigned char*>(text.data()),
                       text.size());
    return hex(hash);
}

std::string quick_digest(std::string_view text) {
    constexpr std::array<unsigned char, crypto_shorthash_KEYBYTES> KEY{};
    std::array<unsigned char, crypto_shorthash_BYTES> hash{};
    crypto_shorthash(hash.data(), reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                     KEY.data());
    return hex(hash);
}

}  // namespace standalone
