// Lists a server's disk shares, as the SMB client tool prints them.
#include <unistd.h>

#include <string>
#include <vector>

#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/own_file.h"
#include "backup/recording_backup_function.h"
#include "backup/share_lines.h"
#include "platform/cgi_input.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr int OUTPUT_UNREADABLE = -718;

/// Where to ask, and as whom.
struct Query {
    std::string ip;
    std::string port;
    std::string account;  ///< user name, "%", password
};

/// The effective and real user of the process, put back when the tool has run.
class UserIds {
public:
    void restore() const { [[maybe_unused]] const int unchecked = setreuid(real_, effective_); }

private:
    uid_t real_ = getuid();
    uid_t effective_ = geteuid();
};

/// @return false when a parameter is missing; an empty one is not
bool read_query(tagINPUT* input, Query& query) {
    const tagPARAMETER* user = _CGI_Find_Parameter(input, "user", "");
    const tagPARAMETER* pwd = _CGI_Find_Parameter(input, "pwd", "");
    const tagPARAMETER* ip = _CGI_Find_Parameter(input, "ip");
    const tagPARAMETER* port = _CGI_Find_Parameter(input, "port");
    if (user == nullptr || pwd == nullptr || ip == nullptr || port == nullptr) return false;
    DEBUG_NOTE("get input ip=[%s] port=[%s] user=[%s] pwd=[%s]\n", ip->value, port->value,
               user->value, pwd->value);
    std::string password;
    b64_decode_v2(pwd->value, password);
    query = {ip->value, port->value, user->value + ("%" + password)};
    return true;
}

/// What became of the tool.
struct Run {
    int exit_status = 0;
    FilePtr output;  ///< none when it cannot be opened
};

/// The tool's output belongs to root as well: opened and removed before the rights to it are gone.
FilePtr take_output(const char* path) {
    FilePtr output = open_own_file(path);
    if (output) unlink(path);
    return output;
}

/// Runs the tool as root.
Run run_tool(const Query& query, const char* path, const UserIds& ids) {
    [[maybe_unused]] const int unchecked = setreuid(0, 0);
    const int ret = zorv_exec(path, path, nullptr, "/usr/bin/smbclient", "-gL", query.ip.c_str(),
                              "-p", query.port.c_str(), "-U", query.account.c_str(), nullptr);
    FilePtr output = ret == ZORV_EXEC_NO_OUTPUT ? nullptr : take_output(path);
    ids.restore();
    DEBUG_NOTE("zorv_exec ret=%d, cmd=[/usr/bin/smbclient -gL %s -p %s -U %s]\n", ret,
               query.ip.c_str(), query.port.c_str(), query.account.c_str());
    return {ret, std::move(output)};
}

json_object* share_reply(const std::vector<std::string>& share_name_list) {
    JsonPtr reply = success_reply();
    json_object* shares = json_object_new_array();
    for (std::size_t i = 0; i < share_name_list.size(); ++i) {
        DEBUG_NOTE(">>>> share_name_list[%d]=[%s]\n", static_cast<int>(i),
                   share_name_list[i].c_str());
        json_object_array_add(shares, json_object_new_string(share_name_list[i].c_str()));
    }
    add_member(reply.get(), "shareList", shares);
    return reply.release();
}

}  // namespace

int get_samba_share(json_object** reply, tagINPUT* input) {
    const UserIds ids;
    Query query;
    if (!read_query(input, query)) {
        deal_with_error_code(reply, CGI_INVALID_VALUE, "ip | port | user | pwd length is 0");
        return CGI_INVALID_VALUE;
    }
    char path[64];
    std::snprintf(path, sizeof path, "/tmp/smb_share_kist-%llu", current_time_stamp());
    const Run run = run_tool(query, path, ids);
    if (!run.output) {
        deal_with_error_code(reply, OUTPUT_UNREADABLE, "Get Samba share fail.");
        return OUTPUT_UNREADABLE;
    }
    const Listing listing = read_share_lines(run.output.get(), run.exit_status);
    if (run.exit_status != 0) {
        deal_with_error_code(reply, run.exit_status, listing.error.c_str());
        return run.exit_status;
    }
    ids.restore();
    *reply = share_reply(listing.share_name_list);
    return 0;
}
