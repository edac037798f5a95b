// Lists what somebody must look after, and the alerts that have not arrived.
#include "tools/recorderctl/alert_list.h"

#include "platform/standalone/store/alert_names.h"
#include "platform/standalone/store/backup_memory.h"
#include "platform/standalone/store/one_line.h"
#include "tools/recorderctl/output.h"

namespace recorderctl {

namespace {

using standalone::Database;
using standalone::one_line;
using standalone::Statement;

std::string kind_of_problem(long long number) {
    return std::string(problem_text(static_cast<standalone::ProblemKind>(number)));
}

std::string way_of_alert(long long number) {
    return std::string(way_text(static_cast<standalone::AlertWay>(number)));
}

void print_problem(Statement& row, bool json) {
    const std::string kind = kind_of_problem(row.integer(0));
    if (!json) {
        print_row({"problem", kind, one_line(row.text(1)), "since " + zoned_time(row.integer(2)),
                   row.is_null(3) ? "not told" : "told " + zoned_time(row.integer(3)),
                   one_line(row.text(4))});
        return;
    }
    JsonLine line;
    line.add("what", std::string("problem")).add("kind", kind).add("subject", row.text(1));
    line.add("since", row.integer(2));
    if (!row.is_null(3)) line.add("told", row.integer(3));
    line.add("detail", row.text(4)).print();
}

void list_problems(Database& memory, bool json) {
    Statement row = memory.prepare(
        "SELECT kind, subject, since, told, detail FROM problem ORDER BY since, kind, subject");
    while (row.step()) print_problem(row, json);
}

void print_alert(Statement& row, bool json) {
    const std::string way = way_of_alert(row.integer(0));
    if (!json) {
        print_row({"alert", way, one_line(row.text(7)), row.text(1),
                   "made " + zoned_time(row.integer(2)),
                   std::to_string(row.integer(3)) + " attempts",
                   row.integer(4) == 0 ? "next now" : "next " + zoned_time(row.integer(4)),
                   one_line(row.text(5)), one_line(row.text(6))});
        return;
    }
    JsonLine line;
    line.add("what", std::string("alert")).add("way", way).add("recipient", row.text(7));
    line.add("id", row.text(1));
    line.add("made", row.integer(2)).add("attempts", row.integer(3));
    line.add("next_attempt", row.integer(4)).add("subject", row.text(5));
    line.add("last_failure", row.text(6)).print();
}

}  // namespace

void list_alerts(bool json) {
    Database memory = standalone::open_backup_memory();
    list_problems(memory, json);
    Statement row = memory.prepare(
        "SELECT way, id, made, attempts, next_attempt, subject, last_failure, recipient "
        "FROM alert ORDER BY number");
    while (row.step()) print_alert(row, json);
}

}  // namespace recorderctl
