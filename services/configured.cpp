// Reads what administrators configure of the services from the configuration store.
#include "services/configured.h"

#include <charconv>
#include <stdexcept>

#include "platform/nvrcfg.h"

namespace services {

std::string configured_text(const char* section, const char* key) {
    std::string text;
    int reason = 0;
    const int status = __nvrcfg_get_key_value("services", __LINE__, section, key, text, &reason);
    return status == 0 ? text : "";
}

std::string configured_text_or_throw(const char* section, const char* key) {
    std::string text;
    int reason = 0;
    const int status = __nvrcfg_get_key_value("services", __LINE__, section, key, text, &reason);
    if (status != 0 && reason != NVRCFG_KEY_NOT_FOUND)
        throw std::runtime_error(std::string("setting ") + section + ' ' + key +
                                 " cannot be read, status " + std::to_string(reason));
    return text;
}

int configured_number(const char* section, const char* key, int otherwise) {
    const std::string text = configured_text(section, key);
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end && number >= 1 ? number : otherwise;
}

}  // namespace services
