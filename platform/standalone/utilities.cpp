// The small helpers: run a program, Base64, forbidden characters, the clock.
#include "platform/utilities.h"

#include <sodium.h>

#include <chrono>
#include <cstdarg>
#include <cstring>
#include <ctime>
#include <vector>

#include "platform/standalone/run_program.h"

namespace {

/// Takes line breaks and padding away; false when the padding is not where padding can be.
bool strip_base64(const std::string& in, std::string& bare) {
    bare = in;
    std::erase_if(bare, [](char byte) { return byte == '\r' || byte == '\n'; });
    const std::size_t whole = bare.size();
    while (!bare.empty() && bare.back() == '=' && whole - bare.size() < 2) bare.pop_back();
    return bare.size() == whole || whole % 4 == 0;
}

}  // namespace

int zorv_exec(const char* stdout_path, const char* stderr_path, const char*, const char* program,
              ...) {
    standalone::Program run{.stdout_path = stdout_path,
                            .stderr_path = stderr_path,
                            .limit = std::chrono::seconds(ZORV_EXEC_LIMIT_SECONDS)};
    va_list arguments;
    va_start(arguments, program);
    for (const char* text = program; text != nullptr; text = va_arg(arguments, const char*))
        run.arguments.push_back(text);
    va_end(arguments);
    return run.arguments.empty() ? ZORV_EXEC_NOT_STARTED : standalone::run_program(run);
}

int b64_encode_v2(const unsigned char* data, unsigned length, std::string& out) {
    std::string text(sodium_base64_ENCODED_LEN(length, sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(), data, length, sodium_base64_VARIANT_ORIGINAL);
    text.pop_back();  // the NUL
    out = std::move(text);
    return 0;
}

int b64_decode_v2(const std::string& in, std::string& out) {
    std::string bare;
    if (!strip_base64(in, bare)) return -1;
    std::string bytes(bare.size(), '\0');
    std::size_t length = 0;
    if (sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), bare.data(),
                          bare.size(), nullptr, &length, nullptr,
                          sodium_base64_VARIANT_ORIGINAL_NO_PADDING) != 0)
        return -1;
    bytes.resize(length);
    out = std::move(bytes);
    return 0;
}

int check_black_chrset(const char* text, const char* blackset) {
    return text != nullptr && std::strpbrk(text, blackset) != nullptr ? 1 : 0;
}

unsigned long long current_time_stamp() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<unsigned long long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

long long conv_to_local_time(long long milliseconds) {
    using namespace std::chrono;
    const std::time_t seconds =
        floor<std::chrono::seconds>(std::chrono::milliseconds(milliseconds)).count();
    std::tm local{};
    tzset();  // localtime_r alone need not notice a changed TZ
    if (localtime_r(&seconds, &local) == nullptr) return milliseconds;
    return milliseconds + local.tm_gmtoff * 1000LL;
}
