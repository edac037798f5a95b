// What to tell of settings: what values they take, and which ones a misspelt name may have meant.
#include "tools/recorderctl/setting_words.h"

#include <charconv>
#include <limits>
#include <numeric>
#include <vector>

#include "platform/standalone/store/setting_values.h"

namespace recorderctl {

namespace {

/// How many letters have to be put in, taken out or exchanged to make one of the other.
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> costs(other.size() + 1);
    std::iota(costs.begin(), costs.end(), 0U);
    for (std::size_t row = 0; row < one.size(); ++row) {
        std::size_t diagonal = costs[0]++;
        for (std::size_t column = 0; column < other.size(); ++column) {
            const std::size_t exchanged = diagonal + (one[row] == other[column] ? 0 : 1);
            diagonal = costs[column + 1];
            costs[column + 1] = std::min({exchanged, diagonal + 1, costs[column] + 1});
        }
    }
    return costs.back();
}

std::string name_of(const KnownSetting& setting) {
    return std::string(setting.section) + ' ' + std::string(setting.key);
}

bool takes_number(const KnownSetting& setting, const std::string& text) {
    long long number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end) return false;
    // A switch is compared as it stands: "00" is not off.
    if (setting.kind == SettingKind::on_off && text.size() != 1) return false;
    return setting.least <= number && number <= setting.most;
}

bool is_numeric(const KnownSetting& setting) {
    return setting.kind == SettingKind::on_off || setting.kind == SettingKind::number;
}

}  // namespace

std::string kind_of(const KnownSetting& setting) {
    if (!is_numeric(setting)) return "text";
    return setting.kind == SettingKind::on_off ? "switch" : "number";
}

std::string default_of(const KnownSetting& setting) {
    return is_numeric(setting) ? std::to_string(setting.otherwise)
                               : std::string(setting.text_otherwise);
}

bool takes(const KnownSetting& setting, const std::string& text) {
    return is_numeric(setting) ? takes_number(setting, text)
                               : standalone::is_setting_value(setting.kind, text);
}

std::string nearest_settings(const std::string& section, const std::string& key) {
    const std::string asked = section + ' ' + key;
    std::string names;
    std::size_t smallest = std::numeric_limits<std::size_t>::max();
    for (const KnownSetting& setting : KNOWN_SETTINGS) {
        const std::size_t away = distance(asked, name_of(setting));
        if (away > smallest) continue;
        if (away < smallest) names.clear();
        smallest = away;
        names += (names.empty() ? "" : ", ") + name_of(setting);
    }
    return names;
}

}  // namespace recorderctl
