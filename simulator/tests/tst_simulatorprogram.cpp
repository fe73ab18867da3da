// SPDX-License-Identifier: MIT
#include "simulatorprocess.h"

#include "framefaults.h"
#include "httpfaults.h"
#include "simulation.h"

#include <QNetworkDatagram>
#include <QTcpServer>
#include <QUdpSocket>
#include <QtTest>

#include <csignal>

namespace {

/// A socket that plays the panel.
class Listener
{
public:
    explicit Listener(const QHostAddress& address = QHostAddress(QHostAddress::LocalHost))
    {
        socket.bind(address, 0);
    }

    [[nodiscard]] QString target() const
    {
        return QStringLiteral("%1:%2").arg(socket.localAddress().toString()).arg(socket.localPort());
    }

    /// The next datagram; an invalid one after five seconds without.
    QNetworkDatagram next()
    {
        if (!socket.hasPendingDatagrams()) {
            socket.waitForReadyRead(5000);
        }
        return socket.receiveDatagram();
    }

    QUdpSocket socket;
};

quint32 sequenceOf(const QByteArray& frame)
{
    return frame.size() < 12 ? 0 : qFromLittleEndian<quint32>(frame.constData() + 8);
}

bool isCorrect(const QByteArray& frame)
{
    return frame.size() > 2 &&
           Simulator::littleEndian(Simulator::crcKermit(frame.chopped(2)), 2) == frame.right(2);
}

/// The names of everything that a user can ask for.
QList<QByteArray> documentedWords()
{
    QList<QByteArray> words{"--http",     "--target",      "--broadcast",  "--source",   "--interval",
                            "--count",    "--sections",    "--set",        "--map",      "--login",
                            "--password", "--page",        "--upload-dir", "--scenario", "--do",
                            "--stdin",    "--log",         "--help",       "--version",  "--record",
                            "--replay",   "--replay-port", "--speed"};
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
    void sendsFramesOnSchedule();
    void sendsToBroadcastAddress();
    void resolvesNames();
    void choosesSections_data();
    void choosesSections();
    void stopsAfterCount();
    void spoilsFrames();
    void goesSilentAndComesBack();
    void rebootsSendsTwiceAndInBursts();
    void playsSecondController();
    void sendsRawOctets();
    void playsScenarioFile();
    void logsFrames();
    void endsOnSignal_data();
    void endsOnSignal();
    void endsOnQuit();
    void refusesToStart_data();
    void refusesToStart();
    void refusesPortInUse();
    void explainsItself();
    void isDocumented_data();
    void isDocumented();
};

void tst_SimulatorProgram::sendsFramesOnSchedule()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(
        simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--source"),
                         QStringLiteral("127.0.0.5"), QStringLiteral("--interval"), QStringLiteral("20")}));
    for (quint32 sequence = 1; sequence <= 5; ++sequence) {
        const QNetworkDatagram datagram = panel.next();
        QCOMPARE(datagram.senderAddress().toString(), QStringLiteral("127.0.0.5"));
        QCOMPARE(sequenceOf(datagram.data()), sequence);
        QVERIFY(isCorrect(datagram.data()));
        QCOMPARE(datagram.data().size(), 668); // header 16, sections 28 + 8 + 26 + 580 + 8, checksum 2
    }
}

void tst_SimulatorProgram::sendsToBroadcastAddress()
{
    Listener panel(QHostAddress(QStringLiteral("127.255.255.255")));
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target()}));
    QCOMPARE(sequenceOf(panel.next().data()), 1U);
}

void tst_SimulatorProgram::resolvesNames()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(
        simulator.start({QStringLiteral("--http"), QStringLiteral("localhost:0"), QStringLiteral("--target"),
                         QStringLiteral("localhost:%1").arg(panel.socket.localPort())}));
    QVERIFY2(simulator.ready.contains(QStringLiteral("http=127.0.0.1:")), qPrintable(simulator.ready));
    QCOMPARE(sequenceOf(panel.next().data()), 1U);
}

void tst_SimulatorProgram::choosesSections_data()
{
    QTest::addColumn<QString>("sections");
    QTest::addColumn<QByteArray>("heads");
    QTest::newRow("one") << QStringLiteral("modbuscfg") << QByteArray("6000");
    QTest::newRow("order is the program's own")
        << QStringLiteral("gpiostate,devinfo") << QByteArray("1000 2000");
    QTest::newRow("empty Core") << QStringLiteral("core,netcfg") << QByteArray("3000 8000");
}

void tst_SimulatorProgram::choosesSections()
{
    QFETCH(QString, sections);
    QFETCH(QByteArray, heads);
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--target"), panel.target(), QStringLiteral("--sections"), sections}));
    const QByteArray frame = panel.next().data();
    QList<QByteArray> found;
    for (int position = 16; position < frame.size() - 2;) {
        found.append(frame.mid(position, 2).toHex());
        position += qFromLittleEndian<quint16>(frame.constData() + position + 2);
    }
    QCOMPARE(found.join(' '), heads);
}

void tst_SimulatorProgram::stopsAfterCount()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--interval"),
                             QStringLiteral("10"), QStringLiteral("--count"), QStringLiteral("3")}));
    for (quint32 sequence = 1; sequence <= 3; ++sequence) {
        QCOMPARE(sequenceOf(panel.next().data()), sequence);
    }
    QVERIFY(!panel.socket.waitForReadyRead(200)); // twenty intervals
}

void tst_SimulatorProgram::spoilsFrames()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--interval"),
                             QStringLiteral("20"), QStringLiteral("--do"),
                             QStringLiteral("fault kind=crc count=2")}));
    QVERIFY(!isCorrect(panel.next().data()));
    QVERIFY(!isCorrect(panel.next().data()));
    QVERIFY(isCorrect(panel.next().data()));
    simulator.act("fault kind=empty count=0");
    QTRY_VERIFY(panel.next().data().isEmpty());
    QVERIFY(panel.next().data().isEmpty());
    simulator.act("fault kind=none");
    QTRY_VERIFY(isCorrect(panel.next().data()));
}

void tst_SimulatorProgram::goesSilentAndComesBack()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--interval"),
                             QStringLiteral("10"), QStringLiteral("--sections"), QStringLiteral("none")}));
    QVERIFY(!panel.socket.waitForReadyRead(100)); // ten intervals
    simulator.act("resume");
    QCOMPARE(sequenceOf(panel.next().data()), 1U);
    simulator.act("silence seconds=0.3");
    QTRY_COMPARE(simulator.events(QStringLiteral("action")).size(), 2);
    while (panel.socket.hasPendingDatagrams()) {
        panel.socket.receiveDatagram();
    }
    QElapsedTimer clock;
    clock.start();
    QVERIFY(panel.next().isValid());
    QVERIFY2(clock.elapsed() > 150, qPrintable(QString::number(clock.elapsed())));
}

void tst_SimulatorProgram::rebootsSendsTwiceAndInBursts()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--interval"),
                             QStringLiteral("3600000")}));
    const QByteArray first = panel.next().data();
    simulator.act("duplicate count=2");
    QCOMPARE(panel.next().data(), first);
    QCOMPARE(panel.next().data(), first);
    simulator.act("burst count=3");
    for (quint32 sequence = 2; sequence <= 4; ++sequence) {
        QCOMPARE(sequenceOf(panel.next().data()), sequence);
    }
    simulator.act("reboot");
    simulator.act("burst");
    QCOMPARE(sequenceOf(panel.next().data()), 1U);
    simulator.act("sequence next=4294967295");
    simulator.act("burst count=2");
    QCOMPARE(sequenceOf(panel.next().data()), 4294967295U);
    QCOMPARE(sequenceOf(panel.next().data()), 0U);
}

void tst_SimulatorProgram::playsSecondController()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--target"), panel.target(), QStringLiteral("--sections"), QStringLiteral("none")}));
    simulator.act("second source=127.0.0.9 interval=10 count=2");
    for (quint32 sequence = 1; sequence <= 2; ++sequence) {
        const QNetworkDatagram datagram = panel.next();
        QCOMPARE(datagram.senderAddress().toString(), QStringLiteral("127.0.0.9"));
        QCOMPARE(sequenceOf(datagram.data()), sequence);
    }
}

void tst_SimulatorProgram::sendsRawOctets()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start(
        {QStringLiteral("--target"), panel.target(), QStringLiteral("--sections"), QStringLiteral("none")}));
    simulator.act("raw hex=ce01ff");
    QCOMPARE(panel.next().data().toHex(), QByteArray("ce01ff"));
}

void tst_SimulatorProgram::playsScenarioFile()
{
    QTemporaryFile file;
    QVERIFY(file.open());
    file.write(
        R"({"steps": [{"at": 0, "do": "sequence", "next": 77}, {"after": 0.02, "do": "burst", "count": 2}]})");
    file.close();
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--sections"),
                             QStringLiteral("none"), QStringLiteral("--scenario"), file.fileName()}));
    QCOMPARE(sequenceOf(panel.next().data()), 77U);
    QCOMPARE(sequenceOf(panel.next().data()), 78U);
    QTRY_COMPARE(simulator.events(QStringLiteral("scenario-ended")).size(), 1);
}

void tst_SimulatorProgram::logsFrames()
{
    Listener panel;
    SimulatorProcess simulator;
    QVERIFY(simulator.start({QStringLiteral("--target"), panel.target(), QStringLiteral("--count"),
                             QStringLiteral("1"), QStringLiteral("--do"), QStringLiteral("fault kind=crc")}));
    QTRY_COMPARE(simulator.events(QStringLiteral("frame")).size(), 1);
    QJsonObject frame = simulator.events(QStringLiteral("frame")).first();
    QVERIFY(frame.take(QStringLiteral("time")).toDouble() > 0);
    QCOMPARE(frame, (QJsonObject{{QStringLiteral("event"), QStringLiteral("frame")},
                                 {QStringLiteral("fault"), QStringLiteral("crc")},
                                 {QStringLiteral("from"), QStringLiteral("127.0.0.1")},
                                 {QStringLiteral("to"), panel.target()},
                                 {QStringLiteral("octets"), 668},
                                 {QStringLiteral("sections"), 5},
                                 {QStringLiteral("sequence"), 1}}));
    simulator.act("log enabled=no");
    simulator.act("burst");
    simulator.act("log enabled=yes");
    QTRY_COMPARE(simulator.events(QStringLiteral("action")).size(), 2); // the first --do, and the last log
    QCOMPARE(simulator.events(QStringLiteral("frame")).size(), 1);
}

void tst_SimulatorProgram::endsOnSignal_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGINT") << SIGINT;
}

void tst_SimulatorProgram::endsOnSignal()
{
    QFETCH(int, number);
    SimulatorProcess simulator;
    QVERIFY(simulator.start({}));
    ::kill(static_cast<pid_t>(simulator.process.processId()), number);
    QVERIFY(simulator.process.waitForFinished(5000));
    QCOMPARE(simulator.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(simulator.process.exitCode(), 0);
    QCOMPARE(simulator.process.readAllStandardError(), QByteArray());
}

void tst_SimulatorProgram::endsOnQuit()
{
    SimulatorProcess simulator;
    QVERIFY(simulator.start({}));
    simulator.act("not an action");
    simulator.act("quit");
    QVERIFY(simulator.process.waitForFinished(5000));
    QCOMPARE(simulator.process.exitCode(), 0);
    QCOMPARE(simulator.process.readAllStandardError(),
             QByteArray("r7m-simulator: \"an\" is not of the form name=value\n"));
}

void tst_SimulatorProgram::refusesToStart_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QByteArray>("message");

    const auto row = [](const char* name, const QStringList& arguments, const char* message) {
        QTest::newRow(name) << arguments << QByteArray(message);
    };
    const auto words = [](const char* line) { return QString(QLatin1String(line)).split(QLatin1Char(' ')); };
    row("unknown option", words("--colour red"), "Unknown option 'colour'.");
    row("missing value", words("--http"), "Missing value after '--http'.");
    row("stray word", words("hello"), "unexpected argument \"hello\"");
    row("address without port", words("--http 127.0.0.1"), "--http: \"127.0.0.1\" is not ADDR:PORT");
    row("port too large", words("--target 127.0.0.1:65536"),
        "--target: \"127.0.0.1:65536\" is not ADDR:PORT");
    row("no address", words("--source 1.2"), "--source: \"1.2\" has no IPv4 address");
    row("unknown host", words("--http nowhere.invalid:80"),
        "--http: \"nowhere.invalid\" has no IPv4 address");
    row("replay of nothing", words("--replay /nowhere.pcap"),
        "--replay: /nowhere.pcap: /nowhere.pcap: No such file or directory");
    row("replay of no capture",
        {QStringLiteral("--replay"), QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map")},
        "--replay: " VARNEL_SOURCE_DIR "/device/modbus.map: unknown file format");
    row("replay and frames of its own", words("--replay a --count 3"),
        "--replay and --count exclude each other");
    row("speed", words("--speed 0"), "--speed: \"0\" is not a number in range");
    row("recording into a directory", words("--record /tmp"), "--record: /tmp: Is a directory");
    row("interval of nothing", words("--interval 0"), "--interval: \"0\" is not a number in range");
    row("unknown section", words("--sections devinfo,lamp"), "--sections: \"lamp\" is no section");
    row("unknown page", words("--page fancy"), "--page: \"fancy\" is neither board nor plain");
    row("no directory", words("--upload-dir /nonexistent/a"),
        "--upload-dir: \"/nonexistent/a\" is not a directory");
    row("no mapping", words("--map /nonexistent/a"),
        "cannot read mapping file \"/nonexistent/a\": No such file or directory");
    row("no scenario", words("--scenario /nonexistent/a"),
        "cannot read scenario \"/nonexistent/a\": No such file or directory");
    row("unknown field", words("--set lamp.good=1"), "unknown field \"lamp.good\"");
    row("unknown action", words("--do fly"), "unknown action \"fly\"");
    row("foreign address", words("--source 192.0.2.1"),
        "cannot send from 192.0.2.1: The address is not available");
    row("no network to broadcast to", words("--broadcast --source 192.0.2.1"),
        "--broadcast: no network with a broadcast address has the local address \"192.0.2.1\"");
}

void tst_SimulatorProgram::refusesToStart()
{
    QFETCH(QStringList, arguments);
    QFETCH(QByteArray, message);
    QProcess process;
    if (!arguments.contains(QStringLiteral("--http"))) {
        arguments = QStringList{QStringLiteral("--http"), QStringLiteral("127.0.0.1:0")} + arguments;
    }
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"), arguments);
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitCode(), 1);
    QCOMPARE(process.readAllStandardError(), "r7m-simulator: " + message + "\n");
    QCOMPARE(process.readAllStandardOutput(), QByteArray());
}

void tst_SimulatorProgram::refusesPortInUse()
{
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress(QHostAddress::LocalHost), 0));
    const QByteArray endpoint = "127.0.0.1:" + QByteArray::number(other.serverPort());
    QProcess process;
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"),
                  {QStringLiteral("--http"), QString::fromLatin1(endpoint)});
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitCode(), 1);
    QCOMPARE(process.readAllStandardError(),
             "r7m-simulator: cannot serve HTTP on " + endpoint + ": Address already in use\n");
}

void tst_SimulatorProgram::explainsItself()
{
    QProcess process;
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"), {QStringLiteral("--help")});
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitCode(), 0);
    const QByteArray help = process.readAllStandardOutput();
    for (const QByteArray& word : documentedWords()) {
        QVERIFY2(help.contains(word), word.constData());
    }
    process.start(QStringLiteral(VARNEL_PROGRAM_DIR "/r7m-simulator"), {QStringLiteral("--version")});
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.readAllStandardOutput(), QByteArray("r7m-simulator " VARNEL_VERSION "\n"));
}

void tst_SimulatorProgram::isDocumented_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("README") << QStringLiteral(VARNEL_SOURCE_DIR "/simulator/README.md");
    QTest::newRow("manual page") << QStringLiteral(VARNEL_SOURCE_DIR "/docs/man/r7m-simulator.1");
}

void tst_SimulatorProgram::isDocumented()
{
    QFETCH(QString, path);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll().replace("\\-", "-");
    for (const QByteArray& word : documentedWords()) {
        QVERIFY2(text.contains(word), word.constData());
    }
}

QTEST_GUILESS_MAIN(tst_SimulatorProgram)
#include "tst_simulatorprogram.moc"
