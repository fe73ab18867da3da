// SPDX-License-Identifier: MIT
// Faults of the device: its scripts, the places where the panel writes (temporary files, the engine's
// storage, the USB drive), and its clock.

#include <cmath>

#include <QDateTime>
#include <QFile>

#include "drive.h"
#include "fault.h"
#include "transferscene.h"

namespace {

const QString registration = "r7m.sh"_s;
const QString update = "mbserverupdate.sh"_s;
constexpr auto pageFollowsTheLink = "nothing: page comes and goes with the link";
constexpr auto registersKeep = "registration; registers keep their last values";

bool lose(FaultBench& bench)
{
    return bench.loseLink() && bench.awaitErrorPage();
}

bool find(FaultBench& bench)
{
    bench.speak();
    return bench.panel.log().await("Add R7M"_s) && bench.awaitShown(Shown::ControllerPage);
}

/// Lets the link be lost and come back, so that the registration runs twice.
bool loseAndFind(FaultBench& bench)
{
    return lose(bench) && find(bench);
}

/// The same, and what a PLC reads stays what it was.
bool registersStandStill(FaultBench& bench)
{
    if (!lose(bench)) {
        return false;
    }
    const quint32 before = bench.plcValue();
    return before > 0 && find(bench) && bench.awaitTicks(3) && bench.plcValue() == before;
}

Step letScriptsRun(const QByteArray& commands)
{
    return [commands](FaultBench& bench) {
        return bench.scripts.install(registration, commands) && bench.scripts.install(update, commands);
    };
}

/// Whether the panel has a child whose state has this letter.
bool hasChild(const FaultBench& bench, char state)
{
    return Program::runTool(
        "pgrep --parent %1 --runstates %2"_s.arg(bench.panel.pid()).arg(QLatin1Char(state)));
}

/// While a script hangs the panel does nothing else.
bool isHeldUp(FaultBench& bench)
{
    return awaitTrue([&] { return hasChild(bench, 'S'); }) && !bench.showsTouch(std::chrono::seconds(5));
}

bool leavesNoZombies(FaultBench& bench)
{
    return loseAndFind(bench) && !hasChild(bench, 'Z') && bench.showsTouch();
}

const QString smallDisk = "/run/small-disk"_s;
const QString filePath = "http://192.168.7.3:8080/download/"_s;

/// A disk of 64 KiB with no room left.
bool mountFullDisk()
{
    QFile filler(smallDisk + "/filler"_s);
    return QDir().mkpath(smallDisk) && Program::runTool("mount -t tmpfs -o size=64k small "_s + smallDisk) &&
           QDir().mkpath(smallDisk + "/etc"_s) && QDir().mkpath(smallDisk + "/cache"_s) &&
           filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
           filler.write(QByteArray(1 << 20, 'x')) == 1 << 16;
}

/// The full disk in the place of a setting.
Step fillUp(const char* setting, const QString& directory)
{
    return [setting, directory](FaultBench& bench) {
        bench.settings.set(setting, smallDisk + directory);
        return mountFullDisk();
    };
}

bool makeRoom(FaultBench& /*bench*/)
{
    return QFile::remove(smallDisk + "/filler"_s);
}

bool pageGoesOn(FaultBench& bench)
{
    return bench.awaitTicks(9) && bench.showsTouch();
}

/// A server of files, and the drive for them.
bool plugIn(FaultBench& bench)
{
    bench.files = std::make_unique<Simulator>();
    Drive().plug();
    return Program::runTool("mount -t tmpfs -o size=64k drive /usbmnt"_s) &&
           bench.files->startAndListen(
               {"--http"_s, "192.168.7.3:8080"_s, "--sections"_s, "none"_s, "--login"_s, QString()});
}

/// Lets the page lead to a file and the user take it.
bool download(FaultBench& bench, const QString& name)
{
    bench.sendPageTo((filePath + name).toUtf8());
    const bool asked = bench.panel.log().await(QRegularExpression("Download request for"_s));
    bench.serveUsual();
    // The chooser's list is white.
    if (!asked || !bench.awaitShown(Shown::Blank) || !bench.screen.awaitStill()) {
        return false;
    }
    bench.screen.tap(TransferScene::okButton);
    return bench.panel.log().await(R"(RemountUSB "rw")"_s);
}

/// Pulls the drive: the device is unmounted, even if files on it are open.
bool pull(FaultBench& /*bench*/)
{
    Drive().pull();
    return Program::runTool("umount --lazy /usbmnt"_s);
}

bool driveIsReadOnlyAgain(FaultBench& bench)
{
    return bench.panel.log().await(R"(RemountUSB "ro")"_s);
}

/// The device writes the marker when the drive is mounted, and cannot; then the user wants a file.
bool plugInWithoutMarker(FaultBench& bench)
{
    QFile marker(smallDisk + "/usbdrive"_s);
    if (!marker.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || marker.write("/dev/sda1") > 0 ||
        !marker.remove()) {
        return false;
    }
    bench.sendPageTo((filePath + "plain"_s).toUtf8());
    const bool refused = bench.panel.log().await("<now> - Download canceled: USB drive not mounted"_s);
    bench.serveUsual();
    return refused;
}

/// libfaketime moves CLOCK_REALTIME for the panel and its scripts by this file, and leaves CLOCK_MONOTONIC
/// alone, as a real step does.
bool setClock(int offset)
{
    // Moved into place: a reader never sees half of it.
    return Program::runTool(
        {"sh"_s, "-c"_s, "printf %+d %1 > /tmp/clock.new && mv /tmp/clock.new /tmp/clock"_s.arg(offset)});
}

bool useClock(FaultBench& bench)
{
    bench.panel.setEnvironment("LD_PRELOAD"_s, "/usr/$LIB/faketime/libfaketimeMT.so.1"_s);
    bench.panel.setEnvironment("FAKETIME_TIMESTAMP_FILE"_s, "/tmp/clock"_s);
    bench.panel.setEnvironment("FAKETIME_NO_CACHE"_s, "1"_s);
    bench.panel.setEnvironment("FAKETIME_DONT_FAKE_MONOTONIC"_s, "1"_s);
    return setClock(0);
}

/// The page's clock says so, its timers go on at their pace, and so do those of the panel: the LEDs blink and
/// the supervision counts.
bool timersGoOn(FaultBench& bench, int offset)
{
    const auto error = [&] {
        return std::llabs(bench.pageClock() - QDateTime::currentMSecsSinceEpoch() - offset * 1000LL);
    };
    if (!awaitTrue([&] { return error() < 10000; })) {
        qWarning() << "The page's clock is" << error() << "ms off";
        return false;
    }
    const int before = bench.ticks();
    QTest::qWait(5000);
    const int asked = bench.ticks() - before; // ten in five seconds, less what six loads of the page take
    qInfo("%d questions of the page in 5 s", asked);
    if (asked < 4 || asked > 11 || bench.shown() != Shown::ControllerPage) {
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    bench.silence();
    const bool lost = bench.awaitErrorPage();
    const qint64 elapsed = timer.elapsed();
    const WriteRecorder red({StandInSys::valueFile(StandInSys::red)});
    const bool blinks = red.awaitWrites(StandInSys::valueFile(StandInSys::red), 4);
    bench.speak();
    qInfo("loss after %lld ms", elapsed);
    return lost && blinks && elapsed > 2000 && elapsed < 6000 && bench.awaitShown(Shown::ControllerPage);
}

/// The clock steps, as it may when the panel first hears of the time.
Fault clockStep(const char* name, int offset)
{
    return {name,
            "nothing: page stays, its timers go on",
            "nothing",
            "",
            [offset](FaultBench&) { return setClock(offset); },
            [offset](FaultBench& bench) { return timersGoOn(bench, offset); },
            [](FaultBench&) { return setClock(0); },
            useClock};
}

} // namespace

Faults scriptFaults()
{
    Faults faults{
        {"scripts missing", pageFollowsTheLink, registersKeep,
         R"(^Script ' "/usr/local/bin/r7m\.sh" ' not found, do nothing$)",
         [](FaultBench& bench) {
             bench.scripts.remove(registration);
             bench.scripts.remove(update);
         },
         registersStandStill, &FaultBench::installScripts},
        {"scripts fail", pageFollowsTheLink, registersKeep, "", letScriptsRun("exit 3"), loseAndFind,
         &FaultBench::installScripts},
        {"scripts leave children behind", pageFollowsTheLink, "nothing of the panel; the children stay", "",
         letScriptsRun("sleep 4321 &"), leavesNoZombies,
         [](FaultBench& bench) {
             std::ignore = Program::runTool({"pkill"_s, "--full"_s, "sleep 4321"_s});
             return bench.installScripts();
         }},
        {"script hangs for 30 s", "screen stands still, touches wait", "nothing; touches are late", "",
         letScriptsRun("sleep infinity"), isHeldUp, &FaultBench::installScripts},
    };
    faults.back().recoveryLimit = std::chrono::seconds(50);
    faults.back().endLimit = std::chrono::seconds(32);
    return faults;
}

Faults storageFaults()
{
    const auto unplug = [](FaultBench& bench) {
        bench.files.reset();
        return pull(bench);
    };
    constexpr auto asIfComplete = "download as if complete; its popup closes by itself";
    return {
        {"disk full: Modbus server's init file", "nothing: page stays",
         "the Modbus server, until the panel starts again", "^varnel\\.modbus: Cannot write", Step(),
         [](FaultBench& bench) { return pageGoesOn(bench) && !ModbusClient::tcp(502)->connect(); }, makeRoom,
         fillUp("Files/TmpCfgDir", "/etc"_s), &FaultBench::restartPanelAndRead, false},
        {"disk full: engine's storage", "nothing: page stays", "what the page stores", "", Step(), pageGoesOn,
         makeRoom, fillUp("WebCache/Path", "/cache"_s)},
        {"disk full: USB drive's marker", "popup: USB drive not detected", "the download",
         "Download canceled: USB drive not mounted$", plugInWithoutMarker, pageGoesOn,
         [unplug](FaultBench& bench) { return makeRoom(bench) && unplug(bench); },
         [](FaultBench& bench) {
             return fillUp("Files/UsbDriveFile", "/usbdrive"_s)(bench) && plugIn(bench);
         }},
        {"disk full: USB drive", asIfComplete, "the file from the octet on that did not fit",
         "Error writing file '/usbmnt/large.bin': 65536 of 5242880 octets written: No space left on device$",
         [](FaultBench& bench) { return download(bench, "large"_s); }, driveIsReadOnlyAgain, unplug, plugIn},
        {"USB drive pulled during a download", asIfComplete, "the file",
         "USB drive removed while '/usbmnt/slow.bin' was being saved$",
         [](FaultBench& bench) {
             return download(bench, "custom/slow.bin?size=61440&pace=200"_s) && pull(bench);
         },
         driveIsReadOnlyAgain, [](FaultBench& bench) { bench.files.reset(); }, plugIn},
    };
}

Faults clockFaults()
{
    constexpr int day = 86400;
    return {clockStep("clock a day forward", day), clockStep("clock a day back", -day)};
}
