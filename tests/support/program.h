// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>

#include <QProcess>
#include <QProcessEnvironment>

#include "logreader.h"

/// The end of a program: its exit status, -1 after a signal, and everything that it wrote.
struct ProgramRun
{
    int status = -1;
    QByteArray output;
    QByteArray errors;
};

/// Runs one of the project's programs, or the one at an absolute path, to its end with `input` to read.
ProgramRun runProgram(const QString& name, const QStringList& arguments, const QByteArray& input = {});

/// One of the project's programs as a child process, its standard error read line by line as its log. Killed,
/// if it still runs, when the object goes.
class Program : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Program)

public:
    /// `name` is a file of the build's program directory, or an absolute path.
    explicit Program(const QString& name);
    ~Program() override;

    /// Sets or, with a null string, removes a variable of the environment that start() will use.
    void setEnvironment(const QString& name, const QString& value);
    /// Puts a command, such as "setpriv" with its options, in front of the program.
    void setLauncher(const QStringList& command) { launcher = command; }

    /// Starts the program; false, with a warning, when the kernel refuses.
    [[nodiscard]] bool start(const QStringList& arguments = {});
    /// Writes to the program's standard input.
    bool write(const QByteArray& octets) { return process.write(octets) == octets.size(); }
    /// Sends `signalNumber` to the program.
    void signal(int signalNumber) const;
    /// Waits until the program has ended, its last output read.
    [[nodiscard]] bool awaitEnd(std::chrono::milliseconds limit = patience);
    /// Asks the program to end and waits for it; returns its exit status, or -1 if it had to be killed or
    /// was ended by a signal.
    int stop(int signalNumber = SIGTERM);

    bool isRunning() const { return process.state() != QProcess::NotRunning; }
    /// The exit status; -1 while it runs and when a signal ended it.
    int exitStatus() const;
    qint64 pid() const { return process.processId(); }
    LogReader& log() { return reader; }
    /// The program's standard output so far.
    QByteArray output() const { return standardOutput; }

    /// Runs a tool found in the path to its end; false unless it succeeds.
    static bool runTool(const QStringList& command);
    /// The same for a command line without quotes.
    static bool runTool(const QString& commandLine) { return runTool(commandLine.split(QLatin1Char(' '))); }

private:
    QString path;
    QStringList launcher;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    LogReader reader;
    QByteArray standardOutput;
    QProcess process;
};

/// The panel application. It runs on the offscreen platform unless a display is set.
class Panel : public Program
{
public:
    Panel();

    /// Lets it run on the X display `name`, such as ":99".
    void setDisplay(const QString& name);
    /// Starts it and waits until its UDP port is bound and its event loop is about to run.
    [[nodiscard]] bool startAndBind(const QStringList& arguments = {});
};
