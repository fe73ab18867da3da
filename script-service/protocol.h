// SPDX-License-Identifier: MIT
// What the two ends agree on; README.md has the whole picture.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ScriptService {

/// Where the service listens. varnel-scripts.socket says the same.
inline constexpr char socketPath[] = "/run/varnel-scripts.socket";

/// The names that may be asked for: those that the panel runs.
inline constexpr std::array<std::string_view, 10> scriptNames = {
    "mbserverstart.sh", "mbserverstop.sh", "mbserverupdate.sh", "modbuscfg.sh", "netcfg.sh",
    "r7m.sh",           "snmpcfg.sh",      "snmpctl.sh",        "snmptrap.sh",  "usbremount.sh",
};

/// More than the kernel takes as one script's arguments by default is refused unread.
inline constexpr std::size_t longestRequest = std::size_t{2} * 1024 * 1024;

/// Four times what the panel's longest call has, the name included.
inline constexpr std::size_t mostWords = 64;

/// Exit statuses beside the script's own, as a shell has them.
inline constexpr unsigned char notRun = 126;
inline constexpr unsigned char notFound = 127;
inline constexpr unsigned char killed = 137;

/// A request as the service reads it: words, the script's name first, or why it is refused.
struct ScriptRequest
{
    std::vector<std::string> words;
    std::string refusal;
};

/// Reads a request: words that each end with a NUL. Pure; takes any octets. A refusal names the script, if it
/// is one of ours, but no argument: those of the SNMP scripts are secrets.
[[nodiscard]] ScriptRequest parse(std::string_view octets);

} // namespace ScriptService
