// SPDX-License-Identifier: MIT
#include "rows.h"
#include "simulatorprocess.h"

#include "capture.h"
#include "capturewriter.h"
#include "frame.h"
#include "recordedsite.h"

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>

using namespace Simulator;

namespace {

constexpr qint64 second = 1000000;

QByteArray frame(int sequence)
{
    return Frame(quint32(sequence)).add(gpioSection(1, 0, 2, 3)).octets();
}

QByteArray packet(const QByteArray& octets, const char* source = "192.168.7.2", quint16 port = 9876)
{
    return CaptureWriter::ipv4(17, CaptureWriter::udp(octets, port), source);
}

Segment segment(bool isAnswer, quint32 sequence, const QByteArray& payload, bool opens = false,
                bool closes = false)
{
    const Endpoints up{QHostAddress("10.0.0.1"_s), QHostAddress("10.0.0.2"_s), 40000, 80};
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

} // namespace

/// Recordings, and their replay.
class tst_SimulatorReplay : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        directory = std::make_unique<QTemporaryDir>();
        simulator = std::make_unique<SimulatorProcess>();
        panel = std::make_unique<PanelSocket>();
    }

    void recordsWhatItSendsAndPlaysItAgain()
    {
        QVERIFY(simulator->start("--record %1 --target %2 --interval 20 --count 4 --source 127.0.0.5"
                                 " --do \"fault kind=oversized count=1\""_s.arg(capture(), panel->target())));
        QList<QNetworkDatagram> sent;
        for (int i = 0; i < 4; ++i) {
            sent += panel->next();
        }
        QCOMPARE(sent[0].data().size(), 65507);
        QTRY_COMPARE(simulator->events("frame"_s).size(), 4);
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
            QCOMPARE(content.ends.source.toString(), "127.0.0.5"_s);
            QCOMPARE(int(content.ends.sourcePort), datagram.senderPort());
            QCOMPARE(content.ends.targetPort, panel->socket.localPort());
        }
        QVERIFY(!file.next());
        QCOMPARE(file.error(), QString());

        QCOMPARE(simulator->stop(), 0);
        SimulatorProcess again;
        QVERIFY(again.start("--replay %1 --target %2 --replay-port %3"_s.arg(capture(), panel->target())
                                .arg(panel->socket.localPort())));
        for (const QNetworkDatagram& datagram : qAsConst(sent)) {
            QCOMPARE(panel->nextFrame(), datagram.data());
        }
        QTRY_COMPARE(again.events("replay-ended"_s).size(), 1);
    }

    void keepsOrderAndSpacing_data()
    {
        const Rows<QString, int, QList<qint64>> row("options", "speed", "milliseconds");
        row("one goes backwards", {}, 1, {0, 100, 400, 400, 650, 300, 900});
        row("faster", "--speed 200"_s, 200, {0, 20000, 40000, 60000, 80000, 100000});
    }

    void keepsOrderAndSpacing()
    {
        QFETCH(QString, options);
        QFETCH(int, speed);
        QFETCH(QList<qint64>, milliseconds);
        CaptureWriter writer(capture());
        for (int i = 0; i < milliseconds.size(); ++i) {
            writer.packet(second + milliseconds[i] * 1000, packet(frame(i)));
            writer.packet(second + milliseconds[i] * 1000, packet("other", "192.168.7.2", 53));
        }
        QElapsedTimer clock; // from before the start: on a busy computer the first frame is read late
        clock.start();
        QVERIFY(replay(options));
        qint64 latest = 0;
        for (int i = 0; i < milliseconds.size(); ++i) {
            QCOMPARE(panel->nextFrame(), frame(i));
            latest = qMax(latest, milliseconds[i] / speed);
            QVERIFY2(clock.elapsed() >= latest, qPrintable(QString::number(clock.elapsed())));
            QVERIFY2(clock.elapsed() <= latest + 5000, qPrintable(QString::number(clock.elapsed())));
        }
    }

    void keepsSendersApart()
    {
        CaptureWriter writer(capture());
        writer.packet(0, packet(frame(1), "10.1.1.1"));
        writer.packet(0, packet(frame(2), "10.1.1.9"));
        writer.packet(0, packet(frame(3), "10.1.1.1"));
        QVERIFY(replay("--source 127.0.0.7"_s));
        QMap<QByteArray, QString> senders;
        for (int i = 0; i < 3; ++i) {
            const QNetworkDatagram datagram = panel->next();
            senders.insert(datagram.data(), datagram.senderAddress().toString());
        }
        QCOMPARE(senders,
                 (QMap<QByteArray, QString>{
                     {frame(1), "127.0.0.7"_s}, {frame(2), "127.0.0.8"_s}, {frame(3), "127.0.0.7"_s}}));
    }

    void servesRecordedPages()
    {
        CaptureWriter writer(capture());
        writer.packet(0, packet(frame(1)));
        writer.packet(1, CaptureWriter::tcp(false, 100, {}, 2));
        writer.packet(2, CaptureWriter::tcp(true, 500, {}, 2));
        writer.packet(3, CaptureWriter::tcp(false, 101, get("/index.html")));
        writer.packet(
            4, CaptureWriter::tcp(true, 501, answer("<p>recorded</p>", "Content-Type: text/html\r\n")));
        QVERIFY(replay("--login="_s));
        const Reply reply = simulator->finished("/index.html"_s);
        QCOMPARE(reply->readAll(), QByteArray("<p>recorded</p>"));
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("text/html"));
    }

    void tellsOtherPorts()
    {
        CaptureWriter writer(capture());
        writer.packet(0, packet(frame(1), "10.1.1.1", 9999));
        const ProgramRun run =
            runProgram("r7m-simulator"_s, "--http 127.0.0.1:0 --replay"_words << capture());
        QCOMPARE(run.status, 1);
        QCOMPARE(run.errors, "r7m-simulator: --replay: " + capture().toUtf8() +
                                 ": no datagram to port 9876; 1 to port 9999 (see --replay-port)\n");
    }

    void streams_data()
    {
        const Rows<QList<QByteArray>, QList<int>, bool, QByteArray> add("pieces", "order", "closes", "body");
        const auto row = [&add](const char* name, const QList<QByteArray>& pieces, const QList<int>& order,
                                const char* body = "0123456789",
                                bool closes = false) { add(name, pieces, order, closes, QByteArray(body)); };
        const QByteArray whole = answer("0123456789");
        const auto cut = [whole](int at) { return QList<QByteArray>{whole.left(at), whole.mid(at)}; };
        const QByteArray chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        row("in one piece", {whole}, {0});
        row("cut in the head", cut(9), {0, 1});
        row("cut in the body", cut(40), {0, 1});
        row("out of order", cut(40), {1, 0});
        row("sent twice", cut(40), {0, 0, 1, 0, 1});
        row("chunks", {chunked + "4\r\n0123\r\n", "6;x=y\r\n456", "789\r\n0\r\n\r\n"}, {0, 1, 2});
        row("trailer behind chunks", {chunked + "1\r\n0\r\n0\r\nA: b", "\r\n\r\n"}, {0, 1}, "0");
        row("until the connection ends", {"HTTP/1.0 200 OK\r\n\r\n01234", "56789"}, {0, 1}, "0123456789",
            true);
        row("100 Continue first", {"HTTP/1.1 100 Continue\r\n\r\n", answer("0")}, {0, 1}, "0");
        // More segments than are kept come before the first one; those that were not kept are sent again.
        const QByteArray body(3000, 'x');
        const QByteArray large = answer(body);
        QList<QByteArray> pieces;
        QList<int> order;
        for (int at = 0; at < large.size(); at += 10) {
            pieces << large.mid(at, 10);
            order << (at + 10 < large.size() ? pieces.size() : 0);
        }
        row("many wait for one", pieces, order + order, body);
        row("cut off: none", {whole.left(40)}, {0}, "none", true);
    }

    void streams()
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
        QCOMPARE(bodyOf(site, "/a"_s), body);
    }

    void versionsAreServedInTheirTime()
    {
        RecordedSite site;
        const QList<QByteArray> requests{get("/v?b=2&a=1"), get("/v?a=9"), get("/v?a=1&b=2"),
                                         get("/new%20page")};
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
            return site.reply(request("/v"_s, {{"a"_s, "1"_s}, {"b"_s, "2"_s}}), timeUs)->body;
        };
        QCOMPARE(version(-second), QByteArray("one"));
        QCOMPARE(version(second), QByteArray("one"));
        QCOMPARE(version(2 * second), QByteArray("two"));
        QCOMPARE(bodyOf(site, "/v"_s, second), QByteArray("other")); // any query
        const std::optional<HttpReply> moved = site.reply(request("/new page"_s), 0);
        QVERIFY(moved);
        QCOMPARE(moved->status, 302);
        QCOMPARE(moved->headers.size(), 1);
        QCOMPARE(moved->headers.first().second, QByteArray("/x")); // on the simulated site, wherever it is
        QVERIFY(!site.reply(request("/none"_s), 0));
    }

    void hostileStreams_data()
    {
        const Rows<QByteArray> row("octets");
        const QByteArray ok = "HTTP/1.1 200 OK\r\n";
        const QByteArray chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
        row("no HTTP", "SSH-2.0\r\n\r\n");
        row("endless head", ok + QByteArray(200000, 'a'));
        row("negative length", ok + "Content-Length: -5\r\n\r\nabc");
        row("huge length", ok + "Content-Length: 99999999999999999999\r\n\r\nabc");
        row("negative chunk", chunked + "-5\r\nabc\r\n0\r\n\r\n");
        row("huge chunk", chunked + "7fffffffffffffff\r\nabc\r\n0\r\n\r\n");
        row("endless chunk line", chunked + QByteArray(200000, '1'));
        row("no status", "HTTP/1.1\r\n\r\n");
    }

    void hostileStreams()
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
        QVERIFY(site.isEmpty() || bodyOf(site, "/a"_s).size() < 10);
    }

    void findsScenariosThatCameWithIt()
    {
        // The program and its data as a package puts them.
        const QDir root(directory->path());
        QVERIFY(root.mkpath("bin"_s) && root.mkpath("share/varnel-tools/scenarios"_s));
        const QString program = root.filePath("bin/r7m-simulator"_s);
        QVERIFY(QFile::copy(VARNEL_PROGRAM_DIR "/r7m-simulator"_s, program));
        QVERIFY(QFile::copy(VARNEL_SOURCE_DIR "/simulator/scenarios/link-loss.json"_s,
                            root.filePath("share/varnel-tools/scenarios/link-loss.json"_s)));
        const QString built = "r7m-simulator"_s;
        for (const auto& [file, name] :
             {std::pair(program, "link-loss"_s), std::pair(program, "link-loss.json"_s),
              std::pair(built, "link-loss"_s)}) {
            const QStringList scenario{"--scenario"_s, name};
            QCOMPARE(runProgram(file, "--http 127.0.0.1:0 --do quit"_words + scenario).status, 0);
        }
    }

private:
    [[nodiscard]] QString capture() const { return directory->filePath("a.pcap"_s); }

    /// Starts to send the capture to the panel.
    bool replay(const QString& options = {})
    {
        return simulator->start("--replay %1 --target %2 %3"_s.arg(capture(), panel->target(), options));
    }

    std::unique_ptr<QTemporaryDir> directory;
    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<PanelSocket> panel;
};

QTEST_GUILESS_MAIN(tst_SimulatorReplay)
#include "tst_simulatorreplay.moc"
