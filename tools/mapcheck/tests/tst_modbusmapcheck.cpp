// SPDX-License-Identifier: MIT
#include <QModbusTcpServer>
#include <QTcpServer>
#include <QtTest>

#include "logrecorder.h"
#include "mapdefects.h"
#include "mappingfile.h"
#include "modbusinterface.h"
#include "program.h"
#include "rows.h"

namespace {

ProgramRun run(const QStringList& arguments, const QByteArray& input = {})
{
    return runProgram("modbus-map-check"_s, arguments, input);
}

/// A file with the mapping that has this defect; none for a defect that the table does not know.
QString data(const char* name)
{
    static const QTemporaryDir directory;
    const QString path = directory.filePath(QLatin1String(name) + QLatin1String(".map"));
    if (const QByteArray mapping = mapDefect(name).mapping; !mapping.isEmpty()) {
        writeFile(path, mapping);
    }
    return path;
}

const QString sample = VARNEL_SOURCE_DIR "/device/modbus.map"_s;

} // namespace

/// The program as an engineer runs it.
class tst_ModbusMapCheck : public QObject
{
    Q_OBJECT

private slots:
    void exitCodes_data()
    {
        // output: empty: nothing at all
        const Rows<QStringList, int, QByteArray, QByteArray> add("arguments", "status", "output", "errors");
        const auto row = [&add](const char* name, const QStringList& arguments, int status,
                                const char* errors, const char* output = "") {
            add(name, arguments, status, QByteArray(output), QByteArray(errors));
        };
        const QString cut = data("number-cut");
        row("fine: 0, a summary", {sample}, 0,
            ": 30 registers in 5 tables, 43 words, 0 errors, 0 warnings\n");
        row("fine and quiet: 0, nothing", {"-q"_s, sample}, 0, "");
        const QString path = data("unknown-class");
        row("file and line: 1", {path}, 1,
            path.toUtf8() + ":12: error: register 101 \"Current\": unknown class \"Power\"\n" +
                path.toUtf8() + ": 2 registers in 1 tables, 2 words, 1 errors, 0 warnings\n");
        row("verbose: 0, what the loader says", {"--verbose"_s, sample}, 0, "Try to open mapping file  \"");
        row("warnings: 0", {cut}, 0, "0 errors, 1 warnings");
        row("warnings and strict: 1", {"--strict"_s, cut}, 1, ": warning: ");
        row("missing file: 2", {data("missing")}, 2, "cannot read ");
        row("directory: 2", {QStringLiteral(MAP_DATA)}, 2, "cannot read ");
        row("no file: 2", {}, 2, "one mapping file has to be given");
        row("two files: 2", {sample, sample}, 2, "one mapping file has to be given");
        row("unknown option: 2", {"--lst"_s, sample}, 2, "modbus-map-check: ");
        row("port that is no number: 2", {"--port=foo"_s, sample}, 2,
            "--port: \"foo\" is no number from 1 to 65535\n");
        row("port too high: 2", {"--port=65536"_s, sample}, 2, "--port: \"65536\" is no number");
        row("unit too high: 2", {"--unit=256"_s, sample}, 2, "--unit: \"256\" is no number from 0 to 255\n");
        row("baud rate of nothing: 2", {"--baud="_s, sample}, 2, "--baud: \"\" is no number");
        row("help: 0", {"--help"_s}, 0, "", "--mbpoll");
    }

    void exitCodes()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QByteArray, output);
        QFETCH(QByteArray, errors);
        const ProgramRun result = run(arguments);
        const auto says = [](const QByteArray& text, const QByteArray& wanted) {
            return wanted.isEmpty() ? text.isEmpty() : text.contains(wanted);
        };
        QTEST(result.status, "status");
        QVERIFY2(says(result.output, output), result.output.constData());
        QVERIFY2(says(result.errors, errors), result.errors.constData());
        QCOMPARE(result.errors.contains("Try to open"), arguments.contains("--verbose"_s));
    }

    void readsStandardInput()
    {
        const ProgramRun result = run({"-"_s}, mapDefect("unknown-class").mapping);
        QCOMPARE(result.status, 1);
        QVERIFY(result.errors.startsWith("standard input:12: error: register 101 "));
    }

    void listsGoToStandardOutput()
    {
        const ProgramRun all = run("-q -l -c -m --serial /dev/ttyUSB0 --baud 9600 --unit 7"_words << sample);
        QCOMPARE(all.status, 0);
        QCOMPARE(all.errors, QByteArray());
        QVERIFY(all.output.startsWith("Address  Words  Type"));
        QVERIFY(all.output.contains("\n404,2,float,power,Current L1 (A),power.current[0],float,"
                                    "3,high word first,read-only,7,A\r\n"));
        QVERIFY(all.output.contains(
            "\nmbpoll -m rtu -b 9600 -a 7 -0 -1 -B -t 4:float -r 404 -c 3 /dev/ttyUSB0\n"));
    }

    void bigFile()
    {
        QByteArray registers;
        QByteArray ids;
        for (int id = 1; id <= 60000; ++id) {
            registers += (id > 1 ? ",\n" : "") + registerText(id, "u16", "u16", id);
            ids += (id > 1 ? "," : "") + QByteArray::number(id);
        }
        const MappingFile file(mappingText(registers, tableText(1, ids)));
        const ProgramRun result = run({file.path()});
        QCOMPARE(result.status, 1); // instances beyond 255
        QVERIFY(result.errors.contains("60000 registers in 1 tables, 60000 words, 5"));
    }

    void mbpollCommandsReadTheValues()
    {
        // A server with the words that the panel would send, and the very commands that are printed for it.
        Varnel::ModbusInterface bridge;
        QModbusDataUnitMap blocks;
        blocks.insert(QModbusDataUnit::HoldingRegisters,
                      {QModbusDataUnit::HoldingRegisters, 0, quint16(600)});
        QModbusTcpServer server;
        QVERIFY(server.setMap(blocks));
        const int port = [] {
            QTcpServer probe;
            return probe.listen(QHostAddress::LocalHost) ? int(probe.serverPort()) : 0;
        }();
        server.setConnectionParameter(QModbusDevice::NetworkAddressParameter, "127.0.0.1"_s);
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
            QVERIFY(server.setData(QModbusDataUnit::HoldingRegisters, quint16(table.baseaddr + i),
                                   table.values[i]));
        }

        const ProgramRun commands =
            run("-q --mbpoll --host 127.0.0.1 --port %1 %2"_s.arg(port).arg(sample).split(QLatin1Char(' ')));
        QStringList values;
        for (const QByteArray& line : commands.output.split('\n')) {
            if (!line.startsWith("mbpoll") || !line.contains(" -r 4")) {
                continue;
            }
            Program mbpoll("/bin/sh"_s);
            QVERIFY(mbpoll.start({"-c"_s, QString::fromUtf8(line)}));
            QVERIFY(mbpoll.awaitEnd()); // the server answers meanwhile
            QCOMPARE(mbpoll.exitStatus(), 0);
            for (const QByteArray& row : mbpoll.output().split('\n')) {
                if (row.startsWith('[')) {
                    values << QString::fromUtf8(row.simplified());
                }
            }
        }
        QCOMPARE(values,
                 QStringList({"[400]: 2301"_s, "[401]: 0"_s, "[402]: 2307"_s, "[404]: 3.5"_s, "[406]: 0"_s,
                              "[408]: -0.25"_s, "[410]: 1193046"_s, "[412]: 2147483647"_s}));
    }
};

QTEST_GUILESS_MAIN(tst_ModbusMapCheck)

#include "tst_modbusmapcheck.moc"
