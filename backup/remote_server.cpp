// Tests a remote server: mount, write, measure, unmount.
#include "backup/remote_server.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "backup/beneath.h"
#include "backup/file_lock.h"
#include "backup/json_member.h"
#include "backup/operation.h"
#include "backup/own_file.h"
#include "backup/recording_backup_function.h"
#include "backup/remote_mount.h"
#include "platform/comutil_json.h"
#include "platform/private_mounts.h"
#include "platform/recorder_log.h"
#include "platform/utilities.h"

namespace {

constexpr char FAILED[] = "Test mount remote server fail.";
constexpr char BLACK_SET[] = "\"\\:|*?<>";
constexpr char CREDENTIALS_FILE[] = "/tmp/.recording_backup_mnt_info";
constexpr char CREDENTIALS_LOCK[] = "/mnt/.recording_backup_mnt_lock";
constexpr char LOCAL_TEST_FILE[] = "/storage/rec_bak_test";
constexpr std::size_t MAX_UNC_LENGTH = 511;
constexpr int BLOCK_SIZE = 1024;
constexpr int BLOCK_COUNT = 5120;
constexpr int TEST_SIZE = BLOCK_SIZE * BLOCK_COUNT;

/// What the request asks to test.
struct Server {
    char serverIP[512] = "";
    int port = 0;
    char username[512] = "";
    char password[512] = "";
    char destPath[512] = "";
};

/// The names of one test. All carry its time stamp, so that tests do not meet.
struct TestPaths {
    char mount_name[512];
    char mount_point[256];
    std::string remote_file;  ///< on the share
};

bool read_server(json_object* request, Server& server) {
    const auto text = [&](const char* key, char(&buffer)[512]) {
        return comutil_get_json_str_by_key(request, key, buffer, sizeof buffer);
    };
    return text("serverIP", server.serverIP) &&
           comutil_get_json_int_by_key(request, "port", &server.port) &&
           text("username", server.username) && text("password", server.password) &&
           text("destPath", server.destPath);
}

/// Reads and checks the request.
/// @return 0 or a result code
int read_request(const char* body, Server& server) {
    JsonPtr request;
    if (const int result = parse_request_body(body, request); result != 0) return result;
    if (!read_server(request.get(), server)) {
        DEBUG_LINE("parser json fail\n");
        return CGI_PARSER_JSON_FAIL;
    }
    if (check_black_chrset(server.destPath, BLACK_SET) != 0) {
        DEBUG_LINE("invalid path input=[%s] blackset=[%s]\n", server.destPath, BLACK_SET);
        return CGI_INVALID_VALUE;
    }
    return 0;
}

TestPaths make_paths() {
    const unsigned long long stamp = current_time_stamp();
    TestPaths paths;
    std::snprintf(paths.mount_name, sizeof paths.mount_name, "%s-%llu", "Remote_Server_Test",
                  stamp);
    std::snprintf(paths.mount_point, sizeof paths.mount_point, "%s/%.200s", "/mnt",
                  paths.mount_name);
    paths.remote_file = std::to_string(stamp);
    return paths;
}

[[noreturn]] void fail_to_prepare() {
    DEBUG_LINE("CGI_CMD_EXEC_FAIL: %d\n", CGI_CMD_EXEC_FAIL);
    fail(CGI_CMD_EXEC_FAIL);
}

/// Becomes root for everything that follows, out of sight of others, and makes the mount point.
void prepare_mount_point(const TestPaths& paths) {
    struct stat existing {};
    // The bare name is looked for in the working directory. A folder below /mnt is no obstacle: it
    // is used as it stands.
    if (stat(paths.mount_name, &existing) == 0) {
        DEBUG_LINE("DIR exist\n");
        fail_to_prepare();
    }
    [[maybe_unused]] const int unchecked = setreuid(0, 0);
    if (enter_private_mounts() != 0) fail_to_prepare();
    // Nobody but root can make anything in /mnt. A link there would have its target mounted over.
    mkdir(paths.mount_point, 0755);
    if (lstat(paths.mount_point, &existing) == 0 && S_ISLNK(existing.st_mode)) fail_to_prepare();
}

/// "/share/a/b" is the share "share" and the folder "a/b" on it.
void split_destination(const Server& server, std::string& unc, std::string& sub_folder) {
    const char* path = server.destPath[0] == '/' ? server.destPath + 1 : server.destPath;
    const char* slash = std::strchr(path, '/');
    const std::string share = slash == nullptr ? path : std::string(path, slash);
    sub_folder = slash == nullptr ? "" : slash + 1;
    DEBUG_LINE("c_strPath=[%s] mountPath=[%s] subFolder=[%s]\n", server.destPath, share.c_str(),
               sub_folder.c_str());
    unc = (std::string("//") + server.serverIP + "/" + share).substr(0, MAX_UNC_LENGTH);
}

/// Mounts the share, if need be with SMB 3.0. Removes the mount point when neither works.
void mount_share(const Server& server, const TestPaths& paths) {
    std::string unc;
    std::string sub_folder;
    split_destination(server, unc, sub_folder);
    // Other tests write their credentials to the same file. The lock lies where only root can make
    // files, so that nobody else can keep it.
    const FileLock lock(CREDENTIALS_LOCK);
    if (!lock || !write_credentials(CREDENTIALS_FILE, server.username, server.password)) {
        DEBUG_LINE("CGI_MOUNT_CIFS_FILE_ERR: %d\n", CGI_MOUNT_CIFS_FILE_ERR);
        fail(CGI_MOUNT_CIFS_FILE_ERR);
    }
    const auto mount = [&](bool smb3) {
        return zorv_exec_mount(unc.c_str(), sub_folder.c_str(), paths.mount_point, server.port,
                               CREDENTIALS_FILE, smb3);
    };
    int ret = mount(false);
    if (ret == 0) return;
    DEBUG_LINE("zorv_exec_mount ret=%d\n", ret);
    ret = mount(true);
    if (ret == 0) return;
    rmdir(paths.mount_point);
    fail(ret);
}

[[noreturn]] void fail_to_open() {
    DEBUG_LINE("fopen fail\n");
    fail(CGI_CMD_EXEC_FAIL);
}

/// The local test file lies in a folder that may belong to others, and other tests use its name,
/// too. So it is kept open, and read and removed as this test's own only.
class LocalFile {
public:
    LocalFile() : file_(create_own_file(LOCAL_TEST_FILE)) {
        if (!file_) fail_to_open();
        const FilePtr out = stream("wb");
        if (!out) fail_to_open();
        char block[BLOCK_SIZE];
        std::memset(block, 'a', sizeof block);
        for (int i = 0; i < BLOCK_COUNT; ++i) std::fwrite(block, sizeof block, 1, out.get());
    }

    /// @return null when there is no test file by that name any more
    FilePtr open_again() const {
        const FilePtr named = open_own_file(LOCAL_TEST_FILE);
        return named ? stream("rb") : nullptr;
    }

    void remove() const {
        if (is_name_of(LOCAL_TEST_FILE, file_)) unlink(LOCAL_TEST_FILE);
    }

private:
    /// The whole file, from its beginning.
    FilePtr stream(const char* mode) const {
        lseek(file_.get(), 0, SEEK_SET);
        return open_stream(Descriptor(fcntl(file_.get(), F_DUPFD_CLOEXEC, 0)), mode);
    }

    Descriptor file_;
};

/// Copies line by line into whole blocks, so that every block of the remote file ends in a zero.
/// Users compare the rate with what earlier tests of their servers gave, so the work that is timed
/// must not change. The share gets every block even when a full disk cut the local file short.
void copy(std::FILE* local, std::FILE* remote) {
    char buffer[BLOCK_SIZE] = "";
    for (int block = 0; block < BLOCK_COUNT; ++block) {
        [[maybe_unused]] const char* unchecked = std::fgets(buffer, sizeof buffer, local);
        std::fwrite(buffer, sizeof buffer, 1, remote);
    }
}

/// Makes the local test file, copies it to the share and measures.
/// @return false when the local file cannot be read back
bool measure(const TestPaths& paths, std::string& rate) {
    const LocalFile local_file;
    const unsigned long long begin = current_time_stamp();
    const Beneath share(paths.mount_point);
    FilePtr remote = share.create_file(paths.remote_file);
    if (!remote) fail_to_open();
    FilePtr local = local_file.open_again();
    if (!local) {
        local_file.remove();
        return false;
    }
    copy(local.get(), remote.get());
    remote.reset();
    local.reset();
    rate = transfer_rate(begin, current_time_stamp());
    share.remove(paths.remote_file);
    local_file.remove();
    return true;
}

void unmount(const TestPaths& paths) {
    const int nStatus =
        zorv_exec(nullptr, nullptr, nullptr, "/bin/umount", paths.mount_point, nullptr);
    if (nStatus != 0) {
        DEBUG_LINE("unmount fail,nStatus = %d\n", nStatus);
        fail(CGI_CMD_EXEC_FAIL);
    }
    rmdir(paths.mount_point);
}

}  // namespace

bool write_credentials(const char* path, const char* username, const char* password) {
    std::string fresh = std::string(path) + "-XXXXXX";
    FilePtr file;
    if (const int descriptor = mkostemp(fresh.data(), O_CLOEXEC); descriptor >= 0)
        file.reset(fdopen(descriptor, "w"));
    if (!file) return false;
    const bool written =
        std::fprintf(file.get(), "username=%s\npassword=%s", username, password) >= 0;
    const bool closed = std::fclose(file.release()) == 0;
    if (written && closed && std::rename(fresh.c_str(), path) == 0) return true;
    unlink(fresh.c_str());
    return false;
}

std::string transfer_rate(unsigned long long begin, unsigned long long end) {
    const auto elapsed = static_cast<int>(end - begin);
    const float rate = static_cast<float>(TEST_SIZE) / (static_cast<float>(elapsed) / 1000.0F);
    // What does not fit an int, a copy in no time among it, is the target processor's answer to the
    // conversion.
    const bool fits = rate >= -2147483648.0F && rate < 2147483648.0F;
    return std::to_string(fits ? static_cast<int>(rate) : INT_MIN);
}

int test_remote_server(json_object** reply, const char* body) {
    std::string rate;
    bool readable = true;
    const int result = run_operation(reply, FAILED, [&] {
        Server server;
        require(read_request(body, server));
        const TestPaths paths = make_paths();
        prepare_mount_point(paths);
        mount_share(server, paths);
        readable = measure(paths, rate);
        if (readable) unmount(paths);
    });
    if (result != 0) return result;
    if (!readable) return CGI_MOUNT_RESULT_FILE_ERR;
    JsonPtr answer = success_reply();
    add_member(answer.get(), "transferRate", rate);
    *reply = answer.release();
    return 0;
}
