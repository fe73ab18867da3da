// SPDX-License-Identifier: MIT
#include <memory>

#include <QDir>
#include <QFile>

#include "panelview.h"
#include "rows.h"
#include "webserver.h"
#include "withoutfileoverride.h"

using namespace Varnel;

namespace {

const QString stateFile = "/sys/class/net/usb0/operstate"_s;
const QString loadInfo = "Load front connection info page"_s;
const QString reloadLast = "Reload last page"_s;

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

/// The service link: its info page while the front interface is up, the last page afterwards.
class tst_MainWindowFront : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/page", "<p>page</p>");
        write(stateFile, "down\n");
    }

    void cleanup()
    {
        // The last state of the service link outlives a window: bring it back to down.
        QDir().rmdir(stateFile);
        write(stateFile, "down\n");
        PanelView panel;
        poll(panel);
    }

    void operstate_data()
    {
        const Rows<QByteArray, QString, bool> row("contents", "kind", "up");
        row("up", "up\n", "file"_s, true);
        row("up without line end", "up", "file"_s, true);
        row("down", "down\n", "file"_s, false);
        row("dormant", "dormant\n", "file"_s, false);
        row("up anywhere in the line", "setup\n", "file"_s, true);
        row("up in the second line: not read", "down\nup\n", "file"_s, false);
        row("UP: another word", "UP\n", "file"_s, false);
        row("empty", "", "file"_s, false);
        row("missing", "", "missing"_s, false);
        row("a directory", "", "directory"_s, false);
        row("unreadable", "up\n", "unreadable"_s, false);
    }

    void operstate()
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
        QVERIFY(kind != "unreadable"_s || QFile::setPermissions(stateFile, QFileDevice::Permissions()));
        {
            const WithoutFileOverride asAnybody;
            poll(panel);
        }
        QCOMPARE(panel.count(loadInfo), up ? 1 : 0);
        QCOMPARE(panel.log().size(), up ? 3 : 0);
        QFile::remove(stateFile);
    }

    void upAndDown()
    {
        const ScopedSetting<QString> front("Network", "FrontInterface", "front 0"_s);
        const QString state = "/sys/class/net/front 0/operstate"_s;
        QVERIFY(QDir().mkpath(QFileInfo(state).path()));
        write(state, "down\n");
        PanelView panel;
        panel.window.openUrlForce(server->url("/page").toString(), true);
        QTRY_COMPARE(panel.text(), "page"_s);
        panel.clear();
        poll(panel);
        QCOMPARE(panel.log(), QStringList());

        write(state, "up\n");
        poll(panel);
        QCOMPARE(panel.log(), QStringList({loadInfo, "ws: Load info page ( \"default\" )"_s,
                                           "\"/usr/local/share/default\""_s}));
        QTRY_VERIFY(panel.text().startsWith(QLatin1String("Can't find the info page")));
        panel.clear();
        poll(panel);
        poll(panel);
        QCOMPARE(panel.log(), QStringList()); // shown once

        write(state, "down\n");
        const QString url = server->url("/page").toString();
        poll(panel);
        QCOMPARE(panel.log(), QStringList({reloadLast, "MainWindow::openUrlForce  \"%1\""_s.arg(url),
                                           "TIME - Stop buzzer server: "_s + url}));
        QTRY_COMPARE(panel.text(), "page"_s);
        QCOMPARE(server->count("/page"), 2);
        panel.clear();
        poll(panel);
        QCOMPARE(panel.log(), QStringList()); // reloaded once
    }

    void isPolled()
    {
        PanelView panel;
        write(stateFile, "up\n");
        QTRY_COMPARE(panel.count(loadInfo), 1);
    }

private:
    std::unique_ptr<WebServer> server;
};

QTEST_MAIN(tst_MainWindowFront)
#include "tst_mainwindow_front.moc"
