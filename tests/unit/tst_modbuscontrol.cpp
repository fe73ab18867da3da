// SPDX-License-Identifier: MIT
#include <limits>

#include <unistd.h>

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QtTest>

#include "logrecorder.h"
#include "logrules.h"
#include "mappingfile.h"
#include "modbusinterface.h"
#include "recordingscript.h"
#include "scopedsetting.h"

using namespace Varnel;

/// The data for the Modbus server: its start-up description, the scripts and their arguments, the commands.
class tst_ModbusControl : public QObject
{
    Q_OBJECT

private slots:
    void initFile_data();
    void initFile();
    void badInterface_data();
    void badInterface();
    void tableLength_data();
    void tableLength();
    void tablesInAscendingOrder();
    void textIsIndented();
    void missingDirectoryIsCreated();
    void olderFileIsReplaced();
    void unwritableFileIsNoFailure_data();
    void unwritableFileIsNoFailure();
    void startMonitor();
    void startMonitorWithoutScript_data();
    void startMonitorWithoutScript();
    void stopMonitor();
    void stopMonitorWithoutScript();
    void pathsAreCleaned();
    void updateCommand();
    void updateCommandIsTheJsonWriters();
    void updateRegisters();
    void updateRegistersWithoutScript();
    void tooLongCommand();

private:
    QTemporaryDir scripts;
};

namespace {

QString path(const QTemporaryDir& directory, const char* name)
{
    return directory.filePath(QLatin1String(name));
}

QJsonObject readObject(const QString& file)
{
    QFile input(file);
    return input.open(QIODevice::ReadOnly) ? QJsonDocument::fromJson(input.readAll()).object()
                                           : QJsonObject();
}

QString inQuotes(const QString& text)
{
    return QLatin1Char('"') + text + QLatin1Char('"');
}

QString notFound(const QString& script)
{
    return QStringLiteral("Script ' \"") + script + QStringLiteral("\" ' not found, do nothing");
}

const char* const group = "ModbusServer";

} // namespace

void tst_ModbusControl::initFile_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("protocol");
    QTest::addColumn<QJsonObject>("interface");

    const auto row = [](const char* name, const char* mode, const char* setting, const char* protocol,
                        const char* interface) {
        QTest::newRow(name) << QString::fromLatin1(mode) << QString::fromLatin1(setting)
                            << QString::fromLatin1(protocol) << QJsonDocument::fromJson(interface).object();
    };
    row("default setting, TCP in upper case: tcp", "TCP", "0.0.0.0:502:10", "tcp",
        R"({"listen": "0.0.0.0", "port": 502, "clients": 10})");
    row("empty port: 0", "tcp", "0.0.0.0::10", "tcp", R"({"listen": "0.0.0.0", "port": 0, "clients": 10})");
    row("all parts empty: zeros", "tcp", "::", "tcp", R"({"listen": "", "port": 0, "clients": 0})");
    row("port not a number: 0", "tcp", "host:http:ten", "tcp",
        R"({"listen": "host", "port": 0, "clients": 0})");
    row("negative clients: kept", "tcp", "h:1:-1", "tcp", R"({"listen": "h", "port": 1, "clients": -1})");
    row("rtu: device, baud rate and format", "rtu", "1:/dev/ttyS1:19200:8N1", "rtu",
        R"({"devid": 1, "port": "/dev/ttyS1", "baud": 19200, "mode": "8N1"})");
    row("Rtu with texts for numbers: 0", "Rtu", "x:p:fast:8N1", "rtu",
        R"({"devid": 0, "port": "p", "baud": 0, "mode": "8N1"})");
}

void tst_ModbusControl::initFile()
{
    QFETCH(QString, mode);
    QFETCH(QString, setting);
    QFETCH(QString, protocol);
    QFETCH(QJsonObject, interface);

    const ScopedSetting<QString> modeSetting(group, "ModbusMode", mode);
    const ScopedSetting<QString> interfaceSetting(group, "ModbusInterface", setting);
    const QTemporaryDir directory;
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(readObject(path(directory, "mbserver_init.dbus")),
             (QJsonObject{{QStringLiteral("cmd"), QStringLiteral("init")},
                          {QStringLiteral("delay"), 500},
                          {QStringLiteral("protocol"), protocol},
                          {protocol, interface},
                          {QStringLiteral("tables"), QJsonArray()}}));
}

void tst_ModbusControl::badInterface_data()
{
    QTest::addColumn<QString>("mode");
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("message");

    const QString rtu = QStringLiteral("Missing info in RTU interface config");
    const QString tcp = QStringLiteral("Missing info in TCP interface config");
    const QString unknown = QStringLiteral("Unrecognized Modbus mode");
    const auto row = [](const char* name, const char* mode, const char* setting, const QString& message) {
        QTest::newRow(name) << QString::fromLatin1(mode) << QString::fromLatin1(setting) << message;
    };
    row("rtu with three parts: refused", "rtu", "1:/dev/ttyS1:19200", rtu);
    row("rtu with five parts: refused", "RTU", "1:/dev/ttyS1:19200:8N1:", rtu);
    row("rtu without setting: refused", "rtu", "", rtu);
    row("tcp with two parts: refused", "tcp", "0.0.0.0:502", tcp);
    row("tcp with four parts: refused", "Tcp", "0.0.0.0:502:10:", tcp);
    row("tcp with an IPv6 address: refused", "tcp", "::1:502:10", tcp);
    row("ascii: refused", "ascii", "0.0.0.0:502:10", unknown);
    row("no mode: refused", "", "0.0.0.0:502:10", unknown);
    row("blank after the mode: refused", "tcp ", "0.0.0.0:502:10", unknown);
}

void tst_ModbusControl::badInterface()
{
    QFETCH(QString, mode);
    QFETCH(QString, setting);
    QFETCH(QString, message);

    const ScopedSetting<QString> modeSetting(group, "ModbusMode", mode);
    const ScopedSetting<QString> interfaceSetting(group, "ModbusInterface", setting);
    const QTemporaryDir directory;
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(!bridge.GenerateDbusInit(path(directory, "new")));
    QCOMPARE(log.texts(), QStringList(message));
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(!QFile::exists(path(directory, "new"))); // nothing is written, not even the directory
}

void tst_ModbusControl::tableLength_data()
{
    QTest::addColumn<QByteArray>("ids");
    QTest::addColumn<double>("length");

    // 10 and 11: u32, 12: u8, 13: string, 0: u16
    QTest::newRow("two u32 and a gap of two: 6") << QByteArray("10, -2, 11") << 6.0;
    QTest::newRow("u8: 1") << QByteArray("12") << 1.0;
    QTest::newRow("string: 0") << QByteArray("13, 13") << 0.0;
    QTest::newRow("register 0: counted, unlike in rendering") << QByteArray("0, 12") << 2.0;
    QTest::newRow("unknown id: 0") << QByteArray("99, 12") << 1.0;
    QTest::newRow("empty: 0") << QByteArray() << 0.0;
    QTest::newRow("70000: unchanged") << QByteArray("-70000") << 70000.0;
    QTest::newRow("two billion, twice: the sum")
        << QByteArray("-2000000000, -2000000000, 12") << 4000000001.0;
    QTest::newRow("smallest number there is: its size") << QByteArray("-2147483648") << 2147483648.0;
}

void tst_ModbusControl::tableLength()
{
    QFETCH(QByteArray, ids);
    QFETCH(double, length);
    const QTemporaryDir directory;
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(
        &bridge, mappingText(registerText(10, "u32", "u32", 0) + "," + registerText(11, "uint32", "u32", 1) +
                                 "," + registerText(12, "u8", "u8", 2) + "," +
                                 registerText(13, "string", "u8", 3) + "," + registerText(0, "u16", "u16", 4),
                             tableText(100, ids, "rw"))));
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    QCOMPARE(readObject(path(directory, "mbserver_init.dbus")).value(QStringLiteral("tables")).toArray(),
             (QJsonArray{QJsonObject{{QStringLiteral("address"), 100},
                                     {QStringLiteral("mode"), QStringLiteral("r")},
                                     {QStringLiteral("length"), length}}}));
    QVERIFY(log.texts(QStringLiteral("varnel.modbus")).isEmpty());
    QCOMPARE(bridge.GetRegisterList().contains(99), ids.contains("99")); // looking it up enters it
}

void tst_ModbusControl::tablesInAscendingOrder()
{
    const QTemporaryDir directory;
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(
        loadMapping(&bridge, mappingText("", tableText(300, "-3", "w") + "," + tableText(-7, "") + "," +
                                                 tableText(70000, "-1", "x") + "," + tableText(100, "-2"))));
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    const QJsonArray tables =
        readObject(path(directory, "mbserver_init.dbus")).value(QStringLiteral("tables")).toArray();
    QString summary;
    for (const QJsonValue& table : tables) {
        summary += QStringLiteral("%1 %2 %3;")
                       .arg(table[QStringLiteral("address")].toInt())
                       .arg(table[QStringLiteral("length")].toInt())
                       .arg(table[QStringLiteral("mode")].toString());
    }
    QCOMPARE(summary, QStringLiteral("-7 0 r;100 2 r;300 3 r;70000 1 r;"));
}

void tst_ModbusControl::textIsIndented()
{
    const ScopedSetting<QString> modeSetting(group, "ModbusMode", QStringLiteral("tcp"));
    const ScopedSetting<QString> interfaceSetting(group, "ModbusInterface", QStringLiteral("0.0.0.0:502:10"));
    const QTemporaryDir directory;
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText("", tableText(100, "-2"))));
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    QFile file(path(directory, "mbserver_init.dbus"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), QByteArray(R"({
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

void tst_ModbusControl::missingDirectoryIsCreated()
{
    const QTemporaryDir directory;
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(bridge.GenerateDbusInit(path(directory, "a/b c/d")));
    QVERIFY(QFile::exists(path(directory, "a/b c/d/mbserver_init.dbus")));
    QVERIFY(log.lines().isEmpty());
}

void tst_ModbusControl::olderFileIsReplaced()
{
    const QTemporaryDir directory;
    QFile file(path(directory, "mbserver_init.dbus"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QByteArray(100000, 'x'));
    file.close();
    ModbusInterface bridge;
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    QCOMPARE(readObject(file.fileName()).value(QStringLiteral("delay")).toInt(), 500);
}

void tst_ModbusControl::unwritableFileIsNoFailure_data()
{
    QTest::addColumn<bool>("full");
    QTest::addColumn<QString>("reason");
    QTest::newRow("a directory: logged")
        << false << QStringLiteral("Is a directory"); // not even root writes to it
    QTest::newRow("disk full: logged") << true << QStringLiteral("No space left on device");
}

void tst_ModbusControl::unwritableFileIsNoFailure()
{
    QFETCH(bool, full);
    QFETCH(QString, reason);
    const QTemporaryDir directory;
    const QString file = path(directory, "mbserver_init.dbus");
    QVERIFY(full ? QFile::link(QStringLiteral("/dev/full"), file) : QDir().mkdir(file));
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.GenerateDbusInit(directory.path()));
    QCOMPARE(log.texts(), QStringList());
    QCOMPARE(log.texts(QStringLiteral("varnel.modbus")),
             QStringList(QStringLiteral("Cannot write \"%1\" : \"%2\"").arg(file, reason)));
}

void tst_ModbusControl::startMonitor()
{
    const ScopedSetting<QString> directory("Files", "ScriptDir", scripts.path());
    const RecordingScript script(scripts.path(), QStringLiteral("mbserverstart.sh"));
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusStartMonitor(QStringLiteral("/tmp/with blank")));
    const QString argument = QStringLiteral("/tmp/with blank/mbserver_init.dbus");
    QCOMPARE(log.texts(), QStringList({QStringLiteral("Start modbus monitor"), inQuotes(script.path()),
                                       inQuotes(argument), QString()}));
    QCOMPARE(script.runs(), QList<QStringList>({{argument}}));
}

void tst_ModbusControl::startMonitorWithoutScript_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("missing: logged") << false;
    QTest::newRow("not executable: logged") << true;
}

void tst_ModbusControl::startMonitorWithoutScript()
{
    QFETCH(bool, exists);
    const QTemporaryDir empty;
    const ScopedSetting<QString> directory("Files", "ScriptDir", empty.path());
    const QString script = path(empty, "mbserverstart.sh");
    if (exists) {
        RecordingScript(empty.path(), QStringLiteral("mbserverstart.sh")).setExecutable(false);
        QVERIFY(QFile::exists(script));
    }
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusStartMonitor(QStringLiteral("/tmp/etc")));
    QCOMPARE(log.texts(),
             QStringList({QStringLiteral("Start modbus monitor"), inQuotes(script),
                          QStringLiteral("\"/tmp/etc/mbserver_init.dbus\""), QString(), notFound(script)}));
}

void tst_ModbusControl::stopMonitor()
{
    const ScopedSetting<QString> directory("Files", "ScriptDir", scripts.path());
    const RecordingScript script(scripts.path(), QStringLiteral("mbserverstop.sh"));
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusStopMonitor());
    QCOMPARE(log.texts(), QStringList(QStringLiteral("Stop modbus monitor")));
    QCOMPARE(script.runs(), QList<QStringList>({QStringList()}));
}

void tst_ModbusControl::stopMonitorWithoutScript()
{
    const QTemporaryDir empty;
    const ScopedSetting<QString> directory("Files", "ScriptDir", empty.path());
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusStopMonitor());
    QCOMPARE(log.texts(),
             QStringList({QStringLiteral("Stop modbus monitor"), notFound(path(empty, "mbserverstop.sh"))}));
}

void tst_ModbusControl::pathsAreCleaned()
{
    const ScopedSetting<QString> directory("Files", "ScriptDir", QStringLiteral("/nowhere//x/../scripts/"));
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusStartMonitor(QStringLiteral("/tmp/./etc//")));
    QCOMPARE(log.texts(), QStringList({QStringLiteral("Start modbus monitor"),
                                       QStringLiteral("\"/nowhere/scripts/mbserverstart.sh\""),
                                       QStringLiteral("\"/tmp/etc/mbserver_init.dbus\""), QString(),
                                       notFound(QStringLiteral("/nowhere/scripts/mbserverstart.sh"))}));
}

void tst_ModbusControl::updateCommand()
{
    QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery({}),
             QStringLiteral(R"({"cmd":"setconfig","data":[]})"));
    QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery({{100, {0, 1, 0x1234, 0x5678}}}),
             QStringLiteral(R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]})"));
    QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery({{300, {65535}}, {-5, {}}, {7, {10, 9}}}),
             QStringLiteral(R"({"cmd":"setconfig","data":[{"address":300,"values":[65535]},)"
                            R"({"address":-5,"values":[]},{"address":7,"values":[10,9]}]})"));
}

void tst_ModbusControl::updateCommandIsTheJsonWriters()
{
    QRandomGenerator random(20240513);
    const auto below = [&random](int limit) { return int(random() % unsigned(limit)); };
    QVector<int> addresses = {
        0, 1, -1, 9, 10, 99999, std::numeric_limits<int>::max(), std::numeric_limits<int>::min()};
    for (int round = 0; round < 300; ++round) {
        QVector<MbRawData_s> tables;
        QJsonArray data;
        for (int count = below(5); count > 0; --count) {
            MbRawData_s table;
            table.baseaddr = below(3) == 0 ? addresses[below(addresses.size())] : below(70000) - 2000;
            QJsonArray values;
            for (int words = below(40); words > 0; --words) {
                table.values.append(quint16(random() >> below(17)));
                values.append(int(table.values.last()));
            }
            data.append(
                QJsonObject{{QStringLiteral("address"), table.baseaddr}, {QStringLiteral("values"), values}});
            tables.append(table);
        }
        const QJsonObject command{{QStringLiteral("cmd"), QStringLiteral("setconfig")},
                                  {QStringLiteral("data"), data}};
        QCOMPARE(ModbusInterface::GenerateDbusUpdateQuery(tables),
                 QString::fromUtf8(QJsonDocument(command).toJson(QJsonDocument::Compact)));
    }
}

void tst_ModbusControl::updateRegisters()
{
    const ScopedSetting<QString> directory("Files", "ScriptDir", scripts.path());
    const RecordingScript script(scripts.path(), QStringLiteral("mbserverupdate.sh"));
    ModbusInterface bridge;
    LogRecorder log;
    const QString command = QStringLiteral("{\"cmd\": \"it's $HOME; `x` \\ \n\"}");
    QVERIFY(bridge.DbusUpdateRegisters(command));
    QVERIFY(bridge.DbusUpdateRegisters(QString()));
    QCOMPARE(script.runs(), QList<QStringList>({{command}, {QString()}}));
    QVERIFY(log.lines().isEmpty());
}

void tst_ModbusControl::updateRegistersWithoutScript()
{
    const QTemporaryDir empty;
    const ScopedSetting<QString> directory("Files", "ScriptDir", empty.path());
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(bridge.DbusUpdateRegisters(QStringLiteral("{}")));
    QVERIFY(bridge.DbusUpdateRegisters(QString(300000, QLatin1Char(' '))));
    QVERIFY(log.lines().isEmpty());
}

void tst_ModbusControl::tooLongCommand()
{
    const QTemporaryDir own;
    const ScopedSetting<QString> directory("Files", "ScriptDir", own.path());
    const RecordingScript script(own.path(), QStringLiteral("mbserverupdate.sh"));
    const int limit = int(32 * sysconf(_SC_PAGESIZE)) - 1;
    const QString longest(limit, QLatin1Char('x'));
    ModbusInterface bridge;
    LogRecorder log;
    const auto reports = [&log] { return log.texts(QStringLiteral("varnel.modbus")).size(); };

    QVERIFY(bridge.DbusUpdateRegisters(longest));
    QVERIFY(log.lines().isEmpty());
    QCOMPARE(script.runs(), QList<QStringList>({{longest}}));

    QVERIFY(bridge.DbusUpdateRegisters(longest + QLatin1Char('x')));
    QCOMPARE(script.runs().size(), 1); // the kernel refuses it
    QCOMPARE(log.texts(QStringLiteral("varnel.modbus")),
             QStringList(QStringLiteral("Update command of %1 octets dropped, one argument may have %2 : "
                                        "shorten the tables of the mapping")
                             .arg(limit + 1)
                             .arg(limit)));
    QCOMPARE(log.texts(), QStringList());

    QVERIFY(bridge.DbusUpdateRegisters(longest + QLatin1Char('y')));
    QCOMPARE(reports(), 1); // logged once
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(bridge.DbusUpdateRegisters(QStringLiteral("{}")));
    QCOMPARE(script.runs().size(), 2); // and the next command that fits goes out
    QVERIFY(bridge.DbusUpdateRegisters(longest + QLatin1Char('x')));
    QCOMPARE(reports(), 2); // logged again after a command that fitted
}

QTEST_GUILESS_MAIN(tst_ModbusControl)

#include "tst_modbuscontrol.moc"
