// SPDX-License-Identifier: MIT
// The data of a page after a restart of the panel: what its scripts have stored, never the page itself.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";

/// Asks the engine to keep the page for use without a server, and reports once there was time for it.
const QByteArray greedyPage = "<html manifest=/site.manifest><script>"
                              "localStorage.setItem('kept', 'yes');"
                              "setTimeout(function() { new Image().src = '/settled'; }, 2000);"
                              "</script><body>first server</body></html>";
const QByteArray genuinePage = "<html><script>new Image().src = '/stored-' + localStorage.getItem('kept');"
                               "</script><body>genuine server</body></html>";

} // namespace

class tst_Persistence : public QObject
{
    Q_OBJECT

private slots:
    void pageDoesNotOutliveItsServer();
};

void tst_Persistence::pageDoesNotOutliveItsServer()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.server.serve("/site.manifest", "CACHE MANIFEST\n/index.html\nNETWORK:\n*\n", "text/cache-manifest");
    scene.server.serve(page, greedyPage);
    QVERIFY(scene.connectController());
    QVERIFY(scene.server.awaitCount("/settled", 1));
    QCOMPARE(scene.panel.stop(), 0);

    scene.server.serve(page, genuinePage);
    QVERIFY(scene.start());
    QVERIFY(scene.connectController()); // the server is asked for its page
    QVERIFY(scene.server.awaitCount("/stored-yes", 1));
    QCOMPARE(scene.panel.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_Persistence)
#include "tst_persistence.moc"
