// SPDX-License-Identifier: MIT
// The service link at the panel's front: its info page while it is up, the last page when it goes down.

#include <QDir>
#include <QTest>

#include "scene.h"

namespace {

const QString infoPage = "Load front connection info page"_s;
const QString lastPage = "Reload last page"_s;
const QString serviceLink = "usb0"_s;

} // namespace

class tst_FrontInterface : public QObject
{
    Q_OBJECT

private slots:
    void upShowsTheInfoPageOnceAndDownTheLastPageOnce();
    void downWithoutAnyPageShowsTheErrorPage();
    void operState_data();
    void operState();
    void interfaceIsASetting();
};

void tst_FrontInterface::upShowsTheInfoPageOnceAndDownTheLastPageOnce()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "600")));
    QVERIFY(scene.connectController("de"));
    scene.sys.setOperState(serviceLink, "up"_s);
    QVERIFY(
        scene.panel.log().await({infoPage, "ws: Load info page ( \"de\" )"_s, "\"/usr/local/share/de\""_s}));
    QTest::qWait(2500); // one more look at the link: there is nothing to await when nothing is to happen
    scene.sys.setOperState(serviceLink, "down"_s);
    QVERIFY(
        scene.panel.log().await({lastPage, "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s}));
    QVERIFY(scene.server.awaitCount("/index.html", 2));
    scene.sys.removeInterface(serviceLink); // counts as down: nothing changes
    QTest::qWait(2500);
    QCOMPARE(scene.panel.log().count(infoPage), 1);
    QCOMPARE(scene.panel.log().count(lastPage), 1);
    QCOMPARE(scene.server.count("/index.html"), 2);
}

void tst_FrontInterface::downWithoutAnyPageShowsTheErrorPage()
{
    Scene scene;
    scene.sys.setOperState(serviceLink, "up"_s);
    QVERIFY(scene.start());
    QVERIFY(scene.panel.log().await(infoPage));
    scene.sys.setOperState(serviceLink, "down"_s);
    QVERIFY(scene.panel.log().await({lastPage, "MainWindow::openUrlForce  \"\""_s,
                                     "wv: Load error page ( \"default\" )"_s,
                                     "Can't open url ( true ,  \"\" )"_s}));
}

void tst_FrontInterface::operState_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("up");
    QTest::newRow("up: up") << "up"_s << true;
    QTest::newRow("text that holds up: up") << "set-up pending"_s << true;
    QTest::newRow("up in the second line: down") << "down\nup"_s << false;
    QTest::newRow("UP: down") << "UP"_s << false;
    QTest::newRow("empty: down") << QString() << false;
    QTest::newRow("a directory: down") << "(directory)"_s << false;
}

void tst_FrontInterface::operState()
{
    QFETCH(QString, text);
    QFETCH(bool, up);
    Scene scene;
    if (text == "(directory)"_s) {
        scene.sys.removeInterface(serviceLink);
        QVERIFY(QDir().mkpath("/sys/class/net/usb0/operstate"_s));
    } else {
        scene.sys.setOperState(serviceLink, text);
    }
    QVERIFY(scene.start());
    if (up) {
        QVERIFY(scene.panel.log().await(infoPage));
        return;
    }
    // One look at the link; that it was looked at in vain shows in no event.
    QTest::qWait(2500);
    QCOMPARE(scene.panel.log().count(infoPage), 0);
    scene.sys.removeInterface(serviceLink);
    scene.sys.setOperState(serviceLink, "up"_s);
    QVERIFY(scene.panel.log().await(infoPage));
    QCOMPARE(scene.panel.log().count(infoPage), 1);
}

void tst_FrontInterface::interfaceIsASetting()
{
    Scene scene;
    scene.sys.setOperState(serviceLink, "up"_s); // not the one that is watched
    scene.sys.setOperState("service7"_s, "down"_s);
    QVERIFY(scene.start(SettingsFile().set("Network/FrontInterface", "service7")));
    QTest::qWait(2500);
    QCOMPARE(scene.panel.log().count(infoPage), 0);
    scene.sys.setOperState("service7"_s, "up"_s);
    QVERIFY(scene.panel.log().await(infoPage));
}

QTEST_GUILESS_MAIN(tst_FrontInterface)
#include "tst_frontinterface.moc"
