// SPDX-License-Identifier: MIT
#include "files.h"
#include "literals.h"
#include "rows.h"
#include "service.h"

#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

using namespace Varnel;

namespace {

const QByteArray update = R"({"cmd":"setconfig","data":[{"address":100,"values":[1,2]}]})";

/// A port that no program uses now.
quint16 freePort()
{
    QTcpServer probe;
    return probe.listen(QHostAddress(QHostAddress::LocalHost)) ? probe.serverPort() : quint16(0);
}

/// The reason of a refusal, empty after a success.
QString refusal(const Outcome<>& outcome)
{
    return outcome ? QString() : outcome.refusal.kind + ": "_s + outcome.refusal.text;
}

} // namespace

class tst_Service : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        directory = std::make_unique<QTemporaryDir>();
        service = std::make_unique<Service>(ServiceOptions());
        port = freePort();
    }

    void startsFeedsAndStops()
    {
        QCOMPARE(service->state(), "stopped"_s);
        QCOMPARE(service->endpoint(), QString());
        const QString endpoint = "tcp 127.0.0.1:%1"_s.arg(port);
        QTest::ignoreMessage(QtInfoMsg, qPrintable("serving 2 registers on "_s + endpoint));
        QVERIFY(service->start(goodInit()));
        QCOMPARE(service->state(), "serving"_s);
        QCOMPARE(service->endpoint(), endpoint);
        QCOMPARE(service->registerCount(), 2);
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
        QVERIFY(service->update(update));
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
        QCOMPARE(service->updateCount(), qulonglong(1));

        QTest::ignoreMessage(QtInfoMsg, qPrintable("stopped "_s + endpoint));
        service->stop();
        QCOMPARE(service->state(), "stopped"_s);
        QCOMPARE(service->registerCount(), 0);
        QCOMPARE(service->clientCount(), 0);
        QCOMPARE(read(100, 2), QByteArray());
        service->stop(); // nothing to do, nothing to say
        QTest::ignoreMessage(QtWarningMsg, "update command: the server is not started");
        QCOMPARE(service->update(update).refusal.kind, "NotStarted"_s);
        // Started again, the old values are gone.
        QVERIFY(service->start(goodInit()));
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
    }

    void badInitFileChangesNothing_data()
    {
        // path: empty: a file with `text`
        const Rows<QString, QByteArray, QString> row("path", "text", "message");
        row("missing", "/no/such\nfile"_s, {}, "init file '/no/such?file': no such file"_s);
        row("directory", "/tmp"_s, {}, "init file '/tmp': no such file"_s);
        row("5 MB", {}, QByteArray(5000000, ' '),
            "init file: 4194305 octets are too long, 4194304 are allowed"_s);
    }

    void badInitFileChangesNothing()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, text);
        QFETCH(QString, message);
        QVERIFY(service->start(goodInit()));
        QVERIFY(service->update(update));
        QTest::ignoreMessage(QtWarningMsg, qPrintable("start: "_s + message));
        QCOMPARE(refusal(service->start(path.isEmpty() ? writeInit(text) : path)), "BadInit: "_s + message);
        QCOMPARE(service->state(), "serving"_s);
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
    }

    void statusBlockIsServedBesideTheTables()
    {
        ServiceOptions options;
        options.statusBlock = 96; // up to the table at 100
        service = std::make_unique<Service>(options);
        QVERIFY(service->start(goodInit()));
        QCOMPARE(service->registerCount(), 2);
        QCOMPARE(read(96, 6), QByteArray::fromHex("03 0C FFFF 0000 0000 0000 0000 0000"));
        QVERIFY(service->update(update));
        QCOMPARE(read(97, 3), QByteArray::fromHex("03 06 0000 0001 0001"));
        options.statusBlock = 97;
        Service second{options};
        QTest::ignoreMessage(QtWarningMsg,
                             "start: init file: the table at 100 covers the status block at 97");
        QCOMPARE(second.start(goodInit()).refusal.kind, "BadInit"_s);
    }

    void badUpdatesAreReportedOnce()
    {
        QVERIFY(service->start(goodInit()));
        QVERIFY(service->update(update));
        const QByteArray outside = R"({"cmd":"setconfig","data":[{"address":101,"values":[8,9]}]})";
        const char* message = "2 words from address 101 are not all in a table";
        const auto report = [](const char* text) { QTest::ignoreMessage(QtWarningMsg, text); };
        report(message);
        for (int repetition = 0; repetition < 3; ++repetition) {
            QCOMPARE(refusal(service->update(outside)), "BadUpdate: "_s + QString::fromLatin1(message));
        }
        report("update command: unknown command 'x', expected 'setconfig'");
        QCOMPARE(service->update(R"({"cmd":"x"})").refusal.kind, "UnknownCommand"_s);
        QVERIFY(service->update(update));
        report(message); // news again
        QCOMPARE(service->update(outside).refusal.kind, "BadUpdate"_s);
        QCOMPARE(service->updateCount(), qulonglong(2));
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
    }

    void waitsForAPortInUse()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress(QHostAddress::LocalHost), port));
        const QString message =
            "cannot open tcp 127.0.0.1:%1: The bound address is already in use; trying again every 100 ms"_s
                .arg(port);
        QTest::ignoreMessage(QtWarningMsg, qPrintable("start: "_s + message));
        QCOMPARE(refusal(service->start(goodInit())), "NoInterface: "_s + message);
        QCOMPARE(service->state(), "waiting"_s);
        QVERIFY(service->update(update)); // kept for the clients to come
        squatter.close();
        QTRY_COMPARE(service->state(), "serving"_s);
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
    }

    void stopEndsTheWaiting()
    {
        QTcpServer squatter;
        QVERIFY(squatter.listen(QHostAddress(QHostAddress::LocalHost), port));
        QCOMPARE(service->start(goodInit()).refusal.kind, "NoInterface"_s);
        service->stop();
        // A second service that retries as often gets the port; the first would have been earlier.
        Service second{ServiceOptions()};
        QCOMPARE(second.start(goodInit()).refusal.kind, "NoInterface"_s);
        squatter.close();
        QTRY_COMPARE(second.state(), "serving"_s);
        QCOMPARE(service->state(), "stopped"_s);
    }

    void restoresAfterAnEndWithoutStop()
    {
        ServiceOptions options;
        options.stateFile = directory->filePath("state"_s);
        {
            Service first(options);
            first.restore(); // nothing there
            QCOMPARE(first.state(), "stopped"_s);
            QVERIFY(first.start(goodInit()));
            QVERIFY(first.update(update));
        }
        QVERIFY(QFile::remove(directory->filePath("mbserver_init.dbus"_s)));
        Service second(options);
        QTest::ignoreMessage(QtInfoMsg, "the last run was started and not stopped, serving its tables again");
        second.restore();
        QCOMPARE(second.state(), "serving"_s);
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
        QVERIFY(second.update(update));
        QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
        second.stop();
        QVERIFY(!QFile::exists(options.stateFile));
    }

    void troubleWithTheStateFileIsReported()
    {
        ServiceOptions options;
        options.stateFile = writeInit("{");
        service = std::make_unique<Service>(options);
        QTest::ignoreMessage(QtWarningMsg, "init file: not JSON: unterminated object at octet 1");
        service->restore();
        QCOMPARE(service->state(), "stopped"_s);
        options.stateFile = directory->filePath("no/such/directory"_s);
        service = std::make_unique<Service>(options);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("^cannot keep .*/no/such/directory: "_s));
        QVERIFY(service->start(goodInit()));
    }

private:
    QString writeInit(const QByteArray& text)
    {
        QString path = directory->filePath("mbserver_init.dbus"_s);
        writeFile(path, text);
        return path;
    }

    QString goodInit()
    {
        return writeInit(
            R"({"cmd":"init","delay":100,"protocol":"tcp","tables":[{"address":100,"length":2,"mode":"r"}],
        "tcp":{"clients":2,"listen":"127.0.0.1","port":)" +
            QByteArray::number(port) + "}}");
    }

    /// A client's answer to a read request, from the function code on; empty when it cannot connect.
    QByteArray read(int address, int count) const
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress(QHostAddress::LocalHost), port);
        if (!QTest::qWaitFor([&] { return socket.state() != QAbstractSocket::ConnectingState; }) ||
            socket.state() != QAbstractSocket::ConnectedState) {
            return {};
        }
        const char request[] = {
            0, 1, 0, 0, 0, 6, 1, 3, char(address >> 8), char(address), char(count >> 8), char(count)};
        socket.write(request, sizeof request);
        return QTest::qWaitFor([&] { return socket.bytesAvailable() >= 9; }) ? socket.readAll().mid(7)
                                                                             : QByteArray();
    }

    std::unique_ptr<QTemporaryDir> directory;
    std::unique_ptr<Service> service;
    quint16 port = 0;
};

QTEST_GUILESS_MAIN(tst_Service)
#include "tst_service.moc"
