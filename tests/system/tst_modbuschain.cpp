// SPDX-License-Identifier: MIT
// The whole road of a value: controller, frame, panel, script, D-Bus, Modbus server, PLC. Every program is
// the real one, and the mapping is the sample that a device ships.

#include <tuple>

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

#include "modbusbench.h"
#include "program.h"
#include "settingsfile.h"

namespace {

using Words = QVector<quint16>;

/// One table of the sample mapping and the words that a PLC reads there.
struct Table
{
    int address;
    Words words;
};

/// The values that the controller sends, by register number.
const QString firstValues =
    "100=200 101=60000 102=305419896 104=70012345 106=100000 200=on 201=off 202=on 203=on 208=65536 "
    "210=4000000000 300=21.5 302=-3.25 304=55 305=255 306=-123 307=-2 310=-7 400=2301 401=2302 402=2303 "
    "404=16.5 406=0.1 408=0 410=1 412=1500 500=on 501=off 502=100 503=0"_s;

// Two words: high word first. Gaps of the mapping read as 0.
const QVector<Table> firstWords = {
    {100, {200, 60000, 0x1234, 0x5678, 0x042C, 0x4DB9, 0x0001, 0x86A0}},
    {200, {1, 0, 1, 1, 0, 0, 0, 0, 0x0001, 0x0000, 0xEE6B, 0x2800}},
    {300, {0x41AC, 0x0000, 0xC050, 0x0000, 55, 255, 0xFF85, 0x00FE, 0, 0, 0xFFFF, 0xFFF9}},
    {400,
     {2301, 2302, 2303, 0, 0x4184, 0x0000, 0x3DCC, 0xCCCD, 0x0000, 0x0000, 0x0000, 0x0001, 0x0000, 0x05DC}},
    {500, {1, 0, 100, 0}},
};

} // namespace

class tst_ModbusChain : public QObject
{
    Q_OBJECT

private slots:
    /// Brings everything up, in the order of a device: server on call, panel, controller; and waits for the
    /// first values.
    void init()
    {
        bench = std::make_unique<ModbusBench>();
        QVERIFY(bench->start("--state=/run/modbus-init"_s));
        const QString map = "/usr/local/etc/modbus.map"_s;
        QFile::remove(map);
        QVERIFY(QFile::copy(VARNEL_SOURCE_DIR "/device/modbus.map"_s, map));
        QVERIFY(SettingsFile().set("Network/UdpTimeout", "2").write());
        panel = std::make_unique<Panel>();
        QVERIFY(panel->startAndBind());
        QVERIFY(bench->bus().log().await("varnel-modbus-server: serving 50 registers on tcp 0.0.0.0:502"_s));
        connectPlc();
        QCOMPARE(plc->holding(100, 8), Words(8, 0));

        controller = std::make_unique<Program>("r7m-simulator"_s);
        QStringList arguments =
            "--http 192.168.7.2:80 --broadcast --interval 100 --map"_s.split(QLatin1Char(' '));
        arguments += map;
        const QStringList values = firstValues.split(QLatin1Char(' '));
        for (const QString& value : values) {
            arguments += "--set=core."_s + value;
        }
        QVERIFY(controller->start(arguments));
        QVERIFY(await(firstWords));
    }

    void cleanup()
    {
        plc.reset();
        controller.reset();
        panel.reset();
        std::ignore = ModbusBench::killServer(); // the test may have failed before there was one
        bench.reset();
        QFile::remove("/run/modbus-init"_s);
    }

    void everyValueReachesThePlc()
    {
        QCOMPARE(plc->discrete(200, 4), (QVector<quint8>{1, 0, 1, 1}));
        QVERIFY(!plc->write(500, 0));
        QCOMPARE(plc->problem(), "Illegal function"_s);
        QCOMPARE(plc->holding(108, 1), Words());
        QCOMPARE(plc->problem(), "Illegal data address"_s);
        // The mbpoll that the documentation shows.
        Program mbpoll("/usr/bin/mbpoll"_s);
        QVERIFY(mbpoll.start("-m tcp -0 -r 300 -c 2 -t 4:float -B -1 192.168.7.1"_s.split(QLatin1Char(' '))));
        QVERIFY(mbpoll.awaitEnd());
        QVERIFY2(mbpoll.output().contains("[300]: \t21.5\n[302]: \t-3.25\n"), mbpoll.output().constData());
    }

    void changesFollow()
    {
        QVERIFY(control("do=set&core.500=off&core.501=on&core.502=1&core.300=-0.5"_s));
        QVERIFY(await({{500, {0, 1, 1, 0}}, {300, {0xBF00, 0x0000}}}));
        QVERIFY(await({firstWords.at(0), firstWords.at(1), firstWords.at(3)})); // and nothing else
        // Let go, the energy counter runs: two readings differ.
        QVERIFY(control("do=release&id=410"_s));
        const Words before = plc->holding(410, 2);
        QTRY_VERIFY(plc->holding(410, 2) != before);
        // Negative long values arrive as zero.
        QVERIFY(control("do=set&core.106=-5&core.412=-1500&core.100=1"_s));
        QVERIFY(await(
            {{500, {0, 1, 1, 0}}, {100, {1, 60000, 0x1234, 0x5678, 0x042C, 0x4DB9, 0, 0}}, {412, {0, 0}}}));
    }

    void everyValueReachesAPlcOnASerialLine()
    {
        QCOMPARE(panel->stop(), 0);
        SerialLine line;
        QVERIFY(line.start());
        QVERIFY(SettingsFile()
                    .set("ModbusServer/ModbusMode", "RTU")
                    .set("ModbusServer/ModbusInterface", "7:/tmp/server-port:19200:8N1")
                    .write());
        QVERIFY(panel->startAndBind());
        QVERIFY(bench->bus().log().await(
            "varnel-modbus-server: serving 50 registers on rtu /tmp/server-port 19200 8N1 id 7"_s));
        plc = ModbusClient::rtu(SerialLine::plcPort(), 19200, 7);
        QVERIFY2(plc->connect(), qPrintable(plc->problem()));
        QVERIFY(await(firstWords));
    }

    void lostControllerLeavesTheLastValues()
    {
        controller.reset();
        QVERIFY(panel->log().await(QRegularExpression("^No packet received within"_s)));
        // The client reads an old value: the controller's last one.
        QVERIFY(await(firstWords));
        // A panel that starts again starts the server afresh: nothing is known of the controller yet.
        QCOMPARE(panel->stop(), 0);
        QVERIFY(panel->startAndBind());
        connectPlc();
        QCOMPARE(plc->holding(100, 8), Words(8, 0));
    }

private:
    void connectPlc()
    {
        plc = ModbusClient::tcp(502, "192.168.7.1");
        QTRY_VERIFY2(plc->connect(), qPrintable(plc->problem()));
    }

    /// Gives the controller an order at its web site.
    bool control(const QString& query)
    {
        QNetworkRequest request(QUrl("http://192.168.7.2/control?"_s + query));
        request.setRawHeader("Authorization", "Basic " + QByteArray("admin:admin").toBase64());
        const std::unique_ptr<QNetworkReply> reply(web.get(request));
        return awaitTrue([&reply] { return reply->isFinished(); }) &&
               reply->error() == QNetworkReply::NoError;
    }

    /// Reads all tables again and again until each holds its words, by both function codes that read
    /// registers.
    bool await(const QVector<Table>& tables)
    {
        for (const Table& table : tables) {
            Words holding;
            const bool seen = awaitTrue(
                [&] { return (holding = plc->holding(table.address, table.words.size())) == table.words; });
            if (!seen || plc->input(table.address, table.words.size()) != table.words) {
                qWarning() << table.address << "holds" << holding << plc->problem() << "not" << table.words;
                return false;
            }
        }
        return true;
    }

    std::unique_ptr<ModbusBench> bench;
    std::unique_ptr<Program> controller;
    std::unique_ptr<Panel> panel;
    std::unique_ptr<ModbusClient> plc;
    QNetworkAccessManager web;
};

QTEST_GUILESS_MAIN(tst_ModbusChain)
#include "tst_modbuschain.moc"
