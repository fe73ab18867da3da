// SPDX-License-Identifier: MIT
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include <csignal>

#include "capturewriter.h"
#include "frameencoder.h"

/// The program as a vendor runs it.
class tst_FrameCheck : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void linkTypes_data();
    void linkTypes();
    void unreadable_data();
    void unreadable();
    void damagedFiles_data();
    void damagedFiles();
    void exitCodes_data();
    void exitCodes();
    void wholeRun();
    void jsonLines();
    void readsStandardInput();
    void receivesOnPort();
    void everyOptionIsDocumented();

private:
    QScopedPointer<QTemporaryDir> directory;
    [[nodiscard]] QString capture() const { return directory->filePath(QStringLiteral("a.pcap")); }
};

namespace {

struct Run
{
    int exitCode = -1;
    QString output;
    QString errors;
};

Run run(const QStringList& arguments, const QByteArray& input = {})
{
    QProcess process;
    process.start(QStringLiteral(FRAME_CHECK), arguments);
    process.write(input);
    process.closeWriteChannel();
    if (!process.waitForFinished(60000) || process.exitStatus() != QProcess::NormalExit) {
        return {};
    }
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

QByteArray frame(quint32 sequence)
{
    Simulator::FrameParts parts;
    parts.sequence = sequence;
    parts.sections = {Simulator::encodeSection(0x20, QByteArray::fromHex("01000203"))};
    return Simulator::encodeFrame(parts);
}

QByteArray packet(quint32 sequence, quint16 port = 9876)
{
    return CaptureWriter::ipv4(17, CaptureWriter::udp(frame(sequence), port));
}

} // namespace

void tst_FrameCheck::init()
{
    directory.reset(new QTemporaryDir);
    QVERIFY(directory->isValid());
}

void tst_FrameCheck::linkTypes_data()
{
    QTest::addColumn<int>("linkType");
    QTest::addColumn<QByteArray>("head");
    QTest::newRow("Ethernet") << 1 << QByteArray::fromHex("ffffffffffff0200000000010800");
    QTest::newRow("VLAN") << 1 << QByteArray::fromHex("ffffffffffff0200000000018100000a0800");
    QTest::newRow("two VLAN tags") << 1
                                   << QByteArray::fromHex("ffffffffffff02000000000188a8000a8100000b0800");
    QTest::newRow("Linux cooked") << 113 << QByteArray::fromHex("00000001000602000000000100000800");
    QTest::newRow("Linux cooked, version 2")
        << 276 << QByteArray::fromHex("0800000000000002000100060200000000010000");
    QTest::newRow("raw IP") << 101 << QByteArray();
    QTest::newRow("raw IPv4") << 228 << QByteArray();
    QTest::newRow("loopback") << 0 << QByteArray::fromHex("02000000");
}

void tst_FrameCheck::linkTypes()
{
    QFETCH(int, linkType);
    QFETCH(QByteArray, head);
    CaptureWriter writer(capture(), quint32(linkType));
    writer.packet(0, head + packet(1) + "padding");
    const Run result = run({QStringLiteral("--fields"), QStringLiteral("none"), capture()});
    QCOMPARE(result.errors, QString());
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.output.section(QLatin1Char('\n'), 0, 0),
             QStringLiteral("1  0.000  192.168.7.2 > 192.168.7.255:9876  26 octets  accepted: GpioState"));
}

void tst_FrameCheck::unreadable_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QString>("text");
    const QByteArray udp = CaptureWriter::udp(frame(1));
    QTest::newRow("first fragment")
        << CaptureWriter::ipv4(17, udp, "10.0.0.1", "10.0.0.2", 0x2000)
        << QStringLiteral(
               "not checked: an IPv4 fragment (octets 0 to 33): fragments are not put together here\n");
    QTest::newRow("last fragment") << CaptureWriter::ipv4(17, udp, "10.0.0.1", "10.0.0.2", 185)
                                   << QStringLiteral("an IPv4 fragment (octets 1480 to 1513)");
    QTest::newRow("cut by the capture")
        << packet(1).left(40) << QStringLiteral("not checked: only 12 of 26 octets were captured\n");
    QTest::newRow("UDP length too high")
        << CaptureWriter::ipv4(17, CaptureWriter::udp(frame(1), 9876, 99))
        << QStringLiteral(
               "not checked: the UDP header says 99 octets, the packet has 34; no receiver gets it\n");
    QTest::newRow("UDP length too low") << CaptureWriter::ipv4(17, CaptureWriter::udp(frame(1), 9876, 7))
                                        << QStringLiteral("the UDP header says 7 octets");
    QTest::newRow("half a UDP header")
        << CaptureWriter::ipv4(17, udp).left(24) << QStringLiteral("the UDP header is cut off");
    QTest::newRow("IPv6") << QByteArray::fromHex("600000000022113f") + QByteArray(32, '\0') + udp
                          << QStringLiteral("sent over IPv6: the panel listens on IPv4");
}

void tst_FrameCheck::unreadable()
{
    QFETCH(QByteArray, octets);
    QFETCH(QString, text);
    CaptureWriter writer(capture());
    writer.packet(0, octets, 4000);
    writer.packet(0, packet(1));
    const Run result = run({capture()});
    QVERIFY2(result.output.contains(text), qPrintable(result.output));
    QCOMPARE(result.exitCode, 2); // not everything was checked
}

void tst_FrameCheck::damagedFiles_data()
{
    QTest::addColumn<QByteArray>("rest");
    QTest::addColumn<QString>("output");
    QTest::newRow("cut in a packet's header") << QByteArray("1234567") << QStringLiteral("1 accepted");
    QTest::newRow("cut in a packet") << QByteArray("\0\0\0\0\0\0\0\0\x40\0\0\0\x40\0\0\0halfway", 23)
                                     << QStringLiteral("1 accepted");
    QTest::newRow("a packet of 4 GB")
        << QByteArray("\0\0\0\0\0\0\0\0\xff\xff\xff\xff\xff\xff\xff\xff", 16) << QStringLiteral("1 accepted");
}

void tst_FrameCheck::damagedFiles()
{
    QFETCH(QByteArray, rest);
    QFETCH(QString, output);
    CaptureWriter writer(capture());
    writer.packet(0, packet(1));
    writer.raw(rest);
    const Run result = run({capture()});
    QCOMPARE(result.exitCode, 2);
    QVERIFY(result.output.contains(output));
    QVERIFY2(result.errors.startsWith(QStringLiteral("r7m-frame-check: ") + capture() + QStringLiteral(": ")),
             qPrintable(result.errors));
    QCOMPARE(result.errors.count(QLatin1Char('\n')), 1);
}

void tst_FrameCheck::exitCodes_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const QStringList& arguments, int exitCode, const char* text) {
        QTest::newRow(name) << arguments << exitCode << QString(QLatin1String(text));
    };
    const auto option = [](const char* name, const char* value) {
        return QStringList{QLatin1String(name), QLatin1String(value), QStringLiteral("--hex"),
                           QStringLiteral("-")};
    };
    const char* const sources = "give one of: a capture file, --hex, --interface, --listen; see --help";
    row("no source: 2", {}, 2, sources);
    row("two sources: 2", {QStringLiteral("a"), QStringLiteral("b")}, 2, sources);
    row("missing file: 2", {QStringLiteral("/nowhere.pcap")}, 2, "No such file or directory");
    row("no capture: 2", {QStringLiteral(MAN_PAGE)}, 2, "unknown file format");
    row("unknown interface: 2", {QStringLiteral("--interface"), QStringLiteral("nix0")}, 2,
        "interface nix0: ");
    row("missing text: 2", {QStringLiteral("--hex"), QStringLiteral("/nowhere")}, 2,
        "/nowhere: No such file");
    row("empty text: 2", {QStringLiteral("--hex"), QStringLiteral("-")}, 2, "no frame to check\n");
    row("port: 2", option("--port", "foo"), 2, "--port: \"foo\" is no number from 0 to 65535\n");
    row("timeout: 2", option("--timeout", "0"), 2, "--timeout: \"0\" is no number from 1 to 1000000\n");
    row("count: 2", option("--count", "-1"), 2, "--count: \"-1\" is no number");
    row("fields: 2", option("--fields", "some"), 2,
        "--fields: \"some\" is neither all nor faulty nor none\n");
    row("unknown option: 2", {QStringLiteral("--fast")}, 2, "r7m-frame-check: ");
    row("version: 0", {QStringLiteral("--version")}, 0, "r7m-frame-check " VARNEL_VERSION "\n");
    row("help: 0", {QStringLiteral("--help")}, 0, "--interface");
}

void tst_FrameCheck::exitCodes()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, text);
    const Run result = run(arguments);
    QTEST(result.exitCode, "exitCode");
    const QString& said = result.exitCode == 0 ? result.output : result.errors;
    QVERIFY2(said.contains(text), qPrintable(said));
    QVERIFY(result.exitCode == 0 || result.errors.count(QLatin1Char('\n')) == 1);
}

void tst_FrameCheck::wholeRun()
{
    constexpr qint64 second = 1000000;
    CaptureWriter writer(capture());
    writer.packet(100 * second, packet(7));
    writer.packet(101 * second, packet(7));
    writer.packet(102 * second, packet(9));
    writer.packet(103 * second, packet(1, 53));
    writer.packet(123 * second, packet(2));
    const Run result = run({QStringLiteral("-q"), capture()});
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.output,
             QStringLiteral(
                 "frames                    4, 3 accepted, 1 dropped, 0 accepted with a section refused\n"
                 "dropped                   1 Repeated packet. Drop frame\n"
                 "section                   3 GpioState\n"
                 "sender                    4 192.168.7.2\n"
                 "sent to                   4 192.168.7.255:9876\n"
                 "sequence numbers          1 skipped, 1 times back\n"
                 "longest silence      21.000 s between accepted frames, the link was lost 1 times\n"));
    QVERIFY(run({capture()})
                .output.contains(QStringLiteral("   No packet received within the  10 s window, unregister  "
                                                "\"192.168.7.2\"\n5  23.000  192.168.7.2")));
    QCOMPARE(
        run({QStringLiteral("--timeout"), QStringLiteral("30"), QStringLiteral("-q"), capture()}).exitCode,
        1);
    QCOMPARE(run({QStringLiteral("--count"), QStringLiteral("1"), capture()}).exitCode, 0);
    QCOMPARE(
        run({QStringLiteral("--port"), QStringLiteral("54"), capture()}).errors,
        QStringLiteral("r7m-frame-check: no frame to check: no datagram goes to port 54, but to port 53 (1), "
                       "9876 (4)\n"));
}

void tst_FrameCheck::jsonLines()
{
    CaptureWriter writer(capture());
    writer.packet(1500000, packet(7));
    writer.packet(2000000, CaptureWriter::ipv4(17, CaptureWriter::udp("x")));
    const Run result = run({QStringLiteral("--json"), capture()});
    QCOMPARE(result.exitCode, 1);
    QList<QJsonObject> lines;
    for (const QString& line : result.output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        lines += QJsonDocument::fromJson(line.toUtf8()).object();
    }
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[0].value(QLatin1String("accepted")), QJsonValue(true));
    QCOMPARE(lines[1].value(QLatin1String("log")),
             QJsonValue(QJsonArray{QStringLiteral("Not a RLP magic number. Drop frame")}));
    QCOMPARE(lines[1].value(QLatin1String("seconds")), QJsonValue(0.5));
    QCOMPARE(lines[2].value(QLatin1String("event")), QJsonValue(QStringLiteral("summary")));
    QCOMPARE(lines[2].value(QLatin1String("dropped")), QJsonValue(1));
}

void tst_FrameCheck::readsStandardInput()
{
    const Run result = run({QStringLiteral("--hex"), QStringLiteral("-")}, frame(1).toHex(' '));
    QCOMPARE(result.exitCode, 0);
    QVERIFY(result.output.contains(
        QStringLiteral("gpiostate.critical      2                 red LED: slow blink\n")));
}

void tst_FrameCheck::receivesOnPort()
{
    const quint16 port = [] {
        QUdpSocket probe;
        return probe.bind(QHostAddress(QHostAddress::LocalHost), 0) ? probe.localPort() : quint16(0);
    }();
    QProcess process;
    process.start(QStringLiteral(FRAME_CHECK),
                  {QStringLiteral("--listen"), QString::number(port), QStringLiteral("--count"),
                   QStringLiteral("2"), QStringLiteral("--json")});
    QUdpSocket sender;
    quint32 sequence = 0;
    while (!process.waitForFinished(50) && sequence < 200) {
        sender.writeDatagram(frame(++sequence), QHostAddress(QHostAddress::LocalHost), port);
    }
    QCOMPARE(process.exitCode(), 0);
    const QList<QByteArray> lines = process.readAllStandardOutput().split('\n');
    QCOMPARE(lines.size(), 4);
    const QJsonObject first = QJsonDocument::fromJson(lines[0]).object();
    QCOMPARE(first.value(QLatin1String("source")), QJsonValue(QStringLiteral("127.0.0.1")));
    QCOMPARE(first.value(QLatin1String("target")), QJsonValue(QStringLiteral("127.0.0.1:%1").arg(port)));
}

void tst_FrameCheck::everyOptionIsDocumented()
{
    QFile page(QStringLiteral(MAN_PAGE));
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QByteArray text = page.readAll().replace("\\-", "-");
    QRegularExpressionMatchIterator options =
        QRegularExpression(QStringLiteral("--[a-z]+")).globalMatch(run({QStringLiteral("--help")}).output);
    int found = 0;
    while (options.hasNext()) {
        const QByteArray name = options.next().captured().toLatin1();
        QVERIFY2(name == "--help-all" || text.contains(name), name.constData());
        ++found;
    }
    QVERIFY(found > 10);
}

QTEST_GUILESS_MAIN(tst_FrameCheck)

#include "tst_framecheck.moc"
