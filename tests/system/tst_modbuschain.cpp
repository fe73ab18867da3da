// SPDX-License-Identifier: MIT
// The whole road of a value: controller, frame, panel, script, D-Bus, Modbus server, PLC. Every program is
// the real one, and the mapping is the sample that a device ships.

#include <tuple>

#include <QDeadlineTimer>
#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpSocket>
#include <QTest>

#include "modbusbench.h"
#include "panel.h"
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
const QStringList firstValues = {
    QStringLiteral("100=200"),      QStringLiteral("101=60000"),      QStringLiteral("102=305419896"),
    QStringLiteral("104=70012345"), QStringLiteral("106=100000"),     QStringLiteral("200=on"),
    QStringLiteral("201=off"),      QStringLiteral("202=on"),         QStringLiteral("203=on"),
    QStringLiteral("208=65536"),    QStringLiteral("210=4000000000"), QStringLiteral("300=21.5"),
    QStringLiteral("302=-3.25"),    QStringLiteral("304=55"),         QStringLiteral("305=255"),
    QStringLiteral("306=-123"),     QStringLiteral("307=-2"),         QStringLiteral("310=-7"),
    QStringLiteral("400=2301"),     QStringLiteral("401=2302"),       QStringLiteral("402=2303"),
    QStringLiteral("404=16.5"),     QStringLiteral("406=0.1"),        QStringLiteral("408=0"),
    QStringLiteral("410=1"),        QStringLiteral("412=1500"),       QStringLiteral("500=on"),
    QStringLiteral("501=off"),      QStringLiteral("502=100"),        QStringLiteral("503=0"),
};

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
    void init();
    void cleanup();
    void everyValueReachesThePlc();
    void changesFollow();
    void negativeLongValuesArriveAsZero();
    void burstsAndSilentClients();
    void everyValueReachesAPlcOnASerialLine();
    void killedServerComesBackByItself();
    void lostControllerLeavesTheLastValues();

private:
    bool control(const QString& query);
    bool await(const QVector<Table>& tables);

    std::unique_ptr<ModbusBench> bench;
    std::unique_ptr<Program> controller;
    std::unique_ptr<Panel> panel;
    std::unique_ptr<ModbusClient> plc;
    QNetworkAccessManager web;
};

/// Brings everything up, in the order of a device: server on call, panel, controller; and waits for the first
/// values.
void tst_ModbusChain::init()
{
    bench = std::make_unique<ModbusBench>();
    QVERIFY(bench->start(QStringLiteral("--state=/run/modbus-init")));
    QFile::remove(QStringLiteral("/usr/local/etc/modbus.map"));
    QVERIFY(QFile::copy(QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"),
                        QStringLiteral("/usr/local/etc/modbus.map")));
    QVERIFY(SettingsFile().set("Network/UdpTimeout", "2").write());
    panel = std::make_unique<Panel>();
    QVERIFY(panel->startAndBind());
    QVERIFY(bench->bus().log().await(
        QStringLiteral("varnel-modbus-server: serving 50 registers on tcp 0.0.0.0:502")));
    plc = ModbusClient::tcp(502, "192.168.7.1");
    QVERIFY2(plc->connect(), qPrintable(plc->problem()));
    QCOMPARE(plc->holding(100, 8), Words(8, 0));

    controller = std::make_unique<Program>(QStringLiteral("r7m-simulator"));
    QStringList arguments = {QStringLiteral("--http"),
                             QStringLiteral("192.168.7.2:80"),
                             QStringLiteral("--broadcast"),
                             QStringLiteral("--interval"),
                             QStringLiteral("100"),
                             QStringLiteral("--map"),
                             QStringLiteral("/usr/local/etc/modbus.map")};
    for (const QString& value : firstValues) {
        arguments += QStringLiteral("--set=core.") + value;
    }
    QVERIFY(controller->start(arguments));
    QVERIFY(await(firstWords));
}

void tst_ModbusChain::cleanup()
{
    plc.reset();
    controller.reset();
    panel.reset();
    std::ignore = ModbusBench::killServer(); // the test may have failed before there was one
    bench.reset();
    QFile::remove(QStringLiteral("/run/modbus-init"));
}

/// Gives the controller an order at its web site.
bool tst_ModbusChain::control(const QString& query)
{
    QNetworkRequest request(QUrl(QStringLiteral("http://192.168.7.2/control?") + query));
    request.setRawHeader("Authorization", "Basic " + QByteArray("admin:admin").toBase64());
    const std::unique_ptr<QNetworkReply> reply(web.get(request));
    return QTest::qWaitFor([&reply] { return reply->isFinished(); }, int(patience.count())) &&
           reply->error() == QNetworkReply::NoError;
}

/// Reads all tables again and again until each holds its words, by both function codes that read registers.
bool tst_ModbusChain::await(const QVector<Table>& tables)
{
    for (const Table& table : tables) {
        Words holding;
        const bool seen = QTest::qWaitFor(
            [&] { return (holding = plc->holding(table.address, table.words.size())) == table.words; },
            int(patience.count()));
        if (!seen || plc->input(table.address, table.words.size()) != table.words) {
            qWarning() << table.address << "holds" << holding << plc->problem() << "not" << table.words;
            return false;
        }
    }
    return true;
}

void tst_ModbusChain::everyValueReachesThePlc()
{
    QCOMPARE(plc->discrete(200, 4), (QVector<quint8>{1, 0, 1, 1}));
    QVERIFY(!plc->write(500, 0));
    QCOMPARE(plc->problem(), QStringLiteral("Illegal function"));
    QCOMPARE(plc->holding(108, 1), Words());
    QCOMPARE(plc->problem(), QStringLiteral("Illegal data address"));
    // The mbpoll that the documentation shows.
    Program mbpoll(QStringLiteral("/usr/bin/mbpoll"));
    QVERIFY(mbpoll.start({QStringLiteral("-m"), QStringLiteral("tcp"), QStringLiteral("-0"),
                          QStringLiteral("-r"), QStringLiteral("300"), QStringLiteral("-c"),
                          QStringLiteral("2"), QStringLiteral("-t"), QStringLiteral("4:float"),
                          QStringLiteral("-B"), QStringLiteral("-1"), QStringLiteral("192.168.7.1")}));
    QVERIFY(mbpoll.awaitEnd());
    QVERIFY2(mbpoll.output().contains("[300]: \t21.5\n[302]: \t-3.25\n"), mbpoll.output().constData());
}

void tst_ModbusChain::changesFollow()
{
    QVERIFY(control(QStringLiteral("do=set&core.500=off&core.501=on&core.502=1&core.300=-0.5")));
    QVERIFY(await({{500, {0, 1, 1, 0}}, {300, {0xBF00, 0x0000}}}));
    QVERIFY(await({firstWords.at(0), firstWords.at(1), firstWords.at(3)})); // and nothing else
    // Let go, the energy counter runs: two readings differ.
    QVERIFY(control(QStringLiteral("do=release&id=410")));
    const Words before = plc->holding(410, 2);
    QTRY_VERIFY(plc->holding(410, 2) != before);
}

void tst_ModbusChain::negativeLongValuesArriveAsZero()
{
    QVERIFY(control(QStringLiteral("do=set&core.106=-5&core.412=-1500&core.100=1")));
    QVERIFY(await({{100, {1, 60000, 0x1234, 0x5678, 0x042C, 0x4DB9, 0, 0}}, {412, {0, 0}}}));
}

void tst_ModbusChain::burstsAndSilentClients()
{
    QTcpSocket silent;
    silent.connectToHost(QStringLiteral("192.168.7.1"), 502);
    QVERIFY(silent.waitForConnected());
    for (int round = 1; round <= 3; ++round) {
        QVERIFY(control(QStringLiteral("do=set&core.400=%1&core.401=%1&core.402=%1").arg(round)));
        QVERIFY(control(QStringLiteral("do=burst&count=10")));
        const Words target(3, quint16(round));
        Words words;
        QTRY_VERIFY2((words = plc->holding(400, 3)) == target, qPrintable(plc->problem()));
        // A frame's values change together: what is read is the same in all three registers, once it was so
        // at all.
        QVERIFY(control(QStringLiteral("do=set&core.400=%1&core.401=%1&core.402=%1").arg(100 + round)));
        const QDeadlineTimer limit(patience);
        while (words.value(0) != 100 + round && !limit.hasExpired()) {
            words = plc->holding(400, 3);
            QCOMPARE(words, Words(3, words.value(0)));
            QCoreApplication::processEvents();
        }
        QCOMPARE(words.value(0), quint16(100 + round));
    }
    QCOMPARE(silent.state(), QAbstractSocket::ConnectedState);
}

void tst_ModbusChain::everyValueReachesAPlcOnASerialLine()
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
        QStringLiteral("varnel-modbus-server: serving 50 registers on rtu /tmp/server-port 19200 8N1 id 7")));
    plc = ModbusClient::rtu(SerialLine::plcPort(), 19200, 7);
    QVERIFY2(plc->connect(), qPrintable(plc->problem()));
    QVERIFY(await(firstWords));
}

void tst_ModbusChain::killedServerComesBackByItself()
{
    QVERIFY(ModbusBench::killServer());
    QVERIFY(bench->bus().log().await(QStringLiteral(
        "varnel-modbus-server: the last run was started and not stopped, serving its tables again")));
    plc = ModbusClient::tcp(502, "192.168.7.1");
    QTRY_VERIFY2(plc->connect(), qPrintable(plc->problem()));
    QVERIFY(await(firstWords));
}

void tst_ModbusChain::lostControllerLeavesTheLastValues()
{
    controller.reset();
    QVERIFY(panel->log().await(QRegularExpression(QStringLiteral("^No packet received within"))));
    // The client reads an old value: the controller's last one.
    QVERIFY(await(firstWords));
    // A panel that starts again starts the server afresh: nothing is known of the controller yet.
    QCOMPARE(panel->stop(), 0);
    QVERIFY(panel->startAndBind());
    plc = ModbusClient::tcp(502, "192.168.7.1");
    QVERIFY2(plc->connect(), qPrintable(plc->problem()));
    QCOMPARE(plc->holding(100, 8), Words(8, 0));
}

QTEST_GUILESS_MAIN(tst_ModbusChain)
#include "tst_modbuschain.moc"
