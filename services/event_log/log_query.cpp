// Reads the parameters of a log query.
#include "services/event_log/log_query.h"

#include <charconv>
#include <string_view>

namespace services {
namespace {

constexpr int LARGEST_SUB_TYPE = 0xFFFF;

int number(std::string_view text, int least, int most, const std::string& name) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most)
        throw BadQuery("\"" + name + "\" takes numbers from " + std::to_string(least) + " to " +
                       std::to_string(most) + ".");
    return value;
}

std::vector<unsigned> sub_types(std::string_view text) {
    std::vector<unsigned> values;
    for (;;) {
        const auto comma = text.find(',');
        const int value = number(text.substr(0, comma), 0, LARGEST_SUB_TYPE, "sub_type");
        values.push_back(static_cast<unsigned>(value));
        if (comma == std::string_view::npos) return values;
        text.remove_prefix(comma + 1);
    }
}

}  // namespace

LogQuery parse_log_query(const std::map<std::string, std::string>& parameters) {
    LogQuery query;
    if (const auto given = parameters.find("sub_type"); given != parameters.end())
        query.sub_types = sub_types(given->second);
    if (const auto given = parameters.find("max_results"); given != parameters.end())
        query.max_results = number(given->second, 1, MOST_RESULTS, "max_results");
    return query;
}

}  // namespace services
