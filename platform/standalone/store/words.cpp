// Numbers and texts as a sequence of bytes that tells whether it is whole and undamaged.
#include "platform/standalone/store/words.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace standalone {

namespace {

constexpr std::size_t WORD = sizeof(long long);
constexpr std::size_t HEADER = 3 * WORD;

/// How many zeros fill a text's last word.
std::size_t filling(std::size_t length) {
    return (WORD - length % WORD) % WORD;
}

/// A word that differs makes another sum, whatever follows: each step can be taken back.
std::uint64_t checksum(std::string_view words) {
    constexpr std::uint64_t FACTOR = 0x9e3779b97f4a7c15;
    std::uint64_t sum = words.size();
    for (std::size_t at = 0; at + WORD <= words.size(); at += WORD) {
        std::uint64_t word = 0;
        std::memcpy(&word, words.data() + at, WORD);
        sum = std::rotl((sum ^ word) * FACTOR, 29);
    }
    return sum;
}

}  // namespace

void WordWriter::text(std::string_view value) {
    number(static_cast<long long>(value.size()));
    bytes_.append(value).append(filling(value.size()), '\0');
}

std::string WordReader::text() {
    const auto length = static_cast<std::size_t>(number());
    const std::string_view value = take(length);
    take(filling(length));
    return std::string(value);
}

std::string sealed(long long magic, const WordWriter& words) {
    WordWriter all;
    all.number(magic);
    all.number(std::ssize(words.bytes()));
    all.number(static_cast<long long>(checksum(words.bytes())));
    return all.bytes() + words.bytes();
}

WordReader opened(long long magic, std::string_view sealed) {
    const auto refuse = [](bool wrong) {
        if (wrong) throw std::invalid_argument("these words are damaged");
    };
    refuse(sealed.size() < HEADER);
    WordReader header(sealed);
    const std::string_view words = sealed.substr(HEADER);
    refuse(header.number() != magic);
    refuse(header.number() != std::ssize(words) || words.size() % WORD != 0);
    refuse(header.number() != static_cast<long long>(checksum(words)));
    return WordReader(words);
}

}  // namespace standalone
