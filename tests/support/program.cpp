// SPDX-License-Identifier: MIT
#include "program.h"

#include <QDir>

namespace {

QString programPath(const QString& name)
{
    return QDir(QStringLiteral(VARNEL_PROGRAM_DIR)).filePath(name);
}

} // namespace

ProgramRun runProgram(const QString& name, const QStringList& arguments, const QByteArray& input)
{
    QProcess process;
    process.start(programPath(name), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit) {
        qWarning() << name << arguments << process.errorString();
        return {};
    }
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

Program::Program(const QString& name)
    : path(programPath(name))
{
    connect(&process, &QProcess::readyReadStandardError, this,
            [this] { reader.feed(process.readAllStandardError()); });
    connect(&process, &QProcess::readyReadStandardOutput, this,
            [this] { standardOutput += process.readAllStandardOutput(); });
    connect(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished), this,
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
    return awaitTrue([this] { return !isRunning(); }, limit);
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

Panel::Panel()
    : Program("varnel-browser"_s)
{
    setEnvironment("QT_QPA_PLATFORM"_s, "offscreen"_s);
}

void Panel::setDisplay(const QString& name)
{
    setEnvironment("QT_QPA_PLATFORM"_s, "xcb"_s);
    setEnvironment("DISPLAY"_s, name);
}

bool Panel::startAndBind(const QStringList& arguments)
{
    return start(arguments) && log().await({"UDP bound"_s, "All LEDs on, Buzzer off"_s});
}
