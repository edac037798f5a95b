// Lists a server's disk shares, as the SMB client tool prints them.
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "backup/file_ptr.h"
#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/recording_backup_function.h"
#include "platform/cgi_input.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr int OUTPUT_UNREADABLE = -718;

// Shares of the recorder itself: whole names, and the beginning of others.
constexpr std::string_view PLATFORM_SHARES[] = {"HaldenAppData", "OstraAppData", "OstraAutoSnap",
                                                "VeskAutoSnap", "OstraDB"};
constexpr std::string_view PLATFORM_PREFIX = "OstraSpace_";

/// Where to ask, and as whom.
struct Query {
    std::string ip;
    std::string port;
    std::string account;  ///< user name, "%", password
};

/// What the tool said.
struct Listing {
    std::vector<std::string> share_name_list;  ///< in the tool's order
    std::string error;                         ///< its lines, each followed by ", "
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

/// Runs the tool as root.
/// @return its exit status
int run_tool(const Query& query, const char* output, const UserIds& ids) {
    [[maybe_unused]] const int unchecked = setreuid(0, 0);
    const int ret =
        zorv_exec(output, output, nullptr, "/usr/bin/smbclient", "-gL", query.ip.c_str(), "-p",
                  query.port.c_str(), "-U", query.account.c_str(), nullptr);
    ids.restore();
    DEBUG_NOTE("zorv_exec ret=%d, cmd=[/usr/bin/smbclient -gL %s -p %s -U %s]\n", ret,
               query.ip.c_str(), query.port.c_str(), query.account.c_str());
    return ret;
}

bool belongs_to_platform(std::string_view name) {
    return name.starts_with(PLATFORM_PREFIX) ||
           std::find(std::begin(PLATFORM_SHARES), std::end(PLATFORM_SHARES), name) !=
               std::end(PLATFORM_SHARES);
}

/// Keeps the name in a line such as "Disk|public|comment".
void keep_share(const char* line, Listing& listing) {
    constexpr std::string_view KIND = "Disk";
    const std::string_view text = line;
    if (!text.starts_with(KIND)) return;
    const std::string_view rest = text.substr(std::min(text.size(), KIND.size() + 1));
    const std::string shareName(rest.substr(0, rest.find('|')));
    if (belongs_to_platform(shareName)) {
        DEBUG_NOTE("will SKIP shareName=[%s]\n", shareName.c_str());
        return;
    }
    listing.share_name_list.push_back(shareName);
    DEBUG_NOTE(">>>> get shareName=[%s]\n", shareName.c_str());
}

/// Reads the tool's output: shares when it succeeded, error lines when it did not.
Listing read_output(std::FILE* output, int exit_status) {
    Listing listing;
    char buf[1024];
    while (std::fgets(buf, sizeof buf, output) != nullptr) {
        DEBUG_NOTE("get buf=[%s]\n", buf);
        if (exit_status != 0)
            listing.error += buf + std::string(", ");
        else
            keep_share(buf, listing);
    }
    return listing;
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
    const int exit_status = run_tool(query, path, ids);
    FilePtr output(std::fopen(path, "r"));
    if (!output) {
        deal_with_error_code(reply, OUTPUT_UNREADABLE, "Get Samba share fail.");
        return OUTPUT_UNREADABLE;
    }
    const Listing listing = read_output(output.get(), exit_status);
    output.reset();
    unlink(path);
    if (exit_status != 0) {
        deal_with_error_code(reply, exit_status, listing.error.c_str());
        return exit_status;
    }
    ids.restore();
    *reply = share_reply(listing.share_name_list);
    return 0;
}
