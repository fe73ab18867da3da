// SPDX-License-Identifier: MIT
// The demonstration as a newcomer starts it, with and without a display, and what it leaves behind: nothing.

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include "simulator.h"
#include "virtualscreen.h"

using namespace VarnelTest;

namespace {

const QString demoScript = VARNEL_SOURCE_DIR "/scripts/demo"_s;

int count(const QImage& picture, QRgb color)
{
    int pixels = 0;
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width(); ++x) {
            pixels += picture.pixel(x, y) == color ? 1 : 0;
        }
    }
    return pixels;
}

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

} // namespace

class tst_Demo : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void helpSaysWhatItDoes();
    void screenshotShowsThePage();
    void screenshotOfWhatNeverComesFails();
    void windowAndBoardOnADisplay();
    void withoutDisplayItRunsUntilInterrupted();

private:
    /// The script with these programs, in a process group of its own, its scratch files in `scratch`.
    std::unique_ptr<Program> makeDemo();

    std::unique_ptr<QTemporaryDir> scratch;
};

void tst_Demo::init()
{
    scratch = std::make_unique<QTemporaryDir>();
    QVERIFY(scratch->isValid());
}

void tst_Demo::cleanup()
{
    QCOMPARE(QDir(scratch->path()).entryList({"panel-demo*"_s}, QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList());
    // Whatever the demonstration starts inherits the name of its scratch directory; the sandbox's inside
    // ends with its outside.
    QTRY_COMPARE_WITH_TIMEOUT(processesWith(scratch->path()), 0, 5000);
}

std::unique_ptr<Program> tst_Demo::makeDemo()
{
    auto demo = std::make_unique<Program>(demoScript);
    demo->setLauncher({"/usr/bin/setsid"_s});
    demo->setEnvironment("TMPDIR"_s, scratch->path());
    demo->setEnvironment("DISPLAY"_s, QString());
    return demo;
}

void tst_Demo::helpSaysWhatItDoes()
{
    const auto demo = makeDemo();
    QVERIFY(demo->start({"--help"_s}));
    QVERIFY(demo->awaitEnd());
    QCOMPARE(demo->exitStatus(), 0);
    QVERIFY(demo->output().startsWith("Usage: scripts/demo"));
    QVERIFY(demo->output().contains("--screenshot FILE"));
}

void tst_Demo::screenshotShowsThePage()
{
    const QString file = scratch->filePath("with blank.png"_s);
    const auto demo = makeDemo();
    QVERIFY(demo->start(
        {"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--screenshot"_s, file, "--page"_s, "plain"_s}));
    QVERIFY(demo->awaitEnd(std::chrono::seconds(90)));
    QVERIFY2(demo->exitStatus() == 0, qPrintable(demo->log().lines().join(QLatin1Char('\n'))));
    const QImage picture(file);
    QVERIFY(difference(picture, Simulator::plainPage(), 8) < 0.02);
}

void tst_Demo::screenshotOfWhatNeverComesFails()
{
    const QString file = scratch->filePath("none.png"_s);
    const auto demo = makeDemo();
    QVERIFY(
        demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--screenshot"_s, file, "--no-such-option"_s}));
    QVERIFY(demo->awaitEnd(std::chrono::seconds(90)));
    QVERIFY(demo->exitStatus() > 0);
    QVERIFY(!QFile::exists(file));
}

void tst_Demo::windowAndBoardOnADisplay()
{
    VirtualScreen desk;
    QVERIFY(desk.start({1400, 700}));
    const auto demo = makeDemo();
    demo->setEnvironment("DISPLAY"_s, desk.display());
    QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s, "--page"_s, "plain"_s, "--set"_s,
                         "gpiostate.critical=on"_s}));
    // The right half of the page, and the board's red lamp.
    QTRY_VERIFY_WITH_TIMEOUT(count(desk.grab(), qRgb(0xf6, 0xdc, 0xd7)) > 50000, 60000);
    QTRY_VERIFY_WITH_TIMEOUT(count(desk.grab(), qRgb(0xff, 0x30, 0x20)) > 1000, 20000);
    demo->stop(SIGINT);
    QCOMPARE(demo->exitStatus(), 130);
    QVERIFY(demo->output().contains("UDP stop"));
    QTRY_COMPARE_WITH_TIMEOUT(count(desk.grab(), qRgb(0xff, 0x30, 0x20)), 0, 20000);
}

void tst_Demo::withoutDisplayItRunsUntilInterrupted()
{
    const auto demo = makeDemo();
    QVERIFY(demo->start({"--programs"_s, VARNEL_PROGRAM_DIR ""_s}));
    QTRY_VERIFY_WITH_TIMEOUT(demo->output().contains("First frame, try to connect"), 60000);
    demo->stop(SIGTERM);
    QCOMPARE(demo->exitStatus(), 143);
    QVERIFY(demo->output().contains("UDP stop"));
}

QTEST_GUILESS_MAIN(tst_Demo)
#include "tst_demo.moc"
