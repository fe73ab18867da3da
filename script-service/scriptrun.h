// SPDX-License-Identifier: MIT
#pragma once

#include <set>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ScriptService {

/// One script at a time, and all processes that it starts. The service is their subreaper: a process whose
/// parent ends becomes a child of the service, which can then find it.
class ScriptRun
{
public:
    /// Why `path` must not be run as root; empty when it may. It and its directories, behind all links, have
    /// to belong to root, and nobody else may write to them.
    [[nodiscard]] static std::string distrust(const std::string& path);

    /// Starts the script, whose arguments follow the first of `words`, at the head of a process group of its
    /// own, with standard error alone. Returns 0 or the number of an error.
    [[nodiscard]] int start(const std::string& path, std::vector<std::string> words);

    /// Notes that the process `pid` was reaped; true when it was the script itself, with its `status`.
    bool reaped(pid_t pid, int status);

    [[nodiscard]] bool isRunning() const { return script != 0; }
    [[nodiscard]] int status() const { return waitStatus; }

    /// Kills the script with every process that it started, also those with a session of their own. Processes
    /// that earlier scripts left running, a DHCP client for example, stay. False when some do not end.
    bool end();

private:
    /// Processes that belong to this run.
    [[nodiscard]] std::vector<pid_t> family() const;

    pid_t script = 0;
    int waitStatus = 0;
    std::set<pid_t> others; ///< children of the service that are older than the script
};

} // namespace ScriptService
