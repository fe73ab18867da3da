// SPDX-License-Identifier: MIT
#pragma once

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QUrl>

/// The real program as a child process, HTTP on a free loopback port; killed when the test lets go of it.
class SimulatorProcess
{
public:
    SimulatorProcess() = default;
    Q_DISABLE_COPY_MOVE(SimulatorProcess)
    ~SimulatorProcess()
    {
        process.kill();
        process.waitForFinished();
    }

    /// Starts it with --log and --stdin, unless `arguments` say otherwise, and waits for its ready line.
    bool start(const QStringList& arguments)
    {
        QStringList all{QStringLiteral("--http"), QStringLiteral("127.0.0.1:0"), QStringLiteral("--log"),
                        QStringLiteral("--stdin")};
        process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"), all + arguments);
        QElapsedTimer clock;
        clock.start();
        while (clock.elapsed() < 10000 && ready.isEmpty() && process.state() != QProcess::NotRunning) {
            process.waitForReadyRead(200);
            readLines();
        }
        return !ready.isEmpty();
    }

    /// The address of a path below the web site.
    [[nodiscard]] QUrl url(const QString& path) const
    {
        const QString endpoint = ready.section(QStringLiteral("http="), 1).section(QLatin1Char(' '), 0, 0);
        return QUrl(QStringLiteral("http://") + endpoint + path);
    }

    /// Sends one action on standard input.
    void act(const char* line)
    {
        process.write(line);
        process.write("\n");
        process.waitForBytesWritten();
    }

    /// All events of this kind so far.
    QList<QJsonObject> events(const QString& kind)
    {
        if (process.bytesAvailable() > 0 || process.waitForReadyRead(0)) {
            readLines();
        }
        QList<QJsonObject> found;
        for (const QJsonObject& event : qAsConst(log)) {
            if (event.value(QLatin1String("event")).toString() == kind) {
                found.append(event);
            }
        }
        return found;
    }

    QProcess process;
    QString ready;

private:
    void readLines()
    {
        while (process.canReadLine()) {
            const QByteArray line = process.readLine().trimmed();
            if (line.startsWith("listening")) {
                ready = QString::fromUtf8(line);
            } else {
                log.append(QJsonDocument::fromJson(line).object());
            }
        }
    }

    QList<QJsonObject> log;
};
