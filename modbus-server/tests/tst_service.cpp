// SPDX-License-Identifier: MIT
#include "service.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
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

} // namespace

class tst_Service : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void startsFeedsAndStops();
    void badInitFileChangesNothing_data();
    void badInitFileChangesNothing();
    void statusBlockIsServedBesideTheTables();
    void badUpdatesAreReportedOnce();
    void waitsForAPortInUse();
    void stopEndsTheWaiting();
    void restoresAfterAnEndWithoutStop();
    void brokenStateFileIsReported();
    void stateFileThatCannotBeWrittenIsReported();

private:
    QString writeInit(const QByteArray& text);
    QString goodInit();
    QByteArray read(int address, int count) const;
    static Refusal none() { return {}; }

    std::unique_ptr<QTemporaryDir> directory;
    quint16 port = 0;
};

namespace Varnel {
bool operator==(const Refusal& a, const Refusal& b)
{
    return a.kind == b.kind && a.text == b.text;
}
char* toString(const Refusal& refusal)
{
    return QTest::toString(refusal.kind + QLatin1String(": ") + refusal.text);
}
} // namespace Varnel

void tst_Service::init()
{
    directory = std::make_unique<QTemporaryDir>();
    port = freePort();
}

QString tst_Service::writeInit(const QByteArray& text)
{
    const QString path = directory->filePath(QStringLiteral("mbserver_init.dbus"));
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size() ? path : QString();
}

QString tst_Service::goodInit()
{
    return writeInit(
        R"({"cmd":"init","delay":100,"protocol":"tcp","tables":[{"address":100,"length":2,"mode":"r"}],
        "tcp":{"clients":2,"listen":"127.0.0.1","port":)" +
        QByteArray::number(port) + "}}");
}

/// A client's answer to a read request, from the function code on; empty when it cannot connect.
QByteArray tst_Service::read(int address, int count) const
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

void tst_Service::startsFeedsAndStops()
{
    Service service{ServiceOptions()};
    QCOMPARE(service.state(), QStringLiteral("stopped"));
    QCOMPARE(service.endpoint(), QString());
    const QString endpoint = QStringLiteral("tcp 127.0.0.1:%1").arg(port);
    QTest::ignoreMessage(QtInfoMsg, qPrintable(QStringLiteral("serving 2 registers on ") + endpoint));
    QCOMPARE(service.start(goodInit()).refusal, none());
    QCOMPARE(service.state(), QStringLiteral("serving"));
    QCOMPARE(service.endpoint(), endpoint);
    QCOMPARE(service.registerCount(), 2);
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
    QCOMPARE(service.update(update).refusal, none());
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
    QCOMPARE(service.updateCount(), qulonglong(1));

    QTest::ignoreMessage(QtInfoMsg, qPrintable(QStringLiteral("stopped ") + endpoint));
    service.stop();
    QCOMPARE(service.state(), QStringLiteral("stopped"));
    QCOMPARE(service.registerCount(), 0);
    QCOMPARE(service.clientCount(), 0);
    QCOMPARE(read(100, 2), QByteArray());
    service.stop(); // nothing to do, nothing to say
    QTest::ignoreMessage(QtWarningMsg, "update command: the server is not started");
    QCOMPARE(
        service.update(update).refusal,
        (Refusal{QStringLiteral("NotStarted"), QStringLiteral("update command: the server is not started")}));
    // Started again, the old values are gone.
    QCOMPARE(service.start(goodInit()).refusal, none());
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
}

void tst_Service::badInitFileChangesNothing_data()
{
    QTest::addColumn<QString>("path"); // empty: a file with `text`
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");
    QTest::newRow("missing") << QStringLiteral("/no/such\nfile") << QByteArray()
                             << QStringLiteral("init file '/no/such?file': no such file");
    QTest::newRow("directory") << QStringLiteral("/tmp") << QByteArray()
                               << QStringLiteral("init file '/tmp': no such file");
    QTest::newRow("device") << QStringLiteral("/dev/zero") << QByteArray()
                            << QStringLiteral("init file '/dev/zero': no such file");
    QTest::newRow("empty") << QString() << QByteArray()
                           << QStringLiteral("init file: not JSON: illegal value at octet 0");
    QTest::newRow("5 MB") << QString() << QByteArray(5000000, ' ')
                          << QStringLiteral("init file: 4194305 octets are too long, 4194304 are allowed");
}

void tst_Service::badInitFileChangesNothing()
{
    QFETCH(QString, path);
    QFETCH(QByteArray, text);
    QFETCH(QString, message);
    Service service{ServiceOptions()};
    QCOMPARE(service.start(goodInit()).refusal, none());
    QCOMPARE(service.update(update).refusal, none());
    QTest::ignoreMessage(QtWarningMsg, qPrintable(QStringLiteral("start: ") + message));
    QCOMPARE(service.start(path.isEmpty() ? writeInit(text) : path).refusal,
             (Refusal{QStringLiteral("BadInit"), message}));
    QCOMPARE(service.state(), QStringLiteral("serving"));
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
}

void tst_Service::statusBlockIsServedBesideTheTables()
{
    ServiceOptions options;
    options.statusBlock = 96; // up to the table at 100
    Service service{options};
    QCOMPARE(service.start(goodInit()).refusal, none());
    QCOMPARE(service.registerCount(), 2);
    QCOMPARE(read(96, 6), QByteArray::fromHex("03 0C FFFF 0000 0000 0000 0000 0000"));
    QCOMPARE(service.update(update).refusal, none());
    QCOMPARE(read(97, 3), QByteArray::fromHex("03 06 0000 0001 0001"));
    options.statusBlock = 97;
    Service second{options};
    QTest::ignoreMessage(QtWarningMsg, "start: init file: the table at 100 covers the status block at 97");
    QCOMPARE(second.start(goodInit()).refusal.kind, QStringLiteral("BadInit"));
}

void tst_Service::badUpdatesAreReportedOnce()
{
    Service service{ServiceOptions()};
    QCOMPARE(service.start(goodInit()).refusal, none());
    QCOMPARE(service.update(update).refusal, none());
    const QByteArray outside = R"({"cmd":"setconfig","data":[{"address":101,"values":[8,9]}]})";
    const char* message = "2 words from address 101 are not all in a table";
    const auto report = [](const char* text) { QTest::ignoreMessage(QtWarningMsg, text); };
    report(message);
    for (int repetition = 0; repetition < 3; ++repetition) {
        QCOMPARE(service.update(outside).refusal,
                 (Refusal{QStringLiteral("BadUpdate"), QString::fromLatin1(message)}));
    }
    report("update command: unknown command 'x', expected 'setconfig'");
    QCOMPARE(service.update(R"({"cmd":"x"})").refusal.kind, QStringLiteral("UnknownCommand"));
    QCOMPARE(service.update(update).refusal, none());
    report(message); // news again
    QCOMPARE(service.update(outside).refusal.kind, QStringLiteral("BadUpdate"));
    QCOMPARE(service.updateCount(), qulonglong(2));
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
}

void tst_Service::waitsForAPortInUse()
{
    QTcpServer squatter;
    QVERIFY(squatter.listen(QHostAddress(QHostAddress::LocalHost), port));
    Service service{ServiceOptions()};
    const QString message =
        QStringLiteral(
            "cannot open tcp 127.0.0.1:%1: The bound address is already in use; trying again every 100 ms")
            .arg(port);
    QTest::ignoreMessage(QtWarningMsg, qPrintable(QStringLiteral("start: ") + message));
    QCOMPARE(service.start(goodInit()).refusal, (Refusal{QStringLiteral("NoInterface"), message}));
    QCOMPARE(service.state(), QStringLiteral("waiting"));
    QCOMPARE(service.update(update).refusal, none()); // kept for the clients to come
    squatter.close();
    QTRY_COMPARE(service.state(), QStringLiteral("serving"));
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
}

void tst_Service::stopEndsTheWaiting()
{
    QTcpServer squatter;
    QVERIFY(squatter.listen(QHostAddress(QHostAddress::LocalHost), port));
    Service service{ServiceOptions()};
    QCOMPARE(service.start(goodInit()).refusal.kind, QStringLiteral("NoInterface"));
    service.stop();
    squatter.close();
    // A second service that retries as often gets the port; the first would have been earlier.
    QTcpServer blocker;
    QVERIFY(blocker.listen(QHostAddress(QHostAddress::LocalHost), port));
    Service second{ServiceOptions()};
    QCOMPARE(second.start(goodInit()).refusal.kind, QStringLiteral("NoInterface"));
    blocker.close();
    QTRY_COMPARE(second.state(), QStringLiteral("serving"));
    QCOMPARE(service.state(), QStringLiteral("stopped"));
}

void tst_Service::restoresAfterAnEndWithoutStop()
{
    ServiceOptions options;
    options.stateFile = directory->filePath(QStringLiteral("state"));
    {
        Service first(options);
        first.restore(); // nothing there
        QCOMPARE(first.state(), QStringLiteral("stopped"));
        QCOMPARE(first.start(goodInit()).refusal, none());
        QCOMPARE(first.update(update).refusal, none());
    }
    QVERIFY(QFile::remove(directory->filePath(QStringLiteral("mbserver_init.dbus"))));
    Service second(options);
    QTest::ignoreMessage(QtInfoMsg, "the last run was started and not stopped, serving its tables again");
    second.restore();
    QCOMPARE(second.state(), QStringLiteral("serving"));
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0000 0000"));
    QCOMPARE(second.update(update).refusal, none());
    QCOMPARE(read(100, 2), QByteArray::fromHex("03 04 0001 0002"));
    second.stop();
    QVERIFY(!QFile::exists(options.stateFile));
}

void tst_Service::brokenStateFileIsReported()
{
    ServiceOptions options;
    options.stateFile = writeInit("{");
    Service service(options);
    QTest::ignoreMessage(QtWarningMsg, "init file: not JSON: unterminated object at octet 1");
    service.restore();
    QCOMPARE(service.state(), QStringLiteral("stopped"));
}

void tst_Service::stateFileThatCannotBeWrittenIsReported()
{
    ServiceOptions options;
    options.stateFile = directory->filePath(QStringLiteral("no/such/directory"));
    Service service(options);
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral("^cannot keep .*/no/such/directory: ")));
    QCOMPARE(service.start(goodInit()).refusal, none());
}

QTEST_GUILESS_MAIN(tst_Service)
#include "tst_service.moc"
