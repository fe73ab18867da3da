// SPDX-License-Identifier: MIT
// The service link at the panel's front: its info page while it is up, the last page when it goes down.

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

QTEST_GUILESS_MAIN(tst_FrontInterface)
#include "tst_frontinterface.moc"
