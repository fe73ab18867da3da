// SPDX-License-Identifier: MIT
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QXmlStreamReader>
#include <QtTest>

#include "capturewriter.h"
#include "frame.h"
#include "framefaults.h"
#include "program.h"
#include "rows.h"

namespace {

struct Field
{
    QString name;
    int offset = 0;
    QString octets;
    QString shown;
};

/// One program's output about a frame.
struct Said
{
    bool isAccepted = false;
    QStringList log;
    QVector<Field> fields;
    QStringList reasons; ///< filter names of the expert information
};

QByteArray output(const QString& program, const QStringList& arguments)
{
    const ProgramRun run = runProgram(program, arguments);
    if (run.status < 0) {
        qFatal("%s does not run", qPrintable(program));
    }
    return run.output;
}

/// The output of tshark with the dissector.
QByteArray tshark(const QStringList& arguments)
{
    return output("/usr/bin/tshark"_s,
                  QStringList{"-X"_s, QStringLiteral("lua_script:" DISSECTOR)} + arguments);
}

/// A field as tshark shows it; numbers in decimal.
Field readField(const QXmlStreamAttributes& attributes, int base)
{
    Field field;
    field.name = attributes.value(QLatin1String("name")).toString().mid(4);
    field.offset = attributes.value(QLatin1String("pos")).toInt() - base;
    field.octets = attributes.value(QLatin1String("value")).toString();
    field.shown = attributes.value(QLatin1String("show")).toString();
    if (field.shown.startsWith(QLatin1String("0x"))) {
        field.shown = QString::number(field.shown.toUInt(nullptr, 16));
    }
    return field;
}

QVector<Said> dissected(const QString& path)
{
    QXmlStreamReader xml(tshark({"-r"_s, path, "-T"_s, "pdml"_s}));
    static const QStringList structure{"rlp.section"_s, "rlp.section.decoded"_s, "rlp.core.item"_s};
    QVector<Said> frames;
    int base = -1;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        const QXmlStreamAttributes attributes = xml.attributes();
        const QString name = attributes.value(QLatin1String("name")).toString();
        if (xml.name() == QLatin1String("proto")) {
            base = name == QLatin1String("rlp") ? attributes.value(QLatin1String("pos")).toInt() : -1;
            frames.resize(frames.size() + (base >= 0 ? 1 : 0));
        } else if (base < 0 || !name.startsWith(QLatin1String("rlp."))) {
            continue;
        } else if (name == QLatin1String("rlp.accepted")) {
            frames.last().isAccepted = attributes.value(QLatin1String("show")) == QLatin1String("1");
        } else if (name == QLatin1String("rlp.log")) {
            frames.last().log += attributes.value(QLatin1String("show")).toString();
        } else if (name.startsWith(QLatin1String("rlp.reason."))) {
            frames.last().reasons += name.mid(11);
        } else if (!structure.contains(name)) {
            frames.last().fields += readField(attributes, base);
        }
    }
    return frames;
}

QVector<Said> checked(const QString& path)
{
    QVector<Said> frames;
    QStringList pending;
    for (const QByteArray& line : output("r7m-frame-check"_s, {"--json"_s, path}).split('\n')) {
        const QJsonObject object = QJsonDocument::fromJson(line).object();
        const QString event = object.value(QLatin1String("event")).toString();
        if (event == QLatin1String("link-lost")) {
            pending += object.value(QLatin1String("log")).toString();
        }
        if (event != QLatin1String("frame") || object.value(QLatin1String("octets")) == 0) {
            continue; // what carries nothing is shown to no dissector
        }
        Said said{object.value(QLatin1String("accepted")).toBool(), pending, {}, {}};
        pending.clear();
        for (const QJsonValue& text : object.value(QLatin1String("log")).toArray()) {
            said.log += text.toString();
        }
        for (const QJsonValue& field : object.value(QLatin1String("fields")).toArray()) {
            const QJsonValue value = field[QLatin1String("value")];
            said.fields += {field[QLatin1String("name")].toString(), field[QLatin1String("offset")].toInt(),
                            field[QLatin1String("octets")].toString(),
                            value.isBool()     ? QString::number(int(value.toBool()))
                            : value.isDouble() ? QString::number(value.toDouble(), 'f', 0)
                                               : value.toString()};
        }
        frames += said;
    }
    return frames;
}

/// Fields one a line; values only where both programs print them alike.
QStringList summary(QVector<Field> fields)
{
    std::stable_sort(fields.begin(), fields.end(),
                     [](const Field& left, const Field& right) { return left.offset < right.offset; });
    static const QRegularExpression plain("^[0-9A-Za-z_. -]*$"_s);
    QStringList lines;
    for (const Field& field : fields) {
        const bool isPlain = field.name != QLatin1String("core.value") && plain.match(field.shown).hasMatch();
        lines += "%1 at %2: %3 %4"_s.arg(field.name)
                     .arg(field.offset)
                     .arg(field.octets, isPlain ? field.shown : QString());
    }
    return lines;
}

Simulator::FrameParts parts(quint32 sequence)
{
    Simulator::FrameParts parts;
    parts.sequence = sequence;
    // The language fills its field: nothing ends it.
    parts.sections = {devInfoSection(7, 42, "fr_CH.u8"),
                      gpioSection(1, 0, 2, 3),
                      netCfgSection(),
                      snmpCfgSection(),
                      modbusCfgSection(),
                      section(Core, hex("040001000004 0200 fd08 040002000008 0300 352e33"
                                        "050001000101 0000"))};
    return parts;
}

QByteArray goodFrame(quint32 sequence)
{
    return Simulator::encodeFrame(parts(sequence));
}

QByteArray spoiledFrame(const char* fault, quint32 sequence)
{
    Simulator::FrameParts whole = parts(sequence);
    return Simulator::findFrameFault(QLatin1String(fault))->build(whole);
}

/// One frame of each fault of the simulated controller, each after a good one.
QList<QByteArray> everyFault()
{
    QList<QByteArray> frames;
    for (const Simulator::FrameFault& fault : Simulator::frameFaults()) {
        frames += goodFrame(quint32(2 * frames.size() + 1));
        frames += spoiledFrame(fault.name, quint32(2 * frames.size() + 1));
    }
    return frames;
}

/// Frames of the same controller with some octets changed, under a right checksum.
QList<QByteArray> mutations(quint32 seed, int count)
{
    QRandomGenerator random(seed);
    QList<QByteArray> frames;
    for (int i = 0; i < count; ++i) {
        QByteArray octets = goodFrame(quint32(10 + i)).chopped(2);
        for (int changes = random.bounded(1, 4); changes > 0; --changes) {
            static const int places[] = {4, 6, 16, 18, 19, 44, 46, 52, 54, 78, 80, 658, 660, 666, 668, 676};
            octets[places[random.bounded(int(std::size(places)))]] =
                char(random.bounded(256) >> random.bounded(8));
        }
        frames += octets + Simulator::littleEndian(Simulator::crcKermit(octets), 2);
    }
    return frames;
}

} // namespace

/// The dissector and r7m-frame-check read the same captures; whatever one of them says, the other has to say
/// too.
class tst_Dissector : public QObject
{
    Q_OBJECT

private slots:
    void agrees_data()
    {
        const Rows<QList<QByteArray>, bool> row("frames", "isNewFormat");
        row("good frames", {goodFrame(1), goodFrame(2), goodFrame(4)}, false);
        row("good frames, pcapng", {goodFrame(1), goodFrame(2), goodFrame(4)}, true);
        row("repeated, back, first 0",
            {goodFrame(0), goodFrame(5), goodFrame(5), goodFrame(3), goodFrame(0), goodFrame(4294967295)},
            false);
        row("every fault between good frames", everyFault(), false);
        row("every fault between good frames, pcapng", everyFault(), true);
        for (quint32 seed = 1; seed <= 3; ++seed) {
            QTest::addRow("mutations %u", seed) << mutations(seed, 400) << false;
        }
    }

    void agrees()
    {
        QFETCH(QList<QByteArray>, frames);
        QFETCH(bool, isNewFormat);
        const QString path = write(frames, isNewFormat);
        const QVector<Said> theirs = dissected(path);
        const QVector<Said> ours = checked(path);
        QVERIFY(!ours.isEmpty());
        QCOMPARE(theirs.size(), ours.size());
        for (int i = 0; i < ours.size(); ++i) {
            QCOMPARE(theirs[i].log, ours[i].log);
            QCOMPARE(theirs[i].isAccepted, ours[i].isAccepted);
            QCOMPARE(summary(theirs[i].fields), summary(ours[i].fields));
        }
    }

    void namesTheReasons()
    {
        // The expert information of each fault, by the names that filters use; every tenth packet is another
        // sender's.
        const QList<QPair<const char*, const char*>> rows = {
            {"crc", "checksum"},
            {"magic", "magic"},
            {"version", "version"},
            {"payload-length", "payload_length"},
            {"offset-low", "section_offset"},
            {"offset-high", "section_offset"},
            {"zero-sections", "section_count"},
            {"many-sections", "too_short"},
            {"continuity", "continuity"},
            {"sequence-zero", "sender"},
            {"truncated", "checksum"},
            {"tiny", "checksum"},
        };
        QList<QByteArray> frames;
        for (const auto& row : rows) {
            frames += spoiledFrame(row.first, quint32(frames.size() + 1));
        }
        const QVector<Said> said = dissected(write(frames, false));
        QCOMPARE(said.size(), rows.size());
        for (int i = 0; i < said.size(); ++i) {
            QVERIFY2(said[i].reasons.contains(QLatin1String(rows[i].second)), rows[i].first);
        }
    }

    void filters()
    {
        const QString path = write({goodFrame(1), spoiledFrame("crc", 2)}, false);
        const auto numbers = [&path](const char* filter) {
            return tshark(
                {"-r"_s, path, "-Y"_s, QLatin1String(filter), "-T"_s, "fields"_s, "-e"_s, "frame.number"_s});
        };
        QCOMPARE(numbers("rlp.reason.checksum"), QByteArray("2\n"));
        QCOMPARE(numbers("rlp.devinfo.lang == \"fr_CH.u8\" && rlp.netcfg.ip == 192.168.1.10 && "
                         "rlp.snmpcfg.port == 1161"),
                 QByteArray("1\n"));
    }

private:
    QString write(const QList<QByteArray>& frames, bool isNewFormat)
    {
        const QString path = directory.filePath("a.pcap"_s);
        {
            CaptureWriter writer(path);
            qint64 time = 1000000000;
            for (int i = 0; i < frames.size(); ++i) {
                time += i % 7 == 6 ? 11000000 : 250000; // the link is lost now and then
                writer.packet(time, CaptureWriter::ipv4(17, CaptureWriter::udp(frames[i]),
                                                        i % 10 == 9 ? "192.168.7.3" : "192.168.7.2"));
            }
        }
        if (!isNewFormat) {
            return path;
        }
        const QString other = directory.filePath("a.pcapng"_s);
        output("/usr/bin/editcap"_s, {"-F"_s, "pcapng"_s, path, other});
        return other;
    }

    QTemporaryDir directory;
};

QTEST_GUILESS_MAIN(tst_Dissector)

#include "tst_dissector.moc"
