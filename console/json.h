// Writes the JSON of replies, and reads that of bodies.
#pragma once

#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/json_ptr.h"

namespace console {

/// An object or an array that grows at its end. It is text from the beginning on: a page's poll
/// gets thousands of members, and a tree of them would cost more than all else.
class Json {
public:
    static Json object() { return Json("{", '}'); }
    static Json array() { return Json("[", ']'); }

    /// Adds a member to an object; `name` is one that it does not have, and needs no escapes.
    template <class Value>
    Json& add(std::string_view name, const Value& value) {
        separate();
        text_.append("\"").append(name).append("\":");
        put(value);
        return *this;
    }

    /// Adds a value to an array.
    template <class Value>
    Json& append(const Value& value) {
        separate();
        put(value);
        ++size_;
        return *this;
    }

    /// How many values append() has added.
    std::size_t size() const { return size_; }

    /// All of it.
    std::string text() const& { return text_ + end_; }
    std::string text() && { return std::move(text_ += end_); }

private:
    Json(std::string_view begin, char end) : text_(begin), end_(end) {}

    void separate() {
        if (text_.size() > 1) text_ += ',';
    }

    // Texts may hold any bytes; what is no UTF-8 becomes U+FFFD, a number that is none null.
    void put(std::string_view text);
    void put(const std::string& text) { put(std::string_view(text)); }
    void put(const char* text) { put(std::string_view(text)); }
    void put(double number);
    void put(bool truth) { text_ += truth ? "true" : "false"; }
    void put(std::integral auto number) { text_ += std::to_string(number); }
    void put(const Json& value) { text_.append(value.text_) += value.end_; }

    template <class Value>
    void put(const std::optional<Value>& value) {
        if (value)
            put(*value);
        else
            text_ += "null";
    }

    std::string text_;
    char end_;
    std::size_t size_ = 0;
};

/// The members of a body. Each call throws a Refusal that names a member of the wrong kind.
class Body {
public:
    /// @param text one object of strict JSON; anything else throws a Refusal
    explicit Body(const std::string& text);

    bool has(const char* name) const;

    /// Of all members.
    std::vector<std::string> names() const;

    /// Whether a member is there and null.
    bool is_null(const char* name) const;

    /// A text that has to be there, of at most `most` bytes, without a zero.
    std::string text(const char* name, std::size_t most) const;

    /// A whole number from `low` to `high` that has to be there.
    int number(const char* name, int low, int high) const;

private:
    JsonPtr object_;
};

}  // namespace console
