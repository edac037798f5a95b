// Single configuration keys, in the registry.
#include "platform/standalone/store/key_value_store.h"

namespace standalone {

std::optional<std::string> KeyValueStore::get(std::string_view section, std::string_view key) {
    if (!reading_)
        reading_ = database_.prepare("SELECT value FROM config_key WHERE section = ? AND key = ?");
    std::optional<std::string> value;
    if (reading_->bind(1, section).bind(2, key).step()) value = reading_->text(0);
    // Ends the read transaction, so that the next call sees what was written since.
    reading_->reset();
    return value;
}

void KeyValueStore::set(std::string_view section, std::string_view key, std::string_view value) {
    Statement insert = database_.prepare(
        "INSERT OR REPLACE INTO config_key (section, key, value) VALUES (?, ?, ?)");
    insert.bind(1, section).bind(2, key).bind(3, value).step();
}

bool KeyValueStore::unset(std::string_view section, std::string_view key) {
    Statement erase = database_.prepare("DELETE FROM config_key WHERE section = ? AND key = ?");
    erase.bind(1, section).bind(2, key).step();
    return database_.changes() > 0;
}

}  // namespace standalone
