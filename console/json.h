// Writes the JSON of replies, and reads that of bodies.
#pragma once

#include <array>
#include <charconv>
#include <concepts>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/json_ptr.h"
#include "platform/member_name.h"

namespace console {

/// An object or an array that grows at its end. It is text from the beginning on: a page's poll
/// gets thousands of members, and a tree of them would cost more than all else.
class Json {
public:
    using Key = MemberName<JsonLayout::plain>;

    /// @param room how long it is expected to become
    static Json object(std::size_t room = 0) { return Json('{', '}', room); }
    static Json array() { return Json('[', ']', 0); }

    /// Adds a member to an object; `key` is one that it does not have.
    template <class Value>
    Json& add(const Key& key, const Value& value) {
        text_ += key.text();
        put(value);
        return *this;
    }

    /// Adds a member that is an array, to which `fill` appends: a long one is written where it
    /// stays.
    template <class Fill>
    Json& add_array(const Key& key, Fill fill) {
        text_ += key.text();
        Json inner = array();
        inner.begin_ = text_.size();
        inner.text_.swap(text_);
        fill(inner);
        text_ = std::move(inner).text();
        return *this;
    }

    /// Adds a value to an array.
    template <class Value>
    Json& append(const Value& value) {
        text_ += ',';
        put(value);
        ++size_;
        return *this;
    }

    /// How many values append() has added.
    std::size_t size() const { return size_; }

    /// All of it.
    std::string text() const& { return Json(*this).text_of_all(); }
    std::string text() && { return text_of_all(); }

private:
    Json(char open, char close, std::size_t room) : open_(open), close_(close) {
        text_.reserve(room);
    }

    std::string text_of_all() {
        finish(text_, begin_);
        return std::move(text_);
    }

    /// Puts the brackets round what begins there; the first one takes the first comma's place.
    void finish(std::string& text, std::size_t begin) const {
        if (text.size() == begin) text += ',';
        text[begin] = open_;
        text += close_;
    }

    // Texts may hold any bytes; what is no UTF-8 becomes U+FFFD, a number that is none null.
    void put(std::string_view text);
    void put(const std::string& text) { put(std::string_view(text)); }
    void put(const char* text) { put(std::string_view(text)); }
    void put(double number);
    void put(bool truth) { text_ += truth ? "true" : "false"; }

    void put(std::integral auto number) {
        std::array<char, 24> digits;
        text_.append(digits.data(), std::to_chars(digits.begin(), digits.end(), number).ptr);
    }

    void put(const Json& value) {
        const std::size_t begin = text_.size();
        text_ += value.text_;
        value.finish(text_, begin);
    }

    template <class Value>
    void put(const std::optional<Value>& value) {
        if (value)
            put(*value);
        else
            text_ += "null";
    }

    std::string text_;  // each value with a comma before it
    std::size_t begin_ = 0;
    char open_;
    char close_;
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
