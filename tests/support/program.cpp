// SPDX-License-Identifier: MIT
#include "program.h"

#include <QTest>

namespace {

QString programPath(const QString& name)
{
    return name.startsWith(QLatin1Char('/')) ? name : QStringLiteral(VARNEL_PROGRAM_DIR "/") + name;
}

} // namespace

Program::Program(const QString& name, QObject* parent)
    : QObject(parent)
    , path(programPath(name))
{
    connect(&process, &QProcess::readyReadStandardError, &reader,
            [this] { reader.feed(process.readAllStandardError()); });
    connect(&process, &QProcess::readyReadStandardOutput, this, [this] {
        standardOutput += process.readAllStandardOutput();
        emit outputAdded();
    });
    connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), &reader,
            [this] { reader.finish(); });
}

Program::~Program()
{
    process.disconnect();
    if (isRunning()) {
        process.kill();
        process.waitForFinished();
    }
}

void Program::setEnvironment(const QString& name, const QString& value)
{
    if (value.isNull()) {
        environment.remove(name);
    } else {
        environment.insert(name, value);
    }
}

bool Program::start(const QStringList& arguments)
{
    const QStringList command = launcher + QStringList(path) + arguments;
    process.setProcessEnvironment(environment);
    process.start(command.first(), command.mid(1));
    if (!process.waitForStarted()) {
        qWarning() << "Cannot start" << command << process.errorString();
        return false;
    }
    return true;
}

void Program::signal(int signalNumber) const
{
    if (isRunning()) {
        ::kill(static_cast<pid_t>(pid()), signalNumber);
    }
}

bool Program::awaitEnd(std::chrono::milliseconds limit)
{
    return QTest::qWaitFor([this] { return !isRunning(); }, static_cast<int>(limit.count()));
}

int Program::stop(int signalNumber)
{
    signal(signalNumber);
    if (!awaitEnd()) {
        qWarning() << path << "does not end on signal" << signalNumber;
        process.kill();
        process.waitForFinished();
        return -1;
    }
    return exitStatus();
}

int Program::exitStatus() const
{
    return !isRunning() && process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

bool Program::runTool(const QStringList& command)
{
    Program tool(QStringLiteral("/usr/bin/env"));
    return tool.start(command) && tool.awaitEnd() && tool.exitStatus() == 0;
}
