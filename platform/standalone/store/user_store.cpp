// The recorder's accounts, in the registry.
#include "platform/standalone/store/user_store.h"

#include <sodium.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "platform/cgi_input.h"

namespace standalone {

namespace {

std::string hash_password(const std::string& password) {
    std::array<char, crypto_pwhash_STRBYTES> hash{};
    if (sodium_init() < 0 || crypto_pwhash_str(hash.data(), password.data(), password.size(),
                                               crypto_pwhash_OPSLIMIT_INTERACTIVE,
                                               crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0)
        throw std::runtime_error("not enough memory to hash the password");
    return hash.data();
}

/// Of a password that nobody knows, made with the same effort as any other.
constexpr char NOBODYS_HASH[] =
    "$argon2id$v=19$m=65536,t=2,p=1$BM7RAbE9NwQy6hnoEN+k1A$KhJdPUHxtMBjd1bN/"
    "3xcGjHPZlnJjFWx8M66oCUFUxA";

/// The check calls a password wrong for which it gets no memory, and does not say so.
void require_memory() {
    void* memory = mmap(nullptr, crypto_pwhash_MEMLIMIT_INTERACTIVE, PROT_READ | PROT_WRITE,
                        MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("not enough memory to check the password");
    munmap(memory, crypto_pwhash_MEMLIMIT_INTERACTIVE);
}

bool is_password_of(const std::string& hash, const std::string& password) {
    if (sodium_init() < 0) throw std::runtime_error("no cryptography on this machine");
    require_memory();
    return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

}  // namespace

bool UserStore::valid_name(const std::string& name) {
    const auto is_control = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
    return !name.empty() && name.size() < sizeof(t_ostra_auth_info::user_name) &&
           std::ranges::none_of(name, is_control);
}

bool UserStore::add(const User& user, const std::string& password) {
    Statement insert = database_.prepare(
        "INSERT OR IGNORE INTO user (name, password_hash, level) VALUES (?, ?, ?)");
    insert.bind(1, user.name).bind(2, hash_password(password)).bind(3, user.level).step();
    return database_.changes() > 0;
}

bool UserStore::set_password(const std::string& name, const std::string& password) {
    const std::string hash = hash_password(password);
    Transaction transaction(database_);
    Statement update = database_.prepare("UPDATE user SET password_hash = ? WHERE name = ?");
    update.bind(1, hash).bind(2, name).step();
    const bool known = database_.changes() > 0;
    database_.prepare("DELETE FROM session WHERE user = ?").bind(1, name).step();
    transaction.commit();
    return known;
}

bool UserStore::remove(const std::string& name) {
    database_.prepare("DELETE FROM user WHERE name = ?").bind(1, name).step();
    return database_.changes() > 0;
}

std::optional<CheckedUser> UserStore::check_password(const std::string& name,
                                                     const std::string& password) {
    std::optional<CheckedUser> found;
    {
        // Read to its end first: nobody can write while a statement is open.
        Statement row = database_.prepare("SELECT password_hash, level FROM user WHERE name = ?");
        if (row.bind(1, name).step())
            found = {{name, static_cast<unsigned>(row.integer(1))}, row.text(0)};
    }
    return is_password_of(found ? found->password_hash : NOBODYS_HASH, password) ? found
                                                                                 : std::nullopt;
}

bool UserStore::exists(const std::string& name) {
    return database_.prepare("SELECT 1 FROM user WHERE name = ?").bind(1, name).step();
}

std::vector<User> UserStore::list() {
    std::vector<User> users;
    Statement row = database_.prepare("SELECT name, level FROM user ORDER BY name");
    while (row.step()) users.push_back({row.text(0), static_cast<unsigned>(row.integer(1))});
    return users;
}

}  // namespace standalone
