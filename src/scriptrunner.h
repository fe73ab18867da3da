// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

#include <QString>
#include <QStringList>

namespace Varnel {

/// How a script run ended. The panel continues in every case.
enum class ScriptResult
{
    Missing,       ///< no such file, or not executable: nothing was started
    FailedToStart, ///< the kernel refused to start it (no interpreter, out of memory, argument too long)
    TimedOut,      ///< still running at the limit, and killed with its process group
    Finished,      ///< ended by itself or by a signal; the exit status is ignored
};

/// How long a script may take before it is killed.
constexpr std::chrono::milliseconds scriptTimeLimit{30000};

/// The path of the script `name` in the configured script directory.
[[nodiscard]] QString scriptPath(const QString& name);

/// True when `path` is a file that exists and may be executed.
[[nodiscard]] bool isRunnableScript(const QString& path);

/// Starts `path` directly, without a shell, with the argument list `arguments`, and blocks the calling thread
/// until it has finished, at most `limit`. Its input and output are the null device; `QT_LOGGING_RULES`
/// "varnel.script.debug=true" shows its standard error and its failures in the log. A script that starts a
/// service in the background does not delay the caller.
ScriptResult runScript(const QString& path, const QStringList& arguments,
                       std::chrono::milliseconds limit = scriptTimeLimit);

/// The same, but a script that is missing or not executable is logged as
/// "Script '" path "' not found, do nothing".
ScriptResult runScriptOrLog(const QString& path, const QStringList& arguments);

} // namespace Varnel
