// Answers that the registry has given, kept beside it for whoever asks the same.
#include "platform/standalone/store/kept_answers.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/digest.h"
#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/folder_reader.h"
#include "platform/standalone/store/state_folder.h"
#include "platform/standalone/store/words.h"

namespace standalone {

namespace {

// "RCANSWR1"; another one when what answers hold changes.
constexpr long long MAGIC = 0x315257534e414352;
constexpr std::size_t SLOTS = 256;  // of each kind of question
constexpr std::size_t SLOT = 512;   // bytes
constexpr std::size_t SEAL = 3 * sizeof(long long);
constexpr int HOW_TO_OPEN = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

/// What of a database's header tells its state (sqlite.org/fileformat2.html#database_header).
struct Header {
    static constexpr off_t PLACE = 18;

    unsigned char writers = 0;  ///< 1: changes are made in the file; 2: beside it, in a log
    unsigned char readers = 0;
    std::array<unsigned char, 4> others{};
    std::array<unsigned char, 4> change_counter{};
};

/// What a state of the registry is known by: its file, and how often that was written to. Each
/// transaction of a database with a rollback journal writes another counter, before it is done, and
/// one that is rolled back takes its own back. Device, inode, size and change time are for those
/// who put another file in its place.
using Mark = std::array<long long, 5>;

/// The registry's file, opened once by a process. It is never closed, not even when another file
/// has taken its name: that would drop all locks that SQLite has on it for this process (fcntl(2)).
struct OpenRegistry {
    int file = -1;
    struct stat found {};

    bool is_at(const std::string& path) {
        struct stat now {};
        if (file < 0 || stat(path.c_str(), &now) != 0) return false;
        const bool is_same = now.st_dev == found.st_dev && now.st_ino == found.st_ino;
        if (is_same) found = now;
        return is_same;
    }

    bool open_at(const std::string& path) {
        file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        return file >= 0 && fstat(file, &found) == 0;
    }
};

std::optional<Mark> registry_mark() {
    static std::mutex guard;
    static OpenRegistry registry;
    const std::scoped_lock lock(guard);
    const std::string path = registry_database_path();
    Header header;
    if (!registry.is_at(path) && !registry.open_at(path)) return {};
    if (pread(registry.file, &header, sizeof header, Header::PLACE) != sizeof header) return {};
    // Somebody has given it a write-ahead log, whose changes leave the file as it is.
    if (header.writers != 1 || header.readers != 1) return {};
    const auto counter = std::bit_cast<std::uint32_t>(header.change_counter);
    const struct stat& found = registry.found;
    return Mark{static_cast<long long>(found.st_dev), static_cast<long long>(found.st_ino),
                found.st_size, nanoseconds(found.st_ctim), counter};
}

/// Where a question's answer lies. Two of one slot take it from each other.
off_t place_of(Question kind, std::string_view question) {
    const std::string digest = quick_digest(question);
    std::size_t number = 0;
    std::from_chars(digest.data(), digest.data() + 2, number, 16);
    return static_cast<off_t>((static_cast<std::size_t>(kind) * SLOTS + number) * SLOT);
}

std::optional<std::string> kept_answer(const Mark& mark, const std::string& question, off_t place) {
    const FileHandle file(open(registry_answers_path().c_str(), O_RDONLY | HOW_TO_OPEN));
    std::array<char, SLOT> slot{};
    if (pread(file.get(), slot.data(), SLOT, place) != SLOT || slot[0] == '\0') return {};
    try {
        WordReader words = opened(MAGIC, {slot.data(), SLOT});
        for (const long long part : mark)
            if (words.number() != part) return {};
        if (words.text() != question) return {};
        return words.text();
    } catch (const std::logic_error&) {
        return {};
    }
}

/// What is too long for a slot is not kept, and what fails is asked for once more.
void keep(const Mark& mark, const std::string& question, const std::string& answer, off_t place) {
    WordWriter words;
    for (const long long part : mark) words.number(part);
    words.text(question);
    words.text(answer);
    if (words.bytes().size() > SLOT - SEAL) return;
    while (words.bytes().size() < SLOT - SEAL) words.number(0);
    const FileHandle file(
        open(registry_answers_path().c_str(), O_WRONLY | O_CREAT | HOW_TO_OPEN, 0600));
    const std::string slot = sealed(MAGIC, words);
    [[maybe_unused]] const ssize_t written = pwrite(file.get(), slot.data(), slot.size(), place);
}

}  // namespace

std::optional<std::string> registry_answer(Question kind, const std::string& question,
                                           const std::function<std::optional<std::string>()>& ask) {
    const off_t place = place_of(kind, question);
    if (const std::optional<Mark> mark = registry_mark()) {
        if (auto kept = kept_answer(*mark, question, place)) return kept;
    }
    Database& registry = registry_for_reading();
    const Transaction reading(registry, Database::Access::reading);
    auto answer = ask();
    // Nobody writes before the transaction ends, so this is the state that was read; unless the
    // connection, which may be an old one, has another file than the name.
    const std::optional<Mark> mark = registry_mark();
    if (answer && mark && !registry.was_replaced()) keep(*mark, question, *answer, place);
    return answer;
}

}  // namespace standalone
