// SPDX-License-Identifier: MIT
// The panel's messages to a service manager: its start, its end, and heartbeats of its event loop. A manager
// that does not ask receives none, and the log is the same in both cases.

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QElapsedTimer>
#include <QTest>

#include "notifysocket.h"
#include "transferscene.h"

namespace {

const auto ready = "READY=1"_s;
const auto alive = "WATCHDOG=1"_s;
const auto stopping = "STOPPING=1"_s;

/// Lets the panel know the socket and, if it is not empty, the interval in microseconds.
void manage(Panel& panel, const NotifySocket& socket, const QString& interval = {})
{
    panel.setEnvironment("NOTIFY_SOCKET"_s, QString::fromStdString(socket.path()));
    panel.setEnvironment("WATCHDOG_USEC"_s, interval.isEmpty() ? QString() : interval);
}

/// True once nothing was heard for `limit`: the moment in which a service manager would act.
bool awaitSilence(NotifySocket& socket, std::chrono::milliseconds limit)
{
    QElapsedTimer whole;
    whole.start();
    socket.clear();
    QElapsedTimer quiet;
    quiet.start();
    while (quiet.elapsed() < limit.count() && whole.elapsed() < patience.count()) {
        QTest::qWait(10);
        if (!socket.messages().isEmpty()) {
            socket.clear();
            quiet.restart();
        }
    }
    return quiet.elapsed() >= limit.count();
}

/// All that a panel writes from its start to its orderly end.
QStringList logOfARun(NotifySocket* socket)
{
    Scene scene;
    if (socket != nullptr) {
        manage(scene.panel, *socket, "100000"_s);
    }
    const bool ran = scene.start() && scene.connectController() && scene.isAlive() && scene.panel.stop() == 0;
    return ran ? scene.panel.log().lines() : QStringList();
}

/// A drive so slow that it takes nothing until drain() is called: a pipe in the file's place.
class StuckFile
{
    Q_DISABLE_COPY_MOVE(StuckFile)

public:
    explicit StuckFile(const QString& path)
    {
        const QByteArray name = path.toLocal8Bit();
        if (::mkfifo(name.constData(), 0600) == 0) {
            handle = ::open(name.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        }
    }
    ~StuckFile() { ::close(handle); }

    bool isThere() const { return handle >= 0; }
    /// Takes what waits in the pipe; how many octets came so far.
    qint64 drain()
    {
        char buffer[65536];
        ssize_t count = 0;
        while ((count = ::read(handle, buffer, sizeof buffer)) > 0) {
            taken += count;
        }
        return taken;
    }

private:
    int handle = -1;
    qint64 taken = 0;
};

} // namespace

class tst_ServiceManager : public QObject
{
    Q_OBJECT

private slots:
    void startLifeAndEndAreTold();
    void onlyStartAndEndWithoutInterval();
    void nothingIsToldUnasked();
    void logIsTheSame();
    void fedBeforeEachScript();
    void slowDriveHasItsTime();
    void stoppedPanelIsSilent();
    void endlessScriptOfAPageIsSilent();
};

void tst_ServiceManager::startLifeAndEndAreTold()
{
    NotifySocket socket;
    Scene scene;
    manage(scene.panel, socket, "100000"_s);
    QVERIFY(scene.start());
    QTRY_VERIFY_WITH_TIMEOUT(socket.messages().count(alive) > 5, 20000);
    QCOMPARE(socket.messages().count(ready), 1);
    QVERIFY(scene.connectController());
    socket.clear();
    QTRY_VERIFY_WITH_TIMEOUT(socket.messages().count(alive) > 5, 20000); // with a page, too
    QCOMPARE(scene.panel.stop(), 0);
    QCOMPARE(socket.messages().last(), stopping);
    QCOMPARE(socket.messages().count(stopping), 1);
}

void tst_ServiceManager::onlyStartAndEndWithoutInterval()
{
    NotifySocket socket;
    Scene scene;
    manage(scene.panel, socket);
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    QCOMPARE(scene.panel.stop(), 0);
    QCOMPARE(socket.messages(), QStringList({ready, stopping}));
}

void tst_ServiceManager::nothingIsToldUnasked()
{
    NotifySocket socket;
    Scene scene;
    scene.panel.setEnvironment("WATCHDOG_USEC"_s, "100000"_s); // an interval, but nobody to tell
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    QCOMPARE(scene.panel.stop(), 0);
    QCOMPARE(socket.messages(), QStringList());
}

void tst_ServiceManager::logIsTheSame()
{
    NotifySocket socket;
    const QStringList alone = logOfARun(nullptr);
    const QStringList managed = logOfARun(&socket);
    QVERIFY(alone.contains("UDP stop"_s));
    QVERIFY(socket.messages().contains(alive));
    QCOMPARE(managed, alone);
}

void tst_ServiceManager::fedBeforeEachScript()
{
    NotifySocket socket;
    Scene scene;
    manage(scene.panel, socket, "3600000000"_s); // the event loop's turn would come in half an hour
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    const QStringList messages = socket.messages();
    QVERIFY(scene.scripts.runsOf("r7m.sh"_s).size() == 1);
    QVERIFY(messages.contains(ready));
    QCOMPARE(messages.count(alive), scene.scripts.runs().size());
}

void tst_ServiceManager::slowDriveHasItsTime()
{
    const auto halfAnHour = "WATCHDOG_USEC=1800000000\nWATCHDOG=1"_s;
    const auto usual = "WATCHDOG_USEC=600000000\nWATCHDOG=1"_s;
    constexpr int size = 300000;
    NotifySocket socket;
    VirtualScreen screen;
    QVERIFY(screen.start());
    TransferScene scene(screen);
    manage(scene.panel, socket, "600000000"_s);
    QVERIFY(scene.open(TransferScene::linkPage()));
    scene.leadTo("/download/custom/slow.bin?size=%1"_s.arg(size));
    screen.tap({400, 240});
    QVERIFY(scene.awaitChooser());
    StuckFile file(TransferScene::drive("slow.bin"_s)); // now, since a name that is taken is not proposed
    QVERIFY(file.isThere());
    screen.tap(TransferScene::okButton);
    QVERIFY(scene.panel.log().await("<now> - Download complete"_s));
    QTRY_VERIFY_WITH_TIMEOUT(socket.messages().contains(halfAnHour), 20000);
    QCOMPARE(socket.messages().last(), halfAnHour); // the panel hangs in the write
    QTRY_COMPARE_WITH_TIMEOUT(file.drain(), qint64(size), 20000);
    QTRY_COMPARE_WITH_TIMEOUT(socket.messages().count(usual), 1, 20000);
    QVERIFY(scene.panel.log().await("Ro-remount the usb drive"_s));
    QVERIFY(scene.awaitPage());
    QCOMPARE(scene.panel.stop(), 0);
    QCOMPARE(socket.messages().count(halfAnHour), 1);
}

void tst_ServiceManager::stoppedPanelIsSilent()
{
    NotifySocket socket;
    Scene scene;
    manage(scene.panel, socket, "100000"_s);
    QVERIFY(scene.start());
    QTRY_VERIFY_WITH_TIMEOUT(socket.messages().contains(alive), 20000);
    scene.panel.signal(SIGSTOP);
    QVERIFY(awaitSilence(socket, std::chrono::seconds(1)));
    scene.panel.signal(SIGCONT);
    QTRY_VERIFY_WITH_TIMEOUT(socket.messages().contains(alive), 20000);
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_ServiceManager::endlessScriptOfAPageIsSilent()
{
    NotifySocket socket;
    Scene scene;
    manage(scene.panel, socket, "100000"_s);
    scene.server.serve("/begun", "");
    scene.server.serve("/index.html", "<html><script>"
                                      "var request = new XMLHttpRequest();"
                                      "request.open('GET', '/begun', false); request.send();"
                                      "while (true);"
                                      "</script></html>");
    QVERIFY(scene.start());
    QVERIFY(scene.connectController());
    QVERIFY(scene.server.awaitCount("/begun", 1));
    QVERIFY(awaitSilence(socket, std::chrono::seconds(3)));
    scene.panel.signal(SIGABRT); // as a service manager does then
    QVERIFY(scene.panel.awaitEnd());
    QCOMPARE(scene.panel.exitStatus(), -1);
}

QTEST_GUILESS_MAIN(tst_ServiceManager)
#include "tst_servicemanager.moc"
