// SPDX-License-Identifier: MIT
#include <QBuffer>
#include <QtTest>

#include "frame.h"
#include "framechecker.h"
#include "framefaults.h"
#include "framefields.h"
#include "hextext.h"
#include "literals.h"
#include "reportwriter.h"
#include "rows.h"
#include "wirelayout.h"

namespace {

const QHostAddress controller("192.168.7.2"_s);
const QHostAddress stranger("192.168.7.3"_s);

const QByteArray gpioState = gpioSection(1, 0, 2, 3);

Simulator::FrameParts parts(quint32 sequence, const QList<QByteArray>& sections = {gpioState})
{
    Simulator::FrameParts parts;
    parts.sequence = sequence;
    parts.sections = sections;
    return parts;
}

QByteArray frame(quint32 sequence, const QList<QByteArray>& sections = {gpioState})
{
    return Simulator::encodeFrame(parts(sequence, sections));
}

QByteArray spoiled(const char* fault)
{
    Simulator::FrameParts whole = parts(1);
    return Simulator::findFrameFault(QLatin1String(fault))->build(whole);
}

/// One section of every kind, with values that differ from field to field.
QList<QByteArray> allSections()
{
    return {devInfoSection(7, 42, "fr_CH.u8"),
            gpioState,
            netCfgSection(),
            snmpCfgSection(),
            modbusCfgSection(),
            section(Core, hex("0400010000040200fd08 0400020000080000"))};
}

QString faultsOf(const FrameReport& report)
{
    QStringList list;
    for (const FrameFinding& fault : report.faults) {
        list += "%1+%2"_s.arg(fault.offset).arg(fault.width);
    }
    return list.join(QLatin1Char(' '));
}

} // namespace

/// The checker's output about frames of another program's encoder.
class tst_FrameChecker : public QObject
{
    Q_OBJECT

private slots:
    void faults_data()
    {
        const Rows<QByteArray, QString, QString> frameRow("octets", "places", "text");
        const auto row = [&frameRow](const char* fault, const QString& places, const QString& text) {
            frameRow(fault, spoiled(fault), places, text);
        };
        row("crc", "24+2"_s, "so these octets should be"_s);
        row("magic", "0+1"_s, "a frame begins with 0xce"_s);
        row("version", "1+1"_s, "the version has to be 1"_s);
        row("payload-length", "2+2"_s,
            "the payload length is 23; for a frame of 26 octets it has to be 22"_s);
        row("offset-low", "4+2"_s, "the section offset is 7"_s);
        row("offset-high", "4+2"_s, "it has to be from 8 to the payload length"_s);
        row("zero-sections", "6+2"_s, "the section count is 0, but octets for sections follow"_s);
        row("no-sections", "6+2"_s, "the section count is 0"_s);
        row("many-sections", "24+0"_s,
            "the section count is 2, but only 1 section fit; 0 octets left over"_s);
        row("continuity", "12+4"_s, "the continuity word must not be 0"_s);
        row("sequence-zero", "8+4"_s, "0 counts as the last sequence number after start"_s);
        row("unknown-section", "16+2 26+2 28+2"_s,
            "0x50 is no section type; the panel looks for the next section at 001a"_s);
        row("section-length", "18+2 29+3"_s, "the length of a GpioState section is 9; it has to be 8"_s);
        row("truncated", "11+2"_s, "the payload length is that of a frame of 26 octets, but 13 came"_s);
        row("empty", "0+0"_s, "the datagram is empty"_s);
        frameRow("Core before others", frame(1, {section(Core, {}), gpioState}), "18+2 24+2 26+2"_s,
                 "it has to be the last section"_s);
        frameRow("Core item too long", frame(1, {section(Core, hex("0400010000040900fd08"))}), "20+10"_s,
                 "this item claims more octets than the section has"_s);
    }

    void faults()
    {
        QFETCH(QByteArray, octets);
        QFETCH(QString, text);
        FrameChecker checker(10);
        const FrameReport report = checker.check(octets, controller);
        QVERIFY(!report.log.isEmpty());
        QTEST(faultsOf(report), "places");
        QVERIFY2(report.faults.first().text.contains(text), qPrintable(report.faults.first().text));
    }

    void everyFaultIsInsideTheFrame()
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
                    QVERIFY(fault.offset >= 0 && fault.width >= 0 &&
                            fault.offset + fault.width <= octets.size());
                }
                const bool isWhole = octets.startsWith(whole);
                int end = 0; // the fields of the whole frame follow each other
                for (const FrameField& field : report.fields) {
                    QVERIFY(field.offset >= 0 && field.width > 0 &&
                            field.offset + field.width <= octets.size());
                    QVERIFY(!isWhole || field.offset == end);
                    end = field.offset + field.width;
                }
                QVERIFY(!isWhole || end == octets.size());
                QCOMPARE(report.faults.isEmpty(),
                         report.log.isEmpty() || report.log.first().startsWith(QLatin1String("Back in")));
                refused += report.isFaultless() ? 0 : 1;
                QVERIFY(!headline({1, 0, {}, {}}, report).isEmpty());
                QVERIFY(!(faultText(report) + fieldText(report)).isEmpty());
            }
        }
        QVERIFY(refused > 100);
    }

    /// The checker's places are those of the dissector, which shares no table with it.
    void simulatorPutsEachFieldInItsPlace()
    {
        QList<QByteArray> sections;
        QStringList wanted;
        int position = 16;
        for (const Simulator::SectionLayout& layout : Simulator::sectionLayouts()) {
            sections += section(layout.type, QByteArray(layout.length - 4, '\0'));
            for (const Simulator::Field& field : layout.fields) {
                wanted += "%1.%2 %3+%4"_s.arg(QLatin1String(layout.name), QLatin1String(field.name))
                              .arg(position + field.offset)
                              .arg(field.width);
            }
            position += layout.length;
        }
        QStringList found;
        for (const FrameField& field : FrameChecker(10).check(frame(1, sections), controller).fields) {
            found += "%1 %2+%3"_s.arg(field.name).arg(field.offset).arg(field.width);
        }
        QCOMPARE(found.filter(QRegularExpression("^(?!section)[a-z]+\\."_s)), wanted);
    }

    void sequenceAndSender()
    {
        FrameChecker checker(10);
        QVERIFY(checker.check(frame(5), controller).isFaultless());
        const FrameReport repeated = checker.check(frame(5), controller);
        QCOMPARE(repeated.log, QStringList("Repeated packet. Drop frame ( 5  =  5 )"_s));
        QCOMPARE(faultsOf(repeated), "8+4"_s);
        const FrameReport other = checker.check(frame(6), stranger);
        QCOMPARE(other.log, QStringList("Packet received from an unknown sender ( \"192.168.7.3\" , "
                                        "attended  \"192.168.7.2\" )"_s));
        QCOMPARE(faultsOf(other), "0+0"_s);
        QVERIFY(!other.isAccepted);
        const FrameReport back = checker.check(frame(2), controller);
        QVERIFY(back.isFaultless());
        QCOMPARE(back.log, QStringList("Back in the sequence, probable reboot of the RxM ( 2  <  5 )"_s));
    }

    void hexTexts_data()
    {
        const Rows<QByteArray, QStringList, QString> row("text", "frames", "error");
        const QString other = "line %1 has something other than hexadecimal octets"_s;
        row("nothing: no frame", "\n# only a comment\n\n", {}, {});
        row("octets: one frame", "ce 01\n0a 0B # end\n", {"ce010a0b"_s}, {});
        row("one word: one frame", "ce010A0b", {"ce010a0b"_s}, {});
        row("source text: one frame", "{0xce, 0x1, 0x0A,\n 0x0b};", {"ce010a0b"_s}, {});
        row("empty line: two frames", "\nce:01\r\n\r\n\r\n0a-0b\r\n", {"ce01"_s, "0a0b"_s}, {});
        row("dump with text: one frame",
            "0000  00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  ab 12\n0010  10 11    ab\n",
            {"000102030405060708090a0b0c0d0e0f1011"_s}, {});
        row("other dump: two frames",
            "00000000: ce01 0a0b                                ....\n00000000: ce02\n",
            {"ce010a0b"_s, "ce02"_s}, {});
        row("other text: an error", "ce 01\nhello\n", {}, other.arg(2));
        row("half an octet: an error", "ce 0", {}, other.arg(1));
        row("too much: an error", QByteArray(2 * 65536, '0'), {},
            "line 1: no datagram has more than 65535 octets; an empty line ends a frame"_s);
    }

    void hexTexts()
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

    void marksStandUnderTheOctets()
    {
        FrameChecker checker(10);
        const FrameReport report = checker.check(spoiled("crc"), controller);
        const QStringList lines = faultText(report).split(QLatin1Char('\n'));
        const int marks = lines.indexOf(QRegularExpression("^ *\\^+$"_s));
        QVERIFY(marks > 0);
        const int from = lines[marks].indexOf(QLatin1Char('^'));
        QCOMPARE(lines[marks - 1].mid(from, lines[marks].size() - from),
                 QString::fromLatin1(report.octets.right(2).toHex(' ')));
    }

    void valuesAreNoTerminalCommands()
    {
        QByteArray body(24, '\0');
        body.replace(16, 8, QByteArray("\x1b[31m%5\n"));
        FrameChecker checker(10);
        const QString text = fieldText(checker.check(frame(1, {section(DevInfo, body)}), controller));
        QVERIFY(text.contains("\"\\x1b[31m%5\\x0a\""_s));
        QVERIFY(!text.contains(QChar(0x1b)));
    }
};

QTEST_GUILESS_MAIN(tst_FrameChecker)

#include "tst_framechecker.moc"
