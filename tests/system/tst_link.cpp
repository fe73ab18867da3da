// SPDX-License-Identifier: MIT
// The controller link of the running panel: first frame, loss, return, strangers, datagrams of any kind, and
// a recorded controller.

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>
#include <QTest>
#include <QTimer>

#include "scene.h"
#include "simulator.h"

namespace {

const QString loss = "No packet received within the  1 s window, unregister  \"192.168.7.2\""_s;
const QString welcome = "First frame, try to connect to the web server at  \"192.168.7.2\""_s;
const QByteArray page = "/index.html";

QByteArray randomOctets(int size, quint32 seed)
{
    QByteArray octets(size, '\0');
    QRandomGenerator generator(seed);
    for (char& octet : octets) {
        octet = static_cast<char>(generator.bounded(256));
    }
    return octets;
}

SettingsFile loginSettings()
{
    return SettingsFile().set("WebSite/Login", "admin").set("WebSite/Password", "admin");
}

/// The different values that were written to a lamp, in order.
QString changes(const WriteRecorder& lamps, int line)
{
    QStringList texts = lamps.texts(StandInSys::valueFile(line));
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return texts.join(QString());
}

/// Whether the capture holds a frame with the green lamp on and all else off; it is written with a delay.
bool hasLastFrame(const QString& file)
{
    QFile capture(file);
    return capture.open(QIODevice::ReadOnly) &&
           capture.readAll().contains(QByteArray::fromHex("2000080001000000"));
}

/// Records a simulator and a panel that shows its still page: the red lamp is on first, then the green one.
bool recordSession(const QString& file)
{
    Program dumpcap("/usr/bin/dumpcap"_s);
    Scene scene;
    Simulator simulator;
    return dumpcap.start({"-q"_s, "-i"_s, "any"_s, "-w"_s, file}) && dumpcap.log().await("File: "_s + file) &&
           scene.start(loginSettings(), {"-v"_s}) &&
           simulator.startAndListen({"--page"_s, "plain"_s, "--set"_s, "gpiostate.good=off"_s, "--set"_s,
                                     "gpiostate.critical=on"_s}) &&
           scene.panel.log().await(QRegularExpression("'http://192.168.7.2/images/red.png' finished"_s)) &&
           (simulator.act("set gpiostate.good=on gpiostate.critical=off"_s), true) &&
           QTest::qWaitFor([&file] { return hasLastFrame(file); }, 20000) && simulator.stop() == 0 &&
           dumpcap.stop(SIGINT) == 0;
}

} // namespace

class tst_Link : public QObject
{
    Q_OBJECT

private slots:
    void firstFrameRegistersAndOpensThePage();
    void lossIsDeclaredOnce();
    void controllerThatReturnsIsWelcomedAgain();
    void droppedFramesDoNotKeepTheLinkUp();
    void linkLossBlinksFast();
    void datagramsOfAnySizeDoNoHarm();
    void burstIsHandledWhole();
    void recordedControllerIsReplayed_data();
    void recordedControllerIsReplayed();
};

void tst_Link::firstFrameRegistersAndOpensThePage()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.panel.log().skip();
    scene.scripts.clear();
    QVERIFY(scene.connectController("fr"));
    QVERIFY(scene.panel.log().await({"Set language to \"fr\" (was \"default\" )"_s,
                                     "wv: Set language to \"fr\" (was \"default\" )"_s, welcome, "Add R7M"_s,
                                     "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s,
                                     "<now> - Stop buzzer server: http://192.168.7.2/index.html"_s}));
    QCOMPARE(scene.scripts.runLines(), QStringList("r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s));
    const WebServer::Request request = scene.server.requests().first();
    QCOMPARE(request.method, QByteArray("GET"));
    QCOMPARE(request.headers.value("user-agent"), QByteArray("Varnel VarnelBrowser/2.0 WebKit"));
    QVERIFY(!request.headers.contains("authorization"));
}

void tst_Link::lossIsDeclaredOnce()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    QVERIFY(scene.connectController());
    QVERIFY(scene.panel.log().await(welcome));
    scene.scripts.clear();
    QElapsedTimer sinceFrame;
    sinceFrame.start();
    QVERIFY(scene.panel.log().await({loss, "Remove R7M"_s, "wv: Load error page ( \"en\" )"_s}));
    QVERIFY(sinceFrame.elapsed() < 3000);
    QVERIFY(scene.scripts.awaitRuns(1));
    QCOMPARE(scene.scripts.runLines(), QStringList("r7m.sh delete 192.168.7.2 7 161 162 1234"_s));
    QTest::qWait(1200); // longer than the window: there is nothing to await when nothing is to happen
    QCOMPARE(scene.panel.log().count(loss), 1);
    QCOMPARE(scene.scripts.runs().size(), 1);
}

void tst_Link::controllerThatReturnsIsWelcomedAgain()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    for (int round = 0; round < 2; ++round) {
        scene.scripts.clear();
        scene.sequence = 0; // it has rebooted: its numbers start again
        QVERIFY(scene.connectController());
        QVERIFY(scene.panel.log().await({welcome, loss, "Remove R7M"_s}));
        QVERIFY(scene.scripts.awaitRuns(2));
        QCOMPARE(scene.scripts.runLines(), QStringList({"r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s,
                                                        "r7m.sh delete 192.168.7.2 7 161 162 1234"_s}));
    }
    QCOMPARE(scene.panel.log().count("Back in the sequence, probable reboot of the RxM"_s), 0);
    QCOMPARE(scene.server.count(page), 2);
}

void tst_Link::droppedFramesDoNotKeepTheLinkUp()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    QVERIFY(scene.connectController());
    QByteArray wrongChecksum = Frame(99).gpioState(1, 1, 1, 1).octets();
    wrongChecksum[wrongChecksum.size() - 1] = static_cast<char>(~wrongChecksum.back());
    QTimer pace;
    connect(&pace, &QTimer::timeout, this, [&] { QVERIFY(scene.controller.send(wrongChecksum)); });
    pace.start(100);
    QVERIFY(scene.panel.log().await(QRegularExpression("^Invalid checksum \\(0x"_s)));
    QVERIFY(scene.panel.log().await(loss));
}

void tst_Link::linkLossBlinksFast()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    QVERIFY(scene.connectController());
    QVERIFY(scene.controller.send(Frame(50).gpioState(0, 0, 0, 1)));
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    const QStringList lamps{StandInSys::valueFile(StandInSys::green),
                            StandInSys::valueFile(StandInSys::yellow),
                            StandInSys::valueFile(StandInSys::red)};
    const WriteRecorder recorder(lamps);
    for (const QString& lamp : lamps) {
        QVERIFY(recorder.awaitWrites(lamp, 6));
    }
    for (const QString& lamp : lamps) {
        // The first toggle may follow the loss so closely that the texts of both are one.
        const QStringList texts = recorder.texts(lamp).mid(2);
        for (int i = 1; i < texts.size(); ++i) {
            QVERIFY2(texts.at(i) != texts.at(i - 1), qPrintable(lamp));
        }
    }
    const auto writes = recorder.writes();
    const auto span =
        std::chrono::duration_cast<std::chrono::milliseconds>(writes.at(15).time - writes.at(0).time);
    // Fifteen writes after the first are five phases of 250 ms later.
    QVERIFY2(span > std::chrono::milliseconds(1000) && span < std::chrono::milliseconds(1900),
             qPrintable(QString::number(span.count())));
    QCOMPARE(StandInSys::value(StandInSys::buzzer), "1"_s);
}

void tst_Link::datagramsOfAnySizeDoNoHarm()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpBindAddress", "127.0.0.1")));
    scene.panel.log().skip();
    RawController controller("127.0.0.2"_s, "127.0.0.1"_s);
    int sent = 0;
    for (const int size : {1, 2, 3, 4, 7, 8, 15, 16, 17, 18, 19, 22, 100, 1472, 1500, 9000, 65506, 65507}) {
        const QByteArray noise = randomOctets(size, static_cast<quint32>(size));
        QByteArray rightMagic = noise;
        rightMagic[0] = '\xCE';
        QByteArray rightChecksum = rightMagic;
        const quint16 checksum = kermit(rightChecksum.chopped(qMin(2, size)));
        rightChecksum = rightChecksum.chopped(qMin(2, size)) + static_cast<char>(checksum) +
                        static_cast<char>(checksum >> 8);
        for (const QByteArray& datagram : {noise, rightMagic, rightChecksum}) {
            QVERIFY(controller.send(datagram));
            ++sent;
            // Each is dropped with a reason; awaiting it keeps the socket's buffer from overflowing.
            QVERIFY(scene.panel.log().await(QRegularExpression(
                "Drop frame|Unknown RLP version|Out of the continuum|Not a RLP magic number"_s)));
            scene.panel.log().skip();
        }
    }
    QCOMPARE(sent, 54);
    QVERIFY(controller.send(QByteArray()));
    QVERIFY(controller.send(Frame(1).devInfo("en").gpioState(1, 0, 0, 1)));
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    QCOMPARE(StandInSys::value(StandInSys::buzzer), "1"_s);
    QCOMPARE(scene.scripts.runsOf("r7m.sh"_s).size(), 1);
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_Link::burstIsHandledWhole()
{
    Scene scene;
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    for (quint32 number = 100; number < 200; ++number) {
        QVERIFY(scene.controller.send(Frame(number).devInfo(number % 2 == 0 ? "de" : "fr")));
    }
    scene.sequence = 200;
    QVERIFY(scene.isAlive());
    QTRY_COMPARE_WITH_TIMEOUT(scene.panel.log().lines().filter("wv: Set language to \"de\""_s).size(), 50,
                              20000);
    QTRY_COMPARE_WITH_TIMEOUT(scene.panel.log().lines().filter("wv: Set language to \"fr\""_s).size(), 50,
                              20000);
}

void tst_Link::recordedControllerIsReplayed_data()
{
    QTest::addColumn<QString>("speed");
    QTest::newRow("in its own time") << "1"_s;
    QTest::newRow("three times as fast") << "3"_s;
}

void tst_Link::recordedControllerIsReplayed()
{
    QFETCH(QString, speed);
    const QString recording = "/tmp/controller.pcapng"_s;
    QVERIFY(recordSession(recording));
    Scene scene;
    QVERIFY(scene.start(loginSettings(), {"-v"_s}));
    const WriteRecorder lamps(
        {StandInSys::valueFile(StandInSys::red), StandInSys::valueFile(StandInSys::green)});
    Simulator simulator;
    QVERIFY(simulator.startAndListen({"--replay"_s, recording, "--speed"_s, speed}));
    QVERIFY(scene.panel.log().await(welcome));
    QVERIFY(scene.panel.log().await(QRegularExpression("'http://192.168.7.2/images/red.png' finished"_s)));
    QTRY_VERIFY(changes(lamps, StandInSys::red).endsWith("10"_s));
    QTRY_VERIFY(changes(lamps, StandInSys::green).endsWith("01"_s));
    QCOMPARE(scene.panel.log().lines().filter("No packet received"_s), QStringList());
    const QList<QJsonObject> events = simulator.events();
    QVERIFY(std::none_of(events.begin(), events.end(), [](const QJsonObject& event) {
        return event.value("path"_s) == "/board.js"_s; // of the simulator's own page
    }));
}

QTEST_GUILESS_MAIN(tst_Link)
#include "tst_link.moc"
