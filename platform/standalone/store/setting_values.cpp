// Which texts settings take, for those who set them and those who read them.
#include "platform/standalone/store/setting_values.h"

#include <algorithm>
#include <charconv>

#include "platform/standalone/store/utf8.h"

namespace standalone {
namespace {

constexpr std::size_t LONGEST_LINE = 4095;
constexpr std::size_t LONGEST_ADDRESS = 254;  // RFC 5321
constexpr std::size_t LONGEST_HOST = 253;
constexpr std::size_t MOST_ADDRESSES = 100;
constexpr int HIGHEST_PORT = 65535;
// What an address may have without quotes, but for letters, digits and dots (RFC 5322).
constexpr std::string_view ADDRESS_MARKS = "!#$%&'*+-/=?^_`{|}~";

bool is_alphanumeric(char byte) {
    return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
           (byte >= '0' && byte <= '9');
}

bool is_line(std::string_view text) {
    const auto is_control = [](unsigned char byte) { return byte < ' ' || byte == 0x7F; };
    return text.size() <= LONGEST_LINE && is_utf8(text) && std::ranges::none_of(text, is_control);
}

/// Words with dots between, each of these letters.
template <typename Letter>
bool is_dotted(std::string_view text, Letter is_letter) {
    if (text.empty() || text.front() == '.' || text.back() == '.') return false;
    if (text.find("..") != std::string_view::npos) return false;
    return std::ranges::all_of(text, [&](char byte) { return byte == '.' || is_letter(byte); });
}

bool is_host_name(std::string_view text) {
    return text.size() <= LONGEST_HOST && !text.starts_with('-') && is_dotted(text, [](char byte) {
               return is_alphanumeric(byte) || byte == '-' || byte == '_';
           });
}

bool is_bracketed(std::string_view text) {
    if (text.size() < 4 || text.front() != '[' || text.back() != ']') return false;
    return std::ranges::all_of(text.substr(1, text.size() - 2), [](char byte) {
        return std::string_view("0123456789abcdefABCDEF:.").find(byte) != std::string_view::npos;
    });
}

bool is_address(std::string_view text) {
    const auto is_letter = [](char byte) {
        return is_alphanumeric(byte) || ADDRESS_MARKS.find(byte) != std::string_view::npos;
    };
    if (text.size() > LONGEST_ADDRESS || text.starts_with('-')) return false;
    const std::size_t at = text.find('@');
    // A dot without an "@" is a slip: the name of somebody's domain.
    if (at == std::string_view::npos)
        return is_dotted(text, is_letter) && text.find('.') == std::string_view::npos;
    return is_dotted(text.substr(0, at), is_letter) && is_host_name(text.substr(at + 1));
}

std::string_view trimmed(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

bool is_web_address(std::string_view text) {
    const std::size_t begin = text.starts_with("https://")  ? 8
                              : text.starts_with("http://") ? 7
                                                            : 0;
    const auto is_plain = [](char byte) { return byte > ' ' && byte < 0x7F && byte != '#'; };
    if (begin == 0 || text.size() > LONGEST_LINE || !std::ranges::all_of(text, is_plain))
        return false;
    // Whoever writes "user:password@host" is refused: neither is a server's name.
    const std::size_t end = text.find_first_of("/?", begin);
    return server_place(text.substr(begin, end == std::string_view::npos ? end : end - begin))
        .has_value();
}

bool is_whole_path(std::string_view text) {
    return text.starts_with('/') && is_line(text);
}

std::string bounds_of(const KnownSetting& setting, const char* between) {
    return std::to_string(setting.least) + between + std::to_string(setting.most);
}

}  // namespace

std::string values_of(const KnownSetting& setting) {
    switch (setting.kind) {
        case SettingKind::on_off:
            return bounds_of(setting, " or ");
        case SettingKind::number:
            return bounds_of(setting, " to ");
        case SettingKind::mail_addresses:
            return "mail addresses, with commas between";
        case SettingKind::mail_address:
            return "a mail address";
        case SettingKind::server:
            return "HOST or HOST:PORT";
        case SettingKind::mail_security:
            return "starttls, tls or none";
        case SettingKind::line:
            return "a line of text";
        case SettingKind::file:
            return "a file's whole path";
        case SettingKind::program:
            return "a program's whole path";
        case SettingKind::web_address:
            return "an http or https address without user and password";
        case SettingKind::secret:
            return "a secret, by recorderctl alert password";
    }
    return "";
}

std::optional<std::vector<std::string>> mail_addresses(std::string_view text) {
    std::vector<std::string> addresses;
    for (;;) {
        const std::size_t comma = text.find(',');
        const std::string_view address = trimmed(text.substr(0, comma));
        if (!is_address(address) || addresses.size() == MOST_ADDRESSES) return {};
        addresses.emplace_back(address);
        if (comma == std::string_view::npos) return addresses;
        text.remove_prefix(comma + 1);
    }
}

std::optional<ServerPlace> server_place(std::string_view text) {
    ServerPlace place;
    const std::size_t colon = text.rfind(':');
    const bool has_port = colon != std::string_view::npos && !text.ends_with(']');
    const std::string_view host = has_port ? text.substr(0, colon) : text;
    if (!is_host_name(host) && !is_bracketed(host)) return {};
    place.host = host;
    if (!has_port) return place;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, place.port);
    if (error != std::errc() || stop != end) return {};
    if (place.port < 1 || place.port > HIGHEST_PORT) return {};
    return place;
}

bool is_setting_value(SettingKind kind, std::string_view text) {
    switch (kind) {
        case SettingKind::mail_addresses:
            return text.empty() || mail_addresses(text).has_value();
        case SettingKind::mail_address:
            return text.empty() || is_address(text);
        case SettingKind::server:
            return text.empty() || server_place(text).has_value();
        case SettingKind::mail_security:
            return text == "starttls" || text == "tls" || text == "none";
        case SettingKind::line:
            return is_line(text);
        case SettingKind::file:
            return text.empty() || is_whole_path(text);
        case SettingKind::program:
            return is_whole_path(text);
        case SettingKind::web_address:
            return text.empty() || is_web_address(text);
        case SettingKind::secret:
            return !text.empty() && is_line(text);
        case SettingKind::on_off:
        case SettingKind::number:
            break;
    }
    return false;
}

}  // namespace standalone
