// SPDX-License-Identifier: MIT
// The panel's messages to a service manager: its start, its end, and heartbeats of its event loop. A manager
// that does not ask receives none, and the log is the same in both cases.

#include <fcntl.h>
#include <sys/stat.h>

#include <QElapsedTimer>
#include <QTest>

#include "notifysocket.h"
#include "transferscene.h"

namespace {

const auto ready = "READY=1"_s;
const auto alive = "WATCHDOG=1"_s;
const auto stopping = "STOPPING=1"_s;

/// Lets the panel know the socket and, if there is one, the interval in microseconds.
void manage(Panel& panel, const NotifySocket& socket, const QString& interval = {})
{
    panel.setEnvironment("NOTIFY_SOCKET"_s, QString::fromStdString(socket.path()));
    panel.setEnvironment("WATCHDOG_USEC"_s, interval);
}

/// True once nothing was heard for `limit`: the moment in which a service manager would act.
bool awaitSilence(NotifySocket& socket, std::chrono::milliseconds limit)
{
    socket.clear();
    QElapsedTimer quiet;
    quiet.start();
    return awaitTrue([&] {
        if (!socket.messages().isEmpty()) {
            socket.clear();
            quiet.restart();
        }
        return quiet.elapsed() >= limit.count();
    });
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

} // namespace

class tst_ServiceManager : public QObject
{
    Q_OBJECT

private slots:
    void startLifeAndEndAreTold()
    {
        NotifySocket socket;
        Scene scene;
        manage(scene.panel, socket, "100000"_s);
        QVERIFY(scene.start());
        QVERIFY(awaitTrue([&] { return socket.messages().count(alive) > 5; }));
        QCOMPARE(socket.messages().count(ready), 1);
        QVERIFY(scene.connectController());
        socket.clear();
        QVERIFY(awaitTrue([&] { return socket.messages().count(alive) > 5; })); // with a page, too
        QCOMPARE(scene.panel.stop(), 0);
        QCOMPARE(socket.messages().last(), stopping);
        QCOMPARE(socket.messages().count(stopping), 1);
    }

    void logIsTheSame()
    {
        NotifySocket socket;
        const QStringList alone = logOfARun(nullptr);
        const QStringList managed = logOfARun(&socket);
        QVERIFY(alone.contains("UDP stop"_s));
        QVERIFY(socket.messages().contains(alive));
        QCOMPARE(managed, alone);
    }

    void slowDriveHasItsTime()
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
        // A drive so slow that it takes nothing yet: a pipe in the file's place, put there now since a name
        // that is taken is not proposed.
        const QByteArray path = scene.drive.path("slow.bin"_s).toLocal8Bit();
        QCOMPARE(::mkfifo(path.constData(), 0600), 0);
        QFile pipe;
        QVERIFY(pipe.open(::open(path.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC),
                          QIODevice::ReadOnly | QIODevice::Unbuffered, QFile::AutoCloseHandle));
        screen.tap(TransferScene::okButton);
        QVERIFY(scene.panel.log().await("<now> - Download complete"_s));
        QVERIFY(awaitTrue([&] { return socket.messages().contains(halfAnHour); }));
        QCOMPARE(socket.messages().last(), halfAnHour); // the panel hangs in the write
        int taken = 0;
        QVERIFY(awaitTrue([&] { return (taken += pipe.readAll().size()) == size; }));
        QVERIFY(awaitTrue([&] { return socket.messages().count(usual) == 1; }));
        QVERIFY(scene.panel.log().await("Ro-remount the usb drive"_s));
        QVERIFY(scene.awaitPage());
        QCOMPARE(scene.panel.stop(), 0);
        QCOMPARE(socket.messages().count(halfAnHour), 1);
    }

    void endlessScriptOfAPageIsSilent()
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
};

QTEST_GUILESS_MAIN(tst_ServiceManager)
#include "tst_servicemanager.moc"
