// What the recorder is.
#include "console/recorder_facts.h"

#include <limits.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <string_view>

#include "console/json.h"
#include "platform/standalone/store/calendar.h"
#include "platform/version.h"

namespace console {

namespace {

std::string host_name() {
    std::array<char, HOST_NAME_MAX + 1> name{};
    gethostname(name.data(), name.size() - 1);
    return name.data();
}

}  // namespace

std::string zone_name() {
    if (const char* zone = std::getenv("TZ"); zone != nullptr && *zone != '\0')
        return *zone == ':' ? zone + 1 : zone;
    std::array<char, PATH_MAX> link{};
    if (readlink("/etc/localtime", link.data(), link.size() - 1) <= 0) return "";
    constexpr std::string_view FOLDER = "zoneinfo/";
    const std::string_view path = link.data();
    const std::size_t found = path.find(FOLDER);
    return found == std::string_view::npos ? "" : std::string(path.substr(found + FOLDER.size()));
}

Json recorder_facts(long long time) {
    Json facts = Json::object();
    facts.add("name", host_name());
    facts.add("version", RECORDER_VERSION);
    facts.add("zone", zone_name());
    facts.add("utc_offset", standalone::machine_zone(time));
    return facts;
}

}  // namespace console
