// What the mount tool prints: silence alone means success, whatever else it says is an error.
#include <algorithm>

#include "backup/remote_mount.h"
#include "cgi/result_code.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/input_stream.h"

namespace {

using fuzz::check;

constexpr std::size_t LONGEST_LINE = 1023;

int expected_code(const std::string& output) {
    if (output.empty()) return 0;
    const std::string first = output.substr(0, std::min(output.find('\n'), LONGEST_LINE));
    const std::string line = first.c_str();  // texts end at a NUL
    const auto says = [&](const char* words) { return line.find(words) != std::string::npos; };
    if (says("13")) return CGI_MOUNT_PERMISSION_DENIED;
    if (says("112")) return CGI_MOUNT_HOST_DOWN;
    if (says("115") || says("suitable address")) return CGI_MOUNT_SERVER_CONNECT_ERROR;
    return CGI_MOUNT_UNKNOWN_ERROR;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string output = fuzz::text(data, size);
    const int code = judge_mount_output(fuzz::InputStream(output).get());
    check(code == expected_code(output), "the code is that of the first line");
    return 0;
}
