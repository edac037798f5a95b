// Reads a copy on the share that was made earlier, to see whether it still is what it was.
#include "services/backup_daemon/lane/read_back.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "services/backup_daemon/copy/sha256.h"

namespace services {
namespace {

constexpr std::size_t PIECE = 1024UL * 1024;

/// Hands on what the file has, piece by piece, for as long as it is taken.
/// @param take bool(offset, data, size)
/// @return whether there were so many bytes, and all were taken
template <typename Take>
bool read_all(ShareFile& file, long long size, Take take) {
    std::vector<char> piece(PIECE);
    for (long long offset = 0; offset < size;) {
        const auto wanted = std::min(PIECE, static_cast<std::size_t>(size - offset));
        if (file.read(offset, piece.data(), wanted) != wanted) return false;
        if (!take(offset, piece.data(), wanted)) return false;
        offset += static_cast<long long>(wanted);
    }
    return true;
}

bool has_hash(ShareFile& file, const ReadBack& order, const std::function<void()>& alive) {
    Sha256 hash;
    const auto add = [&](long long, const char* data, std::size_t size) {
        hash.add(data, size);
        alive();
        return true;
    };
    return read_all(file, order.size, add) && hash.hex() == order.sha256;
}

bool equals(ShareFile& file, const SourceFile& source, const std::function<void()>& alive) {
    std::vector<char> mine(PIECE);
    const auto is_same = [&](long long offset, const char* data, std::size_t size) {
        source.read(offset, mine.data(), size);
        alive();
        return std::memcmp(mine.data(), data, size) == 0;
    };
    return read_all(file, source.size(), is_same);
}

}  // namespace

Condition read_back(Share& share, const ReadBack& order, const SourceFile* source,
                    const std::function<void()>& alive) {
    const auto there = share.look(order.path);
    if (!there) return Condition::missing;
    if (there->size != order.size) return Condition::other_size;
    if (order.sha256.empty() && !source) return Condition::as_made;
    const auto file = share.open(order.path, Share::Open::read);
    const bool is_right =
        order.sha256.empty() ? equals(*file, *source, alive) : has_hash(*file, order, alive);
    return is_right ? Condition::as_made : Condition::other_content;
}

}  // namespace services
