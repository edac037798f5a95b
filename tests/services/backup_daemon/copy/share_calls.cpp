// Calls on a share, one for each line that comes in, all over the one connection.
#include <cstdlib>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "services/backup_daemon/copy/copy_failure.h"
#include "services/backup_daemon/copy/smb_share.h"

namespace {

using services::CopyFailure;
using services::FailureKind;
using services::Share;

constexpr char USAGE[] =
    "usage: share_calls PORT SHARE USER\n"
    "On 127.0.0.1. Reads the password, then lines of a call and a path:\n"
    "look, list, folder (makes it), open (to write), remove. Answers each in a line.\n";

std::string look(Share& share, const std::string& path) {
    return share.look(path) ? "there" : "not there";
}

std::string list(Share& share, const std::string& folder) {
    return std::to_string(share.list(folder, {"file"}).size()) + " files";
}

std::string folder(Share& share, const std::string& path) {
    share.make_folders(path);
    return "made";
}

std::string open(Share& share, const std::string& path) {
    share.open(path, Share::Open::write)->close();
    return "opened";
}

std::string remove(Share& share, const std::string& path) {
    share.remove(path);
    return "not there any more";
}

const std::map<std::string, std::string (*)(Share&, const std::string&)> CALLS = {
    {"look", look}, {"list", list}, {"folder", folder}, {"open", open}, {"remove", remove}};

std::string answer(const std::function<std::string()>& call) {
    try {
        return call();
    } catch (const CopyFailure& failure) {
        const bool is_lost = failure.kind == FailureKind::lost;
        return (is_lost ? "lost: " : "failed: ") + std::string(failure.what());
    }
}

}  // namespace

int main(int count, char** words) {
    if (count != 4) {
        std::cerr << USAGE;
        return EXIT_FAILURE;
    }
    std::string password;
    std::getline(std::cin, password);
    services::SmbShare share(
        {"127.0.0.1", std::stoi(words[1]), words[2], words[3], std::move(password)});
    std::cout << answer([&share] {
        share.connect();
        return std::string("connected");
    }) << std::endl;
    for (std::string call, path; std::cin >> call >> path;)
        std::cout << answer([&] { return CALLS.at(call)(share, path); }) << std::endl;
}
