// SPDX-License-Identifier: MIT
#include "simulatorprocess.h"

#include "capture.h"
#include "capturewriter.h"
#include "frameencoder.h"
#include "recordedsite.h"

#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkDatagram>
#include <QNetworkReply>
#include <QTemporaryDir>
#include <QUdpSocket>
#include <QtTest>

using namespace Simulator;

/// Recordings, and their replay.
class tst_SimulatorReplay : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void recordsWhatItSends();
    void playsARecording();
    void keepsOrderAndSpacing();
    void playsFaster();
    void keepsSendersApart();
    void servesRecordedPages();
    void tellsOtherPorts();
    void streams_data();
    void streams();
    void manySegmentsWaitForOne();
    void versionsAreServedInTheirTime();
    void hostileStreams_data();
    void hostileStreams();
    void sayWhenNothingCanBeSent();
    void findsScenariosThatCameWithIt();

private:
    [[nodiscard]] QString capture() const { return directory->filePath(QStringLiteral("a.pcap")); }

    QScopedPointer<QTemporaryDir> directory;
};

namespace {

constexpr qint64 second = 1000000;

/// A socket that plays the panel.
struct Panel
{
    Panel() { socket.bind(QHostAddress(QHostAddress::LocalHost), 0); }

    [[nodiscard]] QString target() const { return QStringLiteral("127.0.0.1:%1").arg(socket.localPort()); }

    QNetworkDatagram next()
    {
        if (!socket.hasPendingDatagrams()) {
            socket.waitForReadyRead(5000);
        }
        return socket.receiveDatagram();
    }

    QUdpSocket socket;
};

QByteArray frame(quint32 sequence)
{
    FrameParts parts;
    parts.sequence = sequence;
    parts.sections = {encodeSection(0x20, QByteArray::fromHex("01000203"))};
    return encodeFrame(parts);
}

QByteArray packet(const QByteArray& octets, const char* source = "192.168.7.2", quint16 port = 9876)
{
    return CaptureWriter::ipv4(17, CaptureWriter::udp(octets, port), source);
}

Segment segment(bool isAnswer, quint32 sequence, const QByteArray& payload, bool opens = false,
                bool closes = false)
{
    const Endpoints up{QHostAddress(QStringLiteral("10.0.0.1")), QHostAddress(QStringLiteral("10.0.0.2")),
                       40000, 80};
    const Endpoints down{up.target, up.source, 80, 40000};
    return {isAnswer ? down : up, sequence, opens, closes, payload};
}

QByteArray get(const QByteArray& path)
{
    return "GET " + path + " HTTP/1.1\r\nHost: r7m\r\n\r\n";
}

QByteArray answer(const QByteArray& body, const QByteArray& headers = {})
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size()) + "\r\n" + headers +
           "\r\n" + body;
}

HttpRequest request(const QString& path, const QMap<QString, QString>& query = {})
{
    HttpRequest result;
    result.method = "GET";
    result.path = path;
    result.query = query;
    return result;
}

QByteArray bodyOf(const RecordedSite& site, const QString& path, qint64 timeUs = 0)
{
    const std::optional<HttpReply> reply = site.reply(request(path), timeUs);
    return reply ? reply->body : QByteArray("none");
}

QStringList replay(const QString& file, const Panel& panel)
{
    return {QStringLiteral("--replay"), file, QStringLiteral("--target"), panel.target()};
}

} // namespace

void tst_SimulatorReplay::init()
{
    directory.reset(new QTemporaryDir);
    QVERIFY(directory->isValid());
}

void tst_SimulatorReplay::recordsWhatItSends()
{
    Panel panel;
    SimulatorProcess simulator;
    QVERIFY(
        simulator.start({QStringLiteral("--record"), capture(), QStringLiteral("--target"), panel.target(),
                         QStringLiteral("--interval"), QStringLiteral("20"), QStringLiteral("--count"),
                         QStringLiteral("4"), QStringLiteral("--source"), QStringLiteral("127.0.0.5"),
                         QStringLiteral("--do"), QStringLiteral("fault kind=oversized count=1")}));
    QList<QNetworkDatagram> sent;
    for (int i = 0; i < 4; ++i) {
        sent += panel.next();
    }
    QCOMPARE(sent[0].data().size(), 65507);
    QTRY_COMPARE(simulator.events(QStringLiteral("frame")).size(), 4);
    Capture file;
    QCOMPARE(file.openFile(capture()), QString());
    qint64 before = 0;
    for (const QNetworkDatagram& datagram : qAsConst(sent)) {
        const std::optional<CapturedPacket> recorded = file.next();
        QVERIFY(recorded);
        QVERIFY(recorded->timeUs > before);
        before = recorded->timeUs;
        const auto& content = std::get<::Datagram>(recorded->content);
        QCOMPARE(content.payload, datagram.data());
        QCOMPARE(content.ends.source.toString(), QStringLiteral("127.0.0.5"));
        QCOMPARE(int(content.ends.sourcePort), datagram.senderPort());
        QCOMPARE(content.ends.targetPort, panel.socket.localPort());
    }
    QVERIFY(!file.next());
    QCOMPARE(file.error(), QString());
}

void tst_SimulatorReplay::playsARecording()
{
    Panel panel;
    {
        SimulatorProcess simulator;
        QVERIFY(simulator.start({QStringLiteral("--record"), capture(), QStringLiteral("--target"),
                                 panel.target(), QStringLiteral("--interval"), QStringLiteral("20"),
                                 QStringLiteral("--count"), QStringLiteral("3"), QStringLiteral("--do"),
                                 QStringLiteral("fault kind=crc count=1")}));
        QTRY_COMPARE(simulator.events(QStringLiteral("frame")).size(), 3);
    }
    QList<QByteArray> sent;
    while (panel.socket.hasPendingDatagrams()) {
        sent += panel.next().data();
    }
    QCOMPARE(sent.size(), 3);
    SimulatorProcess again;
    QVERIFY(again.start(replay(capture(), panel) + QStringList{QStringLiteral("--replay-port"),
                                                               QString::number(panel.socket.localPort())}));
    for (const QByteArray& octets : qAsConst(sent)) {
        QCOMPARE(panel.next().data(), octets);
    }
    QTRY_COMPARE(again.events(QStringLiteral("replay-ended")).size(), 1);
}

void tst_SimulatorReplay::keepsOrderAndSpacing()
{
    CaptureWriter writer(capture());
    const QList<qint64> times{0, 100, 400, 400, 650, 300, 900}; // milliseconds; one went backwards
    for (int i = 0; i < times.size(); ++i) {
        writer.packet(second + times[i] * 1000, packet(frame(quint32(i))));
        writer.packet(second + times[i] * 1000, packet("other", "192.168.7.2", 53));
    }
    Panel panel;
    SimulatorProcess simulator;
    QElapsedTimer clock; // from before the start: on a busy computer the first frame is read late
    clock.start();
    QVERIFY(simulator.start(replay(capture(), panel)));
    qint64 latest = 0;
    for (int i = 0; i < times.size(); ++i) {
        QCOMPARE(panel.next().data(), frame(quint32(i)));
        latest = qMax(latest, times[i]);
        QVERIFY2(clock.elapsed() >= latest, qPrintable(QString::number(clock.elapsed())));
        QVERIFY2(clock.elapsed() <= latest + 5000, qPrintable(QString::number(clock.elapsed())));
    }
}

void tst_SimulatorReplay::playsFaster()
{
    CaptureWriter writer(capture());
    for (int i = 0; i < 11; ++i) {
        writer.packet(i * 10 * second, packet(frame(quint32(i))));
    }
    Panel panel;
    SimulatorProcess simulator;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(simulator.start(replay(capture(), panel) +
                            QStringList{QStringLiteral("--speed"), QStringLiteral("200")}));
    for (int i = 0; i < 11; ++i) {
        QCOMPARE(panel.next().data(), frame(quint32(i)));
    }
    QVERIFY(clock.elapsed() >= 500 && clock.elapsed() < 10000); // 100 s in half a second
}

void tst_SimulatorReplay::keepsSendersApart()
{
    CaptureWriter writer(capture());
    writer.packet(0, packet(frame(1), "10.1.1.1"));
    writer.packet(0, packet(frame(2), "10.1.1.9"));
    writer.packet(0, packet(frame(3), "10.1.1.1"));
    Panel panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start(replay(capture(), panel) +
                            QStringList{QStringLiteral("--source"), QStringLiteral("127.0.0.7")}));
    QMap<QByteArray, QString> senders;
    for (int i = 0; i < 3; ++i) {
        const QNetworkDatagram datagram = panel.next();
        senders.insert(datagram.data(), datagram.senderAddress().toString());
    }
    QCOMPARE(senders, (QMap<QByteArray, QString>{{frame(1), QStringLiteral("127.0.0.7")},
                                                 {frame(2), QStringLiteral("127.0.0.8")},
                                                 {frame(3), QStringLiteral("127.0.0.7")}}));
}

void tst_SimulatorReplay::servesRecordedPages()
{
    CaptureWriter writer(capture());
    writer.packet(0, packet(frame(1)));
    writer.packet(1, CaptureWriter::tcp(false, 100, {}, 2));
    writer.packet(2, CaptureWriter::tcp(true, 500, {}, 2));
    writer.packet(3, CaptureWriter::tcp(false, 101, get("/index.html")));
    writer.packet(4, CaptureWriter::tcp(true, 501, answer("<p>recorded</p>", "Content-Type: text/html\r\n")));
    Panel panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start(replay(capture(), panel) + QStringList{QStringLiteral("--login"), QString()}));
    QNetworkAccessManager manager;
    const QScopedPointer<QNetworkReply> reply(
        manager.get(QNetworkRequest(simulator.url(QStringLiteral("/index.html")))));
    QTRY_VERIFY(reply->isFinished());
    QCOMPARE(reply->readAll(), QByteArray("<p>recorded</p>"));
    QCOMPARE(reply->header(QNetworkRequest::ContentTypeHeader).toString(), QStringLiteral("text/html"));
}

void tst_SimulatorReplay::tellsOtherPorts()
{
    CaptureWriter writer(capture());
    writer.packet(0, packet(frame(1), "10.1.1.1", 9999));
    QProcess process;
    process.start(
        QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"),
        {QStringLiteral("--http"), QStringLiteral("127.0.0.1:0"), QStringLiteral("--replay"), capture()});
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 1);
    QCOMPARE(process.readAllStandardError(),
             "r7m-simulator: --replay: " + capture().toUtf8() +
                 ": no datagram to port 9876; 1 to port 9999 (see --replay-port)\n");
}

void tst_SimulatorReplay::streams_data()
{
    QTest::addColumn<QList<QByteArray>>("pieces");
    QTest::addColumn<QList<int>>("order");
    QTest::addColumn<bool>("closes");
    QTest::addColumn<QByteArray>("body");
    const QByteArray whole = answer("0123456789");
    const auto cut = [](const QByteArray& octets, int at) {
        return QList<QByteArray>{octets.left(at), octets.mid(at)};
    };
    QTest::newRow("in one piece") << QList<QByteArray>{whole} << QList<int>{0} << false
                                  << QByteArray("0123456789");
    QTest::newRow("cut in the head") << cut(whole, 9) << QList<int>{0, 1} << false
                                     << QByteArray("0123456789");
    QTest::newRow("cut in the body") << cut(whole, 40) << QList<int>{0, 1} << false
                                     << QByteArray("0123456789");
    QTest::newRow("out of order") << cut(whole, 40) << QList<int>{1, 0} << false << QByteArray("0123456789");
    QTest::newRow("sent twice") << cut(whole, 40) << QList<int>{0, 0, 1, 0, 1} << false
                                << QByteArray("0123456789");
    QTest::newRow("chunks")
        << QList<QByteArray>{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\n0123\r\n",
                             "6;x=y\r\n456", "789\r\n0\r\n\r\n"}
        << QList<int>{0, 1, 2} << false << QByteArray("0123456789");
    QTest::newRow("trailer behind chunks")
        << QList<QByteArray>{"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\n0\r\n0\r\nA: b",
                             "\r\n\r\n"}
        << QList<int>{0, 1} << false << QByteArray("0");
    QTest::newRow("until the connection ends") << QList<QByteArray>{"HTTP/1.0 200 OK\r\n\r\n01234", "56789"}
                                               << QList<int>{0, 1} << true << QByteArray("0123456789");
    QTest::newRow("100 Continue first") << QList<QByteArray>{"HTTP/1.1 100 Continue\r\n\r\n", answer("0")}
                                        << QList<int>{0, 1} << false << QByteArray("0");
    QTest::newRow("cut off: none") << cut(whole, 40).mid(0, 1) << QList<int>{0} << true << QByteArray("none");
}

void tst_SimulatorReplay::streams()
{
    QFETCH(QList<QByteArray>, pieces);
    QFETCH(QList<int>, order);
    QFETCH(bool, closes);
    QFETCH(QByteArray, body);
    RecordedSite site;
    constexpr quint32 start = 0xFFFFFFF0; // the numbers wrap on the way
    site.add(segment(false, 9, {}, true), 0);
    site.add(segment(true, start - 1, {}, true), 0);
    site.add(segment(false, 10, get("/a")), 0);
    quint32 end = start;
    for (const QByteArray& piece : pieces) {
        end += quint32(piece.size());
    }
    for (const int index : order) {
        quint32 at = start;
        for (int i = 0; i < index; ++i) {
            at += quint32(pieces[i].size());
        }
        site.add(segment(true, at, pieces[index]), 0);
    }
    if (closes) {
        site.add(segment(true, end, {}, false, true), 0);
    }
    site.finish();
    QCOMPARE(bodyOf(site, QStringLiteral("/a")), body);
}

void tst_SimulatorReplay::manySegmentsWaitForOne()
{
    // More segments than are kept come before the first one; those that were not kept are sent again.
    const QByteArray whole = answer(QByteArray(3000, 'x'));
    RecordedSite site;
    site.add(segment(false, 1, get("/a")), 0);
    site.add(segment(true, 99, {}, true), 0);
    for (int round = 0; round < 2; ++round) {
        for (int at = 10; at < whole.size(); at += 10) {
            site.add(segment(true, quint32(100 + at), whole.mid(at, 10)), 0);
        }
        site.add(segment(true, 100, whole.left(10)), 0);
    }
    QCOMPARE(bodyOf(site, QStringLiteral("/a")), QByteArray(3000, 'x'));
}

void tst_SimulatorReplay::versionsAreServedInTheirTime()
{
    RecordedSite site;
    const QList<QByteArray> requests{get("/v?b=2&a=1"), get("/v?a=9"), get("/v?a=1&b=2"), get("/new%20page")};
    const QList<QByteArray> answers{
        answer("one"), answer("other"), answer("two"),
        "HTTP/1.1 302 Found\r\nLocation: http://10.0.0.2/x\r\nContent-Length: 0\r\n"
        "Connection: close\r\n\r\n"};
    quint32 up = 1;
    quint32 down = 1;
    for (int i = 0; i < requests.size(); ++i) {
        site.add(segment(false, up, requests[i]), i * second);
        site.add(segment(true, down, answers[i]), i * second);
        up += quint32(requests[i].size());
        down += quint32(answers[i].size());
    }
    site.finish();
    const auto version = [&site](qint64 timeUs) {
        return site
            .reply(request(QStringLiteral("/v"), {{QStringLiteral("a"), QStringLiteral("1")},
                                                  {QStringLiteral("b"), QStringLiteral("2")}}),
                   timeUs)
            ->body;
    };
    QCOMPARE(version(-second), QByteArray("one"));
    QCOMPARE(version(second), QByteArray("one"));
    QCOMPARE(version(2 * second), QByteArray("two"));
    QCOMPARE(bodyOf(site, QStringLiteral("/v"), second), QByteArray("other")); // any query
    const std::optional<HttpReply> moved = site.reply(request(QStringLiteral("/new page")), 0);
    QVERIFY(moved);
    QCOMPARE(moved->status, 302);
    QCOMPARE(moved->headers.size(), 1);
    QCOMPARE(moved->headers.first().second, QByteArray("/x")); // on the simulated site, wherever it is
    QVERIFY(!site.reply(request(QStringLiteral("/none")), 0));
}

void tst_SimulatorReplay::hostileStreams_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::newRow("no HTTP") << QByteArray("SSH-2.0\r\n\r\n");
    QTest::newRow("endless head") << QByteArray("HTTP/1.1 200 OK\r\n") + QByteArray(200000, 'a');
    QTest::newRow("negative length") << QByteArray("HTTP/1.1 200 OK\r\nContent-Length: -5\r\n\r\nabc");
    QTest::newRow("huge length") << QByteArray(
        "HTTP/1.1 200 OK\r\nContent-Length: 99999999999999999999\r\n\r\nabc");
    QTest::newRow("negative chunk") << QByteArray(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n-5\r\nabc\r\n0\r\n\r\n");
    QTest::newRow("huge chunk") << QByteArray(
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n7fffffffffffffff\r\nabc\r\n0\r\n\r\n");
    QTest::newRow("endless chunk line")
        << QByteArray("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n") + QByteArray(200000, '1');
    QTest::newRow("no status") << QByteArray("HTTP/1.1\r\n\r\n");
}

void tst_SimulatorReplay::hostileStreams()
{
    QFETCH(QByteArray, octets);
    RecordedSite site;
    site.add(segment(false, 1, get("/a")), 0);
    for (int at = 0; at < octets.size(); at += 1000) {
        site.add(segment(true, quint32(1 + at), octets.mid(at, 1000)), 0);
    }
    const int hole = 1 << 20;
    for (int i = 0; i < 3000; ++i) { // a hole that is never filled
        site.add(segment(true, quint32(hole + i * 1400), QByteArray(1400, 'x')), 0);
    }
    QVERIFY(site.isEmpty() || bodyOf(site, QStringLiteral("/a")).size() < 10);
}

void tst_SimulatorReplay::sayWhenNothingCanBeSent()
{
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), QStringLiteral("127.255.255.255:9"),
                             QStringLiteral("--source"), QStringLiteral("127.0.0.1"),
                             QStringLiteral("--interval"), QStringLiteral("10"), QStringLiteral("--do"),
                             QStringLiteral("raw hex=") + QString(2 * 65508, QLatin1Char('0'))}));
    QTRY_VERIFY(simulator.events(QStringLiteral("frame")).size() > 3);
    const QByteArray said = simulator.process.readAllStandardError();
    QCOMPARE(said.count('\n'), 1);
    QVERIFY2(said.startsWith("r7m-simulator: cannot send to 127.255.255.255:9: "), said.constData());
}

void tst_SimulatorReplay::findsScenariosThatCameWithIt()
{
    // The program and its data as a package puts them.
    QDir root(directory->path());
    QVERIFY(root.mkpath(QStringLiteral("bin")) &&
            root.mkpath(QStringLiteral("share/varnel-tools/scenarios")));
    const QString program = root.filePath(QStringLiteral("bin/r7m-simulator"));
    QVERIFY(QFile::copy(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"), program));
    QVERIFY(QFile::copy(QStringLiteral(VARNEL_SOURCE_DIR "/simulator/scenarios/link-loss.json"),
                        root.filePath(QStringLiteral("share/varnel-tools/scenarios/link-loss.json"))));
    const QString built = QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator");
    for (const auto& [file, name] : {std::pair(program, "link-loss"), std::pair(program, "link-loss.json"),
                                     std::pair(built, "link-loss")}) {
        QProcess process;
        process.start(file,
                      {QStringLiteral("--http"), QStringLiteral("127.0.0.1:0"), QStringLiteral("--scenario"),
                       QLatin1String(name), QStringLiteral("--do"), QStringLiteral("quit")});
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 0);
    }
}

QTEST_GUILESS_MAIN(tst_SimulatorReplay)

#include "tst_simulatorreplay.moc"
