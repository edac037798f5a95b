// The databases that the recorder's state is made of.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "platform/standalone/store/whole_database.h"

namespace recorderctl {

/// One of them.
struct StateDatabase {
    std::string_view file;
    long long newest_schema;
    bool needed;  ///< the others are made by their service when it starts
};

/// All of them.
const std::array<StateDatabase, 4>& state_databases();

/// What is wrong with a database for this program: it is damaged or newer; "" when nothing is.
std::string problem_of(const StateDatabase& database, const standalone::DatabaseHealth& health);

/// Makes sure that a copy of a database is sound and not newer.
/// @param original what it is a copy of, for the user
/// @throws Failure
void require_sound(const std::string& copy, const StateDatabase& database,
                   const std::string& original);

}  // namespace recorderctl
