// Which texts settings take, for those who set them and those who read them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/known_settings.h"

namespace standalone {

/// What values a setting has, in words: "0 or 1", "1 to 2147483647", "starttls, tls or none".
std::string values_of(const KnownSetting& setting);

/// Whether a text is a value of this kind. Numbers and switches are not known here.
bool is_setting_value(SettingKind kind, std::string_view text);

/// The addresses of a text with commas between them, without the blanks around; one of the
/// machine's own users needs no "@" ("root"). Nothing when one of them is no address.
std::optional<std::vector<std::string>> mail_addresses(std::string_view text);

/// Where a server listens.
struct ServerPlace {
    std::string host;  ///< a name or an address; one of IPv6 has its brackets
    int port = 0;      ///< 0: none was named

    bool operator==(const ServerPlace&) const = default;
};

/// The place that "host", "host:port" or "[address]:port" names; nothing when it is none.
std::optional<ServerPlace> server_place(std::string_view text);

}  // namespace standalone
