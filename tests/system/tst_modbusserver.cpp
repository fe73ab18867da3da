// SPDX-License-Identifier: MIT
// The Modbus server as a PLC engineer meets it: the device's scripts and D-Bus in front, clients of another
// make behind.

#include <QFile>
#include <QTest>

#include "modbusbench.h"

namespace {

using Words = QVector<quint16>;

const QString tcpInterface = R"("clients":3,"listen":"0.0.0.0","port":502)"_s;
const QString twoTables =
    R"({"address":100,"length":11,"mode":"r"},{"address":200,"length":100,"mode":"r"})"_s;
const QString servingTcp = "varnel-modbus-server: serving 111 registers on tcp 0.0.0.0:502"_s;
const QString startScript = "mbserverstart.sh"_s;
const QString stopScript = "mbserverstop.sh"_s;
const QString updateScript = "mbserverupdate.sh"_s;

/// One register of each type as the panel renders them: bool true, uint8 44, int8 -2, uint16 65534, int16 -2,
/// uint32 0x12345678, int32 2147483647, float 1.0; two words go high word first.
const Words everyType = {1, 44, 0x00FE, 0xFFFE, 0xFFFE, 0x1234, 0x5678, 0x7FFF, 0xFFFF, 0x3F80, 0x0000};

} // namespace

class tst_ModbusServer : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        client.reset();
        server.reset();
        bench.reset();
    }

    void everyTypeOverTcp()
    {
        startServer();
        serveTcp();
        QVERIFY(server->log().await(servingTcp));
        connectClient();
        QCOMPARE(client->holding(100, 11), Words(11, 0));
        QVERIFY(feed(100, everyType));
        QCOMPARE(client->holding(100, 11), everyType);
        QCOMPARE(client->input(100, 11), everyType);
        QCOMPARE(client->input(105, 2), (Words{0x1234, 0x5678}));
        QCOMPARE(client->coils(100, 11), (QVector<quint8>{1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 0}));
        QCOMPARE(client->discrete(109, 2), (QVector<quint8>{1, 0}));
    }

    void everyTypeOverRtu()
    {
        startServer();
        SerialLine line;
        QVERIFY(line.start());
        serve("rtu"_s, R"("baud":19200,"devid":7,"mode":"8N1","port":"/tmp/server-port")"_s);
        connectClient(ModbusClient::rtu(SerialLine::plcPort(), 19200, 7));
        QVERIFY(feed(100, everyType));
        QCOMPARE(client->holding(100, 11), everyType);
        QCOMPARE(client->input(100, 11), everyType);
        QCOMPARE(client->coils(100, 2), (QVector<quint8>{1, 1}));
        QCOMPARE(client->holding(200, 100), Words(100, 0));
        QVERIFY(!client->write(100, 1));
        QCOMPARE(client->problem(), "Illegal function"_s);
        QCOMPARE(client->holding(99, 1), Words());
        QCOMPARE(client->problem(), "Illegal data address"_s);
    }

    void updateBurstsAreSeenWhole()
    {
        startServer();
        serveTcp();
        connectClient();
        constexpr quint16 updates = 50;
        int reads = 0;
        quint16 last = 0;
        for (quint16 value = 1; value <= updates; ++value) {
            Program script("/usr/local/bin/mbserverupdate.sh"_s);
            QVERIFY(script.start({ModbusBench::update(200, Words(100, value))}));
            while (script.isRunning()) {
                const Words words = client->holding(200, 100);
                QCOMPARE(words, Words(100, words.value(0))); // one update's words, never two's
                QVERIFY(words.at(0) >= last && words.at(0) <= value);
                last = words.at(0);
                ++reads;
                QCoreApplication::processEvents();
            }
            QCOMPARE(script.exitStatus(), 0);
            QCOMPARE(client->holding(200, 1), Words{value});
        }
        QVERIFY2(reads > updates, qPrintable(QString::number(reads)));
    }

    void longestUpdateThatAnArgumentCanHold()
    {
        startServer();
        serve("tcp"_s, tcpInterface, R"({"address":0,"length":30000,"mode":"r"})"_s);
        constexpr int longest = 131071; // 32 pages, less the NUL
        QString command = ModbusBench::update(0, Words(21835, 65535));
        QVERIFY(command.size() <= longest);
        command += QString(longest - command.size(), QLatin1Char(' '));
        const ScriptRun run = ModbusBench::run(updateScript, {command});
        QCOMPARE(run.messages, QStringList());
        QCOMPARE(run.status, 0);
        connectClient();
        QCOMPARE(client->holding(21834, 2), (Words{65535, 0}));
    }

    void updatesTakeTheSocketOrTheBus()
    {
        const QString shell = "/usr/local/bin/varnel-modbus.sh"_s;
        startServer();
        serveTcp();
        connectClient();
        // The socket needs no shell.
        QVERIFY(QFile::rename(shell, shell + ".away"_s));
        QVERIFY(feed(100, {1}));
        QCOMPARE(client->holding(100, 1), Words{1});
        QVERIFY(QFile::rename(shell + ".away"_s, shell));
        // The settings name a bus of their own, whose server has no socket.
        QFile settings("/usr/local/etc/varnel-device.conf"_s);
        QVERIFY(settings.open(QIODevice::WriteOnly));
        settings.write("#MODBUS_BUS=session\nMODBUS_BUS=unix:path=/run/none\n");
        settings.close();
        const ScriptRun run = ModbusBench::run(updateScript, {ModbusBench::update(100, {2})});
        QVERIFY(settings.remove());
        QCOMPARE(run.status, 1);
        QVERIFY2(run.messages.value(0).contains(
                     QRegularExpression("^mbserverupdate.sh: .*No such file or directory"_s)),
                 qPrintable(run.messages.join(QLatin1Char('\n'))));
        QCOMPARE(client->holding(100, 1), Words{1});
    }

    void killedServerServesAgain()
    {
        bench = std::make_unique<ModbusBench>();
        QVERIFY(bench->start("--state=/run/modbus-init"_s)); // D-Bus starts the server
        serveTcp();
        QVERIFY(feed(100, {42}));
        connectClient();
        QCOMPARE(client->holding(100, 2), (Words{42, 0}));

        QVERIFY(ModbusBench::killServer());
        QTRY_VERIFY(!ModbusClient::tcp(502)->connect());

        // The panel notices nothing: its next update brings the server back, with the tables it was started
        // with.
        QVERIFY(feed(100, {43}));
        QVERIFY(bench->bus().log().await(
            "varnel-modbus-server: the last run was started and not stopped, serving its tables again"_s));
        connectClient();
        QCOMPARE(client->holding(100, 2), (Words{43, 0}));

        QCOMPARE(ModbusBench::run(stopScript, {}).status, 0);
        QVERIFY(!ModbusClient::tcp(502)->connect());
        const ScriptRun late = ModbusBench::run(updateScript, {ModbusBench::update(100, {1})});
        QCOMPARE(late.status, 1);
        QCOMPARE(late.messages,
                 QStringList("mbserverupdate.sh: update command: the server is not started"_s));
    }

    void scriptsReportWhatIsWrong()
    {
        struct Row
        {
            QString script;
            QStringList arguments;
            int status;
            QString message;
        };
        const Row rows[] = {
            {startScript,
             {},
             2,
             "one argument expected, 0 given (mbserverstart.sh --help shows the usage)"_s},
            {startScript, {"/no/file"_s}, 1, "cannot read /no/file"_s},
            {startScript, {"/etc/passwd"_s}, 1, "init file: not JSON: illegal value at octet 1"_s},
            {startScript, {"/dev/zero"_s}, 1, "init file '/dev/zero': no such file"_s},
            {stopScript,
             {"now"_s},
             2,
             "no argument expected, 1 given (mbserverstop.sh --help shows the usage)"_s},
            {updateScript,
             {"a"_s, "b"_s},
             2,
             "one argument expected, 2 given (mbserverupdate.sh --help shows the usage)"_s},
            {updateScript, {QString()}, 1, "update command: not JSON: illegal value at octet 0"_s},
            {updateScript, {"--no-pager"_s}, 1, "update command: not JSON: illegal value at octet 1"_s},
            {updateScript,
             {R"({"cmd":"$(touch /tmp/x);`id`"})"_s},
             1,
             "update command: unknown command '$(touch /tmp/x);`id`', expected 'setconfig'"_s},
            {updateScript,
             {ModbusBench::update(99, {1})},
             1,
             "1 words from address 99 are not all in a table"_s},
        };
        startServer();
        serveTcp();
        connectClient();
        QVERIFY(feed(100, {7}));
        for (const Row& row : rows) {
            const ScriptRun run = ModbusBench::run(row.script, row.arguments);
            QCOMPARE(run.messages.value(0), row.script + ": "_s + row.message);
            QCOMPARE(run.status, row.status);
            QCOMPARE(client->holding(100, 1), Words{7}); // nothing has changed
        }
        QVERIFY(!QFile::exists("/tmp/x"_s));
    }

    void stopWithoutServer()
    {
        bench = std::make_unique<ModbusBench>();
        QVERIFY(bench->start());
        QCOMPARE(ModbusBench::run(stopScript, {}).status, 0);
        const ScriptRun run =
            ModbusBench::run(startScript, {ModbusBench::writeInit("tcp"_s, tcpInterface, twoTables)});
        QCOMPARE(run.status, 1);
        QCOMPARE(run.messages, QStringList("mbserverstart.sh: The name org.varnel.ModbusServer1 was not "
                                           "provided by any .service files"_s));
        bench->bus().stop();
        QCOMPARE(ModbusBench::run(stopScript, {}).status, 1);
    }

    void endsInOrder()
    {
        startServer();
        serveTcp();
        Program second("varnel-modbus-server"_s);
        QVERIFY(second.start());
        QVERIFY(second.log().await(
            "varnel-modbus-server: cannot own org.varnel.ModbusServer1 on D-Bus: another server runs"_s));
        QVERIFY(second.awaitEnd());
        QCOMPARE(second.exitStatus(), 1);
        QCOMPARE(server->stop(SIGTERM), 0);
        QVERIFY(!ModbusClient::tcp(502)->connect());

        startServer();
        serveTcp();
        bench->bus().stop();
        QVERIFY(server->log().await("varnel-modbus-server: the connection to D-Bus is lost"_s));
        QVERIFY(server->awaitEnd());
        QCOMPARE(server->exitStatus(), 1);
    }

private:
    void startServer()
    {
        bench.reset(); // the bus of the one before
        bench = std::make_unique<ModbusBench>();
        server = std::make_unique<Program>("varnel-modbus-server"_s);
        QVERIFY(bench->start());
        QVERIFY(server->start());
        QVERIFY(server->log().await("varnel-modbus-server: ready on D-Bus as org.varnel.ModbusServer1"_s));
    }

    static void serve(const QString& protocol, const QString& interface, const QString& tables = twoTables)
    {
        const ScriptRun run =
            ModbusBench::run(startScript, {ModbusBench::writeInit(protocol, interface, tables)});
        QCOMPARE(run.messages, QStringList());
        QCOMPARE(run.status, 0);
    }

    static void serveTcp() { serve("tcp"_s, tcpInterface); }

    void connectClient(std::unique_ptr<ModbusClient> newClient = ModbusClient::tcp(502))
    {
        client = std::move(newClient);
        QVERIFY2(client->connect(), qPrintable(client->problem()));
    }

    static bool feed(int address, const Words& words)
    {
        return ModbusBench::run(updateScript, {ModbusBench::update(address, words)}).status == 0;
    }

    std::unique_ptr<ModbusBench> bench;
    std::unique_ptr<Program> server;
    std::unique_ptr<ModbusClient> client;
};

QTEST_GUILESS_MAIN(tst_ModbusServer)
#include "tst_modbusserver.moc"
