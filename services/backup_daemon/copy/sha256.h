// SHA-256 of a growing text, by the processor's own instructions where it has them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

struct evp_md_ctx_st;  // libcrypto

namespace services {

class Sha256 {
public:
    Sha256();
    void add(const char* data, std::size_t size);
    /// Of everything added so far, hexadecimal; more may be added afterwards.
    std::string hex() const;

private:
    struct Free {
        void operator()(evp_md_ctx_st* context) const;
    };
    std::unique_ptr<evp_md_ctx_st, Free> context_;
};

}  // namespace services
