// SPDX-License-Identifier: MIT
#include "controllerstate.h"
#include "framefaults.h"

#include <QtTest>

using namespace Simulator;

namespace {

QByteArray hex(const char* digits)
{
    return QByteArray::fromHex(digits);
}

/// A GpioState section: green on, yellow off, red slow, buzzer fast.
QByteArray gpioSection()
{
    return hex("2000 0800 01 00 02 03");
}

} // namespace

/// The checksums in these frames were computed by another program.
class tst_SimulatorFrames : public QObject
{
    Q_OBJECT

private slots:
    void checksum_data();
    void checksum();
    void frame_data();
    void frame();
    void fault_data();
    void fault();
    void oversizedIsTheLargestDatagram();
    void everyFaultIsCovered();
    void field_data();
    void field();
    void refusedField_data();
    void refusedField();
    void sectionLengths();
};

void tst_SimulatorFrames::checksum_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<int>("expected");

    QByteArray all;
    for (int octet = 0; octet < 256; ++octet) {
        all.append(char(octet));
    }
    QTest::newRow("nothing") << QByteArray() << 0;
    QTest::newRow("one zero octet") << QByteArray(1, '\0') << 0;
    QTest::newRow("published check value") << QByteArray("123456789") << 0x2189;
    QTest::newRow("every octet once") << all << 0xD841;
}

void tst_SimulatorFrames::checksum()
{
    QFETCH(QByteArray, octets);
    QTEST(int(crcKermit(octets)), "expected");
}

void tst_SimulatorFrames::frame_data()
{
    QTest::addColumn<quint32>("sequence");
    QTest::addColumn<QList<QByteArray>>("sections");
    QTest::addColumn<QByteArray>("expected");

    const QByteArray devInfo = hex("1000 1c00 0700 0200 0100 0300 0400 0002 b94d2c04 6672000000000000");
    const QByteArray core = hex("8000 0e00 0300 0100 02 04 0200 3412");
    // magic, version | payload length | section offset | count | sequence | continuity | sections | checksum
    QTest::newRow("no section") << 1U << QList<QByteArray>{}
                                << hex("ce 01 0e00 0e00 0000 01000000 01000000 81e7");
    QTest::newRow("GpioState") << 7U << QList<QByteArray>{gpioSection()}
                               << hex("ce 01 1600 0e00 0100 07000000 01000000 2000080001000203 9646");
    QTest::newRow("DevInfo, then GpioState")
        << 0x01020304U << QList<QByteArray>{devInfo, gpioSection()}
        << hex("ce 01 3200 0e00 0200 04030201 01000000"
               "10001c00070002000100030004000002b94d2c046672000000000000 2000080001000203 045a");
    QTest::newRow("Core") << 2U << QList<QByteArray>{core}
                          << hex("ce 01 1c00 0e00 0100 02000000 01000000 80000e0003000100020402003412 dfcd");
}

void tst_SimulatorFrames::frame()
{
    QFETCH(quint32, sequence);
    QFETCH(QList<QByteArray>, sections);
    FrameParts parts;
    parts.sequence = sequence;
    parts.sections = sections;
    QFETCH(QByteArray, expected);
    QCOMPARE(encodeFrame(parts).toHex(), expected.toHex());
}

void tst_SimulatorFrames::fault_data()
{
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("crc") << QByteArray("ce0116000e000100070000000100000020000800010002039746");
    QTest::newRow("magic") << QByteArray("cd0116000e000100070000000100000020000800010002035aab");
    QTest::newRow("version") << QByteArray("ce0216000e00010007000000010000002000080001000203dcd4");
    QTest::newRow("payload-length") << QByteArray("ce0117000e00010007000000010000002000080001000203cbef");
    QTest::newRow("offset-low") << QByteArray("ce01160007000100070000000100000020000800010002031653");
    QTest::newRow("offset-high") << QByteArray("ce0116001a0001000700000001000000200008000100020340be");
    QTest::newRow("zero-sections") << QByteArray("ce0116000e0000000700000001000000200008000100020371be");
    QTest::newRow("no-sections") << QByteArray("ce010e000e000000070000000100000030fa");
    QTest::newRow("many-sections") << QByteArray("ce0116000e00020007000000010000002000080001000203ae47");
    QTest::newRow("continuity") << QByteArray("ce0116000e00010007000000000000002000080001000203c3c3");
    QTest::newRow("sequence-zero") << QByteArray("ce0116000e00010000000000010000002000080001000203d5f4");
    QTest::newRow("unknown-section") << QByteArray(
        "ce011c000e000200070000000100000050000600000020000800010002031da4");
    QTest::newRow("section-length") << QByteArray(
        "ce011e000e000200070000000100000020000900010101012000080001000203580c");
    QTest::newRow("section-overrun") << QByteArray(
        "ce011e000e0002000700000001000000200060ea010101012000080001000203604d");
    QTest::newRow("core-first") << QByteArray(
        "ce0123000e000200070000000100000080000d00010001000001010001200008000100020343e3");
    QTest::newRow("core-overrun") << QByteArray(
        "ce011e000e0001000700000001000000800010000100010000018813443322111ee7");
    QTest::newRow("truncated") << QByteArray("ce0116000e0001000700000001");
    QTest::newRow("tiny") << QByteArray("ce0116");
    QTest::newRow("empty") << QByteArray("");
}

void tst_SimulatorFrames::fault()
{
    FrameParts parts;
    parts.sequence = 7;
    parts.sections = {gpioSection()};
    const FrameFault* fault = findFrameFault(QLatin1String(QTest::currentDataTag()));
    QVERIFY(fault != nullptr);
    QFETCH(QByteArray, expected);
    QCOMPARE(fault->build(parts).toHex(), expected);
}

void tst_SimulatorFrames::oversizedIsTheLargestDatagram()
{
    FrameParts parts;
    parts.sections = {gpioSection()};
    const QByteArray frame = findFrameFault(QStringLiteral("oversized"))->build(parts);
    QCOMPARE(frame.size(), 65507);
    QCOMPARE(frame.left(8).toHex(), QByteArray("ce01dfff0e000200")); // 65503 octets of payload, 2 sections
    QCOMPARE(frame.right(2), littleEndian(crcKermit(frame.chopped(2)), 2));
    const QByteArray garbage = findFrameFault(QStringLiteral("garbage"))->build(parts);
    QCOMPARE(garbage.size(), 200);
    QVERIFY(garbage.at(0) != '\xCE');
}

void tst_SimulatorFrames::everyFaultIsCovered()
{
    QStringList untested;
    for (const FrameFault& fault : frameFaults()) {
        untested.append(QLatin1String(fault.name));
    }
    QFile source(QStringLiteral(VARNEL_SOURCE_DIR "/simulator/tests/tst_simulatorframes.cpp"));
    QVERIFY(source.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(source.readAll());
    for (const QString& name : qAsConst(untested)) {
        QVERIFY2(text.contains(QLatin1Char('"') + name + QLatin1Char('"')), qPrintable(name));
    }
}

void tst_SimulatorFrames::field_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QByteArray>("octets");

    const auto row = [](const char* path, const QJsonValue& value, int offset, const char* octets) {
        QTest::newRow(path) << QString(QLatin1String(path)) << value << offset << hex(octets);
    };
    row("devinfo.type", 0x0102, 4, "0201");
    row("devinfo.hwmajor", 3, 6, "0300");
    row("devinfo.hwminor", 4, 8, "0400");
    row("devinfo.swmajor", 5, 10, "0500");
    row("devinfo.swminor", 6, 12, "0600");
    row("devinfo.swbuild", 65535, 14, "ffff");
    row("devinfo.serial", 4294967295.0, 16, "ffffffff");
    row("devinfo.lang", QStringLiteral("de_CH.u8"), 20, "64655f43482e7538");
    row("gpiostate.good", QStringLiteral("slow"), 4, "02");
    row("gpiostate.warning", QStringLiteral("fast"), 5, "03");
    row("gpiostate.critical", 255, 6, "ff");
    row("gpiostate.buzzer", true, 7, "01");
    row("netcfg.varnel", false, 4, "00");
    row("netcfg.dhcp", QStringLiteral("7"), 5, "07");
    row("netcfg.ip", QStringLiteral("192.168.1.10"), 6, "c0a8010a");
    row("netcfg.mask", QStringLiteral("255.255.254.0"), 10, "fffffe00");
    row("netcfg.gateway", QStringLiteral("10.0.0.1"), 14, "0a000001");
    row("netcfg.dns1", QStringLiteral("255.255.255.255"), 18, "ffffffff");
    row("netcfg.dns2", QStringLiteral("0.0.0.0"), 22, "00000000");
    row("snmpcfg.version", 5, 4, "05");
    row("snmpcfg.cli_mode", 3, 9, "03");
    row("snmpcfg.cli_hash", 1, 10, "01");
    row("snmpcfg.ro_user", QStringLiteral("a\"b $c"), 12, "612262202463000000");
    row("snmpcfg.cli_key", QStringLiteral("k"), 524, "6b00");
    row("snmpcfg.port", 161, 556, "a100");
    row("snmpcfg.port_trap", QStringLiteral("0x1234"), 558, "3412");
    row("snmpcfg.trap_addr5", QStringLiteral("10.0.0.5"), 576, "0a000005");
    row("modbuscfg.tcp_status", QStringLiteral("on"), 4, "0100");
    row("modbuscfg.tcp_port", 1502, 6, "de05");
}

void tst_SimulatorFrames::field()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue, value);
    QFETCH(int, offset);
    QFETCH(QByteArray, octets);
    ControllerState state;
    QCOMPARE(state.set(path, value).refusal.text, QString());
    const QByteArray section = state.section(path.section(QLatin1Char('.'), 0, 0));
    QCOMPARE(section.mid(offset, octets.size()).toHex(), octets.toHex());
}

void tst_SimulatorFrames::refusedField_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QJsonValue>("value");

    QTest::newRow("unknown section") << QStringLiteral("lamp.good") << QJsonValue(1);
    QTest::newRow("unknown field") << QStringLiteral("gpiostate.blue") << QJsonValue(1);
    QTest::newRow("no path") << QString() << QJsonValue(1);
    QTest::newRow("number too large") << QStringLiteral("gpiostate.good") << QJsonValue(256);
    QTest::newRow("negative number") << QStringLiteral("modbuscfg.tcp_port") << QJsonValue(-1);
    QTest::newRow("word for a number")
        << QStringLiteral("modbuscfg.tcp_port") << QJsonValue(QStringLiteral("many"));
    QTest::newRow("three numbers") << QStringLiteral("netcfg.ip") << QJsonValue(QStringLiteral("10.0.1"));
    QTest::newRow("host name") << QStringLiteral("netcfg.ip") << QJsonValue(QStringLiteral("a.b.c.d"));
    QTest::newRow("text of 33 octets")
        << QStringLiteral("snmpcfg.oid") << QJsonValue(QString(33, QLatin1Char('x')));
}

void tst_SimulatorFrames::refusedField()
{
    QFETCH(QString, path);
    QFETCH(QJsonValue, value);
    ControllerState state;
    const QJsonObject before = state.toJson();
    QVERIFY(!state.set(path, value));
    QCOMPARE(state.toJson(), before);
}

void tst_SimulatorFrames::sectionLengths()
{
    const ControllerState state;
    const QMap<QString, QByteArray> heads = {{QStringLiteral("devinfo"), "10001c00"},
                                             {QStringLiteral("gpiostate"), "20000800"},
                                             {QStringLiteral("netcfg"), "30001a00"},
                                             {QStringLiteral("snmpcfg"), "40004402"},
                                             {QStringLiteral("modbuscfg"), "60000800"}};
    const QMap<QString, int> lengths = {{QStringLiteral("devinfo"), 28},
                                        {QStringLiteral("gpiostate"), 8},
                                        {QStringLiteral("netcfg"), 26},
                                        {QStringLiteral("snmpcfg"), 580},
                                        {QStringLiteral("modbuscfg"), 8}};
    for (auto head = heads.begin(); head != heads.end(); ++head) {
        QCOMPARE(state.section(head.key()).size(), lengths.value(head.key()));
        QCOMPARE(state.section(head.key()).left(4).toHex(), head.value());
    }
}

QTEST_GUILESS_MAIN(tst_SimulatorFrames)
#include "tst_simulatorframes.moc"
