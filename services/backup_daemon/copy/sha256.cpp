// SHA-256 of a growing text, by the processor's own instructions where it has them.
#include "services/backup_daemon/copy/sha256.h"

#include <openssl/evp.h>

#include <new>
#include <stdexcept>

namespace services {
namespace {

void check(int result) {
    if (result != 1) throw std::runtime_error("cannot reckon SHA-256");
}

}  // namespace

void Sha256::Free::operator()(evp_md_ctx_st* context) const {
    EVP_MD_CTX_free(context);
}

Sha256::Sha256() : context_(EVP_MD_CTX_new()) {
    if (!context_) throw std::bad_alloc();
    check(EVP_DigestInit_ex(context_.get(), EVP_sha256(), nullptr));
}

void Sha256::add(const char* data, std::size_t size) {
    check(EVP_DigestUpdate(context_.get(), data, size));
}

std::string Sha256::hex() const {
    const std::unique_ptr<evp_md_ctx_st, Free> copy(EVP_MD_CTX_new());
    if (!copy) throw std::bad_alloc();
    check(EVP_MD_CTX_copy_ex(copy.get(), context_.get()));
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    check(EVP_DigestFinal_ex(copy.get(), digest, &size));
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (unsigned at = 0; at < size; ++at) {
        text += DIGITS[digest[at] >> 4];
        text += DIGITS[digest[at] & 15];
    }
    return text;
}

}  // namespace services
