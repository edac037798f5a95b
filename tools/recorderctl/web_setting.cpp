// What "recorderctl web listen" keeps in the state folder: where the web server listens beyond its
// own port of 127.0.0.1, with the certificate for it.
#include "tools/recorderctl/web_setting.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>

#include "platform/standalone/store/file_handle.h"
#include "platform/standalone/store/state_folder.h"
#include "tools/recorderctl/commands.h"
#include "tools/recorderctl/folders.h"

namespace recorderctl {

namespace {

constexpr char WEB_FILE[] = "web.pem";
constexpr char UNREADY_WEB_FILE[] = "web.pem.part";
constexpr std::string_view ADDRESS_LINE = "Listen: ";
constexpr std::string_view MAKER_LINE = "Certificate: ";
constexpr std::array<std::string_view, 3> MAKER_WORDS = {"none", "own", "given"};

std::string web_path(const char* name) {
    return standalone::state_folder() + '/' + name;
}

CertificateMaker maker_of(std::string_view word) {
    for (std::size_t at = 0; at < MAKER_WORDS.size(); ++at)
        if (MAKER_WORDS[at] == word) return static_cast<CertificateMaker>(at);
    throw Failure(web_path(WEB_FILE) + " is damaged; \"recorderctl web listen\" makes it anew");
}

/// The rest of the next line, which begins with the word.
std::string line_behind(std::istream& file, std::string_view word) {
    std::string line;
    if (!std::getline(file, line) || !line.starts_with(word)) return "";
    return line.substr(word.size());
}

void write_all(int file, std::string_view text) {
    while (!text.empty()) {
        const ssize_t written = write(file, text.data(), text.size());
        if (written < 0)
            throw Failure("cannot write " + web_path(WEB_FILE) + ": " + std::strerror(errno));
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

}  // namespace

std::string web_text(const WebSetting& setting) {
    std::string text(ADDRESS_LINE);
    text.append(setting.address.text()).append("\n").append(MAKER_LINE);
    text.append(MAKER_WORDS.at(static_cast<std::size_t>(setting.maker))).append("\n");
    return text + setting.pem;
}

std::optional<std::string> kept_web_text() {
    const std::string path = web_path(WEB_FILE);
    if (!std::filesystem::exists(path)) return std::nullopt;
    std::ifstream file(path);
    if (!file) throw Failure("cannot read " + path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::optional<WebSetting> kept_web_setting() {
    const std::optional<std::string> text = kept_web_text();
    if (!text) return std::nullopt;
    std::istringstream file(*text);
    const std::string address = line_behind(file, ADDRESS_LINE);
    const CertificateMaker maker = maker_of(line_behind(file, MAKER_LINE));
    std::ostringstream pem;
    if (maker != CertificateMaker::none) pem << file.rdbuf();
    return WebSetting{.address = parse_web_address(address), .maker = maker, .pem = pem.str()};
}

void keep_web_text(const std::optional<std::string>& text) {
    const std::string folder = standalone::state_folder();
    if (text) {
        std::filesystem::remove(web_path(UNREADY_WEB_FILE));
        const standalone::FileHandle file(open(web_path(UNREADY_WEB_FILE).c_str(),
                                               O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!file) throw Failure("cannot make a file in " + folder + ": " + std::strerror(errno));
        write_all(file.get(), *text);
        sync_to_disk(web_path(UNREADY_WEB_FILE));
        std::filesystem::rename(web_path(UNREADY_WEB_FILE), web_path(WEB_FILE));
    } else {
        std::filesystem::remove(web_path(WEB_FILE));
    }
    sync_to_disk(folder);
}

}  // namespace recorderctl
