// The system's own result codes, and the form in which a code stands in a reply.
#pragma once

#include <cstdint>

/// Makes the signed 32-bit value that travels as an operation's result and as the exit status.
constexpr int result_code(std::uint32_t value) {
    return static_cast<int>(value);
}

/// No valid session.
inline constexpr int CGI_AUTH_FAIL = result_code(0x950a0001);
/// No path, or 16 and more segments.
inline constexpr int CGI_URI_ERROR = result_code(0x950a0002);
/// Method none of GET, PUT, POST and DELETE.
inline constexpr int CGI_METHOD_ERROR = result_code(0x950a0003);
/// Body absent or not JSON.
inline constexpr int CGI_INPUT_FORMAT_ERROR = result_code(0x950a0004);
/// Member missing or of the wrong kind.
inline constexpr int CGI_PARSER_JSON_FAIL = result_code(0x950a0005);
/// Value present but not allowed.
inline constexpr int CGI_INVALID_VALUE = result_code(0x950a0006);
/// Storage settings unusable.
inline constexpr int CGI_GET_CHANNEL_LIST_FAIL = result_code(0x950a0007);
/// A tool or a test file failed.
inline constexpr int CGI_CMD_EXEC_FAIL = result_code(0x950a0008);
/// No reply to a delete.
inline constexpr int CGI_SSCI_RESPONSE_NULL = result_code(0x950a0009);
/// Mount error 13.
inline constexpr int CGI_MOUNT_PERMISSION_DENIED = result_code(0x950a000a);
/// Mount error 115, no address.
inline constexpr int CGI_MOUNT_SERVER_CONNECT_ERROR = result_code(0x950a000b);
/// Any other mount error.
inline constexpr int CGI_MOUNT_UNKNOWN_ERROR = result_code(0x950a000c);
/// No stored task has the identifier.
inline constexpr int CGI_TASK_NOT_FOUND = result_code(0x950a000d);
/// Nothing to escape.
inline constexpr int CGI_PASSWORD_EMPTY = result_code(0x950a000e);
/// Credentials file not created.
inline constexpr int CGI_MOUNT_CIFS_FILE_ERR = result_code(0x950a000f);
/// Mount output or test file unreadable.
inline constexpr int CGI_MOUNT_RESULT_FILE_ERR = result_code(0x950a0010);
/// Mount error 112.
inline constexpr int CGI_MOUNT_HOST_DOWN = result_code(0x950a0011);
/// Waiting sequence unusable.
inline constexpr int CGI_GET_TASK_SEQUENCE_ERROR = result_code(0x950a0020);
/// Running tasks unknown.
inline constexpr int CGI_GET_BACKUP_RUNNING_INFO_ERROR = result_code(0x950a0021);
/// The daemon took no command.
inline constexpr int CGI_CHANGE_STATUS_ERROR = result_code(0x950a0022);
/// Waiting sequence not fetched.
inline constexpr int CGI_SSCI_FAIL = result_code(0x950a0023);

/// The value of "ret_code" for a result: the system's own codes as unsigned numbers (0x950a0005 is
/// 2500460549), statuses from elsewhere (the configuration store, the HTTP client, a tool)
/// unchanged.
constexpr long reply_code(int result) {
    constexpr std::uint32_t OWN = 0x950a0000;
    const auto bits = static_cast<std::uint32_t>(result);
    return (bits & 0xffff0000) == OWN ? static_cast<long>(bits) : result;
}
