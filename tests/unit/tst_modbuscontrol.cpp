// SPDX-License-Identifier: MIT
#include <limits>

#include <unistd.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "logrecorder.h"
#include "mappingfile.h"
#include "modbusinterface.h"
#include "rows.h"
#include "scopedsetting.h"
#include "scriptdirectory.h"

using namespace Varnel;

using Calls = QList<ScriptDirectory::Call>;

namespace {

/// A bridge, scripts that record their calls, a directory for the init file, and the log.
struct Bench
{
    QString initFile() const { return directory.filePath("mbserver_init.dbus"_s); }

    QByteArray initText() const
    {
        QFile file(initFile());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QJsonObject initObject() const { return QJsonDocument::fromJson(initText()).object(); }

    QString quoted(const char* script) const { return "\"%1\""_s.arg(scripts.path(script)); }

    QString notFound(const char* script) const
    {
        return "Script ' %1 ' not found, do nothing"_s.arg(quoted(script));
    }

    QTemporaryDir directory;
    ScriptDirectory scripts{{"mbserverstart.sh", "mbserverstop.sh", "mbserverupdate.sh"}};
    ModbusInterface bridge;
    LogRecorder log;
};

} // namespace

/// The data for the Modbus server: its start-up description, the scripts and their arguments, the commands.
class tst_ModbusControl : public QObject
{
    Q_OBJECT

private slots:
    void initFile_data()
    {
        // interface: empty when the setting is refused
        const Rows<QString, QString, QJsonObject, QString> row("mode", "setting", "interface", "message");
        const auto good = [&row](const char* name, const QString& mode, const QString& setting,
                                 const char* interface) {
            row(name, mode, setting, QJsonDocument::fromJson(interface).object(), {});
        };
        good("default setting, TCP in upper case: tcp", "TCP"_s, "0.0.0.0:502:10"_s,
             R"({"listen": "0.0.0.0", "port": 502, "clients": 10})");
        good("all parts empty: zeros", "tcp"_s, "::"_s, R"({"listen": "", "port": 0, "clients": 0})");
        good("port not a number: 0; negative clients: kept", "tcp"_s, "host:http:-1"_s,
             R"({"listen": "host", "port": 0, "clients": -1})");
        good("rtu: device, baud rate and format", "rtu"_s, "1:/dev/ttyS1:19200:8N1"_s,
             R"({"devid": 1, "port": "/dev/ttyS1", "baud": 19200, "mode": "8N1"})");
        good("Rtu with texts for numbers: 0", "Rtu"_s, "x:p:fast:8N1"_s,
             R"({"devid": 0, "port": "p", "baud": 0, "mode": "8N1"})");

        const auto bad = [&row](const char* name, const QString& mode, const QString& setting,
                                const QString& message) { row(name, mode, setting, QJsonObject(), message); };
        const QString rtu = "Missing info in RTU interface config"_s;
        const QString tcp = "Missing info in TCP interface config"_s;
        const QString unknown = "Unrecognized Modbus mode"_s;
        bad("rtu with three parts: refused", "rtu"_s, "1:/dev/ttyS1:19200"_s, rtu);
        bad("rtu with five parts: refused", "RTU"_s, "1:/dev/ttyS1:19200:8N1:"_s, rtu);
        bad("tcp with two parts: refused", "tcp"_s, "0.0.0.0:502"_s, tcp);
        bad("tcp with an IPv6 address: refused", "Tcp"_s, "::1:502:10"_s, tcp);
        bad("ascii: refused", "ascii"_s, "0.0.0.0:502:10"_s, unknown);
        bad("no mode: refused", QString(), "0.0.0.0:502:10"_s, unknown);
        bad("blank after the mode: refused", "tcp "_s, "0.0.0.0:502:10"_s, unknown);
    }

    void initFile()
    {
        QFETCH(QString, mode);
        QFETCH(QString, setting);
        QFETCH(QJsonObject, interface);
        QFETCH(QString, message);
        const ScopedSetting<QString> modeSetting("ModbusServer", "ModbusMode", mode);
        const ScopedSetting<QString> interfaceSetting("ModbusServer", "ModbusInterface", setting);
        Bench bench;
        const QString directory = bench.directory.filePath("a/b c"_s); // made when it is needed
        QCOMPARE(bench.bridge.GenerateDbusInit(directory), message.isEmpty());
        QCOMPARE(QFile::exists(directory), message.isEmpty());
        QCOMPARE(bench.log.texts(), message.isEmpty() ? QStringList() : QStringList{message});
        QCOMPARE(bench.log.lines().size(), bench.log.texts().size());
        if (message.isEmpty()) {
            QVERIFY(bench.bridge.GenerateDbusInit(bench.directory.path()));
            const QString protocol = mode.toLower();
            QCOMPARE(bench.initObject(), (QJsonObject{{"cmd"_s, "init"_s},
                                                      {"delay"_s, 500},
                                                      {"protocol"_s, protocol},
                                                      {protocol, interface},
                                                      {"tables"_s, QJsonArray()}}));
        }
    }

    void tableLength_data()
    {
        const Rows<QByteArray, double> row("ids", "length");
        // 10 and 11: u32, 12: u8, 13: string, 0: u16
        row("two u32 and a gap of two: 6", "10, -2, 11", 6.0);
        row("u8: 1, string: 0", "12, 13", 1.0);
        row("register 0: counted, unlike in rendering", "0, 12", 2.0);
        row("unknown id: 0", "99, 12", 1.0);
        row("empty: 0", {}, 0.0);
        row("70000: unchanged", "-70000", 70000.0);
        row("smallest number there is, twice: the sum", "-2147483648, -2147483648, 12", 4294967297.0);
    }

    void tableLength()
    {
        QFETCH(QByteArray, ids);
        QFETCH(double, length);
        Bench bench;
        QVERIFY(loadMapping(
            &bench.bridge,
            mappingText(registerText(10, "u32", "u32", 0) + "," + registerText(11, "uint32", "u32", 1) + "," +
                            registerText(12, "u8", "u8", 2) + "," + registerText(13, "string", "u8", 3) +
                            "," + registerText(0, "u16", "u16", 4),
                        tableText(100, ids, "rw"))));
        QVERIFY(bench.bridge.GenerateDbusInit(bench.directory.path()));
        QCOMPARE(bench.initObject().value("tables"_s).toArray(),
                 (QJsonArray{QJsonObject{{"address"_s, 100}, {"mode"_s, "r"_s}, {"length"_s, length}}}));
        QVERIFY(bench.log.texts("varnel.modbus"_s).isEmpty());
        QCOMPARE(bench.bridge.GetRegisterList().contains(99), ids.contains("99")); // looking it up enters it
    }

    void tablesInAscendingOrder()
    {
        Bench bench;
        QVERIFY(
            loadMapping(&bench.bridge, mappingText("", tableText(70000, "-1", "x") + "," + tableText(-7, "") +
                                                           "," + tableText(300, "-3", "w"))));
        QVERIFY(bench.bridge.GenerateDbusInit(bench.directory.path()));
        QList<int> addresses;
        for (const QJsonValue table : bench.initObject().value("tables"_s).toArray()) {
            addresses << table["address"_s].toInt();
            QCOMPARE(table["mode"_s].toString(), "r"_s);
        }
        QCOMPARE(addresses, QList<int>({-7, 300, 70000}));
    }

    void textIsIndentedAndReplacesAnOlderFile()
    {
        Bench bench;
        QFile older(bench.initFile());
        QVERIFY(older.open(QIODevice::WriteOnly) && older.write(QByteArray(100000, 'x')) > 0);
        older.close();
        QVERIFY(loadMapping(&bench.bridge, mappingText("", tableText(100, "-2"))));
        QVERIFY(bench.bridge.GenerateDbusInit(bench.directory.path()));
        QCOMPARE(bench.initText(), QByteArray(R"({
    "cmd": "init",
    "delay": 500,
    "protocol": "tcp",
    "tables": [
        {
            "address": 100,
            "length": 2,
            "mode": "r"
        }
    ],
    "tcp": {
        "clients": 10,
        "listen": "0.0.0.0",
        "port": 502
    }
}
)"));
    }

    void unwritableFileIsNoFailure_data()
    {
        const Rows<bool, QString> row("full", "reason");
        row("a directory: logged", false, "Is a directory"_s); // not even root writes to it
        row("disk full: logged", true, "No space left on device"_s);
    }

    void unwritableFileIsNoFailure()
    {
        QFETCH(bool, full);
        QFETCH(QString, reason);
        Bench bench;
        const QString file = bench.initFile();
        QVERIFY(full ? QFile::link("/dev/full"_s, file) : QDir().mkdir(file));
        QVERIFY(bench.bridge.GenerateDbusInit(bench.directory.path()));
        QCOMPARE(bench.log.texts(), QStringList());
        QCOMPARE(bench.log.texts("varnel.modbus"_s),
                 QStringList("Cannot write \"%1\" : \"%2\""_s.arg(file, reason)));
    }

    void startAndStop()
    {
        Bench bench;
        // The paths are cleaned.
        const ScopedSetting<QString> directory("Files", "ScriptDir", bench.scripts.path("x/..//"));
        QVERIFY(bench.bridge.DbusStartMonitor("/tmp/./with blank//"_s));
        QVERIFY(bench.bridge.DbusStopMonitor());
        QCOMPARE(bench.log.texts(), QStringList({"Start modbus monitor"_s, bench.quoted("mbserverstart.sh"),
                                                 "\"/tmp/with blank/mbserver_init.dbus\""_s, QString(),
                                                 "Stop modbus monitor"_s}));
        QCOMPARE(bench.scripts.calls(),
                 (Calls{{"mbserverstart.sh", "/tmp/with blank/mbserver_init.dbus"}, {"mbserverstop.sh"}}));
    }

    void startAndStopWithoutScript()
    {
        Bench bench;
        bench.scripts.put("mbserverstart.sh", false);
        bench.scripts.remove("mbserverstop.sh");
        QVERIFY(bench.bridge.DbusStartMonitor("/tmp/etc"_s));
        QVERIFY(bench.bridge.DbusStopMonitor());
        QCOMPARE(bench.log.texts(), QStringList({"Start modbus monitor"_s, bench.quoted("mbserverstart.sh"),
                                                 "\"/tmp/etc/mbserver_init.dbus\""_s, QString(),
                                                 bench.notFound("mbserverstart.sh"), "Stop modbus monitor"_s,
                                                 bench.notFound("mbserverstop.sh")}));
    }

    void updateCommand()
    {
        using Limits = std::numeric_limits<int>;
        QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery({}), R"({"cmd":"setconfig","data":[]})"_s);
        QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery({{100, {0, 1, 0x1234, 0x5678}}}),
                 R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]})"_s);
        QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery(
                     {{Limits::max(), {65535}}, {Limits::min(), {}}, {7, {10, 9}}}),
                 R"({"cmd":"setconfig","data":[{"address":2147483647,"values":[65535]},)"
                 R"({"address":-2147483648,"values":[]},{"address":7,"values":[10,9]}]})"_s);
    }

    void updateRegisters()
    {
        Bench bench;
        const QByteArray command = "{\"cmd\": \"it's $HOME; `x` \\ \n\"}";
        QVERIFY(bench.bridge.DbusUpdateRegisters(QString::fromLatin1(command)));
        QVERIFY(bench.bridge.DbusUpdateRegisters(QString()));
        QCOMPARE(bench.scripts.calls(), (Calls{{"mbserverupdate.sh", command}, {"mbserverupdate.sh", ""}}));
        bench.scripts.remove("mbserverupdate.sh");
        QVERIFY(bench.bridge.DbusUpdateRegisters("{}"_s));
        QVERIFY(bench.bridge.DbusUpdateRegisters(QString(300000, QLatin1Char(' '))));
        QVERIFY(bench.log.lines().isEmpty());
    }

    void tooLongCommand()
    {
        Bench bench;
        const int limit = int(32 * sysconf(_SC_PAGESIZE)) - 1;
        const QString longest(limit, QLatin1Char('x'));
        const auto reports = [&bench] { return bench.log.texts("varnel.modbus"_s); };

        QVERIFY(bench.bridge.DbusUpdateRegisters(longest));
        QVERIFY(bench.log.lines().isEmpty());
        QCOMPARE(bench.scripts.calls(), (Calls{{"mbserverupdate.sh", longest.toLatin1()}}));

        QVERIFY(bench.bridge.DbusUpdateRegisters(longest + QLatin1Char('x')));
        QCOMPARE(bench.scripts.calls().size(), 1); // the kernel refuses it
        QCOMPARE(reports(), QStringList("Update command of %1 octets dropped, one argument may have %2 : "
                                        "shorten the tables of the mapping"_s.arg(limit + 1)
                                            .arg(limit)));

        QVERIFY(bench.bridge.DbusUpdateRegisters(longest + QLatin1Char('y')));
        QCOMPARE(bench.log.lines().size(), 1); // logged once
        QVERIFY(bench.bridge.DbusUpdateRegisters("{}"_s));
        QCOMPARE(bench.scripts.calls().size(), 2); // and the next command that fits goes out
        QVERIFY(bench.bridge.DbusUpdateRegisters(longest + QLatin1Char('x')));
        QCOMPARE(reports().size(), 2); // logged again after a command that fitted
    }
};

QTEST_GUILESS_MAIN(tst_ModbusControl)
#include "tst_modbuscontrol.moc"
