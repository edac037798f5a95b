// The hash of a file from its beginning on, which goes along where anybody asked for it.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "services/backup_daemon/copy/sha256.h"

namespace services {

/// Costs nothing when it is not wanted: hashing takes as long as sending on a fast line.
class ContentHash {
public:
    explicit ContentHash(bool wanted) : wanted_(wanted) { restart(); }

    /// Nothing has been added.
    void restart() {
        if (wanted_) hash_.emplace();
    }

    /// Goes on from a beginning that was hashed elsewhere.
    void go_on_from(Sha256 beginning) {
        if (wanted_) hash_ = std::move(beginning);
    }

    void add(const char* data, std::size_t size) {
        if (hash_) hash_->add(data, size);
    }

    /// Of everything added so far, hexadecimal; "" when nobody asked.
    std::string hex() const { return hash_ ? hash_->hex() : ""; }

private:
    bool wanted_;
    std::optional<Sha256> hash_;
};

}  // namespace services
