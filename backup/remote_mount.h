// Mounting a remote share for a test, and making the destination folder on it.
#pragma once

#include <cstdio>

/// One row of the table that judges the mount tool's output.
struct MountError {
    char match[32];    ///< text looked for anywhere in the first line
    int code;          ///< result code
    char message[64];  ///< what the error means; for readers of the table
};

/// Searched in this order; the first match counts, so a line with "113" is a "13".
extern const MountError g_mount_error[4];

/// Mounts a share, with nothing on it in effect that could harm (platform/private_mounts.h), and
/// makes the folder on it. Leaves the share mounted also when the folder cannot be made.
/// @param share_unc "//server/share"
/// @param sub_folder folders to make, separated by "/"; may be empty
/// @param mount_point an existing folder
/// @param port TCP port of the server
/// @param credentials_path file with user name and password (mount.cifs(8), "credentials=")
/// @param smb3 ask for SMB 3.0 instead of leaving the version to the tool
/// @return 0; a code of check_mount_result(), among them CGI_MOUNT_RESULT_FILE_ERR when the tool's
///         output could not be kept and CGI_MOUNT_UNKNOWN_ERROR when the mount could not be made
///         harmless; -1 of create_remote_sub_folder()
int zorv_exec_mount(const char* share_unc, const char* sub_folder, const char* mount_point,
                    int port, const char* credentials_path, bool smb3);

/// Judges the mount tool's output by its first line, of which 1023 bytes count. No output means
/// success, whatever the tool's exit status was.
/// @return 0; the code of the first matching row of g_mount_error; CGI_MOUNT_UNKNOWN_ERROR
int judge_mount_output(std::FILE* output);

/// Judges the output in a file, and deletes the file.
/// @return as judge_mount_output(); CGI_MOUNT_RESULT_FILE_ERR when the file cannot be opened, or is
///         not surely the effective user's own (own_file.h)
int check_mount_result(const char* output_path);

/// Makes each level of `sub_folder` below `mount_point`, at most 256 parts of it. What exists is
/// left alone. No part leads out of the mounted file system, neither as ".." nor as a link.
/// @return 0; -1 for a folder that cannot be made, or is not below `mount_point`
int create_remote_sub_folder(const char* mount_point, const char* sub_folder);
