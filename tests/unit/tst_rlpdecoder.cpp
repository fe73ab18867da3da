// SPDX-License-Identifier: MIT
#include <QElapsedTimer>
#include <QTest>

#include "exposeddecoder.h"
#include "frame.h"

using namespace Varnel;

/// The walk over the sections of an accepted frame.
class tst_RlpDecoder : public QObject
{
    Q_OBJECT

private slots:
    void getBytes();
    void walk_data();
    void walk();
    void lastRecordOfAKindCounts();
    void coreNotLastLeavesTheItems();
    void oneFramesRecordsDoNotReachTheNext();
    void endlessLookingFramesEnd_data();
    void endlessLookingFramesEnd();
};

namespace {

QByteArray devInfo()
{
    return hex("10 00 | 1c 00 | 01 00 | 02 00 | 03 00 | 04 00 | 05 00 | 06 00 | 07 00 00 00 |"
               "66 72 00 00 00 00 00 00");
}

QByteArray gpioState(const char* octets = "01 00 02 03")
{
    return hex("20 00 | 08 00 |") + hex(octets);
}

QByteArray netCfg()
{
    return hex("30 00 | 1a 00 | 01 00 | c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | c0 a8 01 02 | c0 a8 01 03");
}

QByteArray snmpCfg()
{
    return section(0x40, QByteArray(576, '\0'));
}

QByteArray modbusCfg()
{
    return hex("60 00 | 08 00 | 01 00 | f6 01");
}

QByteArray core()
{
    return section(0x80, coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(5, 6, 7, 8, hex("01 02 03 04")));
}

const QString tooShort = QStringLiteral("Payload too short. Drop remaining bytes");
const QString exceeds = QStringLiteral("Section length exceed frame length. Skip section");
const QString unknown = QStringLiteral("Unknown section type. Skip section");
const QString decodeError = QStringLiteral("Decode error");
const QString sizeMismatch = QStringLiteral("Payload size mismatch");
const QString decoderTooShort = QStringLiteral("Too short");

QString mismatch(const char* kind, int size)
{
    return QStringLiteral("%1 section length mismatch ( %2 )").arg(QLatin1String(kind)).arg(size);
}

} // namespace

void tst_RlpDecoder::getBytes()
{
    QByteArray data = hex("00 11 22 33 44");
    QCOMPARE(RlpDecoder::getBytes(&data, 1, 3), hex("33 22 11"));
    QCOMPARE(RlpDecoder::getBytesReverse(&data, 1, 3), hex("11 22 33"));
    QCOMPARE(RlpDecoder::getBytes(&data, 4, 1), hex("44"));
    QCOMPARE(RlpDecoder::getBytes(&data, 0, 0), QByteArray());
    // Cut to what is there.
    QCOMPARE(RlpDecoder::getBytes(&data, 3, 4), hex("44 33"));
    QCOMPARE(RlpDecoder::getBytesReverse(&data, 3, 65535), hex("33 44"));
    QCOMPARE(RlpDecoder::getBytes(&data, 5, 1), QByteArray());
    QCOMPARE(RlpDecoder::getBytesReverse(&data, 65535, 65535), QByteArray());
    QCOMPARE(data, hex("00 11 22 33 44"));
}

void tst_RlpDecoder::walk_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QString>("decoded");
    QTest::addColumn<QStringList>("log");
    const auto row = [](const char* name, const Frame& frame, const char* decoded, const QStringList& log) {
        QTest::newRow(name) << frame.octets() << QString::fromLatin1(decoded) << log;
    };
    using F = Frame;

    row("all kinds: all decode",
        F().add(devInfo()).add(gpioState()).add(netCfg()).add(snmpCfg()).add(modbusCfg()).add(core()),
        "DevInfo GpioState SnmpCfg NetCfg Core ModbusCfg", {});
    row("all kinds backwards: all but Core decode, which is not last",
        F().add(modbusCfg()).add(snmpCfg()).add(netCfg()).add(gpioState()).add(devInfo()),
        "DevInfo GpioState SnmpCfg NetCfg ModbusCfg", {});

    // Budget and count.
    row("count 2, budget for one: the first decodes", F().add(gpioState()).sectionCount(2), "GpioState",
        {tooShort});
    row("count 65535, one section: ends at once", F().add(gpioState()).sectionCount(65535), "GpioState",
        {tooShort});
    row("count 1, two sections: the second is not read", F().add(gpioState()).add(devInfo()).sectionCount(1),
        "GpioState", {});
    row("no octet after the header: too short", F().sectionCount(1), "", {tooShort});
    row("three octets after the header: too short", F().add(hex("20 00 08")), "", {tooShort});
    row("three octets left over: too short", F().add(gpioState()).add(hex("20 00 08")), "GpioState",
        {tooShort});
    row("a header alone: length exceeds", F().add(hex("20 00 08 00")), "", {exceeds, decodeError});

    // Length against budget.
    row("DevInfo cut by one octet: skipped", F().add(devInfo().chopped(1)), "", {exceeds, decodeError});
    row("DevInfo cut, another announced: budget wraps, walk ends",
        F().add(devInfo().chopped(1)).sectionCount(2), "", {exceeds, decodeError, tooShort});
    row("DevInfo of length 65535: skipped with its mismatch",
        F().add(section(0x10, QByteArray(24, 'x'), 65535)), "",
        {exceeds, mismatch("DevInfo", 28), decodeError});
    row("a good one, then one that exceeds: skipped without decode error, the first stays",
        F().add(gpioState()).add(gpioState().chopped(1)), "GpioState", {exceeds});

    // Length against kind.
    row("GpioState of length 9, last: DevInfo wording, rejected", F().add(section(0x20, QByteArray(5, '\1'))),
        "", {mismatch("DevInfo", 8), sizeMismatch, decodeError});
    row("GpioState of length 9: takes 13 octets",
        F().add(section(0x20, QByteArray(5, '\1')) + hex("de ad be ef")).add(netCfg()), "NetCfg",
        {mismatch("DevInfo", 8), sizeMismatch, decodeError});
    row("GpioState of length 7: too short",
        F().add(section(0x20, QByteArray(3, '\1')) + hex("de ad be ef")).add(netCfg()), "NetCfg",
        {mismatch("DevInfo", 8), decoderTooShort, decodeError});
    row("DevInfo of length 29: size mismatch", F().add(section(0x10, QByteArray(25, 'x'))), "",
        {mismatch("DevInfo", 28), sizeMismatch, decodeError});
    row("NetCfg of length 30: size mismatch", F().add(section(0x30, QByteArray(26, 'x'))), "",
        {mismatch("NetCfg", 26), sizeMismatch, decodeError});
    row("NetCfg of length 20: too short", F().add(section(0x30, QByteArray(16, 'x'))), "",
        {mismatch("NetCfg", 26), decoderTooShort, decodeError});
    row("SnmpCfg of length 579: too short", F().add(section(0x40, QByteArray(575, 'x'))), "",
        {mismatch("SnmpCfg", 580), decoderTooShort, decodeError});
    row("SnmpCfg of length 581: size mismatch", F().add(section(0x40, QByteArray(577, 'x'))), "",
        {mismatch("SnmpCfg", 580), sizeMismatch, decodeError});
    row("ModbusCfg of length 12: size mismatch", F().add(section(0x60, QByteArray(8, 'x'))), "",
        {mismatch("ModbusCfg", 8), sizeMismatch, decodeError});
    row("length 0: rejected, goes on by 4", F().add(section(0x60, "", 0)).add(gpioState()), "GpioState",
        {mismatch("ModbusCfg", 8), decoderTooShort, decodeError});

    // Unknown kinds.
    row("0x50 of length 6: skipped by 10 octets",
        F().add(section(0x50, hex("aa bb")) + hex("de ad be ef")).add(gpioState()), "GpioState",
        {unknown, decodeError});
    row("type 0: unknown", F().add(section(0, QByteArray(4, 'x'))), "", {unknown, decodeError});
    row("0x1000, DevInfo in network order: unknown", F().add(section(0x1000, QByteArray(24, 'x'))), "",
        {unknown, decodeError});
    row("unknown and too long: both reasons", F().add(section(0x50, "", 100)), "",
        {exceeds, unknown, decodeError});

    // The count of the last section that decoded serves those that fail.
    row("failed after a good one: goes on by the good one's length",
        F().add(devInfo()).add(section(0x20, QByteArray(5, '\1')) + QByteArray(19, 'x')).add(modbusCfg()),
        "DevInfo ModbusCfg", {mismatch("DevInfo", 8), sizeMismatch, decodeError});
    row("failed after two good ones: by the second's",
        F().add(devInfo())
            .add(netCfg())
            .add(section(0x20, QByteArray(5, '\1')) + QByteArray(17, 'x'))
            .add(modbusCfg()),
        "DevInfo NetCfg ModbusCfg", {mismatch("DevInfo", 8), sizeMismatch, decodeError});
    row("two failed in a row: both by the good one's",
        F().add(modbusCfg())
            .add(section(0x30, hex("aa bb cc dd")))
            .add(section(0x10, hex("aa bb cc dd")))
            .add(gpioState()),
        "GpioState ModbusCfg",
        {mismatch("NetCfg", 26), decoderTooShort, decodeError, mismatch("DevInfo", 28), decoderTooShort,
         decodeError});
    row("unknown between: by its own length",
        F().add(devInfo()).add(section(0x50, "") + hex("00 00 00 00")).add(gpioState()), "DevInfo GpioState",
        {unknown, decodeError});

    // Two of a kind.
    row("good, then bad: not applied", F().add(gpioState()).add(section(0x20, QByteArray(5, '\1'))), "",
        {mismatch("DevInfo", 8), sizeMismatch, decodeError});
    row("bad, then good: applied", F().add(section(0x20, hex("01 02")) + hex("de ad be ef")).add(gpioState()),
        "GpioState", {mismatch("DevInfo", 8), decoderTooShort, decodeError});

    // Where the sections start.
    row("offset 18: four octets are jumped over", F().sectionOffset(18).add(hex("de ad be ef") + gpioState()),
        "GpioState", {});
    row("offset 18, count 2: the budget promises four octets that are not there",
        F().sectionOffset(18).add(hex("de ad be ef") + gpioState()).sectionCount(2), "GpioState", {tooShort});
    row("offset 18, DevInfo cut by four: inside the budget, but not there",
        F().sectionOffset(18).add(hex("de ad be ef") + devInfo().chopped(4)), "",
        {sizeMismatch, decodeError});
    row("offset at the end: nothing to read", F().sectionOffset(22).add(gpioState()), "", {tooShort});
    row("offset 8: header octets are read as a section",
        F().sectionOffset(8)
            .sequence(0x00200001)
            .continuity(0x03000008)
            .add(hex("01 02 00 00 00 00 00 00"))
            .sectionCount(1),
        "GpioState", {});

    // Core takes what is left.
    row("Core alone: decodes", F().add(core()), "Core", {});
    row("Core without items: decodes", F().add(section(0x80, "")), "Core", {});
    row("Core, then another: size mismatch, and the other is misplaced", F().add(core()).add(gpioState()), "",
        {sizeMismatch, decodeError, exceeds, unknown, decodeError});
    row("Core after a good one, then another: goes on by the good one's length",
        F().add(gpioState()).add(section(0x80, hex("00 00 00 00"))).add(modbusCfg()), "GpioState ModbusCfg",
        {sizeMismatch, decodeError});
    row("Core that exceeds: skipped, the walk ends", F().add(section(0x80, hex("00 00"), 7)).sectionCount(2),
        "", {exceeds, decodeError, tooShort});
    row("Core of length 0: size mismatch", F().add(section(0x80, "", 0)), "", {sizeMismatch, decodeError});
    row("offset 18, Core to the end: decodes", F().sectionOffset(18).add(hex("de ad be ef") + core()), "Core",
        {});

    // 16 bits wrap.
    row("unknown of length 65532: an advance of 0 stays in place",
        F().add(section(0x50, "", 65532)).sectionCount(3), "",
        {exceeds, unknown, decodeError, exceeds, unknown, decodeError, exceeds, unknown, decodeError});
    row("unknown of length 65524: goes back by 8 octets",
        F().add(gpioState()).add(section(0x50, "", 65524)).sectionCount(4), "GpioState",
        {exceeds, unknown, decodeError, exceeds, unknown, decodeError});
}

void tst_RlpDecoder::walk()
{
    QFETCH(QByteArray, datagram);
    QFETCH(QString, decoded);
    ExposedDecoder decoder;
    const Outcome outcome = receive(decoder, datagram);
    QVERIFY2(outcome.accepted, qPrintable(outcome.log.join(QLatin1Char('\n'))));
    QTEST(outcome.log, "log");
    QCOMPARE(outcome.decoded().join(QLatin1Char(' ')), decoded);
}

void tst_RlpDecoder::lastRecordOfAKindCounts()
{
    ExposedDecoder decoder;
    const Outcome outcome =
        receive(decoder, Frame().add(gpioState("01 01 01 01")).add(gpioState("02 03 00 01")).octets());
    QVERIFY(outcome.frame.hasGpioState);
    QCOMPARE(outcome.frame.gpiostate.good, quint8(2));
    QCOMPARE(outcome.frame.gpiostate.warning, quint8(3));
    QCOMPARE(outcome.frame.gpiostate.critical, quint8(0));
    QCOMPARE(outcome.frame.gpiostate.buzzer, quint8(1));
}

void tst_RlpDecoder::coreNotLastLeavesTheItems()
{
    ExposedDecoder decoder;
    QVERIFY(receive(decoder, Frame().add(core()).octets()).frame.hasCore);
    QCOMPARE(decoder.items().size(), 2);
    const Outcome outcome = receive(decoder, Frame(2).add(core()).add(gpioState()).octets());
    QVERIFY(!outcome.frame.hasCore);
    QCOMPARE(decoder.items().size(), 2);
    // The refused list is a warning, not a debug line.
    const LogRecorder log;
    QByteArray payload = hex("80 00 06 00 00 00 00");
    int consumed = -1;
    QVERIFY(!decoder.handleSectionCore(0x80, 6, &payload, &decoder.m_itemList, &consumed));
    QCOMPARE(log.lines().constFirst().type, QtWarningMsg);
}

void tst_RlpDecoder::oneFramesRecordsDoNotReachTheNext()
{
    ExposedDecoder decoder;
    QCOMPARE(receive(decoder, Frame().add(devInfo()).add(netCfg()).octets()).decoded().size(), 2);
    const Outcome next = receive(decoder, Frame(2).add(gpioState()).octets());
    QCOMPARE(next.decoded(), QStringList{QStringLiteral("GpioState")});
    // Nor does the count of octets consumed: the failed section goes on by its own length.
    const Outcome failed = receive(
        decoder,
        Frame().sequence(3).add(section(0x20, hex("01 02")) + hex("de ad be ef")).add(modbusCfg()).octets());
    QCOMPARE(failed.decoded(), QStringList{QStringLiteral("ModbusCfg")});
}

void tst_RlpDecoder::endlessLookingFramesEnd_data()
{
    QTest::addColumn<QByteArray>("sections");
    QTest::newRow("advance 0: ends with the count") << section(0x50, "", 65532);
    QTest::newRow("back and forth: ends with the count") << gpioState() + section(0x50, "", 65524);
}

void tst_RlpDecoder::endlessLookingFramesEnd()
{
    QFETCH(QByteArray, sections);
    ExposedDecoder decoder;
    QElapsedTimer clock;
    clock.start();
    const Outcome outcome = receive(decoder, Frame().add(sections).sectionCount(65535).octets());
    QVERIFY(outcome.accepted);
    QVERIFY2(clock.elapsed() < 30000, qPrintable(QString::number(clock.elapsed())));
    QVERIFY(outcome.log.size() <= 3 * 65535);
}

QTEST_GUILESS_MAIN(tst_RlpDecoder)
#include "tst_rlpdecoder.moc"
