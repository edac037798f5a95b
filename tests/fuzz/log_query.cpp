// Log queries: read or refused with a sentence, and written again they ask the same.
#include "services/event_log/log_query.h"

#include <optional>

#include "tests/fuzz/fuzz.h"

namespace {

using fuzz::check;
using services::LogQuery;
using Parameters = std::map<std::string, std::string>;

std::optional<LogQuery> read_query(const Parameters& parameters) {
    try {
        return services::parse_log_query(parameters);
    } catch (const services::BadQuery& error) {
        check(std::string(error.what()).ends_with('.'), "a refusal is a sentence");
        return {};
    }
}

Parameters written(const LogQuery& query) {
    Parameters parameters = {{"max_results", std::to_string(query.max_results)}};
    if (query.sub_types.empty()) return parameters;
    std::string list;
    for (const unsigned sub_type : query.sub_types)
        list += (list.empty() ? "" : ",") + std::to_string(sub_type);
    parameters["sub_type"] = list;
    return parameters;
}

}  // namespace

// Parameters as in a query string, not encoded.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Parameters parameters;
    const std::string input = fuzz::text(data, size);
    for (std::string_view value : fuzz::pieces(input, '&')) {
        const std::string_view name = fuzz::take_piece(value, '=');
        parameters.emplace(name, value);
    }
    const std::optional<LogQuery> query = read_query(parameters);
    if (!query) return 0;
    check(query->max_results >= 1 && query->max_results <= services::MOST_RESULTS,
          "the number of results has its limits");
    for (const unsigned sub_type : query->sub_types) check(sub_type <= 0xFFFF, "16 bits each");
    const std::optional<LogQuery> again = read_query(written(*query));
    check(again && again->sub_types == query->sub_types && again->max_results == query->max_results,
          "a query that is written again asks the same");
    return 0;
}
