// SPDX-License-Identifier: MIT
#include <QtEndian>

#include "exposeddecoder.h"
#include "frame.h"
#include "rows.h"

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

const QHostAddress controller("192.168.7.2"_s);
const QHostAddress stranger("192.168.7.3"_s);

const QString badMagic = "Not a RLP magic number. Drop frame"_s;
const QString badVersion = "Unknown RLP version"_s;
const QString badLength = "Payload length mismatch. Drop frame"_s;
const QString badOffset = "Section offset out of range. Drop frame"_s;
const QString badCount = "Section count mismatch section payload length. Drop frame"_s;
const QString badContinuity = "Out of the continuum. Drop frame"_s;
const QString badSender =
    "Packet received from an unknown sender ( \"192.168.7.3\" , attended  \"192.168.7.2\" )"_s;

/// The checksum line for a datagram, with values that it contains or that are computed bit by bit.
QString badChecksum(const QByteArray& octets)
{
    const quint16 received =
        octets.size() < 2 ? quint16(0) : qFromLittleEndian<quint16>(octets.right(2).constData());
    const quint16 computed = kermit(octets.size() < 2 ? octets : octets.left(octets.size() - 2));
    return "Invalid checksum (0x \"%1\"  != 0x \"%2\" ). Drop frame"_s.arg(QString::number(received, 16),
                                                                           QString::number(computed, 16));
}

/// A frame with sections of every kind.
const QByteArray everyKind =
    Frame(42).add(devInfo).add(gpio).add(snmpCfg).add(netCfg).add(modbusCfg).add(core).octets();

} // namespace

/// The checks of a whole frame, in their order, each with its reason in the log; and the walk over the
/// sections of an accepted one.
class tst_RlpDecoder : public QObject
{
    Q_OBJECT

private slots:
    void builderAgreesWithACapture()
    {
        // Put down by hand: every field, the checksum from a published CRC-16/KERMIT calculator's algorithm.
        const QByteArray head = hex("ce | 01 | 16 00 | 0e 00 | 01 00 | 07 00 00 00 | 01 00 00 00"
                                    "| 20 00 08 00 01 00 02 03");
        QCOMPARE(Frame(7).add(gpio).unsealed(), head);
        QCOMPARE(Frame(7).add(gpio).octets().size(), head.size() + 2);
    }

    void acceptedFrame()
    {
        ExposedDecoder decoder;
        const QByteArray datagram = Frame(0x01020304).add(gpio).octets();
        const Outcome outcome = receive(decoder, datagram);
        QVERIFY(outcome.accepted);
        QCOMPARE(outcome.log, QStringList());
        QCOMPARE(outcome.header.payloadLength, quint16(22));
        QCOMPARE(outcome.header.sectionOffset, quint16(14));
        QCOMPARE(outcome.header.sectionCount, quint16(1));
        QCOMPARE(outcome.header.seqno, quint32(0x01020304));
        QCOMPARE(outcome.frame.seqno, quint32(0x01020304));
        QCOMPARE(outcome.remaining, datagram.chopped(2));
        // The checks change nothing that is kept; recording is the owner's business.
        QCOMPARE(decoder.lastSeqno, 0U);
        QVERIFY(!decoder.hasPacketSender);
        QVERIFY(decoder.packetSender.isNull());
    }

    void drops_data()
    {
        const Rows<QByteArray, QStringList> row("datagram", "reasons");
        const auto frame = [] { return Frame().add(gpio); };
        row("magic 0", frame().magic(0).octets(), {badMagic});
        const QByteArray wrong = frame().unsealed() + hex("12 34");
        row("checksum wrong", wrong, {badChecksum(wrong)});
        const QByteArray zero = frame().unsealed() + hex("00 00");
        row("checksum zero: printed without leading zeros", zero, {badChecksum(zero)});
        QByteArray bigEndian = frame().octets();
        std::swap(bigEndian.data()[bigEndian.size() - 1], bigEndian.data()[bigEndian.size() - 2]);
        row("checksum in network order", bigEndian, {badChecksum(bigEndian)});
        // The sender computed it over the whole datagram, its own two octets (still zero) included.
        const QByteArray whole =
            frame().unsealed() + littleEndian16(kermit(frame().unsealed() + hex("00 00")));
        row("checksum over its own octets too", whole, {badChecksum(whole)});
        row("version 0", frame().version(0).octets(), {badVersion});
        row("version 2", frame().version(2).octets(), {badVersion});
        row("payload length one less", frame().payloadLength(21).octets(), {badLength, "21"_s});
        row("payload length one more", frame().payloadLength(23).octets(), {badLength, "23"_s});
        // A checksum over octets and their checksum is 0.
        row("two zeros more: the checksum is right", frame().octets() + hex("00 00"), {badLength, "22"_s});
        row("section offset 7", frame().sectionOffset(7).octets(), {badOffset, "7  <  8"_s, "7  >  22"_s});
        row("section offset beyond the payload", frame().sectionOffset(23).octets(),
            {badOffset, "23  <  8"_s, "23  >  22"_s});
        row("no section, payload beyond 8", frame().sectionCount(0).octets(), {badCount, "0  :  22"_s});
        row("no section, payload of 9", sealed(hex("ce 01 | 09 00 | 08 00 | 00 00 | 00 00 00")),
            {badCount, "0  :  9"_s});
        row("no section, payload of 8", sealed(hex("ce 01 | 08 00 | 08 00 | 00 00 | 00 00")),
            {"No section to process. Drop frame"_s, "0"_s});
        row("continuity zero", frame().continuity(0).octets(), {badContinuity});

        row("empty: no magic", {}, {badMagic});
        row("one octet, wrong: no magic", hex("00"), {badMagic});
        row("one octet, magic: no checksum", hex("ce"), {badChecksum(hex("ce"))});
        row("two octets: checksum", hex("ce 01"),
            {"Invalid checksum (0x \"1ce\"  != 0x \"0\" ). Drop frame"_s});
        row("three octets: checksum", hex("ce 01 02"), {badChecksum(hex("ce 01 02"))});
        row("magic, sealed: no version", sealed(hex("ce")), {badVersion});
        row("magic and version, sealed: no offset", sealed(hex("ce 01")),
            {badOffset, "0  <  8"_s, "0  >  0"_s});
        row("half a length, sealed: mismatch", sealed(hex("ce 01 | 01")), {badLength, "0"_s});
        row("up to the count, sealed: offset beyond the payload",
            sealed(hex("ce 01 | 06 00 | 08 00 | 01 00")), {badOffset, "8  <  8"_s, "8  >  6"_s});
        row("up to half the sequence, sealed: no continuity",
            sealed(hex("ce 01 | 08 00 | 08 00 | 01 00 | 07 00")), {badContinuity});
        row("three octets of continuity, sealed: none",
            sealed(hex("ce 01 | 0d 00 | 08 00 | 01 00 | 07 00 00 00 | 01 01 01")), {badContinuity});

        // A frame with two defects is reported with the first in the order of the checks.
        row("version and payload length wrong: version", frame().version(2).payloadLength(1).octets(),
            {badVersion});
        row("payload length and section offset wrong: payload length",
            frame().payloadLength(1).sectionOffset(0).octets(), {badLength, "1"_s});
        row("section offset and count wrong: section offset",
            frame().sectionOffset(0).sectionCount(0).octets(), {badOffset, "0  <  8"_s, "0  >  22"_s});
        row("section count and continuity wrong: section count",
            frame().sectionCount(0).continuity(0).octets(), {badCount, "0  :  22"_s});
        row("continuity and sequence wrong: continuity", frame().continuity(0).sequence(0).octets(),
            {badContinuity});
    }

    void drops()
    {
        QFETCH(QByteArray, datagram);
        ExposedDecoder decoder;
        decoder.m_itemList.append(core_tmp());
        const Outcome outcome = receive(decoder, datagram);
        QVERIFY(!outcome.accepted);
        QTEST(outcome.log, "reasons");
        QCOMPARE(decoder.lastSeqno, 0U);
        QVERIFY(!decoder.hasPacketSender);
        QCOMPARE(decoder.items().size(), 1);
    }

    void sequence_data()
    {
        const Rows<quint32, quint32, bool, QStringList> row("last", "sequence", "accepted", "log");
        row("0 first: a repetition", 0, 0, false, {"Repeated packet. Drop frame ( 0  =  0 )"_s});
        row("9 after 9: a repetition", 9, 9, false, {"Repeated packet. Drop frame ( 9  =  9 )"_s});
        row("10 after 9: accepted", 9, 10, true, {});
        row("5 after 9: a reboot, accepted", 9, 5, true,
            {"Back in the sequence, probable reboot of the RxM ( 5  <  9 )"_s});
        row("5000 after 9: a gap is not noticed", 9, 5000, true, {});
        row("compared unsigned: forward", 0x7FFFFFFF, 0x80000000, true, {});
        row("compared unsigned: back", 0xFFFFFFFF, 1, true,
            {"Back in the sequence, probable reboot of the RxM ( 1  <  4294967295 )"_s});
    }

    void sequence()
    {
        QFETCH(quint32, last);
        QFETCH(quint32, sequence);
        ExposedDecoder decoder;
        decoder.lastSeqno = last;
        const Outcome outcome = receive(decoder, Frame(sequence).add(gpio).octets());
        QTEST(outcome.accepted, "accepted");
        QTEST(outcome.log, "log");
        QCOMPARE(decoder.lastSeqno, last);
    }

    void sender_data()
    {
        const Rows<bool, bool, QByteArray, QStringList> row("registered", "isStranger", "datagram", "log");
        const QByteArray good = Frame().add(gpio).octets();
        row("no controller registered: any sender accepted", false, true, good, {});
        row("the registered one: accepted", true, false, good, {});
        row("another: dropped", true, true, good, {badSender});
        row("another, and no magic: magic first", true, true, hex("00"), {badMagic});
        row("another, and no checksum: sender first", true, true, hex("ce"), {badSender});
    }

    void sender()
    {
        QFETCH(bool, registered);
        QFETCH(bool, isStranger);
        QFETCH(QByteArray, datagram);
        QFETCH(QStringList, log);
        ExposedDecoder decoder;
        decoder.hasPacketSender = registered;
        decoder.packetSender = controller;
        const Outcome outcome = receive(decoder, datagram, isStranger ? stranger : controller);
        QCOMPARE(outcome.accepted, log.isEmpty());
        QCOMPARE(outcome.log, log);
        QCOMPARE(decoder.hasPacketSender, registered);
        QCOMPARE(decoder.packetSender, controller);
    }

    void everyCutAndEveryFlippedBitIsNoticed()
    {
        ExposedDecoder decoder;
        const QByteArray& datagram = everyKind;
        QVERIFY(receive(decoder, datagram).accepted);
        const auto isDropped = [&decoder](const QByteArray& octets) {
            const Outcome outcome = receive(decoder, octets);
            return !outcome.accepted && outcome.remaining == octets && outcome.log.size() == 1;
        };
        for (int length = 0; length < datagram.size(); ++length) {
            QVERIFY2(isDropped(datagram.left(length)), qPrintable(QString::number(length)));
        }
        for (int bit = 0; bit < datagram.size() * 8; ++bit) {
            QByteArray flipped = datagram;
            flipped[bit / 8] = static_cast<char>(flipped.at(bit / 8) ^ (1 << (bit % 8)));
            QVERIFY2(isDropped(flipped), qPrintable(QString::number(bit)));
        }
    }

    /// The sanitizers see a read past the end of what is left.
    void cutFramesThatAreSealedAreReadToTheirEnd()
    {
        const QByteArray& whole = everyKind;
        for (int length = 4; length <= whole.size() - 2; ++length) {
            ExposedDecoder decoder;
            QByteArray cut = whole.left(length);
            cut.replace(2, 2, littleEndian16(quint16(length - 2)));
            const Outcome outcome = receive(decoder, sealed(cut));
            QCOMPARE(outcome.accepted, length >= 16);
            QCOMPARE(outcome.log.isEmpty(), length == whole.size() - 2);
        }
    }

    void largestDatagram()
    {
        // The largest UDP datagram over IPv4: 65507 octets.
        ExposedDecoder decoder;
        const QByteArray body(65507 - 16 - 4 - 2, '\x5a');
        const QByteArray datagram = Frame().add(section(0x50, body)).octets();
        QCOMPARE(datagram.size(), 65507);
        const Outcome outcome = receive(decoder, datagram);
        QVERIFY(outcome.accepted);
        QCOMPARE(outcome.log, QStringList({"Unknown section type. Skip section"_s, "Decode error"_s}));
    }

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
        const Rows<QByteArray, QStringList, QStringList> add("datagram", "decoded", "log");
        const auto row = [&add](const char* name, const Frame& frame, const QStringList& decoded,
                                const QStringList& log) { add(name, frame.octets(), decoded, log); };
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
