// SPDX-License-Identifier: MIT
#include "scriptrun.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <map>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "plain.h"

namespace ScriptService {

namespace {

/// How long to wait for killed processes to end; one that waits for hardware may never end.
constexpr int endRounds = 200;
constexpr std::chrono::milliseconds endPause{5};

std::string directoryOf(const std::string& path)
{
    return path.substr(0, std::max<std::size_t>(path.rfind('/'), 1));
}

/// Whether root alone can change what is at `path`. Root's own group may write, as on some distributions.
bool isRootsAlone(const std::string& path, mode_t kind)
{
    struct stat state = {};
    return ::stat(path.c_str(), &state) == 0 && (state.st_mode & S_IFMT) == kind && state.st_uid == 0 &&
           (state.st_mode & S_IWOTH) == 0 && ((state.st_mode & S_IWGRP) == 0 || state.st_gid == 0);
}

/// The parent of a process, 0 when it is gone.
pid_t parentOf(const char* pid)
{
    const std::string path = std::string("/proc/") + pid + "/stat";
    const Varnel::Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::array<char, 512> text{};
    if (!file.isOpen() || ::read(file.get(), text.data(), text.size() - 1) <= 0) {
        return 0;
    }
    // "17 (any name) S 1 ...": the name may contain brackets and blanks.
    const char* const name = std::strrchr(text.data(), ')');
    return name != nullptr && std::strlen(name) > 4 ? static_cast<pid_t>(std::strtol(name + 4, nullptr, 10))
                                                    : 0;
}

/// Every process and its parent.
std::map<pid_t, pid_t> allProcesses()
{
    std::map<pid_t, pid_t> parents;
    DIR* const directory = ::opendir("/proc");
    while (const dirent* const entry = directory != nullptr ? ::readdir(directory) : nullptr) {
        const auto pid = static_cast<pid_t>(std::strtol(entry->d_name, nullptr, 10));
        if (pid > 0) {
            parents[pid] = parentOf(entry->d_name);
        }
    }
    if (directory != nullptr) {
        ::closedir(directory);
    }
    return parents;
}

std::set<pid_t> children()
{
    std::set<pid_t> result;
    for (const auto& [pid, parent] : allProcesses()) {
        if (parent == ::getpid()) {
            result.insert(pid);
        }
    }
    return result;
}

bool hasChildren()
{
    siginfo_t none = {};
    return ::waitid(P_ALL, 0, &none, WEXITED | WNOHANG | WNOWAIT) == 0;
}

/// The environment of a script: no descriptor but standard error, which is the journal, and default signal
/// handling.
class Surroundings
{
public:
    Surroundings()
    {
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        ::posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
        ::posix_spawnattr_init(&attributes);
        ::posix_spawnattr_setflags(&attributes,
                                   POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        sigset_t signals;
        sigemptyset(&signals);
        ::posix_spawnattr_setsigmask(&attributes, &signals);
        sigfillset(&signals);
        ::posix_spawnattr_setsigdefault(&attributes, &signals);
    }
    ~Surroundings()
    {
        ::posix_spawn_file_actions_destroy(&actions);
        ::posix_spawnattr_destroy(&attributes);
    }
    Surroundings(const Surroundings&) = delete;
    Surroundings& operator=(const Surroundings&) = delete;

    int start(pid_t* pid, const char* path, char* const* arguments) const
    {
        return ::posix_spawn(pid, path, &actions, &attributes, arguments, environ);
    }

private:
    posix_spawn_file_actions_t actions{};
    posix_spawnattr_t attributes{};
};

} // namespace

std::string ScriptRun::distrust(const std::string& path)
{
    std::array<char, PATH_MAX> real{};
    if (::realpath(path.c_str(), real.data()) == nullptr) {
        return std::string("it cannot be followed: ") + std::strerror(errno);
    }
    const std::string file = real.data();
    for (const std::string& directory : {directoryOf(path), directoryOf(file)}) {
        if (!isRootsAlone(directory, S_IFDIR)) {
            return "others than root can write to " + directory;
        }
    }
    return isRootsAlone(file, S_IFREG) ? std::string() : "others than root can write to " + file;
}

int ScriptRun::start(const std::string& path, std::vector<std::string> words)
{
    static const Surroundings surroundings;
    others = hasChildren() ? children() : std::set<pid_t>();
    words.front() = path;
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    const int error = surroundings.start(&script, path.c_str(), arguments.data());
    if (error != 0) {
        script = 0;
    }
    return error;
}

bool ScriptRun::reaped(pid_t pid, int status)
{
    others.erase(pid); // its number may be given to another process
    if (script == 0 || pid != script) {
        return false;
    }
    script = 0;
    waitStatus = status;
    return true;
}

std::vector<pid_t> ScriptRun::family() const
{
    const std::map<pid_t, pid_t> parents = allProcesses();
    std::vector<pid_t> result;
    for (const auto& [pid, parent] : parents) {
        pid_t eldest = pid;
        pid_t above = parent;
        while (above > 1 && above != ::getpid()) {
            eldest = above;
            const auto next = parents.find(above);
            above = next != parents.end() ? next->second : 0;
        }
        if (above == ::getpid() && others.count(eldest) == 0) {
            result.push_back(pid);
        }
    }
    return result;
}

bool ScriptRun::end()
{
    for (int round = 0; round < endRounds; ++round) {
        const std::vector<pid_t> left = family();
        if (left.empty()) {
            return true;
        }
        for (const pid_t pid : left) {
            ::kill(pid, SIGKILL);
        }
        int status = 0;
        for (pid_t pid = 0; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
            reaped(pid, status);
        }
        std::this_thread::sleep_for(endPause);
    }
    script = 0;
    waitStatus = SIGKILL;
    return false;
}

} // namespace ScriptService
