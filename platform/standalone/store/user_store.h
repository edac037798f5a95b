// The recorder's accounts, in the registry.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/cgi_input.h"
#include "platform/standalone/store/database.h"

namespace standalone {

/// One account, without its password.
struct User {
    std::string name;
    unsigned level = ADMINISTRATOR_LEVEL;
};

/// An account whose password has been checked, and the stored hash that it was checked against.
struct CheckedUser {
    User user;
    std::string password_hash;
};

/// The stored accounts. Any call may throw DatabaseError.
class UserStore {
public:
    explicit UserStore(Database& database) : database_(database) {}

    /// Whether `name` can be an account's name: 1 to 1023 bytes without control characters.
    static bool valid_name(const std::string& name);

    /// Stores an account; the password is kept as an Argon2id hash alone.
    /// @param name one that valid_name() accepts
    /// @return false when there is an account of that name already
    /// @throws std::runtime_error when there is not enough memory for the hash
    bool add(const User& user, const std::string& password);

    /// Gives an account another password, and closes its sessions.
    /// @return whether there is such an account
    /// @throws std::runtime_error as add()
    bool set_password(const std::string& name, const std::string& password);

    /// Deletes an account and its sessions.
    /// @return whether there was such an account
    bool remove(const std::string& name);

    /// Whose name and password these are; nothing when they are nobody's. A name of no account
    /// takes as long as a wrong password.
    /// @throws std::runtime_error as add()
    std::optional<CheckedUser> check_password(const std::string& name, const std::string& password);

    bool exists(const std::string& name);

    /// All accounts by name.
    std::vector<User> list();

private:
    Database& database_;
};

}  // namespace standalone
