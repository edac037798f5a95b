// POST shares: a server's shares, as its account sees them.
#include "console/share_route.h"

#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <memory>

#include "backup/share_lines.h"
#include "console/memory_file.h"
#include "platform/standalone/run_program.h"
#include "platform/standalone/store/connections.h"
#include "platform/standalone/store/task_store.h"
#include "platform/utilities.h"

namespace console {

namespace {

constexpr std::size_t LONGEST_TEXT = 255;
constexpr int SMB_PORT = 445;

struct Login {
    std::string server;
    std::string port;
    std::string user;
    std::string password;
};

/// A name or an address, and never an option of the tool's.
std::string server_in(const Body& body) {
    std::string server = body.text("server", LONGEST_TEXT);
    const auto fits = [](unsigned char byte) {
        return std::isalnum(byte) != 0 || byte == '.' || byte == '-' || byte == '_' || byte == ':';
    };
    if (server.empty() || server.front() == '-' || !std::ranges::all_of(server, fits))
        throw bad_field("server", "This has to be a server's name or address.");
    return server;
}

std::string stored_password(const std::string& task_id) {
    const auto task = standalone::TaskStore(standalone::config_for_reading()).find(task_id);
    if (!task) throw not_found("There is no such task any more.");
    return task->password;
}

/// A line end would begin another setting of the tool's.
const std::string& require_one_line(const char* name, const std::string& text) {
    if (text.find_first_of("\r\n") != std::string::npos)
        throw bad_field(name, "This has to be one line.");
    return text;
}

Login login_in(const Body& body) {
    const int port = body.has("port") ? body.number("port", 1, 65535) : SMB_PORT;
    Login login{.server = server_in(body),
                .port = std::to_string(port),
                .user = body.text("user", LONGEST_TEXT),
                .password = body.has("task") ? stored_password(body.text("task", LONGEST_TEXT))
                                             : body.text("password", LONGEST_TEXT)};
    require_one_line("user", login.user);
    require_one_line("password", login.password);
    return login;
}

/// As smbclient(1) reads it: "DOMAIN\user" are two settings there.
std::string authentication_text(const Login& login) {
    const std::size_t behind = login.user.rfind('\\') + 1;
    std::string text = "username = " + login.user.substr(behind) + '\n';
    if (behind > 0) text += "domain = " + login.user.substr(0, behind - 1) + '\n';
    return text + "password = " + login.password + '\n';
}

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// What the tool says of a server that lists nothing, in words for people.
Refusal refusal_of(const std::string& said) {
    const auto has = [&said](const char* word) { return said.find(word) != std::string::npos; };
    if (has("LOGON_FAILURE") || has("ACCESS_DENIED") || has("ACCOUNT_") || has("PASSWORD_"))
        return {.status = 422,
                .code = "wrong_account",
                .text = "The server does not take this account with this password."};
    if (has("UNREACHABLE") || has("REFUSED") || has("TIMEOUT") || has("NOT_FOUND") ||
        has("timed out") || has("UNSUCCESSFUL"))
        return {.status = 422,
                .code = "no_server",
                .text = "No file server answers at this address.",
                .field = "server"};
    return {.status = 422, .code = "server_failed", .text = "The server does not list its shares."};
}

Listing listing_of(const Login& login) {
    const standalone::FileHandle account = memory_file(authentication_text(login));
    standalone::FileHandle output = memory_file();
    const int status = standalone::run_program(
        {.input = account.get(),
         .output = output.get(),
         .arguments = {"/usr/bin/smbclient", "-g", "-L", login.server.c_str(), "-p",
                       login.port.c_str(), "-A", "/dev/stdin"},
         .limit = std::chrono::seconds(ZORV_EXEC_LIMIT_SECONDS)});
    lseek(output.get(), 0, SEEK_SET);
    const std::unique_ptr<std::FILE, CloseFile> file(fdopen(output.get(), "r"));
    if (!file) throw std::runtime_error("the share listing's output cannot be read");
    output.release();
    Listing listing = read_share_lines(file.get(), status);
    if (status != 0) throw refusal_of(listing.error);
    return listing;
}

}  // namespace

Reply list_shares(const Request& request) {
    const Listing listing = listing_of(login_in(Body(request.body)));
    Json shares = Json::array();
    for (std::size_t at = 0; at < listing.share_name_list.size(); ++at) {
        Json share = Json::object();
        share.add("name", listing.share_name_list[at]);
        share.add("comment", listing.comments[at]);
        shares.append(share);
    }
    Json object = Json::object();
    object.add("shares", shares);
    return json_reply(object);
}

}  // namespace console
