// SPDX-License-Identifier: MIT
// The protocol between the two ends; README.md describes it.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ScriptService {

/// The service's socket, as in varnel-scripts.socket.
inline constexpr char socketPath[] = "/run/varnel-scripts.socket";

/// The scripts that may be requested: those that the panel runs.
inline constexpr std::array<std::string_view, 10> scriptNames = {
    "mbserverstart.sh", "mbserverstop.sh", "mbserverupdate.sh", "modbuscfg.sh", "netcfg.sh",
    "r7m.sh",           "snmpcfg.sh",      "snmpctl.sh",        "snmptrap.sh",  "usbremount.sh",
};

/// Limit, in bytes, for a request: the kernel's default limit for one script's arguments.
inline constexpr std::size_t longestRequest = std::size_t{2} * 1024 * 1024;

/// Limit for the words of a request: four times those of the panel's longest call, the name included.
inline constexpr std::size_t mostWords = 64;

/// Exit statuses besides the script's own, as in a shell.
inline constexpr unsigned char notRun = 126;
inline constexpr unsigned char notFound = 127;
inline constexpr unsigned char killed = 137;

/// A parsed request: words, the script's name first, or why it is refused.
struct ScriptRequest
{
    std::vector<std::string> words;
    std::string refusal;
};

/// Reads a request: words that each end with a NUL. Pure; takes any bytes. A refusal names the script, if it
/// is one of ours, but no argument: those of the SNMP scripts are secrets.
[[nodiscard]] ScriptRequest parse(std::string_view octets);

} // namespace ScriptService
