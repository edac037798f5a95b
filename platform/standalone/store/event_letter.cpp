// Prints and reads events on their way to the log service.
#include "platform/standalone/store/event_letter.h"

#include <cstdint>
#include <utility>

#include "platform/standalone/store/event_arguments.h"
#include "platform/standalone/store/strict_json.h"

namespace standalone {

namespace {

constexpr char TIME[] = "time_ms";
constexpr char EVENT[] = "event_id";
constexpr char CHANNEL[] = "channel";
constexpr char USER[] = "user";
constexpr char ADDRESS[] = "ip";
constexpr char ARGUMENTS[] = "arguments";
constexpr char MOST[] = "most";
constexpr char ALIKE[] = "alike_arguments";

/// No new_json_text: an argument stays the bytes that it is, as in the database.
json_object* text(const std::string& bytes) {
    return json_object_new_string_len(bytes.data(), static_cast<int>(bytes.size()));
}

/// Reads members one after the other; one that is missing or of another kind spoils it all.
class Members {
public:
    explicit Members(json_object* object) : object_(object) {}

    json_object* take(const char* key, json_type type) {
        json_object* value = nullptr;
        if (json_object_object_get_ex(object_, key, &value) && json_object_is_type(value, type))
            return value;
        good_ = false;
        return nullptr;
    }
    /// Where json-c has no room for a number it takes the nearest one that it has room for.
    template <typename Number>
    Number number(const char* key) {
        const std::int64_t value = json_object_get_int64(take(key, json_type_int));
        good_ = good_ && std::in_range<Number>(value) && value != INT64_MIN && value != INT64_MAX;
        return static_cast<Number>(value);
    }
    std::string text(const char* key) {
        json_object* value = take(key, json_type_string);
        if (value == nullptr) return {};
        return {json_object_get_string(value),
                static_cast<std::size_t>(json_object_get_string_len(value))};
    }
    bool has(const char* key) const { return json_object_object_get_ex(object_, key, nullptr); }
    bool good() const { return good_; }

private:
    json_object* object_;
    bool good_ = true;
};

}  // namespace

std::string print_letter(const NewEvent& letter) {
    const JsonPtr object(json_object_new_object());
    const auto add = [&object](const char* key, json_object* value) {
        json_object_object_add(object.get(), key, value);
    };
    const Event& event = letter.event;
    add(TIME, json_object_new_int64(event.time_ms));
    add(EVENT, json_object_new_int64(event.event_id));
    add(CHANNEL, json_object_new_int(event.channel));
    add(USER, text(event.user));
    add(ADDRESS, text(event.ip));
    add(ARGUMENTS, new_event_arguments(event.arguments));
    if (letter.limit) {
        add(MOST, json_object_new_int(letter.limit->most));
        add(ALIKE, json_object_new_int64(static_cast<std::int64_t>(letter.limit->arguments)));
    }
    return print_json(object.get());
}

std::optional<NewEvent> read_letter(const std::string& text) {
    const JsonPtr object = parse_whole_object(text);
    if (!object) return {};
    Members members(object.get());
    NewEvent letter;
    letter.event.time_ms = members.number<long long>(TIME);
    letter.event.event_id = members.number<unsigned>(EVENT);
    letter.event.channel = members.number<int>(CHANNEL);
    letter.event.user = members.text(USER);
    letter.event.ip = members.text(ADDRESS);
    if (members.has(MOST) || members.has(ALIKE))
        letter.limit = EventLimit{members.number<int>(MOST), members.number<std::size_t>(ALIKE)};
    auto arguments = read_event_arguments(members.take(ARGUMENTS, json_type_array));
    if (!arguments || !members.good()) return {};
    letter.event.arguments = std::move(*arguments);
    return letter;
}

}  // namespace standalone
