// SPDX-License-Identifier: MIT
#include "controllerstate.h"
#include "frame.h"
#include "framefaults.h"
#include "literals.h"
#include "rows.h"

#include <QtTest>

#include <numeric>

using namespace Simulator;

namespace {

FrameParts parts(quint32 sequence = 7, const QList<QByteArray>& sections = {gpioSection(1, 0, 2, 3)})
{
    FrameParts result;
    result.sequence = sequence;
    result.sections = sections;
    return result;
}

QByteArray spoiled(const char* fault)
{
    FrameParts whole = parts();
    return findFrameFault(QLatin1String(fault))->build(whole);
}

} // namespace

/// The checksums in these frames were computed by another program.
class tst_SimulatorFrames : public QObject
{
    Q_OBJECT

private slots:
    void checksum()
    {
        QByteArray all(256, '\0');
        std::iota(all.begin(), all.end(), '\0');
        QCOMPARE(int(crcKermit({})), 0);
        QCOMPARE(int(crcKermit("123456789")), 0x2189); // the published check value
        QCOMPARE(int(crcKermit(all)), 0xD841);
    }

    void frame_data()
    {
        const Rows<quint32, QList<QByteArray>, QByteArray> row("sequence", "sections", "expected");
        const QByteArray devInfo = hex("1000 1c00 0700 0200 0100 0300 0400 0002 b94d2c04 6672000000000000");
        const QByteArray core = hex("8000 0e00 0300 0100 02 04 0200 3412");
        // magic, version | payload length | section offset | count | sequence | continuity | sections |
        // checksum
        row("no section", 1, {}, "ce 01 0e00 0e00 0000 01000000 01000000 81e7");
        row("GpioState", 7, {gpioSection(1, 0, 2, 3)},
            "ce 01 1600 0e00 0100 07000000 01000000 2000080001000203 9646");
        row("DevInfo, then GpioState", 0x01020304, {devInfo, gpioSection(1, 0, 2, 3)},
            "ce 01 3200 0e00 0200 04030201 01000000"
            "10001c00070002000100030004000002b94d2c046672000000000000 2000080001000203 045a");
        row("Core", 2, {core}, "ce 01 1c00 0e00 0100 02000000 01000000 80000e0003000100020402003412 dfcd");
    }

    void frame()
    {
        QFETCH(quint32, sequence);
        QFETCH(QList<QByteArray>, sections);
        QFETCH(QByteArray, expected);
        QCOMPARE(encodeFrame(parts(sequence, sections)).toHex(), hex(expected).toHex());
    }

    void fault_data()
    {
        const Rows<QByteArray> row("expected");
        row("section-overrun", "ce011e000e0002000700000001000000200060ea010101012000080001000203604d");
        row("core-first", "ce0123000e000200070000000100000080000d00010001000001010001200008000100020343e3");
        row("core-overrun", "ce011e000e0001000700000001000000800010000100010000018813443322111ee7");
        row("tiny", "ce0116");
    }

    /// tst_framechecker finds what is wrong, and nothing else, in all others.
    void fault() { QTEST(spoiled(QTest::currentDataTag()).toHex(), "expected"); }

    void oversizedIsTheLargestDatagram()
    {
        const QByteArray frame = spoiled("oversized");
        QCOMPARE(frame.size(), 65507);
        QCOMPARE(frame.left(8).toHex(),
                 QByteArray("ce01dfff0e000200")); // 65503 octets of payload, 2 sections
        QCOMPARE(frame.right(2), littleEndian(crcKermit(frame.chopped(2)), 2));
        const QByteArray garbage = spoiled("garbage");
        QCOMPARE(garbage.size(), 200);
        QVERIFY(garbage.at(0) != '\xCE');
    }

    /// Each kind of value; tst_framechecker holds the place of every field.
    void field_data()
    {
        const Rows<QJsonValue, int, QByteArray> row("value", "offset", "octets");
        row("devinfo.serial", 4294967295.0, 16, "ffffffff");
        row("devinfo.lang", "de_CH.u8"_s, 20, "64655f43482e7538");
        row("gpiostate.good", "slow"_s, 4, "02");
        row("gpiostate.critical", 255, 6, "ff");
        row("gpiostate.buzzer", true, 7, "01");
        row("netcfg.varnel", false, 4, "00");
        row("netcfg.dhcp", "7"_s, 5, "07");
        row("netcfg.ip", "192.168.1.10"_s, 6, "c0a8010a");
        row("snmpcfg.ro_user", "a\"b $c"_s, 12, "612262202463000000");
        row("snmpcfg.port_trap", "0x1234"_s, 558, "3412");
        row("modbuscfg.tcp_status", "on"_s, 4, "0100");
        row("modbuscfg.tcp_port", 1502, 6, "de05");
    }

    void field()
    {
        const QString path = QLatin1String(QTest::currentDataTag());
        QFETCH(QJsonValue, value);
        QFETCH(int, offset);
        QFETCH(QByteArray, octets);
        ControllerState state;
        QCOMPARE(state.set(path, value).refusal.text, QString());
        const QByteArray section = state.section(path.section(QLatin1Char('.'), 0, 0));
        QCOMPARE(section.toHex().mid(2 * offset, octets.size()), octets);
    }

    void refusedField_data()
    {
        const Rows<QString, QJsonValue> row("path", "value");
        row("unknown section", "lamp.good"_s, 1);
        row("unknown field", "gpiostate.blue"_s, 1);
        row("no path", ""_s, 1);
        row("number too large", "gpiostate.good"_s, 256);
        row("negative number", "modbuscfg.tcp_port"_s, -1);
        row("word for a number", "modbuscfg.tcp_port"_s, "many"_s);
        row("three numbers", "netcfg.ip"_s, "10.0.1"_s);
        row("host name", "netcfg.ip"_s, "a.b.c.d"_s);
        row("text of 33 octets", "snmpcfg.oid"_s, QString(33, QLatin1Char('x')));
    }

    void refusedField()
    {
        QFETCH(QString, path);
        QFETCH(QJsonValue, value);
        ControllerState state;
        const QJsonObject before = state.toJson();
        QVERIFY(!state.set(path, value));
        QCOMPARE(state.toJson(), before);
    }
};

QTEST_GUILESS_MAIN(tst_SimulatorFrames)
#include "tst_simulatorframes.moc"
