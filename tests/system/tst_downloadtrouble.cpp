// SPDX-License-Identifier: MIT
// Events while a file is saved: the page, the link, the screen, the drive, the end.

#include "rows.h"
#include "transferscene.h"

namespace {

const auto slowFile = "/download/custom/slow.bin?size=61440&pace=200"_s; // 15 pieces, 3 seconds
constexpr int slowSize = 61440;
const auto plainFile = "/download/custom/plain.bin?size=2048"_s;

/// A small drive in memory, mounted read-only, with the device's own remount script, which leaves alone what
/// usbdrive.sh has not mounted.
class MountedDrive
{
public:
    MountedDrive()
    {
        mounted = Program::runTool({"sh"_s, "-c"_s,
                                    "mount -t tmpfs -o ro,size=64k drive /usbmnt && "
                                    "cd " VARNEL_SOURCE_DIR "/device/scripts && "
                                    "cp --remove-destination usbremount.sh varnel-panel.sh varnel-common.sh "
                                    "/usr/local/bin && "
                                    "mkdir -p /run/varnel && echo drive > /run/varnel/usbdrive.device"_s});
    }

    ~MountedDrive() { Program::runTool("umount /usbmnt"_s); }

    Q_DISABLE_COPY_MOVE(MountedDrive)

    bool isMounted() const { return mounted; }

    /// Whether it is mounted "ro" or "rw", as the kernel says.
    static bool is(const char* state)
    {
        return Program::runTool(
            {"grep"_s, "-q"_s, "^drive /usbmnt tmpfs "_s + QLatin1String(state), "/proc/mounts"_s});
    }

private:
    bool mounted = false;
};

} // namespace

class tst_DownloadTrouble : public TransferTest
{
    Q_OBJECT

private slots:
    void linkLossWhileAsking_data()
    {
        const Rows<QString, QString, int> row("path", "name", "size");
        row("all there", plainFile, "plain.bin"_s, 2048);
        row("still coming", slowFile, "slow.bin"_s, slowSize);
    }

    void linkLossWhileAsking()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        QFETCH(int, size);
        open(TransferScene::quietSettings().set("Network/UdpTimeout", "6"));
        QVERIFY(scene->sendFrame()); // six seconds from now
        ask(path);
        QVERIFY(log().await("Remove R7M"_s));
        QVERIFY(screen.awaitPixel({20, 20}, Qt::white)); // the error page, behind the chooser
        accept();
        awaitSaved(name, size);
    }

    void screenGoesDarkWhileAsking()
    {
        const auto blankIs = [](const QString& text) {
            return awaitTrue([&text] { return StandInSys::read(StandInSys::blankFile()) == text; });
        };
        open(TransferScene::quietSettings().set("UI/ScreenSaverInterval", "2000"));
        ask(plainFile);
        QVERIFY(log().await("goSleep"_s));
        QVERIFY(blankIs("1"_s));
        screen.move(TransferScene::chooserPlace.bottomLeft() + QPoint(5, -5)); // beside the dialog's widgets
        QVERIFY(blankIs("0"_s));
        accept();
        awaitSaved("plain.bin"_s, 2048);
    }

    void panelEndsWhileSaving()
    {
        open();
        ask(slowFile);
        accept();
        QVERIFY(scene->awaitForeground(TransferScene::progressPlace));
        QCOMPARE(scene->panel.stop(), 0);
        QVERIFY(log().await({"<now> - Download to '/usbmnt/slow.bin' broken off: the application ends"_s,
                             "Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
        QCOMPARE(scene->remounts(), QStringList({"rw"_s, "ro"_s}));
        const QByteArray part = scene->drive.content("slow.bin"_s);
        QVERIFY(part.size() < slowSize);
        QVERIFY(part == generatedBody(part.size()));
    }

    void realDriveIsReadOnlyBeforeAndAfter()
    {
        open();
        const MountedDrive drive;
        QVERIFY(drive.isMounted());
        ask(slowFile);
        QVERIFY(MountedDrive::is("ro"));
        accept();
        QVERIFY(awaitTrue([] { return MountedDrive::is("rw"); }));
        QVERIFY(log().await({"<now> - Download complete"_s, "RemountUSB \"ro\""_s}));
        QVERIFY(awaitTrue([] { return MountedDrive::is("ro"); }));
        QVERIFY(scene->drive.content("slow.bin"_s) == generatedBody(slowSize));
    }

    void realDriveIsFull()
    {
        open();
        const MountedDrive drive;
        QVERIFY(drive.isMounted());
        ask("/download/large"_s);
        accept();
        QVERIFY(log().await({"<now> - Error writing file '/usbmnt/large.bin': 65536 of 5242880 octets "
                             "written: No space left on device"_s,
                             "Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
        QVERIFY(awaitTrue([] { return MountedDrive::is("ro"); }));
        QVERIFY(scene->drive.content("large.bin"_s) == generatedBody(65536));
    }

    void hugeBody()
    {
        const int size = 200 << 20;
        open();
        ask("/download/huge"_s);
        accept();
        QVERIFY(log().await("<now> - Download complete"_s, std::chrono::minutes(2)));
        QVERIFY(log().await("RemountUSB \"ro\""_s));
        QFile saved(scene->drive.path("huge.bin"_s));
        QCOMPARE(saved.size(), qint64(size));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        // Piece by piece: the body repeats itself after 16 MiB.
        const QByteArray piece = generatedBody(16 << 20);
        for (int done = 0; done < size; done += piece.size()) {
            QVERIFY(saved.read(piece.size()) == piece.left(size - done));
        }
    }

private:
    void open(const SettingsFile& settings = TransferScene::quietSettings())
    {
        QVERIFY(scene->open(TransferScene::linkPage(), settings));
    }

    /// Touches the link, which leads to `path`, and waits for the chooser.
    void ask(const QString& path)
    {
        scene->leadTo(path);
        screen.tap({400, 240});
        QVERIFY(log().await("<now> - Download request for 'http://192.168.7.3%1'"_s.arg(path)));
        QVERIFY(scene->awaitChooser());
    }

    void accept()
    {
        screen.tap(TransferScene::okButton);
        QVERIFY(log().await({"Rw-remount the usb drive"_s, "RemountUSB \"rw\""_s}));
    }

    void awaitSaved(const QString& name, int size)
    {
        QVERIFY(log().await(
            {"<now> - Download complete"_s, "Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
        QVERIFY(scene->drive.content(name) == generatedBody(size));
        QTRY_COMPARE(scene->remounts(), QStringList({"rw"_s, "ro"_s}));
    }
};

QTEST_GUILESS_MAIN(tst_DownloadTrouble)
#include "tst_downloadtrouble.moc"
