// SPDX-License-Identifier: MIT
// The demonstration as a newcomer starts it, with and without a display, and what it leaves behind: nothing.

#include <QDir>
#include <QRegularExpression>
#include <QSet>
#include <QTcpServer>
#include <QTemporaryDir>

#include <unistd.h>

#include "rows.h"
#include "simulator.h"
#include "virtualscreen.h"

namespace {

const QString demoScript = VARNEL_SOURCE_DIR "/scripts/demo"_s;

/// How many processes have `text` in their environment.
int processesWith(const QString& text)
{
    int found = 0;
    const QStringList numbers = QDir("/proc"_s).entryList({"[0-9]*"_s}, QDir::Dirs);
    for (const QString& number : numbers) {
        QFile file("/proc/%1/environ"_s.arg(number));
        found += file.open(QIODevice::ReadOnly) && file.readAll().contains(text.toUtf8()) ? 1 : 0;
    }
    return found;
}

/// A launcher that becomes the user nobody. Empty where that is no test of the demonstration: this user is
/// not root anyway, may not look into the clone, or the kernel refuses him a sandbox.
QStringList becomeNobody()
{
    const QStringList command = {"/usr/bin/setpriv"_s, "--reuid=65534"_s, "--regid=65534"_s,
                                 "--clear-groups"_s, "--"_s};
    Program probe("/usr/bin/unshare"_s);
    probe.setLauncher(command);
    const bool can = ::getuid() == 0 && probe.start({"-U"_s, "test"_s, "-x"_s, demoScript}) &&
                     probe.awaitEnd() && probe.exitStatus() == 0;
    return can ? command : QStringList();
}

/// The values that mbpoll has shown so far for the register at 300.
QSet<QByteArray> valuesRead(const QByteArray& output)
{
    QSet<QByteArray> values;
    const QList<QByteArray> lines = output.split('\n');
    for (const QByteArray& line : lines) {
        if (line.startsWith("[300]:")) {
            values.insert(line);
        }
    }
    return values;
}

} // namespace

class tst_Demo : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        scratch = std::make_unique<QTemporaryDir>();
        QVERIFY(scratch->isValid());
    }

    void cleanup()
    {
        QCOMPARE(QDir(scratch->path()).entryList({"panel-demo*"_s}, QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());
        // Whatever the demonstration starts inherits the name of its scratch directory; the sandbox's inside
        // ends with its outside.
        QTRY_COMPARE_WITH_TIMEOUT(processesWith(scratch->path()), 0, 5000);
    }

    void helpSaysWhatItDoes()
    {
        const auto demo = makeDemo();
        QVERIFY(demo->start({"--help"_s}));
        QVERIFY(demo->awaitEnd());
        QCOMPARE(demo->exitStatus(), 0);
        QVERIFY(demo->output().startsWith("Usage: scripts/demo"));
        QVERIFY(demo->output().contains("--screenshot FILE"));
    }

    void screenshotShowsThePage()
    {
        const QString file = scratch->filePath("with blank.png"_s);
        const auto demo = makeDemo();
        QVERIFY(demo->start(
            {"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--screenshot"_s, file, "--page"_s, "plain"_s}));
        QVERIFY(demo->awaitEnd(std::chrono::seconds(90)));
        QVERIFY2(demo->exitStatus() == 0, qPrintable(demo->log().lines().join(QLatin1Char('\n'))));
        const QImage picture(file);
        QVERIFY(difference(picture, Simulator::plainPage()) < 0.02);
    }

    void screenshotOfWhatNeverComesFails()
    {
        const QString file = scratch->filePath("none.png"_s);
        const auto demo = makeDemo();
        QVERIFY(demo->start(
            {"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--screenshot"_s, file, "--no-such-option"_s}));
        QVERIFY(demo->awaitEnd(std::chrono::seconds(90)));
        QVERIFY(demo->exitStatus() > 0);
        QVERIFY(!QFile::exists(file));
    }

    void windowAndBoardOnADisplay()
    {
        VirtualScreen desk;
        QVERIFY(desk.start({1400, 700}));
        const auto demo = makeDemo();
        demo->setEnvironment("DISPLAY"_s, desk.display());
        QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--log"_s, "--page"_s, "plain"_s,
                             "--set"_s, "gpiostate.critical=on"_s}));
        // The right half of the page, and the board's red lamp.
        QTRY_VERIFY_WITH_TIMEOUT(countPixels(desk.grab(), qRgb(0xf6, 0xdc, 0xd7)) > 50000, 60000);
        QTRY_VERIFY_WITH_TIMEOUT(countPixels(desk.grab(), qRgb(0xff, 0x30, 0x20)) > 1000, 20000);
        demo->stop(SIGINT);
        QCOMPARE(demo->exitStatus(), 130);
        QVERIFY(demo->output().contains("UDP stop"));
        QTRY_COMPARE_WITH_TIMEOUT(countPixels(desk.grab(), qRgb(0xff, 0x30, 0x20)), 0, 20000);
    }

    void withoutDisplayItRunsUntilInterrupted()
    {
        const auto demo = makeDemo();
        QVERIFY(demo->start({"--log"_s, "--programs"_s, VARNEL_PROGRAM_DIR ""_s}));
        QTRY_VERIFY_WITH_TIMEOUT(demo->output().contains("First frame, try to connect"), 60000);
        demo->stop(SIGTERM);
        QCOMPARE(demo->exitStatus(), 143);
        QVERIFY(demo->output().contains("UDP stop"));
    }

    void filesOfOptionsAreShared()
    {
        QFile scenario(scratch->filePath("step.json"_s));
        QVERIFY(scenario.open(QIODevice::WriteOnly));
        scenario.write(R"({"steps": [{"at": 0, "do": "set", "devinfo.lang": "fr"}]})");
        scenario.close();
        const QString recording = scratch->filePath("frames.pcap"_s);
        const auto demo = makeDemo();
        QVERIFY(demo->start({"--log"_s, "--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--scenario"_s,
                             scenario.fileName(), "--record"_s, recording}));
        QTRY_VERIFY2_WITH_TIMEOUT(demo->output().contains("Set language to \"fr\""),
                                  qPrintable(demo->log().lines().join(QLatin1Char('\n'))), 120000);
        demo->stop(SIGTERM);
        const auto again = makeDemo();
        QVERIFY(again->start({"--log"_s, "--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--replay"_s, recording}));
        QTRY_VERIFY2_WITH_TIMEOUT(again->output().contains("Set language to \"fr\""),
                                  qPrintable(again->log().lines().join(QLatin1Char('\n'))), 120000);
        again->stop(SIGTERM);
    }

    void registersChangeInAnotherTerminal_data()
    {
        const Rows<QStringList> row("user");
        row("as the user who runs the test", {});
        if (const QStringList nobody = becomeNobody(); !nobody.isEmpty()) {
            row("as nobody", nobody);
        }
    }

    void registersChangeInAnotherTerminal()
    {
        QFETCH(QStringList, user);
        QVERIFY(QFile::setPermissions(scratch->path(), QFile::Permissions(0x7777)));
        const auto demo = makeDemo();
        demo->setLauncher(QStringList{"/usr/bin/setsid"_s} + user);
        QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s}));
        const QString command = awaitReadingCommand(demo.get());
        QVERIFY(!command.isEmpty());
        QVERIFY(demo->output().isEmpty()); // the panel's log would push the command off the terminal

        // As pasted, and nothing else: it polls until it is interrupted.
        Program terminal("/bin/sh"_s);
        terminal.setLauncher(user + QStringList{"/usr/bin/stdbuf"_s, "-oL"_s});
        QVERIFY(terminal.start({"-c"_s, "exec "_s + command}));
        QTRY_VERIFY2_WITH_TIMEOUT(valuesRead(terminal.output()).size() >= 3, terminal.output().constData(),
                                  20000);

        // The real scripts do the work, and the board still hears of them.
        const QByteArray runs = scriptRuns();
        QVERIFY(runs.contains(QByteArray("1\0mbserverstop.sh\0", 18)));
        QVERIFY(runs.contains("mbserverstart.sh"));
        QVERIFY(runs.contains("{\"cmd\":\"setconfig\",\"data\":[{\"address\":100,"));

        // The connection is still open, and must not outlive the demonstration.
        demo->stop(SIGINT);
        QCOMPARE(demo->exitStatus(), 130);
        QVERIFY(terminal.log().await(QRegularExpression("failed"_s)));
    }

    void portInUseMakesWayForTheNext()
    {
        QTcpServer other;
        std::ignore = other.listen(QHostAddress::LocalHost, 1502); // or somebody else has it
        const auto demo = makeDemo();
        QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s}));
        const QString command = awaitReadingCommand(demo.get());
        QVERIFY(!command.isEmpty() && !command.contains(" -p 1502 "_s));
        Program terminal("/bin/sh"_s);
        QVERIFY(terminal.start({"-c"_s, "exec "_s + command + " -1"_s}));
        QVERIFY(terminal.awaitEnd());
        QCOMPARE(terminal.exitStatus(), 0);
        QCOMPARE(valuesRead(terminal.output()).size(), 1);
        demo->stop(SIGINT);
        QCOMPARE(demo->exitStatus(), 130);
    }

    void killedDemoFreesItsPort()
    {
        const auto demo = makeDemo();
        QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s}));
        QVERIFY(!awaitReadingCommand(demo.get()).isEmpty());
        demo->stop(SIGKILL);
        QTRY_COMPARE(processesWith(scratch->path()), 0);
        // Its files are the only thing that it could not clean up.
        scratch = std::make_unique<QTemporaryDir>();
    }

private:
    /// The script with these programs, in a process group of its own, its scratch files in `scratch`.
    std::unique_ptr<Program> makeDemo()
    {
        auto demo = std::make_unique<Program>(demoScript);
        demo->setLauncher({"/usr/bin/setsid"_s});
        demo->setEnvironment("TMPDIR"_s, scratch->path());
        demo->setEnvironment("DISPLAY"_s, QString());
        return demo;
    }

    /// Waits for the line with the command that reads the registers; empty when it does not come.
    static QString awaitReadingCommand(Program* demo)
    {
        static const QRegularExpression line("^demo: registers change here.*: (mbpoll .*)$"_s);
        return demo->log().await(line, std::chrono::seconds(60)) ? demo->log().lastMatch().captured(1)
                                                                 : QString();
    }

    /// The record of the demonstration's scripts so far.
    QByteArray scriptRuns() const
    {
        const QStringList found = QDir(scratch->path()).entryList({"panel-demo*"_s}, QDir::Dirs);
        QFile file(scratch->filePath(found.value(0) + "/run/script-runs"_s));
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    std::unique_ptr<QTemporaryDir> scratch;
};

QTEST_GUILESS_MAIN(tst_Demo)
#include "tst_demo.moc"
