// SPDX-License-Identifier: MIT
// Faults where the panel writes: its temporary files, the engine's storage, the USB drive.

#include <QDir>
#include <QFile>
#include <QTest>

#include "fault.h"
#include "simulator.h"
#include "transferscene.h"

namespace {

const QString smallDisk = "/run/small-disk"_s;
const QString filler = smallDisk + "/filler"_s;
const QString filePath = "http://192.168.7.3:8080/download/"_s;

bool nothing(FaultBench& /*bench*/)
{
    return true;
}

/// A disk of 64 KiB with no room left.
bool mountFullDisk()
{
    if (!QDir().mkpath(smallDisk) ||
        !Program::runTool({"mount"_s, "-t"_s, "tmpfs"_s, "-o"_s, "size=64k"_s, "small"_s, smallDisk}) ||
        !QDir().mkpath(smallDisk + "/etc"_s) || !QDir().mkpath(smallDisk + "/cache"_s)) {
        return false;
    }
    QFile file(filler);
    return file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) &&
           file.write(QByteArray(1 << 20, 'x')) == 1 << 16;
}

bool makeRoom(FaultBench& /*bench*/)
{
    return QFile::remove(filler);
}

bool pageGoesOn(FaultBench& bench)
{
    const int before = bench.ticks();
    return QTest::qWaitFor([&] { return bench.ticks() > before + 8; }, int(patience.count())) &&
           bench.awaitShown(Shown::ControllerPage) && bench.showsTouch(patience);
}

bool noRegisters(FaultBench& bench)
{
    return pageGoesOn(bench) && !ModbusClient::tcp(502)->connect();
}

bool restartPanelAndRead(FaultBench& bench)
{
    if (!bench.restartPanel()) {
        return false;
    }
    bench.startPlc();
    return true;
}

/// The drive, and a server of files for it.
struct Drive
{
    std::unique_ptr<Simulator> files;
};
using SharedDrive = std::shared_ptr<Drive>;

Fault::Step plugIn(const SharedDrive& drive)
{
    return [drive](FaultBench&) {
        drive->files = std::make_unique<Simulator>();
        TransferScene::plug();
        return Program::runTool(
                   {"mount"_s, "-t"_s, "tmpfs"_s, "-o"_s, "size=64k"_s, "drive"_s, "/usbmnt"_s}) &&
               drive->files->startAndListen(
                   {"--http"_s, "192.168.7.3:8080"_s, "--sections"_s, "none"_s, "--login"_s, QString()});
    };
}

/// Lets the page lead to a file and the user take it.
Fault::Step download(const QString& name)
{
    return [name](FaultBench& bench) {
        bench.sendPageTo((filePath + name).toUtf8());
        const bool asked = bench.panel.log().await(QRegularExpression("Download request for"_s));
        bench.serveUsual();
        // The chooser's list is white.
        if (!asked || !bench.awaitShown(Shown::Blank) || !bench.screen.awaitStill()) {
            return false;
        }
        bench.screen.tap(TransferScene::okButton);
        return bench.panel.log().await(R"(RemountUSB "rw")"_s);
    };
}

/// Pulls the drive: the device is unmounted, even if files on it are open.
bool pull(FaultBench& /*bench*/)
{
    TransferScene::pull();
    return Program::runTool({"umount"_s, "--lazy"_s, "/usbmnt"_s});
}

bool driveIsReadOnlyAgain(FaultBench& bench)
{
    return bench.panel.log().await(R"(RemountUSB "ro")"_s);
}

Fault fullDrive()
{
    const auto drive = std::make_shared<Drive>();
    return {
        "disk full: USB drive",
        "download as if complete; its popup closes by itself",
        "the file from the octet on that did not fit",
        "Error writing file '/usbmnt/large.bin': 65536 of 5242880 octets written: No space left on device$",
        download("large"_s),
        driveIsReadOnlyAgain,
        [drive](FaultBench& bench) {
            drive->files.reset();
            return pull(bench);
        },
        plugIn(drive)};
}

Fault pulledDrive()
{
    const auto drive = std::make_shared<Drive>();
    const Fault::Step begin = download("custom/slow.bin?size=61440&pace=200"_s);
    return {"USB drive pulled during a download",
            "download as if complete; its popup closes by itself",
            "the file",
            "USB drive removed while '/usbmnt/slow.bin' was being saved$",
            [begin](FaultBench& bench) { return begin(bench) && pull(bench); },
            driveIsReadOnlyAgain,
            [drive](FaultBench&) {
                drive->files.reset();
                return true;
            },
            plugIn(drive)};
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

Fault noMarker()
{
    const auto drive = std::make_shared<Drive>();
    return {"disk full: USB drive's marker",
            "popup: USB drive not detected",
            "the download",
            "Download canceled: USB drive not mounted$",
            plugInWithoutMarker,
            pageGoesOn,
            [drive](FaultBench& bench) {
                drive->files.reset();
                return makeRoom(bench) && pull(bench);
            },
            [drive](FaultBench& bench) {
                bench.settings.set("Files/UsbDriveFile", smallDisk + "/usbdrive"_s);
                return mountFullDisk() && plugIn(drive)(bench);
            }};
}

} // namespace

Faults storageFaults()
{
    return {
        {"disk full: Modbus server's init file", "nothing: page stays",
         "the Modbus server, until the panel starts again", "^varnel\\.modbus: Cannot write", nothing,
         noRegisters, makeRoom,
         [](FaultBench& bench) {
             bench.settings.set("Files/TmpCfgDir", smallDisk + "/etc"_s);
             return mountFullDisk();
         },
         restartPanelAndRead, false},
        {"disk full: engine's storage", "nothing: page stays", "what the page stores", "", nothing,
         pageGoesOn, makeRoom,
         [](FaultBench& bench) {
             bench.settings.set("WebCache/Path", smallDisk + "/cache"_s);
             return mountFullDisk();
         }},
        noMarker(),
        fullDrive(),
        pulledDrive(),
    };
}
