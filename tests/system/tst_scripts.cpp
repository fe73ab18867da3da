// SPDX-License-Identifier: MIT
// A script that hangs holds the panel up for no longer than it may.

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include "scene.h"

namespace {

/// How many processes of this sandbox have `text` in their command line.
int processesWith(const QByteArray& text)
{
    int count = 0;
    const QStringList numbers = QDir("/proc"_s).entryList({"[0-9]*"_s}, QDir::Dirs);
    for (const QString& number : numbers) {
        QFile file("/proc/%1/cmdline"_s.arg(number));
        if (file.open(QIODevice::ReadOnly) && file.readAll().replace('\0', ' ').contains(text)) {
            ++count;
        }
    }
    return count;
}

} // namespace

class tst_Scripts : public QObject
{
    Q_OBJECT

private slots:
    void hangingScriptIsKilledAfterThirtySeconds();
};

void tst_Scripts::hangingScriptIsKilledAfterThirtySeconds()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "600")));
    QVERIFY(scene.scripts.install("r7m.sh"_s, ScriptBehaviour::Hangs));
    QVERIFY(scene.server.listen());
    QElapsedTimer timer;
    timer.start();
    QVERIFY(scene.sendFrame());
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    QTRY_COMPARE_WITH_TIMEOUT(processesWith("sleep infinity"), 1, 20000);
    QVERIFY(scene.server.awaitCount("/index.html", 1, std::chrono::seconds(45)));
    QVERIFY2(timer.elapsed() >= 30000, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(processesWith("sleep infinity"), 0);
    QCOMPARE(processesWith("r7m.sh"), 0);
    QVERIFY(scene.isAlive());
}

QTEST_GUILESS_MAIN(tst_Scripts)
#include "tst_scripts.moc"
