// SPDX-License-Identifier: MIT
#include <QTest>
#include <QtEndian>

#include "exposeddecoder.h"
#include "frame.h"
#include "literals.h"

using namespace Varnel;

namespace {

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

QByteArray gpio()
{
    return hex("20 00 | 08 00 | 01 00 02 03");
}

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
QByteArray everyKind()
{
    return Frame(42)
        .add(devInfoSection())
        .add(gpio())
        .add(snmpCfgSection())
        .add(netCfgSection())
        .add(modbusCfgSection())
        .add(section(Core, coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(5, 6, 7, 8, hex("01 02 03 04"))))
        .octets();
}

} // namespace

/// The checks of a whole frame, in their order, each with its reason in the log.
class tst_RlpFrame : public QObject
{
    Q_OBJECT

private slots:
    void builderAgreesWithACapture()
    {
        // Put down by hand: every field, the checksum from a published CRC-16/KERMIT calculator's algorithm.
        const QByteArray head = hex("ce | 01 | 16 00 | 0e 00 | 01 00 | 07 00 00 00 | 01 00 00 00"
                                    "| 20 00 08 00 01 00 02 03");
        QCOMPARE(Frame(7).add(gpio()).unsealed(), head);
        QCOMPARE(Frame(7).add(gpio()).octets().size(), head.size() + 2);
    }

    void acceptedFrame()
    {
        ExposedDecoder decoder;
        const QByteArray datagram = Frame(0x01020304).add(gpio()).octets();
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
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<QStringList>("reasons");
        const auto frame = [] { return Frame().add(gpio()); };
        const auto row = [](const char* name, const QByteArray& datagram, const QStringList& reasons) {
            QTest::newRow(name) << datagram << reasons;
        };
        row("magic 0", frame().magic(0).octets(), {badMagic});
        row("magic and version swapped", frame().magic(1).version(0xCE).octets(), {badMagic});
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
        row("payload length largest", frame().payloadLength(65535).octets(), {badLength, "65535"_s});
        // A checksum over octets and their checksum is 0.
        row("two zeros more: the checksum is right", frame().octets() + hex("00 00"), {badLength, "22"_s});
        row("section offset 7", frame().sectionOffset(7).octets(), {badOffset, "7  <  8"_s, "7  >  22"_s});
        row("section offset beyond the payload", frame().sectionOffset(23).octets(),
            {badOffset, "23  <  8"_s, "23  >  22"_s});
        row("section offset largest", frame().sectionOffset(65535).octets(),
            {badOffset, "65535  <  8"_s, "65535  >  22"_s});
        row("no section, payload beyond 8", frame().sectionCount(0).octets(), {badCount, "0  :  22"_s});
        row("no section, payload of 9", sealed(hex("ce 01 | 09 00 | 08 00 | 00 00 | 00 00 00")),
            {badCount, "0  :  9"_s});
        row("no section, payload of 8", sealed(hex("ce 01 | 08 00 | 08 00 | 00 00 | 00 00")),
            {"No section to process. Drop frame"_s, "0"_s});
        row("continuity zero", frame().continuity(0).octets(), {badContinuity});

        row("empty: no magic", QByteArray(), {badMagic});
        row("one octet, wrong: no magic", hex("00"), {badMagic});
        row("one octet, magic: no checksum", hex("ce"), {badChecksum(hex("ce"))});
        row("two octets: checksum", hex("ce 01"),
            {"Invalid checksum (0x \"1ce\"  != 0x \"0\" ). Drop frame"_s});
        row("three octets: checksum", hex("ce 01 02"), {badChecksum(hex("ce 01 02"))});
        row("magic, sealed: no version", sealed(hex("ce")), {badVersion});
        row("magic and version, sealed: no offset", sealed(hex("ce 01")),
            {badOffset, "0  <  8"_s, "0  >  0"_s});
        row("half a length, sealed: mismatch", sealed(hex("ce 01 | 01")), {badLength, "0"_s});
        row("length alone, sealed: no offset", sealed(hex("ce 01 | 02 00")),
            {badOffset, "0  <  8"_s, "0  >  2"_s});
        row("up to the count, sealed: offset beyond the payload",
            sealed(hex("ce 01 | 06 00 | 08 00 | 01 00")), {badOffset, "8  <  8"_s, "8  >  6"_s});
        row("up to half the sequence, sealed: no continuity",
            sealed(hex("ce 01 | 08 00 | 08 00 | 01 00 | 07 00")), {badContinuity});
        row("three octets of continuity, sealed: none",
            sealed(hex("ce 01 | 0d 00 | 08 00 | 01 00 | 07 00 00 00 | 01 01 01")), {badContinuity});

        // Of two defects the first in the order of the checks is reported.
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
        QTest::addColumn<quint32>("last");
        QTest::addColumn<quint32>("sequence");
        QTest::addColumn<bool>("accepted");
        QTest::addColumn<QStringList>("log");
        const auto row = [](const char* name, quint32 last, quint32 sequence, bool accepted,
                            const QStringList& log) {
            QTest::newRow(name) << last << sequence << accepted << log;
        };
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
        const Outcome outcome = receive(decoder, Frame(sequence).add(gpio()).octets());
        QTEST(outcome.accepted, "accepted");
        QTEST(outcome.log, "log");
        QCOMPARE(decoder.lastSeqno, last);
    }

    void sender_data()
    {
        QTest::addColumn<bool>("registered");
        QTest::addColumn<bool>("isStranger");
        QTest::addColumn<QByteArray>("datagram");
        QTest::addColumn<QStringList>("log");
        const QByteArray good = Frame().add(gpio()).octets();
        QTest::newRow("no controller registered: any sender accepted")
            << false << true << good << QStringList();
        QTest::newRow("the registered one: accepted") << true << false << good << QStringList();
        QTest::newRow("another: dropped") << true << true << good << QStringList{badSender};
        QTest::newRow("another, and no magic: magic first")
            << true << true << hex("00") << QStringList{badMagic};
        QTest::newRow("another, and no checksum: sender first")
            << true << true << hex("ce") << QStringList{badSender};
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
        const QByteArray datagram = everyKind();
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
        const QByteArray whole = everyKind();
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
};

QTEST_GUILESS_MAIN(tst_RlpFrame)
#include "tst_rlpframe.moc"
