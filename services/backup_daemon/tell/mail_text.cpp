// An alert as a mail: header and body as they go over the wire (RFC 5322, 2045 and 2047).
#include "services/backup_daemon/tell/mail_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <string_view>

#include "platform/standalone/store/one_line.h"
#include "platform/standalone/store/utf8.h"
#include "platform/utilities.h"

namespace services {
namespace {

constexpr std::size_t ENCODED_LINE = 76;
constexpr std::size_t ENCODED_WORD = 36;    // bytes of text, 48 of Base64
constexpr std::size_t LONGEST_PLAIN = 900;  // a line has 998 characters at most

std::string base64(std::string_view bytes) {
    std::string text;
    b64_encode_v2(reinterpret_cast<const unsigned char*>(bytes.data()),
                  static_cast<unsigned>(bytes.size()), text);
    return text;
}

bool is_plain(std::string_view text) {
    const auto is_printable = [](char byte) { return byte >= ' ' && byte < 0x7F; };
    return text.size() <= LONGEST_PLAIN && text.find("=?") == std::string_view::npos &&
           std::ranges::all_of(text, is_printable);
}

/// A header's text. Line ends that others brought in are spelt out before.
std::string header_text(const std::string& text) {
    std::string line = standalone::valid_utf8(standalone::one_line(text));
    if (is_plain(line)) return line;
    std::string words;
    for (std::string_view rest = line; !rest.empty();) {
        const std::string_view word = standalone::cut_utf8(rest, ENCODED_WORD);
        words += (words.empty() ? "=?UTF-8?B?" : "\r\n =?UTF-8?B?") + base64(word) + "?=";
        rest.remove_prefix(word.size());
    }
    return words;
}

std::string address_list(const std::vector<std::string>& addresses) {
    std::string list;
    for (const std::string& address : addresses) list += (list.empty() ? "" : ",\r\n ") + address;
    return list;
}

std::string date_text(long long seconds) {
    const std::time_t time = seconds;
    std::tm parts{};
    gmtime_r(&time, &parts);
    std::array<char, 64> text{};
    std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S +0000", &parts);
    return text.data();
}

/// What a Message-ID takes as it stands, anything else as its number, so that no two become one.
std::string id_text(std::string_view id) {
    std::string text;
    for (const char byte : id) {
        const bool stands = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                            (byte >= '0' && byte <= '9') || byte == '-' || byte == '_';
        std::array<char, 4> number{};
        std::snprintf(number.data(), number.size(), "=%02X", static_cast<unsigned char>(byte));
        text += stands ? std::string(1, byte) : number.data();
    }
    return text;
}

std::string message_id(const std::string& id, const std::string& from) {
    const std::size_t at = from.find('@');
    return '<' + id_text(id) + '@' + (at == std::string::npos ? "localhost" : from.substr(at + 1)) +
           '>';
}

std::string encoded_body(const std::string& text) {
    std::string lines;
    for (const char byte : standalone::valid_utf8(text))
        lines += byte == '\n' ? "\r\n" : std::string(1, byte);
    const std::string encoded = base64(lines);
    std::string body;
    for (std::size_t at = 0; at < encoded.size(); at += ENCODED_LINE)
        body += encoded.substr(at, ENCODED_LINE) + "\r\n";
    return body;
}

}  // namespace

std::string mail_text(const MailSettings& settings, const AlertMessage& message, long long made) {
    return "From: " + settings.from + "\r\nTo: " + address_list(settings.to) +
           "\r\nSubject: " + header_text(message.subject) + "\r\nDate: " + date_text(made) +
           "\r\nMessage-ID: " + message_id(message.id, settings.from) +
           "\r\nAuto-Submitted: auto-generated\r\nMIME-Version: 1.0"
           "\r\nContent-Type: text/plain; charset=UTF-8"
           "\r\nContent-Transfer-Encoding: base64\r\n\r\n" +
           encoded_body(message.text);
}

}  // namespace services
