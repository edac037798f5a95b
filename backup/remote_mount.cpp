// Runs the mount tool and judges what it says.
#include "backup/remote_mount.h"

#include <unistd.h>

#include <string>
#include <vector>

#include "backup/beneath.h"
#include "backup/own_file.h"
#include "cgi/result_code.h"
#include "platform/private_mounts.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr int MAX_FOLDER_PASSES = 256;

/// The parts of a path, empty ones left out. One pass takes off one part or one slash.
std::vector<std::string> split_folders(std::string path) {
    std::vector<std::string> parts;
    for (int pass = 0; pass < MAX_FOLDER_PASSES && !path.empty(); ++pass) {
        const std::size_t slash = path.find('/');
        if (slash != 0) parts.push_back(path.substr(0, slash));
        path.erase(0, slash == std::string::npos ? slash : slash + 1);
    }
    return parts;
}

/// @param path where `folder` is, for the debug lines
int make_folder(const Beneath& share, const std::string& folder, const std::string& path) {
    if (share.has(folder)) {
        DEBUG_NOTE("folder [%s] already exist\n", path.c_str());
        return 0;
    }
    const int ret = share.make_folder(folder);
    if (ret != 0) DEBUG_NOTE("create_dir [%s] fail ret=%d\n", path.c_str(), ret);
    return ret;
}

int code_of(const std::string& line) {
    for (const MountError& error : g_mount_error)
        if (line.find(error.match) != std::string::npos) return error.code;
    return CGI_MOUNT_UNKNOWN_ERROR;
}

/// @param output where the tool's words go
/// @return whether the tool's words are there to be judged
bool run_mount_tool(const char* output, const char* share_unc, const char* mount_point,
                    const char* options) {
    return zorv_exec(output, output, "/tmp/.recording_backup_mnt_log", "/usr/sbin/mount.cifs",
                     share_unc, mount_point, "-o", options, nullptr) != ZORV_EXEC_NO_OUTPUT;
}

/// Before anything on the share is reached. To whoever waits for the test a share that is mounted
/// and must not be used is one that could not be mounted, for none of the reasons with a code.
int make_harmless(const char* mount_point) {
    return restrict_mount(mount_point) == 0 ? 0 : CGI_MOUNT_UNKNOWN_ERROR;
}

}  // namespace

const MountError g_mount_error[4] = {
    {"13", CGI_MOUNT_PERMISSION_DENIED, "Permission denied"},
    {"112", CGI_MOUNT_HOST_DOWN, "Host is down"},
    {"115", CGI_MOUNT_SERVER_CONNECT_ERROR, "Server Connect Error"},
    {"suitable address", CGI_MOUNT_SERVER_CONNECT_ERROR, "suitable address"},
};

int judge_mount_output(std::FILE* output) {
    char line[1024] = "";
    if (std::fgets(line, sizeof line, output) == nullptr) return 0;
    DEBUG_LINE("strCommandResult: %s\n", line);
    return code_of(line);
}

int check_mount_result(const char* output_path) {
    const FilePtr output = open_own_file(output_path);
    unlink(output_path);
    return output ? judge_mount_output(output.get()) : CGI_MOUNT_RESULT_FILE_ERR;
}

int create_remote_sub_folder(const char* mount_point, const char* sub_folder) {
    DEBUG_LINE("in_cMountServerPath=[%s], in_cSubFolder=[%s]\n", mount_point, sub_folder);
    const std::vector<std::string> folder_list = split_folders(sub_folder);
    const Beneath share(mount_point);
    std::string folder;
    for (std::size_t i = 0; i < folder_list.size(); ++i) {
        folder += (i == 0 ? "" : "/") + folder_list[i];
        const std::string path = std::string(mount_point) + "/" + folder;
        DEBUG_NOTE("folder_list[%d]=[%s], will mkdir [%s]\n", static_cast<int>(i),
                   folder_list[i].c_str(), path.c_str());
        if (const int ret = make_folder(share, folder, path); ret != 0) return ret;
    }
    return 0;
}

int zorv_exec_mount(const char* share_unc, const char* sub_folder, const char* mount_point,
                    int port, const char* credentials_path, bool smb3) {
    char output[256];
    std::snprintf(output, sizeof output, "%s-%llu", "/tmp/.recording_backup_mnt_std",
                  current_time_stamp());
    char options[1024];
    std::snprintf(options, sizeof options, ",port=%d,file_mode=0664,dir_mode=0755%s,credentials=%s",
                  port, smb3 ? ",vers=3.0" : "", credentials_path);
    DEBUG_LINE("mount_path=[%s], subFolder=[%s], mount_server_path=[%s], c_strCredentials[%s]\n",
               share_unc, sub_folder, mount_point, options);
    if (!run_mount_tool(output, share_unc, mount_point, options)) return CGI_MOUNT_RESULT_FILE_ERR;
    if (const int result = check_mount_result(output); result != 0) return result;
    if (const int result = make_harmless(mount_point); result != 0) return result;
    const int nRet = create_remote_sub_folder(mount_point, sub_folder);
    if (nRet != 0) DEBUG_LINE("create_remote_sub_folder nRet=%d\n", nRet);
    return nRet;
}
