// SPDX-License-Identifier: MIT
#include <QModbusTcpServer>
#include <QProcess>
#include <QTcpServer>
#include <QtTest>

#include "logrecorder.h"
#include "mapdefects.h"
#include "mappingfile.h"
#include "modbusinterface.h"

/// The program as an engineer runs it.
class tst_ModbusMapCheck : public QObject
{
    Q_OBJECT

private slots:
    void exitCodes_data();
    void exitCodes();
    void findingsNameFileAndLine();
    void readsStandardInput();
    void listsGoToStandardOutput();
    void verboseShowsTheLoader();
    void bigFile();
    void mbpollCommandsReadTheValues();
};

namespace {

struct Run
{
    int exitCode = -1;
    QString output;
    QString errors;
};

Run run(const QStringList& arguments)
{
    QProcess process;
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/modbus-map-check"), arguments);
    if (!process.waitForFinished(300000) || process.exitStatus() != QProcess::NormalExit) {
        return {};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

/// A file with the mapping that has this defect.
QString data(const char* name)
{
    static const QTemporaryDir directory;
    const QString path = directory.filePath(QLatin1String(name) + QLatin1String(".map"));
    QFile file(path);
    for (const MapDefect& defect : mapDefects()) {
        if (defect.name == name && (!file.open(QIODevice::WriteOnly) || file.write(defect.mapping) < 0)) {
            qFatal("cannot write %s", qPrintable(path));
        }
    }
    return path;
}

const QString sample = QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map");

} // namespace

void tst_ModbusMapCheck::exitCodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("output");
    QTest::addColumn<QString>("errors");

    const QString fine = QStringLiteral(": 30 registers in 5 tables, 43 words, 0 errors, 0 warnings\n");
    const QString none;
    QTest::newRow("fine: 0, a summary") << QStringList(sample) << 0 << none << fine;
    QTest::newRow("fine and quiet: 0, nothing")
        << QStringList{QStringLiteral("-q"), sample} << 0 << none << none;
    QTest::newRow("errors: 1") << QStringList(data("id-twice")) << 1 << none
                               << QStringLiteral(": error: register 100");
    QTest::newRow("warnings: 0") << QStringList(data("number-cut")) << 0 << none
                                 << QStringLiteral("0 errors, 1 warnings");
    QTest::newRow("warnings and strict: 1") << QStringList{QStringLiteral("--strict"), data("number-cut")}
                                            << 1 << none << QStringLiteral(": warning: ");
    QTest::newRow("not JSON: 1") << QStringList(data("not-json")) << 1 << none
                                 << QStringLiteral(":13: error: not JSON");
    QTest::newRow("missing file: 2") << QStringList(data("missing")) << 2 << none
                                     << QStringLiteral("cannot read ");
    QTest::newRow("directory: 2") << QStringList(QStringLiteral(MAP_DATA)) << 2 << none
                                  << QStringLiteral("cannot read ");
    QTest::newRow("no file: 2") << QStringList() << 2 << none
                                << QStringLiteral("one mapping file has to be given");
    QTest::newRow("two files: 2") << QStringList{sample, sample} << 2 << none
                                  << QStringLiteral("one mapping file has to be given");
    QTest::newRow("unknown option: 2")
        << QStringList{QStringLiteral("--lst"), sample} << 2 << none << QStringLiteral("modbus-map-check: ");
    const auto wrongNumber = [](const char* row, const char* option, const char* value, const char* problem) {
        QTest::newRow(row) << QStringList{QLatin1String(option), QLatin1String(value), sample} << 2
                           << QString() << QString(QLatin1String(problem));
    };
    wrongNumber("port that is no number: 2", "--port", "foo",
                "--port: \"foo\" is no number from 1 to 65535\n");
    wrongNumber("port too high: 2", "--port", "65536", "--port: \"65536\" is no number");
    wrongNumber("unit too high: 2", "--unit", "256", "--unit: \"256\" is no number from 0 to 255\n");
    wrongNumber("baud rate of nothing: 2", "--baud", "", "--baud: \"\" is no number");
    QTest::newRow("version: 0") << QStringList(QStringLiteral("--version")) << 0
                                << QStringLiteral("modbus-map-check " VARNEL_VERSION "\n") << none;
    QTest::newRow("help: 0") << QStringList(QStringLiteral("--help")) << 0 << QStringLiteral("--mbpoll")
                             << none;
}

void tst_ModbusMapCheck::exitCodes()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, output);
    QFETCH(QString, errors);
    const Run result = run(arguments);
    QTEST(result.exitCode, "exitCode");
    QVERIFY2(output.isEmpty() ? result.output.isEmpty() : result.output.contains(output),
             qPrintable(result.output));
    QVERIFY2(errors.isEmpty() ? result.errors.isEmpty() : result.errors.contains(errors),
             qPrintable(result.errors));
}

void tst_ModbusMapCheck::findingsNameFileAndLine()
{
    const QString path = data("unknown-class");
    QCOMPARE(run({path}).errors,
             path + QStringLiteral(":12: error: register 101 \"Current\": unknown class \"Power\"\n") + path +
                 QStringLiteral(": 2 registers in 1 tables, 2 words, 1 errors, 0 warnings\n"));
}

void tst_ModbusMapCheck::readsStandardInput()
{
    QProcess process;
    process.setStandardInputFile(data("unknown-class"));
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/modbus-map-check"), {QStringLiteral("-")});
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 1);
    QVERIFY(process.readAllStandardError().startsWith("standard input:12: error: register 101 "));
}

void tst_ModbusMapCheck::listsGoToStandardOutput()
{
    const Run all =
        run({QStringLiteral("-q"), QStringLiteral("-l"), QStringLiteral("-c"), QStringLiteral("-m"),
             QStringLiteral("--serial"), QStringLiteral("/dev/ttyUSB0"), QStringLiteral("--baud"),
             QStringLiteral("9600"), QStringLiteral("--unit"), QStringLiteral("7"), sample});
    QCOMPARE(all.exitCode, 0);
    QCOMPARE(all.errors, QString());
    QVERIFY(all.output.startsWith(QStringLiteral("Address  Words  Type")));
    QVERIFY(all.output.contains(QStringLiteral("\n404,2,float,power,Current L1 (A),power.current[0],float,"
                                               "3,high word first,read-only,7,A\r\n")));
    QVERIFY(all.output.contains(
        QStringLiteral("\nmbpoll -m rtu -b 9600 -a 7 -0 -1 -B -t 4:float -r 404 -c 3 /dev/ttyUSB0\n")));
}

void tst_ModbusMapCheck::verboseShowsTheLoader()
{
    QVERIFY(run({QStringLiteral("--verbose"), sample})
                .errors.startsWith(QStringLiteral("Try to open mapping file  \"")));
    QVERIFY(!run({sample}).errors.contains(QStringLiteral("Try to open")));
}

void tst_ModbusMapCheck::bigFile()
{
    QByteArray registers;
    QByteArray ids;
    for (int id = 1; id <= 60000; ++id) {
        registers += (id > 1 ? ",\n" : "") + registerText(id, "u16", "u16", id);
        ids += (id > 1 ? "," : "") + QByteArray::number(id);
    }
    const MappingFile file(mappingText(registers, tableText(1, ids)));
    const Run result = run({file.path()});
    QCOMPARE(result.exitCode, 1); // instances beyond 255
    QVERIFY(result.errors.contains(QStringLiteral("60000 registers in 1 tables, 60000 words, 5")));
}

void tst_ModbusMapCheck::mbpollCommandsReadTheValues()
{
    // A server with the words that the panel would send, and the very commands that are printed for it.
    Varnel::ModbusInterface bridge;
    QModbusDataUnitMap blocks;
    blocks.insert(QModbusDataUnit::HoldingRegisters, {QModbusDataUnit::HoldingRegisters, 0, quint16(600)});
    QModbusTcpServer server;
    QVERIFY(server.setMap(blocks));
    const int port = [] {
        QTcpServer probe;
        return probe.listen(QHostAddress::LocalHost) ? int(probe.serverPort()) : 0;
    }();
    server.setConnectionParameter(QModbusDevice::NetworkAddressParameter, QStringLiteral("127.0.0.1"));
    server.setConnectionParameter(QModbusDevice::NetworkPortParameter, port);
    server.setServerAddress(1);
    QVERIFY2(server.connectDevice(), qPrintable(server.errorString()));
    {
        const LogRecorder log;
        QVERIFY(bridge.LoadConfig(sample));
    }
    bridge.SetRegisterValue(400, {4, 1, 0, 4}, QByteArray::fromHex("08fd"));
    bridge.SetRegisterValue(402, {4, 1, 2, 4}, QByteArray::fromHex("0903"));
    bridge.SetRegisterValue(404, {4, 2, 0, 8}, "3.5");
    bridge.SetRegisterValue(408, {4, 2, 2, 8}, "-0.25");
    bridge.SetRegisterValue(410, {4, 3, 0, 6}, QByteArray::fromHex("00123456"));
    bridge.SetRegisterValue(412, {4, 4, 0, 7}, QByteArray::fromHex("7fffffff"));
    const Varnel::MbRawData_s table = bridge.ComputeRawData({400}).first();
    for (int i = 0; i < table.values.size(); ++i) {
        QVERIFY(
            server.setData(QModbusDataUnit::HoldingRegisters, quint16(table.baseaddr + i), table.values[i]));
    }

    const Run commands =
        run({QStringLiteral("-q"), QStringLiteral("--mbpoll"), QStringLiteral("--host"),
             QStringLiteral("127.0.0.1"), QStringLiteral("--port"), QString::number(port), sample});
    QStringList values;
    for (const QString& line : commands.output.split(QLatin1Char('\n'))) {
        if (!line.startsWith(QLatin1String("mbpoll")) || !line.contains(QLatin1String(" -r 4"))) {
            continue;
        }
        QProcess mbpoll;
        mbpoll.start(QStringLiteral("/bin/sh"), {QStringLiteral("-c"), line});
        QTRY_COMPARE_WITH_TIMEOUT(mbpoll.state(), QProcess::NotRunning,
                                  20000); // the server answers meanwhile
        QCOMPARE(mbpoll.exitCode(), 0);
        for (const QString& row :
             QString::fromUtf8(mbpoll.readAllStandardOutput()).split(QLatin1Char('\n'))) {
            if (row.startsWith(QLatin1Char('['))) {
                values << row.simplified();
            }
        }
    }
    QCOMPARE(values, QStringList({QStringLiteral("[400]: 2301"), QStringLiteral("[401]: 0"),
                                  QStringLiteral("[402]: 2307"), QStringLiteral("[404]: 3.5"),
                                  QStringLiteral("[406]: 0"), QStringLiteral("[408]: -0.25"),
                                  QStringLiteral("[410]: 1193046"), QStringLiteral("[412]: 2147483647")}));
}

QTEST_GUILESS_MAIN(tst_ModbusMapCheck)

#include "tst_modbusmapcheck.moc"
