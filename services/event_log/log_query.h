// Which events a request asks for.
#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <vector>

namespace services {

inline constexpr int DEFAULT_MAX_RESULTS = 100;
inline constexpr int MOST_RESULTS = 10000;

/// One query of the log.
struct LogQuery {
    std::vector<unsigned> sub_types;  ///< as events::sub_type() gives them; empty: all
    int max_results = DEFAULT_MAX_RESULTS;
};

/// Parameters that make no query; what() says why in one sentence.
class BadQuery : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Reads "sub_type" (decimal numbers from 0 to 65535, joined by ",") and "max_results" (1 to
/// MOST_RESULTS). Both may be absent; others are skipped.
/// @throws BadQuery
LogQuery parse_log_query(const std::map<std::string, std::string>& parameters);

}  // namespace services
