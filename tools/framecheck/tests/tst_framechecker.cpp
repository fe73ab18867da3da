// SPDX-License-Identifier: MIT
#include <QBuffer>
#include <QtTest>

#include "framechecker.h"
#include "framefaults.h"
#include "framefields.h"
#include "hextext.h"
#include "reportwriter.h"
#include "wirelayout.h"

/// The checker's output about frames of another program's encoder.
class tst_FrameChecker : public QObject
{
    Q_OBJECT

private slots:
    void faults_data();
    void faults();
    void everyFaultIsInsideTheFrame();
    void fieldsFollowEachOther();
    void valuesAreThePanels();
    void sequenceAndSender();
    void lostLink();
    void hexTexts_data();
    void hexTexts();
    void marksStandUnderTheOctets();
    void valuesAreNoTerminalCommands();
};

namespace {

const QHostAddress controller(QStringLiteral("192.168.7.2"));
const QHostAddress stranger(QStringLiteral("192.168.7.3"));

QByteArray gpioState()
{
    return Simulator::encodeSection(0x20, QByteArray::fromHex("01000203"));
}

QByteArray frame(quint32 sequence, const QList<QByteArray>& sections = {gpioState()})
{
    Simulator::FrameParts parts;
    parts.sequence = sequence;
    parts.sections = sections;
    return Simulator::encodeFrame(parts);
}

QByteArray spoiled(const char* fault, quint32 sequence = 1)
{
    Simulator::FrameParts parts;
    parts.sequence = sequence;
    parts.sections = {gpioState()};
    return Simulator::findFrameFault(QLatin1String(fault))->build(parts);
}

/// One section of every kind, with values that differ from field to field.
QList<QByteArray> allSections()
{
    QList<QByteArray> sections;
    for (const auto& [type, size] : {std::pair(0x10, 28), std::pair(0x20, 8), std::pair(0x30, 26),
                                     std::pair(0x40, 580), std::pair(0x60, 8)}) {
        QByteArray body;
        for (int i = 4; i < size; ++i) {
            body += char('A' + i % 23);
        }
        sections += Simulator::encodeSection(quint16(type), body);
    }
    return sections << Simulator::encodeSection(0x80, QByteArray::fromHex("0400010000040200fd08"
                                                                          "0400020000080000"));
}

QString faultsOf(const FrameReport& report)
{
    QStringList list;
    for (const FrameFinding& fault : report.faults) {
        list += QStringLiteral("%1+%2").arg(fault.offset).arg(fault.width);
    }
    return list.join(QLatin1Char(' '));
}

} // namespace

void tst_FrameChecker::faults_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QString>("places");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* fault, const char* places, const char* text) {
        QTest::newRow(fault) << spoiled(fault) << QString(QLatin1String(places))
                             << QString(QLatin1String(text));
    };
    row("crc", "24+2", "so these octets should be");
    row("magic", "0+1", "a frame begins with 0xce");
    row("version", "1+1", "the version has to be 1");
    row("payload-length", "2+2", "the payload length is 23; for a frame of 26 octets it has to be 22");
    row("offset-low", "4+2", "the section offset is 7");
    row("offset-high", "4+2", "it has to be from 8 to the payload length");
    row("zero-sections", "6+2", "the section count is 0, but octets for sections follow");
    row("no-sections", "6+2", "the section count is 0");
    row("many-sections", "24+0", "the section count is 2, but only 1 section fit; 0 octets left over");
    row("continuity", "12+4", "the continuity word must not be 0");
    row("sequence-zero", "8+4", "0 counts as the last sequence number after start");
    row("unknown-section", "16+2 26+2 28+2",
        "0x50 is no section type; the panel looks for the next section at 001a");
    row("section-length", "18+2 29+3", "the length of a GpioState section is 9; it has to be 8");
    row("truncated", "11+2", "the payload length is that of a frame of 26 octets, but 13 came");
    row("empty", "0+0", "the datagram is empty");
    QTest::newRow("Core before others")
        << frame(1, {Simulator::encodeSection(0x80, {}), gpioState()}) << QStringLiteral("18+2 24+2 26+2")
        << QStringLiteral("it has to be the last section");
    QTest::newRow("Core item too long")
        << frame(1, {Simulator::encodeSection(0x80, QByteArray::fromHex("0400010000040900fd08"))})
        << QStringLiteral("20+10") << QStringLiteral("this item claims more octets than the section has");
}

void tst_FrameChecker::faults()
{
    QFETCH(QByteArray, octets);
    QFETCH(QString, text);
    FrameChecker checker(10);
    const FrameReport report = checker.check(octets, controller);
    QVERIFY(!report.log.isEmpty());
    QTEST(faultsOf(report), "places");
    QVERIFY2(report.faults.first().text.contains(text), qPrintable(report.faults.first().text));
}

void tst_FrameChecker::everyFaultIsInsideTheFrame()
{
    // Every octet of a frame with all sections in turn takes other values, under a right checksum.
    const QByteArray whole = frame(1, allSections()).chopped(2);
    int refused = 0;
    for (int at = 0; at < whole.size(); ++at) {
        for (const int value : {0, 1, 0x7F, 0xFF}) {
            QByteArray octets = whole;
            octets[at] = char(value);
            octets += Simulator::littleEndian(Simulator::crcKermit(octets), 2);
            FrameChecker checker(10);
            const FrameReport report = checker.check(octets, controller);
            for (const FrameFinding& fault : report.faults) {
                QVERIFY(fault.offset >= 0 && fault.width >= 0 && fault.offset + fault.width <= octets.size());
            }
            for (const FrameField& field : report.fields) {
                QVERIFY(field.offset >= 0 && field.width > 0 && field.offset + field.width <= octets.size());
            }
            QCOMPARE(report.faults.isEmpty(),
                     report.log.isEmpty() || report.log.first().startsWith(QLatin1String("Back in")));
            refused += report.isFaultless() ? 0 : 1;
            QVERIFY(!headline({1, 0, {}, {}}, report).isEmpty());
            QVERIFY(!(faultText(report) + fieldText(report)).isEmpty());
        }
    }
    QVERIFY(refused > 100);
}

void tst_FrameChecker::fieldsFollowEachOther()
{
    FrameChecker checker(10);
    const QByteArray octets = frame(1, allSections());
    const FrameReport report = checker.check(octets, controller);
    QVERIFY(report.isFaultless());
    int at = 0;
    for (const FrameField& field : report.fields) {
        QCOMPARE(field.offset, at);
        at += field.width;
    }
    QCOMPARE(at, octets.size());
}

void tst_FrameChecker::valuesAreThePanels()
{
    // Values against the octets of the frame, read here another way, field by field.
    FrameChecker checker(10);
    const QByteArray octets = frame(1, allSections());
    const FrameReport report = checker.check(octets, controller);
    int compared = 0;
    for (const FrameField& field : report.fields) {
        const QByteArray part = octets.mid(field.offset, field.width);
        if (field.value.isDouble()) {
            quint32 number = 0;
            for (int i = part.size() - 1; i >= 0; --i) {
                number = number * 256 + quint8(part.at(i));
            }
            QCOMPARE(quint32(field.value.toDouble()), number);
        } else if (field.value.isBool()) {
            QVERIFY(field.value.toBool());
        } else if (field.width == 4) {
            QCOMPARE(field.value.toString(), QStringLiteral("%1.%2.%3.%4")
                                                 .arg(quint8(part.at(0)))
                                                 .arg(quint8(part.at(1)))
                                                 .arg(quint8(part.at(2)))
                                                 .arg(quint8(part.at(3))));
        } else if (field.name == QLatin1String("core.value")) {
            QCOMPARE(field.value.toString(), QStringLiteral("08fd"));
        } else {
            QCOMPARE(field.value.toString().toLatin1(), part);
        }
        ++compared;
    }
    QCOMPARE(compared, 8 + 6 * 2 + 8 + 4 + 7 + 32 + 2 + 6 + 5);
}

void tst_FrameChecker::sequenceAndSender()
{
    FrameChecker checker(10);
    QVERIFY(checker.check(frame(5), controller).isFaultless());
    const FrameReport repeated = checker.check(frame(5), controller);
    QCOMPARE(repeated.log, QStringList(QStringLiteral("Repeated packet. Drop frame ( 5  =  5 )")));
    QCOMPARE(faultsOf(repeated), QStringLiteral("8+4"));
    const FrameReport other = checker.check(frame(6), stranger);
    QCOMPARE(other.log,
             QStringList(QStringLiteral("Packet received from an unknown sender ( \"192.168.7.3\" , "
                                        "attended  \"192.168.7.2\" )")));
    QCOMPARE(faultsOf(other), QStringLiteral("0+0"));
    QVERIFY(!other.isAccepted);
    const FrameReport back = checker.check(frame(2), controller);
    QVERIFY(back.isFaultless());
    QCOMPARE(back.log,
             QStringList(QStringLiteral("Back in the sequence, probable reboot of the RxM ( 2  <  5 )")));
}

void tst_FrameChecker::lostLink()
{
    constexpr qint64 second = 1000000;
    FrameChecker checker(10);
    QVERIFY(!checker.advance(100 * second));
    QVERIFY(checker.check(frame(5), controller).isAccepted);
    QVERIFY(!checker.advance(110 * second));
    const std::optional<QString> line = checker.advance(110 * second + 1);
    QCOMPARE(line.value_or(QString()),
             QStringLiteral("No packet received within the  10 s window, unregister  \"192.168.7.2\""));
    QVERIFY(!checker.advance(200 * second));
    QVERIFY(checker.check(frame(5), stranger).isFaultless()); // neither repeated nor unknown any more
}

void tst_FrameChecker::hexTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("frames");
    QTest::addColumn<QString>("error");
    const QString none;
    QTest::newRow("nothing: no frame") << QByteArray("\n# only a comment\n\n") << QStringList() << none;
    QTest::newRow("octets: one frame")
        << QByteArray("ce 01\n0a 0B # end\n") << QStringList(QStringLiteral("ce010a0b")) << none;
    QTest::newRow("one word: one frame")
        << QByteArray("ce010A0b") << QStringList(QStringLiteral("ce010a0b")) << none;
    QTest::newRow("source text: one frame")
        << QByteArray("{0xce, 0x1, 0x0A,\n 0x0b};") << QStringList(QStringLiteral("ce010a0b")) << none;
    QTest::newRow("empty line: two frames")
        << QByteArray("\nce:01\r\n\r\n\r\n0a-0b\r\n")
        << QStringList{QStringLiteral("ce01"), QStringLiteral("0a0b")} << none;
    QTest::newRow("dump with text: one frame")
        << QByteArray("0000  00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  ab 12\n0010  10 11    ab\n")
        << QStringList(QStringLiteral("000102030405060708090a0b0c0d0e0f1011")) << none;
    QTest::newRow("other dump: two frames")
        << QByteArray("00000000: ce01 0a0b                                ....\n00000000: ce02\n")
        << QStringList{QStringLiteral("ce010a0b"), QStringLiteral("ce02")} << none;
    QTest::newRow("other text: an error")
        << QByteArray("ce 01\nhello\n") << QStringList()
        << QStringLiteral("line 2 has something other than hexadecimal octets");
    QTest::newRow("half an octet: an error")
        << QByteArray("ce 0") << QStringList()
        << QStringLiteral("line 1 has something other than hexadecimal octets");
    QTest::newRow("too much: an error")
        << QByteArray(2 * 65536, '0') << QStringList()
        << QStringLiteral("line 1: no datagram has more than 65535 octets; an empty "
                          "line ends a frame");
}

void tst_FrameChecker::hexTexts()
{
    QFETCH(QByteArray, text);
    QBuffer buffer(&text);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    HexText reader(&buffer);
    QStringList frames;
    while (const std::optional<QByteArray> octets = reader.next()) {
        frames += QString::fromLatin1(octets->toHex());
    }
    QTEST(frames, "frames");
    QTEST(reader.error(), "error");
}

void tst_FrameChecker::marksStandUnderTheOctets()
{
    FrameChecker checker(10);
    const FrameReport report = checker.check(spoiled("crc"), controller);
    const QStringList lines = faultText(report).split(QLatin1Char('\n'));
    const int marks = lines.indexOf(QRegularExpression(QStringLiteral("^ *\\^+$")));
    QVERIFY(marks > 0);
    const int from = lines[marks].indexOf(QLatin1Char('^'));
    QCOMPARE(lines[marks - 1].mid(from, lines[marks].size() - from),
             QString::fromLatin1(report.octets.right(2).toHex(' ')));
}

void tst_FrameChecker::valuesAreNoTerminalCommands()
{
    QByteArray body(24, '\0');
    body.replace(16, 8, QByteArray("\x1b[31m%5\n"));
    FrameChecker checker(10);
    const QString text =
        fieldText(checker.check(frame(1, {Simulator::encodeSection(0x10, body)}), controller));
    QVERIFY(text.contains(QStringLiteral("\"\\x1b[31m%5\\x0a\"")));
    QVERIFY(!text.contains(QChar(0x1b)));
}

QTEST_GUILESS_MAIN(tst_FrameChecker)

#include "tst_framechecker.moc"
