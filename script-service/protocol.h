// SPDX-License-Identifier: MIT
// What the two ends agree on; README.md tells the story.
#pragma once

#include <array>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <tuple>

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

/// Exit statuses beside the script's own, as a shell has them.
inline constexpr unsigned char notRun = 126;
inline constexpr unsigned char notFound = 127;
inline constexpr unsigned char killed = 137;

/// One line on standard error, which is the journal.
inline void say(const std::string& text)
{
    std::ignore = std::fputs((text + '\n').c_str(), stderr);
}

} // namespace ScriptService
