// Reads the backup's event log, as JSON for the page and as a CSV file for the download.
#include "backup/task_log.h"

#include <cstdlib>
#include <ctime>

#include "backup/json_member.h"
#include "backup/log_export.h"
#include "backup/recording_backup_function.h"
#include "platform/event_ids.h"
#include "platform/recorder_log.h"
#include "platform/service_addresses.h"
#include "platform/ssci_client.h"
#include "platform/utilities.h"

namespace {

/// The event identifiers of this feature, in hexadecimal.
constexpr const char* BackupLogID[] = {"62040001", "62040002", "62040003", "62040004", "62040005",
                                       "62040006", "62040007", "62040008", "62040009", "6204000A",
                                       "6204000B", "6204000C", "6204000D"};

/// One event of each kind that the log shows, in the order in which the log service is asked.
constexpr events::Id SHOWN_KINDS[] = {events::BACKUP_STARTED, events::ACTIVATION_REFUSED,
                                      events::TASK_CREATED};

/// Appends to a list of numbers, which are joined by ",".
void append_number(std::string& list, unsigned long number) {
    if (!list.empty()) list += ',';
    list += std::to_string(number);
}

/// Shows developers which events belong to the feature. Not sent: the query asks by sub-type.
void log_event_ids() {
    std::string strEvtID;
    for (const char* id : BackupLogID) append_number(strEvtID, std::strtoul(id, nullptr, 16));
    DEBUG_LINE("strEvtID:%s\n", strEvtID.c_str());
}

/// "8981,8983,25092": the kinds' sub-types.
std::string shown_sub_types() {
    std::string sub_types;
    for (const events::Id id : SHOWN_KINDS) append_number(sub_types, events::sub_type(id));
    return sub_types;
}

/// Asks the log service. Fails with the HTTP client's status.
std::string ask_log_service(const char* path) {
    query_object query;
    query["sub_type"] = shown_sub_types();
    query["max_results"] = "100";
    std::string response;
    const int status = ssci_GET_request(LOOPBACK, LOG_PORT, path, &query, response, ANSWER_SECONDS,
                                        false, false, 0, nullptr);
    if (status != 0) {
        DEBUG_LINE("SSCI fail\n");
        fail(status);
    }
    return response;
}

void show_response(const std::string& response) {
    DEBUG_LINE("SSCI_response:%s\n", response.c_str());
}

/// Today's name of the download, by the local calendar.
std::string download_name() {
    const auto now = static_cast<std::time_t>(current_time_stamp() / 1000);
    tm local{};
    localtime_r(&now, &local);
    char date[16] = "";
    std::strftime(date, sizeof date, "%Y%m%d", &local);
    char c_strFileName[512];
    std::snprintf(c_strFileName, sizeof c_strFileName, "%s%s.csv", "Ostra-RecordingbackLog-", date);
    DEBUG_LINE("c_strFileName:%s\n", c_strFileName);
    return c_strFileName;
}

}  // namespace

int parse_log_reply(const char* text, JsonPtr& log) {
    if (text == nullptr) {
        DEBUG_LINE("input format error\n");
        return CGI_PARSER_JSON_FAIL;
    }
    JsonPtr parsed(json_tokener_parse(text));
    if (!json_object_is_type(parsed.get(), json_type_object)) {
        DEBUG_LINE("json_tokener_parse fail\n");
        return CGI_PARSER_JSON_FAIL;
    }
    log = std::move(parsed);
    return 0;
}

int get_backup_task_log(json_object** reply) {
    JsonPtr log(json_object_new_object());
    const int result = run_operation(reply, "Get task log fail.", [&] {
        log_event_ids();
        const std::string response = ask_log_service(LOG_PATH);
        show_response(response);
        require(parse_log_reply(response.c_str(), log));
    });
    if (result != 0) return result;
    for (const char* key : {"mesg", "code", "responseItems", "totalItems"})
        json_object_object_del(log.get(), key);
    add_member(log.get(), "ret_code", 0);
    add_member(log.get(), "mesg", "Success.");
    *reply = log.release();
    return 0;
}

int download_backup_task_log(json_object** reply, std::string* fileName) {
    return run_operation(reply, "Download task log fail.", [&] {
        log_event_ids();
        const std::string name = download_name();
        const std::string csv = ask_log_service(LOG_FILE_PATH);
        require(publish_log_export(csv));
        *fileName = name;
    });
}
