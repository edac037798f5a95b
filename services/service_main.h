// What the main functions of the services share: arguments, the state folder, one-line errors.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace services {

/// Something else that a service's program does instead of serving.
struct OtherUse {
    std::string option;  ///< "--plan"
    std::string value;   ///< what its value is called in --help: "TASK"
    std::string help;
    std::function<void(const std::string&)> run;
};

/// Exit status when nothing would be better after a restart: the units have systemd leave it at
/// that. It is EX_CONFIG of sysexits.h.
inline constexpr int NOT_TO_BE_REPEATED = 78;

/// Handles --help and --version, checks that the state folder is there, and calls `serve`.
/// @param name        the program's name
/// @param description what --help says
/// @param others     what it can be called for otherwise, one at a time
/// @return exit status: 0; 1 with one line on standard error when the folder is missing, or `serve`
///         or another use throws; NOT_TO_BE_REPEATED with such a line when a database is a newer
///         version's, after some seconds in which whoever connects to the sockets that systemd
///         passed is turned away (see ListeningSockets); CLI11's, with such a line, for arguments
///         that nobody knows, or that ask for two uses at once
int service_main(const std::string& name, const std::string& description, int argc, char** argv,
                 const std::function<void()>& serve, const std::vector<OtherUse>& others = {});

/// Where a service listens, for people: "127.0.0.1, ports 10205, 10141 and 10206".
std::string place_of(std::initializer_list<int> ports);

/// Tells whoever started the service that it answers from now on: one line on standard output.
void announce(const std::string& line);

}  // namespace services
