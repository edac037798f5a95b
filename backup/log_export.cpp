// Stores the exported log and links it where the web server serves it.
#include "backup/log_export.h"

#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "backup/own_file.h"
#include "cgi/result_code.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr char STORED_FILE[] = "/share/Ostra-RecordingbackLog.csv";
constexpr char LINK[] = "/home/httpd/cgi-bin/Ostra-RecordingbackLog.csv";

/// The log is for administrators, so nobody may read the file but the web server's group: the one
/// that started this process.
/// @return whether every byte reached the file system
bool write_and_close(FilePtr file, const std::string& csv) {
    const int descriptor = fileno(file.get());
    if (fchown(descriptor, -1, getgid()) != 0 || fchmod(descriptor, 0640) != 0) return false;
    if (!csv.empty() && std::fwrite(csv.data(), csv.size(), 1, file.get()) != 1) return false;
    return std::fclose(file.release()) == 0;
}

/// Writes beside the stored file and renames: a full disk leaves the previous export as it was, and
/// a link that somebody put in place of the stored file is replaced, not followed.
bool store(const std::string& csv) {
    const std::string path = STORED_FILE + ("." + std::to_string(getpid()));
    // Nobody else's from the beginning: who opens a file while it is empty reads it to its end.
    FilePtr file = open_stream(create_own_file(path.c_str()), "wb");
    if (!file) return false;
    if (write_and_close(std::move(file), csv) && std::rename(path.c_str(), STORED_FILE) == 0)
        return true;
    unlink(path.c_str());
    return false;
}

}  // namespace

int publish_log_export(const std::string& csv) {
    if (!store(csv)) {
        DEBUG_LINE("%s cannot be written\n", STORED_FILE);
        return CGI_CMD_EXEC_FAIL;
    }
    // The link stands in a folder of root's. Without that right the command fails and says so.
    [[maybe_unused]] const int unchecked = setreuid(0, 0);
    char c_strCommand[1024];
    std::snprintf(c_strCommand, sizeof c_strCommand, "/bin/ln -sf %s %s", STORED_FILE, LINK);
    DEBUG_LINE("c_strCommand = %s\n", c_strCommand);
    const int nStatus =
        zorv_exec(nullptr, nullptr, nullptr, "/bin/ln", "-sf", STORED_FILE, LINK, nullptr);
    if (nStatus != 0) {
        DEBUG_LINE("soft command fail,nStatus = %d\n", nStatus);
        return CGI_CMD_EXEC_FAIL;
    }
    return 0;
}
