// SPDX-License-Identifier: MIT
#include "files.h"
#include "rows.h"
#include "simulatorprocess.h"

#include "framefaults.h"
#include "httpfaults.h"
#include "simulation.h"

#include <QTcpServer>
#include <QtTest>

#include <csignal>

namespace {

bool isCorrect(const QByteArray& frame)
{
    return frame.size() > 2 &&
           Simulator::littleEndian(Simulator::crcKermit(frame.chopped(2)), 2) == frame.right(2);
}

/// The names of everything that a user can ask for. The options are those of the help: check-manuals compares
/// them with the manual page.
QList<QByteArray> documentedWords(const QByteArray& help)
{
    QList<QByteArray> words;
    QRegularExpressionMatchIterator options =
        QRegularExpression("--[a-z-]+"_s).globalMatch(QString::fromUtf8(help));
    while (options.hasNext()) {
        words.append(options.next().captured().toLatin1());
    }
    words.removeAll("--help-all");
    for (const Simulator::ActionHelp& action : Simulator::actionHelp()) {
        words.append(QByteArray(action.usage).split(' ').first());
    }
    for (const Simulator::FrameFault& fault : Simulator::frameFaults()) {
        words.append(fault.name);
    }
    for (const Simulator::HttpFaultKind& fault : Simulator::httpFaultKinds()) {
        words.append(fault.name);
    }
    return words;
}

} // namespace

/// The program as a whole: its frames, what it takes on standard input, and how it starts and ends.
class tst_SimulatorProgram : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        panel = std::make_unique<PanelSocket>();
        simulator = std::make_unique<SimulatorProcess>();
    }

    void sendsFramesOnSchedule_data()
    {
        const Rows<QString, QString, quint32> row("options", "source", "count");
        row("controller", "--source 127.0.0.5 --interval 20 --count 5"_s, "127.0.0.5"_s, 5);
        row("second controller", "--sections none --do \"second source=127.0.0.9 interval=10 count=2\""_s,
            "127.0.0.9"_s, 2);
    }

    void sendsFramesOnSchedule()
    {
        QFETCH(QString, options);
        QFETCH(quint32, count);
        QVERIFY(start(options));
        for (quint32 sequence = 1; sequence <= count; ++sequence) {
            const QNetworkDatagram datagram = panel->next();
            QTEST(datagram.senderAddress().toString(), "source");
            QCOMPARE(qFromLittleEndian<quint32>(datagram.data().constData() + 8), sequence);
            QVERIFY(isCorrect(datagram.data()));
            QCOMPARE(datagram.data().size(), 668); // header 16, sections 28 + 8 + 26 + 580 + 8, checksum 2
        }
        QVERIFY(!panel->socket.waitForReadyRead(200)); // ten intervals
    }

    void resolvesNames()
    {
        const QString port = QString::number(panel->socket.localPort());
        QVERIFY(simulator->start("--http localhost:0 --target localhost:"_s + port));
        QVERIFY2(simulator->ready().contains("http=127.0.0.1:"), simulator->ready().constData());
        QCOMPARE(panel->nextSequence(), 1U);
    }

    void choosesSections_data()
    {
        const Rows<QString, QByteArray> row("sections", "heads");
        row("one", "modbuscfg"_s, "60000800");
        row("order is the program's own", "gpiostate,devinfo"_s, "10001c00 20000800");
        row("empty Core", "core,netcfg,snmpcfg"_s, "30001a00 40004402 80000400");
    }

    void choosesSections()
    {
        QFETCH(QString, sections);
        QVERIFY(start("--sections "_s + sections));
        const QByteArray frame = panel->nextFrame();
        QList<QByteArray> found;
        for (int position = 16; position < frame.size() - 2;) {
            found.append(frame.mid(position, 4).toHex());
            position += qFromLittleEndian<quint16>(frame.constData() + position + 2);
        }
        QTEST(found.join(' '), "heads");
    }

    void spoilsFrames()
    {
        QVERIFY(start("--interval 20 --do \"fault kind=crc count=2\""_s));
        QVERIFY(!isCorrect(panel->nextFrame()));
        QVERIFY(!isCorrect(panel->nextFrame()));
        QVERIFY(isCorrect(panel->nextFrame()));
        simulator->act("fault kind=empty count=0");
        QTRY_VERIFY(panel->nextFrame().isEmpty());
        QVERIFY(panel->nextFrame().isEmpty());
        simulator->act("fault kind=none");
        QTRY_VERIFY(isCorrect(panel->nextFrame()));
    }

    void goesSilentAndComesBack()
    {
        QVERIFY(start("--interval 10 --sections none"_s));
        QVERIFY(!panel->socket.waitForReadyRead(100)); // ten intervals
        simulator->act("resume");
        QCOMPARE(panel->nextSequence(), 1U);
        simulator->act("silence seconds=0.3");
        QTRY_COMPARE(simulator->events("action"_s).size(), 2);
        while (panel->socket.hasPendingDatagrams()) {
            panel->socket.receiveDatagram();
        }
        QElapsedTimer clock;
        clock.start();
        QVERIFY(panel->next().isValid());
        QVERIFY2(clock.elapsed() > 150, qPrintable(QString::number(clock.elapsed())));
    }

    void rebootsSendsTwiceAndInBursts()
    {
        QVERIFY(start("--interval 3600000"_s));
        const QByteArray first = panel->nextFrame();
        simulator->act("duplicate count=2");
        QCOMPARE(panel->nextFrame(), first);
        QCOMPARE(panel->nextFrame(), first);
        simulator->act("burst count=3");
        for (quint32 sequence = 2; sequence <= 4; ++sequence) {
            QCOMPARE(panel->nextSequence(), sequence);
        }
        simulator->act("reboot");
        simulator->act("burst");
        QCOMPARE(panel->nextSequence(), 1U);
        simulator->act("sequence next=4294967295");
        simulator->act("burst count=2");
        QCOMPARE(panel->nextSequence(), 4294967295U);
        QCOMPARE(panel->nextSequence(), 0U);
        simulator->act("raw hex=ce01ff");
        QCOMPARE(panel->nextFrame().toHex(), QByteArray("ce01ff"));
    }

    void playsScenarioFile()
    {
        const QTemporaryDir directory;
        writeFile(directory.filePath("a"_s), R"({"steps": [{"at": 0, "do": "sequence", "next": 77},
            {"after": 0.02, "do": "burst", "count": 2}]})");
        QVERIFY(start("--sections none --scenario "_s + directory.filePath("a"_s)));
        QCOMPARE(panel->nextSequence(), 77U);
        QCOMPARE(panel->nextSequence(), 78U);
        QTRY_COMPARE(simulator->events("scenario-ended"_s).size(), 1);
    }

    void logsFrames()
    {
        QVERIFY(start("--count 1 --do \"fault kind=crc\""_s));
        QTRY_COMPARE(simulator->events("frame"_s).size(), 1);
        QJsonObject frame = simulator->events("frame"_s).first();
        QVERIFY(frame.take("time"_s).toDouble() > 0);
        QCOMPARE(frame, (QJsonObject{{"event"_s, "frame"_s},
                                     {"fault"_s, "crc"_s},
                                     {"from"_s, "127.0.0.1"_s},
                                     {"to"_s, panel->target()},
                                     {"octets"_s, 668},
                                     {"sections"_s, 5},
                                     {"sequence"_s, 1}}));
        simulator->act("log enabled=no");
        simulator->act("burst");
        simulator->act("log enabled=yes");
        QTRY_COMPARE(simulator->events("action"_s).size(), 2); // the first --do, and the last log
        QCOMPARE(simulator->events("frame"_s).size(), 1);
    }

    void saysOnceThatNothingCanBeSent()
    {
        QVERIFY(simulator->start("--target 127.255.255.255:9 --source 127.0.0.1 --interval 10"
                                 " --do \"raw hex=%1\""_s.arg(QString(2 * 65508, QLatin1Char('0')))));
        QTRY_VERIFY(simulator->events("frame"_s).size() > 3);
        const QStringList said = simulator->log().lines();
        QCOMPARE(said.size(), 1);
        QVERIFY2(said.first().startsWith("r7m-simulator: cannot send to 127.255.255.255:9: "_s),
                 qPrintable(said.first()));
    }

    void endsOnSignal()
    {
        QVERIFY(simulator->start());
        QCOMPARE(simulator->stop(SIGINT), 0);
        QCOMPARE(simulator->log().lines(), QStringList());
    }

    void saysWhatIsNoAction()
    {
        QVERIFY(simulator->start());
        simulator->act("not an action");
        QTRY_COMPARE(simulator->log().lines(),
                     QStringList("r7m-simulator: \"an\" is not of the form name=value"_s));
    }

    void refusesToStart_data()
    {
        const Rows<QString, QByteArray> row("arguments", "message");
        row("unknown option", "--colour red"_s, "Unknown option 'colour'.");
        row("missing value", "--http"_s, "Missing value after '--http'.");
        row("stray word", "hello"_s, "unexpected argument \"hello\"");
        row("address without port", "--http 127.0.0.1"_s, "--http: \"127.0.0.1\" is not ADDR:PORT");
        row("port too large", "--target 127.0.0.1:65536"_s, "--target: \"127.0.0.1:65536\" is not ADDR:PORT");
        row("no address", "--source 1.2"_s, "--source: \"1.2\" has no IPv4 address");
        row("unknown host", "--http nowhere.invalid:80"_s, "--http: \"nowhere.invalid\" has no IPv4 address");
        row("replay of nothing", "--replay /nowhere.pcap"_s,
            "--replay: /nowhere.pcap: /nowhere.pcap: No such file or directory");
        row("replay of no capture", "--replay " VARNEL_SOURCE_DIR "/device/modbus.map"_s,
            "--replay: " VARNEL_SOURCE_DIR "/device/modbus.map: unknown file format");
        row("replay and frames of its own", "--replay a --count 3"_s,
            "--replay and --count exclude each other");
        row("speed", "--speed 0"_s, "--speed: \"0\" is not a number in range");
        row("recording into a directory", "--record /tmp"_s, "--record: /tmp: Is a directory");
        QVERIFY(other.listen(QHostAddress(QHostAddress::LocalHost), 0));
        const QString endpoint = "127.0.0.1:%1"_s.arg(other.serverPort());
        row("port in use", "--http "_s + endpoint,
            "cannot serve HTTP on " + endpoint.toLatin1() + ": Address already in use");
        row("interval of nothing", "--interval 0"_s, "--interval: \"0\" is not a number in range");
        row("unknown section", "--sections devinfo,lamp"_s, "--sections: \"lamp\" is no section");
        row("unknown page", "--page fancy"_s, "--page: \"fancy\" is neither board nor plain");
        row("no directory", "--upload-dir /nonexistent/a"_s,
            "--upload-dir: \"/nonexistent/a\" is not a directory");
        row("no mapping", "--map /nonexistent/a"_s,
            "cannot read mapping file \"/nonexistent/a\": No such file or directory");
        row("no scenario", "--scenario /nonexistent/a"_s,
            "cannot read scenario \"/nonexistent/a\": No such file or directory");
        row("unknown field", "--set lamp.good=1"_s, "unknown field \"lamp.good\"");
        row("unknown action", "--do fly"_s, "unknown action \"fly\"");
        row("foreign address", "--source 192.0.2.1"_s,
            "cannot send from 192.0.2.1: The address is not available");
        row("no network to broadcast to", "--broadcast --source 192.0.2.1"_s,
            "--broadcast: no network with a broadcast address has the local address \"192.0.2.1\"");
    }

    void refusesToStart()
    {
        QFETCH(QString, arguments);
        QFETCH(QByteArray, message);
        if (!arguments.contains("--http"_s)) {
            arguments.prepend("--http 127.0.0.1:0 "_s);
        }
        const ProgramRun run = runProgram("r7m-simulator"_s, arguments.split(QLatin1Char(' ')));
        QCOMPARE(run.status, 1);
        QCOMPARE(run.errors, "r7m-simulator: " + message + "\n");
        QCOMPARE(run.output, QByteArray());
    }

    void isDocumented()
    {
        const QByteArray help = runProgram("r7m-simulator"_s, {"--help"_s}).output;
        const QList<QByteArray> words = documentedWords(help);
        QVERIFY(words.size() > 50);
        for (const char* path : {"/simulator/README.md", "/docs/man/r7m-simulator.1"}) {
            const QByteArray text =
                contentOf(QLatin1String(VARNEL_SOURCE_DIR) + QLatin1String(path)).replace("\\-", "-");
            for (const QByteArray& word : words) {
                QVERIFY2(text.contains(word), path + (": " + word));
                QVERIFY2(help.contains(word), word);
            }
        }
    }

private:
    /// Starts the simulator with these options; its frames go to the panel.
    bool start(const QString& options = {})
    {
        return simulator->start("--target "_s + panel->target() + QLatin1Char(' ') + options);
    }

    std::unique_ptr<PanelSocket> panel;
    QTcpServer other;
    std::unique_ptr<SimulatorProcess> simulator;
};

QTEST_GUILESS_MAIN(tst_SimulatorProgram)
#include "tst_simulatorprogram.moc"
