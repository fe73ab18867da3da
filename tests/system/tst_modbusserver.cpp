// SPDX-License-Identifier: MIT
// The Modbus server as a PLC engineer meets it: the device's scripts and D-Bus in front, clients of another
// make behind.

#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

#include "modbusbench.h"

namespace {

const QString tcpInterface = QStringLiteral(R"("clients":3,"listen":"0.0.0.0","port":502)");
const QString twoTables =
    QStringLiteral(R"({"address":100,"length":11,"mode":"r"},{"address":200,"length":100,"mode":"r"})");
const QString readyLine = QStringLiteral("varnel-modbus-server: ready on D-Bus as org.varnel.ModbusServer1");
const QString startScript = QStringLiteral("mbserverstart.sh");
const QString stopScript = QStringLiteral("mbserverstop.sh");
const QString updateScript = QStringLiteral("mbserverupdate.sh");

/// One register of each type as the panel renders them: bool true, uint8 44, int8 -2, uint16 65534, int16 -2,
/// uint32 0x12345678, int32 2147483647, float 1.0; two words go high word first.
const QVector<quint16> everyType = {1,      44,     0x00FE, 0xFFFE, 0xFFFE, 0x1234,
                                    0x5678, 0x7FFF, 0xFFFF, 0x3F80, 0x0000};

} // namespace

class tst_ModbusServer : public QObject
{
    Q_OBJECT

private slots:
    void cleanup();
    void everyTypeOverTcp();
    void everyTypeOverRtu();
    void updateBurstsAreSeenWhole();
    void longestUpdateThatAnArgumentCanHold();
    void updatesTakeTheSocketOrTheBus();
    void killedServerServesAgain();
    void serialLineThatComesBack();
    void portInUseIsReportedAndAwaited();
    void scriptsReportWhatIsWrong_data();
    void scriptsReportWhatIsWrong();
    void stopWithoutServer();
    void endsInOrder();

private:
    bool startServer(const QStringList& options = {});
    bool serveTcp();
    static bool feed(int address, const QVector<quint16>& words);

    std::unique_ptr<ModbusBench> bench;
    std::unique_ptr<Program> server;
};

void tst_ModbusServer::cleanup()
{
    server.reset();
    bench.reset();
}

bool tst_ModbusServer::startServer(const QStringList& options)
{
    bench = std::make_unique<ModbusBench>();
    server = std::make_unique<Program>(QStringLiteral("varnel-modbus-server"));
    return bench->start() && server->start(options) && server->log().await(readyLine);
}

bool tst_ModbusServer::serveTcp()
{
    const ScriptRun run = ModbusBench::run(
        startScript, {ModbusBench::writeInit(QStringLiteral("tcp"), tcpInterface, twoTables)});
    if (run.status != 0) {
        qWarning() << run.messages;
    }
    return run.status == 0;
}

bool tst_ModbusServer::feed(int address, const QVector<quint16>& words)
{
    return ModbusBench::run(updateScript, {ModbusBench::update(address, words)}).status == 0;
}

void tst_ModbusServer::everyTypeOverTcp()
{
    QVERIFY(startServer());
    QVERIFY(serveTcp());
    QVERIFY(server->log().await(
        QStringLiteral("varnel-modbus-server: serving 111 registers on tcp 0.0.0.0:502")));
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(100, 11), QVector<quint16>(11, 0));
    QVERIFY(feed(100, everyType));
    QCOMPARE(client->holding(100, 11), everyType);
    QCOMPARE(client->input(100, 11), everyType);
    QCOMPARE(client->input(105, 2), (QVector<quint16>{0x1234, 0x5678}));
    QCOMPARE(client->coils(100, 11), (QVector<quint8>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}));
    QCOMPARE(client->discrete(109, 2), (QVector<quint8>{1, 0}));
}

void tst_ModbusServer::everyTypeOverRtu()
{
    QVERIFY(startServer());
    SerialLine line;
    QVERIFY(line.start());
    const QString interface =
        QStringLiteral(R"("baud":19200,"devid":7,"mode":"8N1","port":"/tmp/server-port")");
    const ScriptRun run =
        ModbusBench::run(startScript, {ModbusBench::writeInit(QStringLiteral("rtu"), interface, twoTables)});
    QCOMPARE(run.messages, QStringList());
    QCOMPARE(run.status, 0);
    const auto client = ModbusClient::rtu(SerialLine::plcPort(), 19200, 7);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QVERIFY(feed(100, everyType));
    QCOMPARE(client->holding(100, 11), everyType);
    QCOMPARE(client->input(100, 11), everyType);
    QCOMPARE(client->coils(100, 2), (QVector<quint8>{1, 1}));
    QCOMPARE(client->holding(200, 100), QVector<quint16>(100, 0));
    QVERIFY(!client->write(100, 1));
    QCOMPARE(client->problem(), QStringLiteral("Illegal function"));
    QCOMPARE(client->holding(99, 1), QVector<quint16>());
    QCOMPARE(client->problem(), QStringLiteral("Illegal data address"));
}

void tst_ModbusServer::updateBurstsAreSeenWhole()
{
    QVERIFY(startServer());
    QVERIFY(serveTcp());
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    constexpr quint16 updates = 50;
    int reads = 0;
    quint16 last = 0;
    for (quint16 value = 1; value <= updates; ++value) {
        Program script(QStringLiteral("/usr/local/bin/mbserverupdate.sh"));
        QVERIFY(script.start({ModbusBench::update(200, QVector<quint16>(100, value))}));
        while (script.isRunning()) {
            const QVector<quint16> words = client->holding(200, 100);
            QCOMPARE(words, QVector<quint16>(100, words.value(0))); // one update's words, never two's
            QVERIFY(words.at(0) >= last && words.at(0) <= value);
            last = words.at(0);
            ++reads;
            QCoreApplication::processEvents();
        }
        QCOMPARE(script.exitStatus(), 0);
        QCOMPARE(client->holding(200, 1), QVector<quint16>{value});
    }
    QVERIFY2(reads > updates, qPrintable(QString::number(reads)));
}

void tst_ModbusServer::longestUpdateThatAnArgumentCanHold()
{
    QVERIFY(startServer());
    const QString tables = QStringLiteral(R"({"address":0,"length":30000,"mode":"r"})");
    QCOMPARE(
        ModbusBench::run(startScript, {ModbusBench::writeInit(QStringLiteral("tcp"), tcpInterface, tables)})
            .status,
        0);
    constexpr int longest = 131071; // 32 pages, less the NUL
    QString command = ModbusBench::update(0, QVector<quint16>(21835, 65535));
    QVERIFY(command.size() <= longest);
    command += QString(longest - command.size(), QLatin1Char(' '));
    const ScriptRun run = ModbusBench::run(updateScript, {command});
    QCOMPARE(run.messages, QStringList());
    QCOMPARE(run.status, 0);
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(21834, 2), (QVector<quint16>{65535, 0}));
}

void tst_ModbusServer::updatesTakeTheSocketOrTheBus()
{
    const QString shell = QStringLiteral("/usr/local/bin/varnel-modbus.sh");
    const QString settings = QStringLiteral("/usr/local/etc/varnel-device.conf");
    QVERIFY(startServer());
    QVERIFY(serveTcp());
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    // The socket needs no shell.
    QVERIFY(QFile::rename(shell, shell + QStringLiteral(".away")));
    QVERIFY(feed(100, {1}));
    QCOMPARE(client->holding(100, 1), QVector<quint16>{1});
    // The settings name a bus of their own, whose server has no socket.
    QVERIFY(QFile::rename(shell + QStringLiteral(".away"), shell));
    QFile file(settings);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("#MODBUS_BUS=session\nMODBUS_BUS=unix:path=/run/none\n");
    file.close();
    const ScriptRun run = ModbusBench::run(updateScript, {ModbusBench::update(100, {2})});
    QVERIFY(QFile::remove(settings));
    QCOMPARE(run.status, 1);
    QVERIFY2(run.messages.value(0).startsWith(QStringLiteral("mbserverupdate.sh: ")) &&
                 run.messages.value(0).contains(QStringLiteral("No such file or directory")),
             qPrintable(run.messages.join(QLatin1Char('\n'))));
    QCOMPARE(client->holding(100, 1), QVector<quint16>{1});
}

void tst_ModbusServer::killedServerServesAgain()
{
    bench = std::make_unique<ModbusBench>();
    QVERIFY(bench->start(QStringLiteral("--state=/run/modbus-init"))); // D-Bus starts the server
    QVERIFY(serveTcp());
    QVERIFY(feed(100, {42}));
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(100, 2), (QVector<quint16>{42, 0}));

    QVERIFY(ModbusBench::killServer());
    QTRY_VERIFY(!ModbusClient::tcp(502)->connect());

    // The panel notices nothing: its next update brings the server back, with the tables it was started with.
    QVERIFY(feed(100, {43}));
    QVERIFY(bench->bus().log().await(QStringLiteral(
        "varnel-modbus-server: the last run was started and not stopped, serving its tables again")));
    const auto again = ModbusClient::tcp(502);
    QVERIFY2(again->connect(), qPrintable(again->problem()));
    QCOMPARE(again->holding(100, 2), (QVector<quint16>{43, 0}));

    QCOMPARE(ModbusBench::run(stopScript, {}).status, 0);
    QVERIFY(!ModbusClient::tcp(502)->connect());
    const ScriptRun late = ModbusBench::run(updateScript, {ModbusBench::update(100, {1})});
    QCOMPARE(late.status, 1);
    QCOMPARE(late.messages,
             QStringList(QStringLiteral("mbserverupdate.sh: update command: the server is not started")));
}

void tst_ModbusServer::serialLineThatComesBack()
{
    QVERIFY(startServer());
    auto line = std::make_unique<SerialLine>();
    QVERIFY(line->start());
    const QString interface =
        QStringLiteral(R"("baud":9600,"devid":1,"mode":"8N1","port":"/tmp/server-port")");
    const QString init = ModbusBench::writeInit(QStringLiteral("rtu"), interface, twoTables);
    QCOMPARE(ModbusBench::run(startScript, {init}).status, 0);
    line.reset();
    QVERIFY(server->log().await(
        QStringLiteral("varnel-modbus-server: lost rtu /tmp/server-port 9600 8N1 id 1 (the "
                       "port is gone) trying again every 500 ms")));
    QVERIFY(feed(100, {9}));
    line = std::make_unique<SerialLine>();
    QVERIFY(line->start());
    QVERIFY(server->log().await(
        QStringLiteral("varnel-modbus-server: serving 111 registers on rtu /tmp/server-port 9600 8N1 id 1")));
    const auto client = ModbusClient::rtu(SerialLine::plcPort(), 9600, 1);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(100, 1), QVector<quint16>{9});
}

void tst_ModbusServer::portInUseIsReportedAndAwaited()
{
    QVERIFY(startServer());
    QTcpServer squatter;
    QVERIFY(squatter.listen(QHostAddress::AnyIPv4, 502));
    const ScriptRun run = ModbusBench::run(
        startScript, {ModbusBench::writeInit(QStringLiteral("tcp"), tcpInterface, twoTables)});
    QCOMPARE(run.status, 1);
    QCOMPARE(run.messages, QStringList(QStringLiteral(
                               "mbserverstart.sh: cannot open tcp 0.0.0.0:502: The bound address is already "
                               "in use; trying again every 500 ms")));
    QVERIFY(feed(100, {8}));
    squatter.close();
    QVERIFY(server->log().await(
        QStringLiteral("varnel-modbus-server: serving 111 registers on tcp 0.0.0.0:502")));
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(100, 1), QVector<quint16>{8});
}

void tst_ModbusServer::scriptsReportWhatIsWrong_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const auto row = [](const char* name, const QString& script, const QStringList& arguments, int status,
                        const char* message) {
        QTest::newRow(name) << script << arguments << status << QString::fromLatin1(message);
    };
    row("start without file", startScript, {}, 2,
        "mbserverstart.sh: one argument expected, 0 given (mbserverstart.sh --help shows the usage)");
    row("start with a missing file", startScript, {QStringLiteral("/no/file")}, 1,
        "mbserverstart.sh: cannot read /no/file");
    row("start with a file that is no init file", startScript, {QStringLiteral("/etc/passwd")}, 1,
        "mbserverstart.sh: init file: not JSON: illegal value at octet 1");
    row("start with a device", startScript, {QStringLiteral("/dev/zero")}, 1,
        "mbserverstart.sh: init file '/dev/zero': no such file");
    row("stop with an argument", stopScript, {QStringLiteral("now")}, 2,
        "mbserverstop.sh: no argument expected, 1 given (mbserverstop.sh --help shows the usage)");
    row("update with two arguments", updateScript, {QStringLiteral("a"), QStringLiteral("b")}, 2,
        "mbserverupdate.sh: one argument expected, 2 given (mbserverupdate.sh --help shows the usage)");
    row("update with an empty argument", updateScript, {QString()}, 1,
        "mbserverupdate.sh: update command: not JSON: illegal value at octet 0");
    row("update like an option", updateScript, {QStringLiteral("--no-pager")}, 1,
        "mbserverupdate.sh: update command: not JSON: illegal value at octet 1");
    row("update with shell syntax", updateScript, {QStringLiteral(R"({"cmd":"$(touch /tmp/x);`id`"})")}, 1,
        "mbserverupdate.sh: update command: unknown command '$(touch /tmp/x);`id`', expected 'setconfig'");
    row("update outside the tables", updateScript, {ModbusBench::update(99, {1})}, 1,
        "mbserverupdate.sh: 1 words from address 99 are not all in a table");
}

void tst_ModbusServer::scriptsReportWhatIsWrong()
{
    QFETCH(QString, script);
    QFETCH(QStringList, arguments);
    QFETCH(int, status);
    QFETCH(QString, message);
    QVERIFY(startServer());
    QVERIFY(serveTcp());
    QVERIFY(feed(100, {7}));
    const ScriptRun run = ModbusBench::run(script, arguments);
    QCOMPARE(run.status, status);
    QCOMPARE(run.messages.value(0), message);
    // Nothing has changed.
    const auto client = ModbusClient::tcp(502);
    QVERIFY2(client->connect(), qPrintable(client->problem()));
    QCOMPARE(client->holding(100, 1), QVector<quint16>{7});
    QVERIFY(!QFile::exists(QStringLiteral("/tmp/x")));
}

void tst_ModbusServer::stopWithoutServer()
{
    bench = std::make_unique<ModbusBench>();
    QVERIFY(bench->start());
    QCOMPARE(ModbusBench::run(stopScript, {}).status, 0);
    const ScriptRun run = ModbusBench::run(
        startScript, {ModbusBench::writeInit(QStringLiteral("tcp"), tcpInterface, twoTables)});
    QCOMPARE(run.status, 1);
    QCOMPARE(run.messages,
             QStringList(QStringLiteral("mbserverstart.sh: The name org.varnel.ModbusServer1 was not "
                                        "provided by any .service files")));
    bench->bus().stop();
    QCOMPARE(ModbusBench::run(stopScript, {}).status, 1);
}

void tst_ModbusServer::endsInOrder()
{
    QVERIFY(startServer());
    QVERIFY(serveTcp());
    Program second(QStringLiteral("varnel-modbus-server"));
    QVERIFY(second.start());
    QVERIFY(second.log().await(QStringLiteral(
        "varnel-modbus-server: cannot own org.varnel.ModbusServer1 on D-Bus: another server runs")));
    QVERIFY(second.awaitEnd());
    QCOMPARE(second.exitStatus(), 1);
    QCOMPARE(server->stop(SIGTERM), 0);
    QVERIFY(!ModbusClient::tcp(502)->connect());

    server = std::make_unique<Program>(QStringLiteral("varnel-modbus-server"));
    QVERIFY(server->start());
    QVERIFY(server->log().await(readyLine));
    QVERIFY(serveTcp());
    bench->bus().stop();
    QVERIFY(server->log().await(QStringLiteral("varnel-modbus-server: the connection to D-Bus is lost")));
    QVERIFY(server->awaitEnd());
    QCOMPARE(server->exitStatus(), 1);
}

QTEST_GUILESS_MAIN(tst_ModbusServer)
#include "tst_modbusserver.moc"
