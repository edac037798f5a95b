// How SQLite goes about what a piece of code asks a connection.
#pragma once

#include <sqlite3.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/standalone/store/database.h"

/// Gathers the statements of sqlite3_trace_v2().
inline int note_statement(unsigned, void* notes, void* statement, void*) {
    static_cast<std::vector<std::string>*>(notes)->emplace_back(
        sqlite3_sql(static_cast<sqlite3_stmt*>(statement)));
    return 0;
}

/// The lines of the plans of all statements that are run.
inline std::string plan_of(standalone::Database& database, const std::function<void()>& run) {
    std::vector<std::string> statements;
    sqlite3_trace_v2(database.handle(), SQLITE_TRACE_STMT, note_statement, &statements);
    run();
    sqlite3_trace_v2(database.handle(), 0, nullptr, nullptr);
    std::string lines;
    for (const std::string& sql : statements) {
        standalone::Statement row = database.prepare("EXPLAIN QUERY PLAN " + sql);
        while (row.step()) lines += row.text(3) + '\n';
    }
    return lines;
}
