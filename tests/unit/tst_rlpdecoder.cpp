// SPDX-License-Identifier: MIT
#include <QTest>

#include "exposeddecoder.h"
#include "frame.h"
#include "literals.h"

using namespace Varnel;

namespace {

const QByteArray devInfo = devInfoSection();
const QByteArray netCfg = netCfgSection();
const QByteArray snmpCfg = snmpCfgSection();
const QByteArray modbusCfg = modbusCfgSection();
const QByteArray gpio = gpioSection(1, 0, 2, 3);
const QByteArray core =
    section(Core, coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(5, 6, 7, 8, hex("01 02 03 04")));

const QString tooShort = "Payload too short. Drop remaining bytes"_s;
const QString exceeds = "Section length exceed frame length. Skip section"_s;
const QString unknown = "Unknown section type. Skip section"_s;
const QString decodeError = "Decode error"_s;
const QString sizeMismatch = "Payload size mismatch"_s;
const QString decoderTooShort = "Too short"_s;

QString mismatch(const char* kind, int size)
{
    return "%1 section length mismatch ( %2 )"_s.arg(QLatin1String(kind)).arg(size);
}

} // namespace

/// The walk over the sections of an accepted frame.
class tst_RlpDecoder : public QObject
{
    Q_OBJECT

private slots:
    void getBytes()
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

    void walk_data()
    {
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<QStringList>("decoded");
        QTest::addColumn<QStringList>("log");
        const auto row = [](const char* name, const Frame& frame, const QStringList& decoded,
                            const QStringList& log) {
            QTest::newRow(name) << frame.octets() << decoded << log;
        };
        using F = Frame;
        const QStringList none;
        const QStringList gpioAlone{"GpioState"_s};
        // Four octets follow a section that its decoder refuses: the walk goes on behind them.
        const QByteArray four = hex("de ad be ef");
        const QByteArray longGpio = section(0x20, QByteArray(5, '\1'));
        const QByteArray shortGpio = section(0x20, QByteArray(3, '\1'));
        const QStringList gpioTooLong{mismatch("DevInfo", 8), sizeMismatch, decodeError};
        const QStringList gpioTooShort{mismatch("DevInfo", 8), decoderTooShort, decodeError};

        row("all kinds: all decode",
            F().add(devInfo).add(gpio).add(netCfg).add(snmpCfg).add(modbusCfg).add(core),
            "DevInfo GpioState SnmpCfg NetCfg Core ModbusCfg"_words, {});
        row("all kinds backwards: all but Core decode, which is not last",
            F().add(modbusCfg).add(snmpCfg).add(netCfg).add(gpio).add(devInfo),
            "DevInfo GpioState SnmpCfg NetCfg ModbusCfg"_words, {});

        // Budget and count.
        row("count 65535, one section: ends at once", F().add(gpio).sectionCount(65535), gpioAlone,
            {tooShort});
        row("count 1, two sections: the second is not read", F().add(gpio).add(devInfo).sectionCount(1),
            gpioAlone, {});
        row("no octet after the header: too short", F().sectionCount(1), none, {tooShort});
        row("three octets left over: too short", F().add(gpio).add(hex("20 00 08")), gpioAlone, {tooShort});
        row("a header alone: length exceeds", F().add(hex("20 00 08 00")), none, {exceeds, decodeError});

        // Length against budget.
        row("DevInfo cut, another announced: skipped, budget wraps, walk ends",
            F().add(devInfo.chopped(1)).sectionCount(2), none, {exceeds, decodeError, tooShort});
        row("DevInfo of length 65535: skipped with its mismatch",
            F().add(section(0x10, QByteArray(24, 'x'), 65535)), none,
            {exceeds, mismatch("DevInfo", 28), decodeError});
        row("a good one, then one that exceeds: skipped without decode error, the first stays",
            F().add(gpio).add(gpio.chopped(1)), gpioAlone, {exceeds});

        // Length against kind.
        row("GpioState of length 9, last: DevInfo wording, rejected", F().add(longGpio), none, gpioTooLong);
        row("GpioState of length 9: takes 13 octets", F().add(longGpio + four).add(netCfg), {"NetCfg"_s},
            gpioTooLong);
        row("GpioState of length 7: too short", F().add(shortGpio + four).add(netCfg), {"NetCfg"_s},
            gpioTooShort);
        row("DevInfo of length 29: size mismatch", F().add(section(0x10, QByteArray(25, 'x'))), none,
            {mismatch("DevInfo", 28), sizeMismatch, decodeError});
        row("NetCfg of length 20: too short", F().add(section(0x30, QByteArray(16, 'x'))), none,
            {mismatch("NetCfg", 26), decoderTooShort, decodeError});
        row("SnmpCfg of length 581: size mismatch", F().add(section(0x40, QByteArray(577, 'x'))), none,
            {mismatch("SnmpCfg", 580), sizeMismatch, decodeError});
        row("ModbusCfg of length 0: rejected, goes on by 4", F().add(section(0x60, "", 0)).add(gpio),
            gpioAlone, {mismatch("ModbusCfg", 8), decoderTooShort, decodeError});

        // Unknown kinds.
        row("0x50 of length 6: skipped by 10 octets", F().add(section(0x50, "xx") + four).add(gpio),
            gpioAlone, {unknown, decodeError});
        row("0x1000, DevInfo in network order: unknown", F().add(section(0x1000, QByteArray(24, 'x'))), none,
            {unknown, decodeError});
        row("unknown and too long: both reasons", F().add(section(0x50, "", 100)), none,
            {exceeds, unknown, decodeError});

        // The count of the last section that decoded serves those that fail.
        row("failed after two good ones: goes on by the second's length",
            F().add(devInfo).add(netCfg).add(longGpio + QByteArray(17, 'x')).add(modbusCfg),
            "DevInfo NetCfg ModbusCfg"_words, gpioTooLong);
        row("two failed in a row: both by the good one's",
            F().add(modbusCfg).add(shortGpio + "x").add(shortGpio + "x").add(netCfg),
            "NetCfg ModbusCfg"_words, gpioTooShort + gpioTooShort);
        row("unknown between: by its own length", F().add(devInfo).add(section(0x50, "") + four).add(gpio),
            "DevInfo GpioState"_words, {unknown, decodeError});

        // Two of a kind.
        row("good, then bad: not applied", F().add(gpio).add(longGpio), none, gpioTooLong);
        row("bad, then good: applied", F().add(shortGpio + four).add(gpio), gpioAlone, gpioTooShort);

        // Where the sections start.
        row("offset 18: four octets are jumped over", F().sectionOffset(18).add(four + gpio), gpioAlone, {});
        row("offset 18, count 2: the budget promises four octets that are not there",
            F().sectionOffset(18).add(four + gpio).sectionCount(2), gpioAlone, {tooShort});
        row("offset 18, DevInfo cut by four: inside the budget, but not there",
            F().sectionOffset(18).add(four + devInfo.chopped(4)), none, {sizeMismatch, decodeError});
        row("offset at the end: nothing to read", F().sectionOffset(22).add(gpio), none, {tooShort});
        row("offset 8: header octets are read as a section",
            F(0x00200001).sectionOffset(8).continuity(0x03000008).add(hex("01 02 00 00 00 00 00 00")),
            gpioAlone, {});

        // Core takes what is left.
        row("Core without items: decodes", F().add(section(0x80, "")), {"Core"_s}, {});
        row("Core, then another: size mismatch, and the other is misplaced", F().add(core).add(gpio), none,
            {sizeMismatch, decodeError, exceeds, unknown, decodeError});
        row("Core after a good one, then another: goes on by the good one's length",
            F().add(gpio).add(section(0x80, four)).add(modbusCfg), "GpioState ModbusCfg"_words,
            {sizeMismatch, decodeError});
        row("Core that exceeds: skipped, the walk ends", F().add(section(0x80, "xx", 7)).sectionCount(2),
            none, {exceeds, decodeError, tooShort});
        row("Core of length 0: size mismatch", F().add(section(0x80, "", 0)), none,
            {sizeMismatch, decodeError});
        row("offset 18, Core to the end: decodes", F().sectionOffset(18).add(four + core), {"Core"_s}, {});

        // 16 bits wrap.
        const QStringList reasons{exceeds, unknown, decodeError};
        row("unknown of length 65532: an advance of 0 stays in place",
            F().add(section(0x50, "", 65532)).sectionCount(3), none, reasons + reasons + reasons);
        row("unknown of length 65524: goes back by 8 octets",
            F().add(gpio).add(section(0x50, "", 65524)).sectionCount(4), gpioAlone, reasons + reasons);
    }

    void walk()
    {
        QFETCH(QByteArray, datagram);
        ExposedDecoder decoder;
        const Outcome outcome = receive(decoder, datagram);
        QVERIFY2(outcome.accepted, qPrintable(outcome.log.join(QLatin1Char('\n'))));
        QTEST(outcome.log, "log");
        QTEST(outcome.decoded(), "decoded");
    }

    void lastRecordOfAKindCounts()
    {
        ExposedDecoder decoder;
        const QByteArray datagram = Frame().add(gpio).add(gpioSection(1, 3, 2, 0)).octets();
        QCOMPARE(receive(decoder, datagram).frame.gpiostate.warning, quint8(3));
    }

    void coreNotLastLeavesTheItems()
    {
        ExposedDecoder decoder;
        QVERIFY(receive(decoder, Frame().add(core).octets()).frame.hasCore);
        QCOMPARE(decoder.items().size(), 2);
        const Outcome outcome = receive(decoder, Frame(2).add(core).add(gpio).octets());
        QVERIFY(!outcome.frame.hasCore);
        QCOMPARE(decoder.items().size(), 2);
        // The refused list is a warning, not a debug line.
        const LogRecorder log;
        QByteArray payload = hex("80 00 06 00 00 00 00");
        int consumed = -1;
        QVERIFY(!decoder.handleSectionCore(0x80, 6, &payload, &decoder.m_itemList, &consumed));
        QCOMPARE(log.lines().constFirst().type, QtWarningMsg);
    }

    void oneFramesRecordsDoNotReachTheNext()
    {
        ExposedDecoder decoder;
        QCOMPARE(receive(decoder, Frame().add(devInfo).add(netCfg).octets()).decoded().size(), 2);
        QCOMPARE(receive(decoder, Frame(2).add(gpio).octets()).decoded(), QStringList{"GpioState"_s});
        // Nor does the count of octets consumed: the failed section goes on by its own length.
        const Frame frame = Frame(3).add(section(0x20, "xx") + "four").add(modbusCfg);
        QCOMPARE(receive(decoder, frame.octets()).decoded(), QStringList{"ModbusCfg"_s});
    }
};

QTEST_GUILESS_MAIN(tst_RlpDecoder)
#include "tst_rlpdecoder.moc"
