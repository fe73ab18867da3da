// SPDX-License-Identifier: MIT
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

#include "capturewriter.h"
#include "frame.h"
#include "program.h"
#include "rows.h"

namespace {

ProgramRun run(const QStringList& arguments, const QByteArray& input = {})
{
    return runProgram("r7m-frame-check"_s, arguments, input);
}

QByteArray frame(quint32 sequence)
{
    return Frame(sequence).add(gpioSection(1, 0, 2, 3)).octets();
}

QByteArray packet(quint32 sequence, quint16 port = 9876)
{
    return CaptureWriter::ipv4(17, CaptureWriter::udp(frame(sequence), port));
}

} // namespace

/// The program as a vendor runs it.
class tst_FrameCheck : public QObject
{
    Q_OBJECT

private slots:
    void init() { directory = std::make_unique<QTemporaryDir>(); }

    void linkTypes_data()
    {
        const Rows<int, QByteArray> row("linkType", "head");
        row("Ethernet", 1, "ffffffffffff0200000000010800");
        row("VLAN", 1, "ffffffffffff0200000000018100000a0800");
        row("two VLAN tags", 1, "ffffffffffff02000000000188a8000a8100000b0800");
        row("Linux cooked", 113, "00000001000602000000000100000800");
        row("Linux cooked, version 2", 276, "0800000000000002000100060200000000010000");
        row("raw IP", 101, "");
        row("raw IPv4", 228, "");
        row("loopback", 0, "02000000");
    }

    void linkTypes()
    {
        QFETCH(int, linkType);
        QFETCH(QByteArray, head);
        CaptureWriter writer(capture(), quint32(linkType));
        writer.packet(0, QByteArray::fromHex(head) + packet(1) + "padding");
        const ProgramRun result = run({"--fields"_s, "none"_s, capture()});
        QCOMPARE(result.errors, QByteArray());
        QCOMPARE(result.status, 0);
        QCOMPARE(result.output.left(result.output.indexOf('\n')),
                 QByteArray("1  0.000  192.168.7.2 > 192.168.7.255:9876  26 octets  accepted: GpioState"));
    }

    void unreadable_data()
    {
        const Rows<QByteArray, QByteArray> row("octets", "text");
        const QByteArray udp = CaptureWriter::udp(frame(1));
        const auto claims = [](int length) {
            return CaptureWriter::ipv4(17, CaptureWriter::udp(frame(1), 9876, length));
        };
        row("first fragment", CaptureWriter::ipv4(17, udp, "10.0.0.1", "10.0.0.2", 0x2000),
            "not checked: an IPv4 fragment (octets 0 to 33): fragments are not put together here\n");
        row("last fragment", CaptureWriter::ipv4(17, udp, "10.0.0.1", "10.0.0.2", 185),
            "an IPv4 fragment (octets 1480 to 1513)");
        row("cut by the capture", packet(1).left(40), "not checked: only 12 of 26 octets were captured\n");
        row("UDP length too high", claims(99),
            "not checked: the UDP header says 99 octets, the packet has 34; no receiver gets it\n");
        row("UDP length too low", claims(7), "the UDP header says 7 octets");
        row("half a UDP header", CaptureWriter::ipv4(17, udp).left(24), "the UDP header is cut off");
        row("IPv6", QByteArray::fromHex("600000000022113f") + QByteArray(32, '\0') + udp,
            "sent over IPv6: the panel listens on IPv4");
    }

    void unreadable()
    {
        QFETCH(QByteArray, octets);
        QFETCH(QByteArray, text);
        CaptureWriter writer(capture());
        writer.packet(0, octets, 4000);
        writer.packet(0, packet(1));
        const ProgramRun result = run({capture()});
        QVERIFY2(result.output.contains(text), result.output.constData());
        QCOMPARE(result.status, 2); // not everything was checked
    }

    void damagedFiles_data()
    {
        const Rows<QByteArray> row("rest");
        row("cut in a packet's header", "1234567");
        row("cut in a packet", QByteArray("\0\0\0\0\0\0\0\0\x40\0\0\0\x40\0\0\0halfway", 23));
        row("a packet of 4 GB", QByteArray(8, '\0') + QByteArray(8, '\xff'));
    }

    void damagedFiles()
    {
        QFETCH(QByteArray, rest);
        CaptureWriter writer(capture());
        writer.packet(0, packet(1));
        writer.raw(rest);
        const ProgramRun result = run({capture()});
        QCOMPARE(result.status, 2);
        QVERIFY(result.output.contains("1 accepted"));
        QVERIFY2(result.errors.startsWith("r7m-frame-check: " + capture().toUtf8() + ": "),
                 result.errors.constData());
        QCOMPARE(result.errors.count('\n'), 1);
    }

    void exitCodes_data()
    {
        const Rows<QString, int, QByteArray> row("arguments", "status", "text");
        const char* const sources = "give one of: a capture file, --hex, --interface, --listen; see --help";
        row("no source: 2", ""_s, 2, sources);
        row("two sources: 2", "a b"_s, 2, sources);
        row("missing file: 2", "/nowhere.pcap"_s, 2, "No such file or directory");
        row("no capture: 2", VARNEL_SOURCE_DIR "/README.md"_s, 2, "unknown file format");
        row("unknown interface: 2", "--interface nix0"_s, 2, "interface nix0: ");
        row("missing text: 2", "--hex /nowhere"_s, 2, "/nowhere: No such file");
        row("empty text: 2", "--hex -"_s, 2, "no frame to check\n");
        row("port: 2", "--port foo --hex -"_s, 2, "--port: \"foo\" is no number from 0 to 65535\n");
        row("timeout: 2", "--timeout 0 --hex -"_s, 2, "--timeout: \"0\" is no number from 1 to 1000000\n");
        row("count: 2", "--count -1 --hex -"_s, 2, "--count: \"-1\" is no number");
        row("fields: 2", "--fields some --hex -"_s, 2,
            "--fields: \"some\" is neither all nor faulty nor none\n");
        row("unknown option: 2", "--fast"_s, 2, "r7m-frame-check: ");
        row("help: 0", "--help"_s, 0, "--interface");
    }

    void exitCodes()
    {
        QFETCH(QString, arguments);
        QFETCH(QByteArray, text);
        const ProgramRun result = run(arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts));
        QTEST(result.status, "status");
        const QByteArray& said = result.status == 0 ? result.output : result.errors;
        QVERIFY2(said.contains(text), said.constData());
        QVERIFY(result.status == 0 || result.errors.count('\n') == 1);
    }

    void wholeRun()
    {
        constexpr qint64 second = 1000000;
        CaptureWriter writer(capture());
        writer.packet(100 * second, packet(7));
        writer.packet(101 * second, packet(7));
        writer.packet(102 * second, packet(9));
        writer.packet(103 * second, packet(1, 53));
        writer.packet(123 * second, packet(2));
        writer.packet(133 * second, packet(3)); // after the whole window, which does not lose the link
        const ProgramRun result = run({"-q"_s, capture()});
        QCOMPARE(result.status, 1);
        QCOMPARE(result.output,
                 QByteArray(
                     "frames                    5, 4 accepted, 1 dropped, 0 accepted with a section refused\n"
                     "dropped                   1 Repeated packet. Drop frame\n"
                     "section                   4 GpioState\n"
                     "sender                    5 192.168.7.2\n"
                     "sent to                   5 192.168.7.255:9876\n"
                     "sequence numbers          1 skipped, 1 times back\n"
                     "longest silence      21.000 s between accepted frames, the link was lost 1 times\n"));
        QVERIFY(run({capture()})
                    .output.contains("   No packet received within the  10 s window, unregister  "
                                     "\"192.168.7.2\"\n5  23.000  192.168.7.2"));
        const QList<QByteArray> lines = run({"--json"_s, capture()}).output.split('\n');
        const auto value = [&lines](int line, const char* name) {
            return QJsonDocument::fromJson(lines.value(line))[QLatin1String(name)];
        };
        QCOMPARE(value(0, "accepted"), QJsonValue(true));
        QCOMPARE(value(1, "seconds"), QJsonValue(1));
        QCOMPARE(value(lines.size() - 2, "event"), QJsonValue("summary"_s));
        QCOMPARE(value(lines.size() - 2, "dropped"), QJsonValue(1));
        QCOMPARE(run({"--timeout"_s, "30"_s, "-q"_s, capture()}).status, 1);
        QCOMPARE(run({"--count"_s, "1"_s, capture()}).status, 0);
        QCOMPARE(
            run({"--port"_s, "54"_s, capture()}).errors,
            QByteArray("r7m-frame-check: no frame to check: no datagram goes to port 54, but to port 53 (1), "
                       "9876 (5)\n"));
    }

    void readsStandardInput()
    {
        const ProgramRun result = run({"--hex"_s, "-"_s}, frame(1).toHex(' '));
        QCOMPARE(result.status, 0);
        QVERIFY(result.output.contains("gpiostate.critical      2                 red LED: slow blink\n"));
    }

    void receivesOnPort()
    {
        const quint16 port = [] {
            QUdpSocket probe;
            return probe.bind(QHostAddress(QHostAddress::LocalHost), 0) ? probe.localPort() : quint16(0);
        }();
        Program program("r7m-frame-check"_s);
        QVERIFY(program.start("--listen %1 --count 2 --json"_s.arg(port).split(QLatin1Char(' '))));
        QUdpSocket sender;
        quint32 sequence = 0;
        QTRY_VERIFY((sender.writeDatagram(frame(++sequence), QHostAddress(QHostAddress::LocalHost), port),
                     !program.isRunning()));
        QCOMPARE(program.exitStatus(), 0);
        const QList<QByteArray> lines = program.output().split('\n');
        QCOMPARE(lines.size(), 4);
        const QJsonObject first = QJsonDocument::fromJson(lines[0]).object();
        QCOMPARE(first.value(QLatin1String("source")), QJsonValue("127.0.0.1"_s));
        QCOMPARE(first.value(QLatin1String("target")), QJsonValue("127.0.0.1:%1"_s.arg(port)));
    }

private:
    std::unique_ptr<QTemporaryDir> directory;
    [[nodiscard]] QString capture() const { return directory->filePath("a.pcap"_s); }
};

QTEST_GUILESS_MAIN(tst_FrameCheck)

#include "tst_framecheck.moc"
