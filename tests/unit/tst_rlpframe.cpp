// SPDX-License-Identifier: MIT
#include <QTest>
#include <QtEndian>

#include "exposeddecoder.h"
#include "frame.h"

using namespace Varnel;

Q_DECLARE_METATYPE(QHostAddress)

/// The checks of a whole frame, in their order, each with its reason in the log.
class tst_RlpFrame : public QObject
{
    Q_OBJECT

private slots:
    void builderAgreesWithACapture();
    void acceptedFrame();
    void drops_data();
    void drops();
    void shortDatagrams_data();
    void shortDatagrams();
    void sequence_data();
    void sequence();
    void sender_data();
    void sender();
    void checksOfTwoDefectsReportTheFirst_data();
    void checksOfTwoDefectsReportTheFirst();
    void largestDatagram();
};

namespace {

const QHostAddress controller(QStringLiteral("192.168.7.2"));
const QHostAddress stranger(QStringLiteral("192.168.7.3"));

QByteArray gpio()
{
    return hex("20 00 | 08 00 | 01 00 02 03");
}

QString line(const char* text)
{
    return QString::fromLatin1(text);
}

QStringList lines(std::initializer_list<const char*> texts)
{
    QStringList result;
    for (const char* const text : texts) {
        result << line(text);
    }
    return result;
}

const char* const badMagic = "Not a RLP magic number. Drop frame";

/// The checksum line for a datagram, with values that it contains or that are computed bit by bit.
QString badChecksum(const QByteArray& octets)
{
    const quint16 received =
        octets.size() < 2 ? quint16(0) : qFromLittleEndian<quint16>(octets.right(2).constData());
    const quint16 computed = kermit(octets.size() < 2 ? octets : octets.left(octets.size() - 2));
    return QStringLiteral("Invalid checksum (0x \"%1\"  != 0x \"%2\" ). Drop frame")
        .arg(QString::number(received, 16), QString::number(computed, 16));
}

} // namespace

void tst_RlpFrame::builderAgreesWithACapture()
{
    // Put down by hand: every field, the checksum from a published CRC-16/KERMIT calculator's algorithm.
    const QByteArray head = hex("ce | 01 | 16 00 | 0e 00 | 01 00 | 07 00 00 00 | 01 00 00 00"
                                "| 20 00 08 00 01 00 02 03");
    QCOMPARE(Frame(7).add(gpio()).unsealed(), head);
    QCOMPARE(Frame(7).add(gpio()).octets().size(), head.size() + 2);
}

void tst_RlpFrame::acceptedFrame()
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
    QCOMPARE(outcome.remaining, datagram.left(datagram.size() - 2));
    // The checks change nothing that is kept; recording is the owner's business.
    QCOMPARE(decoder.lastSeqno, 0U);
    QVERIFY(!decoder.hasPacketSender);
    QVERIFY(decoder.packetSender.isNull());
}

void tst_RlpFrame::drops_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QStringList>("reasons");
    const auto frame = [] { return Frame().add(gpio()); };
    const auto row = [](const char* name, const QByteArray& datagram, const QStringList& reasons) {
        QTest::newRow(name) << datagram << reasons;
    };
    row("magic 0: dropped", frame().magic(0).octets(), lines({badMagic}));
    row("magic 0xcf: dropped", frame().magic(0xCF).octets(), lines({badMagic}));
    row("magic and version swapped: dropped", frame().magic(1).version(0xCE).octets(), lines({badMagic}));
    const QByteArray swapped = frame().unsealed() + hex("12 34");
    row("checksum wrong: dropped", swapped, {badChecksum(swapped)});
    const QByteArray zero = frame().unsealed() + hex("00 00");
    row("checksum zero: printed without leading zeros", zero, {badChecksum(zero)});
    QByteArray bigEndian = frame().octets();
    std::swap(bigEndian.data()[bigEndian.size() - 1], bigEndian.data()[bigEndian.size() - 2]);
    row("checksum in network order: dropped", bigEndian, {badChecksum(bigEndian)});
    // The sender computed it over the whole datagram, its own two octets (still zero) included.
    const QByteArray whole = frame().unsealed() + littleEndian16(kermit(frame().unsealed() + hex("00 00")));
    row("checksum over its own octets too: dropped", whole, {badChecksum(whole)});
    row("version 0: dropped", frame().version(0).octets(), lines({"Unknown RLP version"}));
    row("version 2: dropped", frame().version(2).octets(), lines({"Unknown RLP version"}));
    row("payload length one less: dropped", frame().payloadLength(21).octets(),
        lines({"Payload length mismatch. Drop frame", "21"}));
    row("payload length one more: dropped", frame().payloadLength(23).octets(),
        lines({"Payload length mismatch. Drop frame", "23"}));
    row("payload length of the datagram: dropped", frame().payloadLength(26).octets(),
        lines({"Payload length mismatch. Drop frame", "26"}));
    row("payload length largest: dropped", frame().payloadLength(65535).octets(),
        lines({"Payload length mismatch. Drop frame", "65535"}));
    row("section offset 7: dropped", frame().sectionOffset(7).octets(),
        lines({"Section offset out of range. Drop frame", "7  <  8", "7  >  22"}));
    row("section offset 0: dropped", frame().sectionOffset(0).octets(),
        lines({"Section offset out of range. Drop frame", "0  <  8", "0  >  22"}));
    row("section offset beyond the payload: dropped", frame().sectionOffset(23).octets(),
        lines({"Section offset out of range. Drop frame", "23  <  8", "23  >  22"}));
    row("section offset largest: dropped", frame().sectionOffset(65535).octets(),
        lines({"Section offset out of range. Drop frame", "65535  <  8", "65535  >  22"}));
    row("no section, payload beyond 8: dropped", frame().sectionCount(0).octets(),
        lines({"Section count mismatch section payload length. Drop frame", "0  :  22"}));
    row("no section, payload of 9: dropped", sealed(hex("ce 01 | 09 00 | 08 00 | 00 00 | 00 00 00")),
        lines({"Section count mismatch section payload length. Drop frame", "0  :  9"}));
    row("no section, payload of 8: dropped", sealed(hex("ce 01 | 08 00 | 08 00 | 00 00 | 00 00")),
        lines({"No section to process. Drop frame", "0"}));
    row("continuity zero: dropped", frame().continuity(0).octets(),
        lines({"Out of the continuum. Drop frame"}));
}

void tst_RlpFrame::drops()
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

void tst_RlpFrame::shortDatagrams_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QStringList>("reasons");
    const auto row = [](const char* name, const QByteArray& datagram, const QStringList& reasons) {
        QTest::newRow(name) << datagram << reasons;
    };
    row("empty: no magic", QByteArray(), lines({badMagic}));
    row("one octet, wrong: no magic", hex("00"), lines({badMagic}));
    row("one octet, magic: no checksum", hex("ce"), {badChecksum(hex("ce"))});
    row("two octets: checksum", hex("ce 01"),
        lines({"Invalid checksum (0x \"1ce\"  != 0x \"0\" ). Drop frame"}));
    row("three octets: checksum", hex("ce 01 02"), {badChecksum(hex("ce 01 02"))});
    row("magic, sealed: no version", sealed(hex("ce")), lines({"Unknown RLP version"}));
    row("magic and version, sealed: no offset", sealed(hex("ce 01")),
        lines({"Section offset out of range. Drop frame", "0  <  8", "0  >  0"}));
    row("half a length, sealed: mismatch", sealed(hex("ce 01 | 01")),
        lines({"Payload length mismatch. Drop frame", "0"}));
    row("length alone, sealed: no offset", sealed(hex("ce 01 | 02 00")),
        lines({"Section offset out of range. Drop frame", "0  <  8", "0  >  2"}));
    row("up to the offset, sealed: offset beyond the payload", sealed(hex("ce 01 | 04 00 | 0e 00")),
        lines({"Section offset out of range. Drop frame", "14  <  8", "14  >  4"}));
    row("up to the count, sealed: offset beyond the payload", sealed(hex("ce 01 | 06 00 | 08 00 | 01 00")),
        lines({"Section offset out of range. Drop frame", "8  <  8", "8  >  6"}));
    row("up to half the sequence, sealed: no continuity",
        sealed(hex("ce 01 | 08 00 | 08 00 | 01 00 | 07 00")), lines({"Out of the continuum. Drop frame"}));
    row("up to the sequence, sealed: no continuity",
        sealed(hex("ce 01 | 0a 00 | 08 00 | 01 00 | 07 00 00 00")),
        lines({"Out of the continuum. Drop frame"}));
    row("three octets of continuity, sealed: none",
        sealed(hex("ce 01 | 0d 00 | 08 00 | 01 00 | 07 00 00 00 | 01 01 01")),
        lines({"Out of the continuum. Drop frame"}));
}

void tst_RlpFrame::shortDatagrams()
{
    QFETCH(QByteArray, datagram);
    ExposedDecoder decoder;
    const Outcome outcome = receive(decoder, datagram);
    QVERIFY(!outcome.accepted);
    QTEST(outcome.log, "reasons");
}

void tst_RlpFrame::sequence_data()
{
    QTest::addColumn<quint32>("last");
    QTest::addColumn<quint32>("sequence");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QStringList>("log");
    const auto row = [](const char* name, quint32 last, quint32 sequence, bool accepted,
                        const QStringList& log) {
        QTest::newRow(name) << last << sequence << accepted << log;
    };
    row("0 first: a repetition", 0, 0, false, lines({"Repeated packet. Drop frame ( 0  =  0 )"}));
    row("1 first: accepted", 0, 1, true, {});
    row("9 after 9: a repetition", 9, 9, false, lines({"Repeated packet. Drop frame ( 9  =  9 )"}));
    row("10 after 9: accepted", 9, 10, true, {});
    row("5 after 9: a reboot, accepted", 9, 5, true,
        lines({"Back in the sequence, probable reboot of the RxM ( 5  <  9 )"}));
    row("0 after 9: a reboot, accepted", 9, 0, true,
        lines({"Back in the sequence, probable reboot of the RxM ( 0  <  9 )"}));
    row("5000 after 9: a gap is not noticed", 9, 5000, true, {});
    row("compared unsigned: forward", 0x7FFFFFFF, 0x80000000, true, {});
    row("compared unsigned: back", 0xFFFFFFFF, 1, true,
        lines({"Back in the sequence, probable reboot of the RxM ( 1  <  4294967295 )"}));
    row("largest twice: a repetition", 0xFFFFFFFF, 0xFFFFFFFF, false,
        lines({"Repeated packet. Drop frame ( 4294967295  =  4294967295 )"}));
}

void tst_RlpFrame::sequence()
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

void tst_RlpFrame::sender_data()
{
    QTest::addColumn<bool>("registered");
    QTest::addColumn<QHostAddress>("sender");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QStringList>("log");
    QTest::newRow("no controller registered: any sender accepted")
        << false << stranger << true << QStringList();
    QTest::newRow("the registered one: accepted") << true << controller << true << QStringList();
    QTest::newRow("another: dropped")
        << true << stranger << false
        << lines({"Packet received from an unknown sender ( \"192.168.7.3\" , attended  \"192.168.7.2\" )"});
}

void tst_RlpFrame::sender()
{
    QFETCH(bool, registered);
    QFETCH(QHostAddress, sender);
    ExposedDecoder decoder;
    decoder.hasPacketSender = registered;
    decoder.packetSender = controller;
    const Outcome outcome = receive(decoder, Frame().add(gpio()).octets(), sender);
    QTEST(outcome.accepted, "accepted");
    QTEST(outcome.log, "log");
    QCOMPARE(decoder.hasPacketSender, registered);
    QCOMPARE(decoder.packetSender, controller);
}

void tst_RlpFrame::checksOfTwoDefectsReportTheFirst_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<bool>("fromStranger");
    QTest::addColumn<QString>("first");
    const auto frame = [] { return Frame().add(gpio()); };
    const auto row = [](const char* name, const QByteArray& datagram, bool fromStranger, const char* first) {
        QTest::newRow(name) << datagram << fromStranger << line(first);
    };
    row("magic and sender wrong: magic", frame().magic(0).octets(), true, badMagic);
    row("sender and checksum wrong: sender", frame().unsealed() + hex("00 00"), true,
        "Packet received from an unknown sender ( \"192.168.7.3\" , attended  \"192.168.7.2\" )");
    row("version and payload length wrong: version", frame().version(2).payloadLength(1).octets(), false,
        "Unknown RLP version");
    row("payload length and section offset wrong: payload length",
        frame().payloadLength(1).sectionOffset(0).octets(), false, "Payload length mismatch. Drop frame");
    row("section offset and count wrong: section offset", frame().sectionOffset(0).sectionCount(0).octets(),
        false, "Section offset out of range. Drop frame");
    row("section count and continuity wrong: section count", frame().sectionCount(0).continuity(0).octets(),
        false, "Section count mismatch section payload length. Drop frame");
    row("continuity and sequence wrong: continuity", frame().continuity(0).sequence(4).octets(), false,
        "Out of the continuum. Drop frame");
}

void tst_RlpFrame::checksOfTwoDefectsReportTheFirst()
{
    QFETCH(QByteArray, datagram);
    QFETCH(bool, fromStranger);
    ExposedDecoder decoder;
    decoder.lastSeqno = 4;
    decoder.hasPacketSender = true;
    decoder.packetSender = controller;
    const Outcome outcome = receive(decoder, datagram, fromStranger ? stranger : controller);
    QVERIFY(!outcome.accepted);
    QTEST(outcome.log.value(0), "first");
}

void tst_RlpFrame::largestDatagram()
{
    // The largest UDP datagram over IPv4: 65507 octets.
    ExposedDecoder decoder;
    const QByteArray body(65507 - 16 - 4 - 2, '\x5a');
    const QByteArray datagram = Frame().add(section(0x50, body)).octets();
    QCOMPARE(datagram.size(), 65507);
    const Outcome outcome = receive(decoder, datagram);
    QVERIFY(outcome.accepted);
    QCOMPARE(outcome.log, lines({"Unknown section type. Skip section", "Decode error"}));
}

QTEST_GUILESS_MAIN(tst_RlpFrame)
#include "tst_rlpframe.moc"
