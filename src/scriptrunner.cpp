// SPDX-License-Identifier: MIT
#include "scriptrunner.h"

#include <QFileInfo>
#include <QLoggingCategory>
#include <QProcess>
#include <QtDebug>

#include <signal.h>
#include <unistd.h>

#include "settings.h"

namespace Varnel {

namespace {

Q_LOGGING_CATEGORY(lcScript, "varnel.script", QtWarningMsg)

/// A process at the head of a process group of its own, so that a script which overruns its time is killed
/// together with the programs it has started.
class ScriptProcess : public QProcess
{
public:
    void killGroup()
    {
        if (const auto pid = static_cast<pid_t>(processId()); pid > 0) {
            ::kill(-pid, SIGKILL);
        }
        kill();
        waitForFinished(-1); // reaps it: no zombie stays behind
    }

protected:
    void setupChildProcess() override { ::setpgid(0, 0); }
};

} // namespace

QString scriptPath(const QString& name)
{
    return Settings::getFilesScriptDir() + QLatin1Char('/') + name;
}

bool isRunnableScript(const QString& path)
{
    const QFileInfo info(path);
    return info.isFile() && info.isExecutable();
}

ScriptResult runScript(const QString& path, const QStringList& arguments, std::chrono::milliseconds limit)
{
    if (!isRunnableScript(path)) {
        return ScriptResult::Missing;
    }
    ScriptProcess process;
    // Pipes would fill our memory with what nobody reads, and would break under a background child that
    // outlives the script.
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    if (lcScript().isDebugEnabled()) {
        process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    } else {
        process.setStandardErrorFile(QProcess::nullDevice());
    }
    process.start(path, arguments);
    if (process.waitForFinished(static_cast<int>(limit.count()))) {
        return ScriptResult::Finished;
    }
    if (process.error() == QProcess::FailedToStart) {
        qCWarning(lcScript) << "Cannot start" << path << ":" << process.errorString();
        return ScriptResult::FailedToStart;
    }
    qCWarning(lcScript) << "Killed after" << limit.count() << "ms:" << path;
    process.killGroup();
    return ScriptResult::TimedOut;
}

ScriptResult runScriptOrLog(const QString& path, const QStringList& arguments)
{
    const ScriptResult result = runScript(path, arguments);
    if (result == ScriptResult::Missing) {
        qDebug() << "Script '" << path << "' not found, do nothing";
    }
    return result;
}

} // namespace Varnel
