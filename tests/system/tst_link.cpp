// SPDX-License-Identifier: MIT
// The controller link of the running panel: first frame, loss, a script that hangs, datagrams of any kind,
// and a recorded controller.

#include <QElapsedTimer>
#include <QFile>
#include <QRandomGenerator>

#include "rows.h"
#include "scene.h"
#include "simulator.h"

namespace {

const QString loss = "No packet received within the  1 s window, unregister  \"192.168.7.2\""_s;
const QString welcome = "First frame, try to connect to the web server at  \"192.168.7.2\""_s;
const QString registration = "r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s;
const QString unregistration = "r7m.sh delete 192.168.7.2 7 161 162 1234"_s;

QByteArray randomOctets(int size)
{
    QByteArray octets(size, '\0');
    QRandomGenerator generator(static_cast<quint32>(size));
    for (char& octet : octets) {
        octet = static_cast<char>(generator.bounded(256));
    }
    return octets;
}

const QRegularExpression redLampLoaded("'http://192.168.7.2/images/red.png' finished"_s);

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
    return capture.open(QIODevice::ReadOnly) && capture.readAll().contains(gpioSection(1, 0, 0, 0));
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
           scene.panel.log().await(redLampLoaded) &&
           simulator.write("set gpiostate.good=on gpiostate.critical=off\n") &&
           awaitTrue([&file] { return hasLastFrame(file); }) && simulator.stop() == 0 &&
           dumpcap.stop(SIGINT) == 0;
}

} // namespace

class tst_Link : public QObject
{
    Q_OBJECT

private slots:
    void firstFrameRegistersAndOpensThePage()
    {
        Scene scene;
        QVERIFY(scene.start());
        scene.panel.log().skip();
        scene.scripts.clear();
        QVERIFY(scene.connectController("fr"));
        QVERIFY(scene.panel.log().await(
            {"Set language to \"fr\" (was \"default\" )"_s, "wv: Set language to \"fr\" (was \"default\" )"_s,
             welcome, "Add R7M"_s, "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s,
             "<now> - Stop buzzer server: http://192.168.7.2/index.html"_s}));
        QCOMPARE(scene.scripts.runLines(), QStringList(registration));
        const WebServer::Request request = scene.server.requests().first();
        QCOMPARE(request.method, QByteArray("GET"));
        QCOMPARE(request.headers.value("user-agent"), QByteArray("Varnel VarnelBrowser/2.0 WebKit"));
        QVERIFY(!request.headers.contains("authorization"));
    }

    void lossIsDeclaredOnce()
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
        QTest::qWait(1200); // longer than the window: there is nothing to await when nothing is to happen
        QCOMPARE(scene.panel.log().count(loss), 1);
        QCOMPARE(scene.scripts.runLines(), QStringList(unregistration));
    }

    void hangingScriptIsKilledAfterThirtySeconds()
    {
        const auto isRunning = [](const char* text) {
            return Program::runTool({"pgrep"_s, "--full"_s, QString::fromLatin1(text)});
        };
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "600")));
        QVERIFY(scene.scripts.install("r7m.sh"_s, "sleep infinity"));
        QVERIFY(scene.server.listen());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(scene.sendFrame());
        QVERIFY(scene.panel.log().await("Add R7M"_s));
        QTRY_VERIFY(isRunning("^sleep infinity"));
        QVERIFY(scene.server.awaitCount("/index.html", 1, std::chrono::seconds(45)));
        QVERIFY2(timer.elapsed() >= 30000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!isRunning("^sleep infinity"));
        QVERIFY(!isRunning("r7m\\.sh"));
        QVERIFY(scene.isAlive());
    }

    void datagramsOfAnySizeDoNoHarm()
    {
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("Network/UdpBindAddress", "127.0.0.1")));
        scene.panel.log().skip();
        RawController controller("127.0.0.2"_s, "127.0.0.1"_s);
        for (const int size :
             {1, 2, 3, 4, 7, 8, 15, 16, 17, 18, 19, 22, 100, 1472, 1500, 9000, 65506, 65507}) {
            const QByteArray noise = randomOctets(size);
            QByteArray rightMagic = noise;
            rightMagic[0] = '\xCE';
            const QByteArray rightChecksum = sealed(rightMagic.chopped(qMin(2, size)));
            for (const QByteArray& datagram : {noise, rightMagic, rightChecksum}) {
                QVERIFY(controller.send(datagram));
                // Each is dropped with a reason; awaiting it keeps the socket's buffer from overflowing.
                QVERIFY(scene.panel.log().await(QRegularExpression(
                    "Drop frame|Unknown RLP version|Out of the continuum|Not a RLP magic number"_s)));
                scene.panel.log().skip();
            }
        }
        QVERIFY(controller.send(QByteArray()));
        QVERIFY(controller.send(Frame(1).devInfo("en").gpioState(1, 0, 0, 1)));
        QVERIFY(scene.panel.log().await("Add R7M"_s));
        QCOMPARE(StandInSys::outputs(), "1001"_s);
        QCOMPARE(scene.scripts.argumentsOf("r7m.sh"_s).size(), 1);
        QCOMPARE(scene.panel.stop(), 0);
    }

    void recordedControllerIsReplayed_data()
    {
        const Rows<QString> row("speed");
        row("in its own time", "1"_s);
        row("three times as fast", "3"_s);
    }

    void recordedControllerIsReplayed()
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
        QVERIFY(scene.panel.log().await(redLampLoaded));
        QTRY_VERIFY(changes(lamps, StandInSys::red).endsWith("10"_s));
        QTRY_VERIFY(changes(lamps, StandInSys::green).endsWith("01"_s));
        QCOMPARE(scene.panel.log().lines().filter("No packet received"_s), QStringList());
        QVERIFY(!simulator.output().contains("/board.js")); // of the simulator's own page
    }
};

QTEST_GUILESS_MAIN(tst_Link)
#include "tst_link.moc"
