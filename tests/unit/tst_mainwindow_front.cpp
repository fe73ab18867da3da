// SPDX-License-Identifier: MIT
#include <memory>

#include <QDir>
#include <QFile>
#include <QTest>

#include "panelview.h"
#include "webserver.h"
#include "withoutfileoverride.h"

using namespace Varnel;

/// The service link: its info page while the front interface is up, the last page afterwards.
class tst_MainWindowFront : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void operstate_data();
    void operstate();
    void upAndDown();
    void isPolled();

private:
    std::unique_ptr<WebServer> server;
};

namespace {

const QString pagePath = QStringLiteral("/index.html");
const QString stateFile = QStringLiteral("/sys/class/net/usb0/operstate");
const QString loadInfo = QStringLiteral("Load front connection info page");
const QString reloadLast = QStringLiteral("Reload last page");

void write(const QString& path, const QByteArray& contents)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size()) {
        qFatal("cannot write %s", qPrintable(path));
    }
}

void poll(PanelView& panel)
{
    QVERIFY(QMetaObject::invokeMethod(&panel.window, "watchFrontInterface", Qt::DirectConnection));
}

} // namespace

void tst_MainWindowFront::init()
{
    server = std::make_unique<WebServer>();
    server->serve(pagePath, QByteArray("<p>page</p>"));
    write(stateFile, "down\n");
}

void tst_MainWindowFront::cleanup()
{
    // The last state of the service link outlives a window: bring it back to down.
    QDir().rmdir(stateFile);
    write(stateFile, "down\n");
    PanelView panel;
    poll(panel);
    server.reset();
}

void tst_MainWindowFront::operstate_data()
{
    QTest::addColumn<QByteArray>("contents");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("up");
    const auto row = [](const char* name, const QByteArray& contents, bool up, const char* kind = "file") {
        QTest::newRow(name) << contents << QString::fromLatin1(kind) << up;
    };
    row("up", "up\n", true);
    row("up without line end", "up", true);
    row("down", "down\n", false);
    row("unknown", "unknown\n", false);
    row("dormant", "dormant\n", false);
    row("up anywhere in the line", "setup\n", true);
    row("up in the second line: not read", "down\nup\n", false);
    row("UP: another word", "UP\n", false);
    row("empty", "", false);
    row("missing", "", false, "missing");
    row("a directory", "", false, "directory");
    row("unreadable", "up\n", false, "unreadable");
}

void tst_MainWindowFront::operstate()
{
    QFETCH(QByteArray, contents);
    QFETCH(QString, kind);
    QFETCH(bool, up);
    QVERIFY(QFile::remove(stateFile));
    if (kind == QLatin1String("directory")) {
        QVERIFY(QDir().mkdir(stateFile));
    } else if (kind != QLatin1String("missing")) {
        write(stateFile, contents);
    }
    PanelView panel;
    if (kind == QLatin1String("unreadable")) {
        QVERIFY(QFile::setPermissions(stateFile, QFileDevice::Permissions()));
        const WithoutFileOverride asAnybody;
        poll(panel);
    } else {
        poll(panel);
    }
    QCOMPARE(panel.count(loadInfo), up ? 1 : 0);
    QCOMPARE(panel.log().size(), up ? 3 : 0);
    QFile::remove(stateFile);
}

void tst_MainWindowFront::upAndDown()
{
    const ScopedSetting<QString> front("Network", "FrontInterface", QStringLiteral("front 0"));
    const QString path = QStringLiteral("/sys/class/net/front 0");
    QVERIFY(QDir().mkpath(path));
    const QString state = path + QStringLiteral("/operstate");
    write(state, "down\n");
    PanelView panel;
    panel.window.openUrlForce(server->url(pagePath).toString(), true);
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    panel.clear();
    poll(panel);
    QCOMPARE(panel.log(), QStringList());

    write(state, "up\n");
    poll(panel);
    QCOMPARE(panel.log(), (QStringList{loadInfo, QStringLiteral("ws: Load info page ( \"default\" )"),
                                       QStringLiteral("\"/usr/local/share/default\"")}));
    QTRY_VERIFY(panel.text().startsWith(QLatin1String("Can't find the info page")));
    panel.clear();
    poll(panel);
    poll(panel);
    QCOMPARE(panel.log(), QStringList()); // shown once

    write(state, "down\n");
    const QString url = server->url(pagePath).toString();
    poll(panel);
    QCOMPARE(panel.log(),
             (QStringList{reloadLast, QStringLiteral("MainWindow::openUrlForce  \"%1\"").arg(url),
                          QStringLiteral("TIME - Stop buzzer server: ") + url}));
    QTRY_COMPARE(panel.text(), QStringLiteral("page"));
    QCOMPARE(server->count(pagePath), 2);
    panel.clear();
    poll(panel);
    QCOMPARE(panel.log(), QStringList()); // reloaded once

    // Without any page so far, the end of the service link shows the error page.
    PanelView fresh;
    write(state, "up\n");
    poll(fresh);
    write(state, "down\n");
    fresh.clear();
    poll(fresh);
    QCOMPARE(fresh.log(), (QStringList{reloadLast, QStringLiteral("MainWindow::openUrlForce  \"\""),
                                       QStringLiteral("wv: Load error page ( \"default\" )"),
                                       QStringLiteral("\"/usr/local/share/default\""),
                                       QStringLiteral("Can't open url ( true ,  \"\" )")}));
}

void tst_MainWindowFront::isPolled()
{
    PanelView panel;
    write(stateFile, "up\n");
    QTRY_COMPARE(panel.count(loadInfo), 1);
}

QTEST_MAIN(tst_MainWindowFront)
#include "tst_mainwindow_front.moc"
