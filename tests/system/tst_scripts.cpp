// SPDX-License-Identifier: MIT
// Scripts that are missing or go wrong hold the panel up for no longer than they may.

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include "scene.h"

namespace {

const QString notFound = "Script ' \"/usr/local/bin/r7m.sh\" ' not found, do nothing"_s;
const QString script = "/usr/local/bin/r7m.sh"_s;

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

/// Makes the script `r7m.sh` something else, as the row's name says.
void spoil(RecordingScripts& scripts, const QString& how)
{
    QFile::remove(script);
    if (how == "not executable"_s) {
        QVERIFY(scripts.install("r7m.sh"_s));
        scripts.makeNotExecutable("r7m.sh"_s);
    } else if (how == "directory"_s) {
        QVERIFY(QDir().mkpath(script));
    } else if (how == "dangling link"_s) {
        QVERIFY(QFile::link("/nowhere"_s, script));
    } else if (how == "fails"_s) {
        QVERIFY(scripts.install("r7m.sh"_s, ScriptBehaviour::Fails));
    } else if (how == "kills itself"_s) {
        QVERIFY(scripts.install("r7m.sh"_s, ScriptBehaviour::KillsItself));
    } else if (how == "no interpreter"_s) {
        QFile file(script);
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write("#!/no/such/shell\n") > 0);
        QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::ExeOwner));
    }
}

} // namespace

class tst_Scripts : public QObject
{
    Q_OBJECT

private slots:
    void pageOpensAllTheSame_data();
    void pageOpensAllTheSame();
    void backgroundChildDoesNotHoldUp();
    void chattyScriptDoesNotHoldUp();
    void hangingScriptIsKilledAfterThirtySeconds();
};

void tst_Scripts::pageOpensAllTheSame_data()
{
    QTest::addColumn<QString>("how");
    QTest::addColumn<bool>("missing");
    QTest::newRow("missing: logged, page opens") << "missing"_s << true;
    QTest::newRow("not executable: logged, page opens") << "not executable"_s << true;
    QTest::newRow("a directory: logged, page opens") << "directory"_s << true;
    QTest::newRow("a link to nowhere: logged, page opens") << "dangling link"_s << true;
    QTest::newRow("exit status 3: page opens") << "fails"_s << false;
    QTest::newRow("ended by a signal: page opens") << "kills itself"_s << false;
    QTest::newRow("without its interpreter: page opens") << "no interpreter"_s << false;
}

void tst_Scripts::pageOpensAllTheSame()
{
    QFETCH(QString, how);
    QFETCH(bool, missing);
    Scene scene;
    QVERIFY(scene.start());
    spoil(scene.scripts, how);
    QVERIFY(scene.connectController());
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    if (missing) {
        QVERIFY(scene.panel.log().await(notFound));
    }
    QCOMPARE(scene.panel.log().count(notFound), missing ? 1 : 0);
    QVERIFY(scene.isAlive());
    QDir().rmdir(script);
    QFile::remove(script);
}

void tst_Scripts::backgroundChildDoesNotHoldUp()
{
    Scene scene;
    QVERIFY(scene.start());
    QFile file(script);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write("#!/bin/sh\nsleep 4321 &\n") > 0);
    file.close();
    QElapsedTimer timer;
    timer.start();
    QVERIFY(scene.connectController());
    QVERIFY(timer.elapsed() < 15000);
    QVERIFY(scene.isAlive());
    QCOMPARE(processesWith("sleep 4321"), 1); // a service that a script starts goes on
}

void tst_Scripts::chattyScriptDoesNotHoldUp()
{
    Scene scene;
    QVERIFY(scene.start());
    QFile file(script);
    QVERIFY(file.open(QIODevice::WriteOnly));
    // Far more than a pipe holds, on both outputs; and it waits for its input's end.
    QVERIFY(file.write("#!/bin/sh\nhead -c 1000000 /dev/zero\nhead -c 1000000 /dev/zero >&2\ncat\n") > 0);
    file.close();
    QVERIFY(scene.connectController());
    QVERIFY(scene.isAlive());
}

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
