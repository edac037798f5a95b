// Single configuration keys, in the registry.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/standalone/store/database.h"

namespace standalone {

/// The stored keys. Any call may throw DatabaseError.
class KeyValueStore {
public:
    explicit KeyValueStore(Database& database) : database_(database) {}

    /// The value as it is stored now; nothing when there is no such key. Made to be called often:
    /// the statement is prepared once.
    std::optional<std::string> get(std::string_view section, std::string_view key);

    void set(std::string_view section, std::string_view key, std::string_view value);

    /// @return whether there was such a key
    bool unset(std::string_view section, std::string_view key);

private:
    Database& database_;
    std::optional<Statement> reading_;
};

}  // namespace standalone
