// SPDX-License-Identifier: MIT
// Events while a file is saved: time, the page, the link, the screen, the drive, the end.

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QTest>

#include "transferscene.h"

namespace {

const auto slowFile = "/download/custom/slow.bin?size=61440&pace=200"_s; // 15 pieces, 3 seconds
const int slowSize = 61440;
const auto plainFile = "/download/custom/plain.bin?size=2048"_s;
const QStringList rwThenRo{"rw"_s, "ro"_s};

/// A link to "/go" on a page that leaves for `target` as soon as the server's "/flag" reads "go".
QByteArray pageThatLeavesFor(const QByteArray& target)
{
    return TransferScene::linkPage() +
           "<script>"
           "var timer = setInterval(function() {"
           "  var flag = new XMLHttpRequest();"
           "  flag.open('GET', '/flag', false);"
           "  flag.send();"
           "  if (flag.responseText == 'go') {"
           "    clearInterval(timer);"
           "    location.href = '" +
           target +
           "';"
           "  }"
           "}, 200);"
           "</script>";
}

/// A small drive in memory, mounted read-only, with the device's own remount script.
class MountedDrive
{
public:
    MountedDrive()
    {
        mounted =
            Program::runTool({"mount"_s, "-t"_s, "tmpfs"_s, "-o"_s, "ro,size=64k"_s, "drive"_s, "/usbmnt"_s});
        for (const auto& name : {"usbremount.sh"_s, "varnel-panel.sh"_s, "varnel-common.sh"_s}) {
            const QString target = "/usr/local/bin/"_s + name;
            QFile::remove(target);
            mounted =
                QFile::copy(QStringLiteral(VARNEL_SOURCE_DIR "/device/scripts/") + name, target) && mounted;
        }
        // usbremount.sh leaves alone what usbdrive.sh has not mounted.
        QDir().mkpath("/run/varnel"_s);
        QFile record("/run/varnel/usbdrive.device"_s);
        mounted = record.open(QIODevice::WriteOnly) && record.write("drive\n") > 0 && mounted;
    }

    ~MountedDrive() { Program::runTool({"umount"_s, "/usbmnt"_s}); }

    Q_DISABLE_COPY_MOVE(MountedDrive)

    bool isMounted() const { return mounted; }

    /// "ro" or "rw", as the kernel says.
    static QString state()
    {
        QFile mounts("/proc/self/mounts"_s);
        mounts.open(QIODevice::ReadOnly);
        const QList<QByteArray> lines = mounts.readAll().split('\n');
        for (const QByteArray& line : lines) {
            if (line.startsWith("drive /usbmnt ")) {
                return QString::fromLatin1(line.split(' ').at(3).left(2));
            }
        }
        return {};
    }

private:
    bool mounted = false;
};

} // namespace

class tst_DownloadTrouble : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void progressIsShown();
    void linkLossWhileAsking_data();
    void linkLossWhileAsking();
    void pageLeavesWhileAsking_data();
    void pageLeavesWhileAsking();
    void screenGoesDarkWhileAsking();
    void panelEndsWhileSaving();
    void realDriveIsReadOnlyBeforeAndAfter();
    void realDriveIsFull();
    void hugeBody();

private:
    void open(const QByteArray& html = TransferScene::linkPage(),
              const SettingsFile& settings = TransferScene::quietSettings());
    void ask(const QString& path);
    void accept();
    void awaitSaved();
    LogReader& log() { return scene->panel.log(); }

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};

void tst_DownloadTrouble::initTestCase()
{
    QVERIFY(screen.start());
}

void tst_DownloadTrouble::init()
{
    scene = std::make_unique<TransferScene>(screen);
}

void tst_DownloadTrouble::cleanup()
{
    if (scene->panel.isRunning()) {
        QVERIFY(scene->isAlive());
        QCOMPARE(scene->panel.stop(), 0);
    }
    QCOMPARE(scene->panel.exitStatus(), 0);
    scene.reset();
}

void tst_DownloadTrouble::open(const QByteArray& html, const SettingsFile& settings)
{
    QVERIFY(scene->open(html, settings));
}

/// Touches the link, which leads to `path`, and waits for the chooser.
void tst_DownloadTrouble::ask(const QString& path)
{
    scene->leadTo(path);
    screen.tap({400, 240});
    QVERIFY(log().await("<now> - Download request for 'http://192.168.7.3%1'"_s.arg(path)));
    QVERIFY(scene->awaitChooser());
}

void tst_DownloadTrouble::accept()
{
    screen.tap(TransferScene::okButton);
    QVERIFY(log().await({"Rw-remount the usb drive"_s, "RemountUSB \"rw\""_s}));
}

void tst_DownloadTrouble::awaitSaved()
{
    QVERIFY(
        log().await({"<now> - Download complete"_s, "Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
}

void tst_DownloadTrouble::progressIsShown()
{
    open();
    ask(slowFile);
    accept();
    QVERIFY(scene->awaitForeground(TransferScene::progressPlace));
    // Two points of the bar, at about a third and two thirds: the one is filled before the other.
    const QPoint bar = TransferScene::progressPlace.topLeft() + QPoint(20, 80);
    const QPoint third = bar + QPoint(120, 0);
    const QPoint twoThirds = bar + QPoint(240, 0);
    const QRgb empty = screen.grab().pixel(bar + QPoint(360, 0));
    QTRY_VERIFY_WITH_TIMEOUT(screen.grab().pixel(third) != empty, 20000);
    const QImage early = screen.grab();
    QCOMPARE(early.pixel(twoThirds), empty);
    QTRY_VERIFY_WITH_TIMEOUT(screen.grab().pixel(twoThirds) != empty, 20000);

    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    awaitSaved();
    QVERIFY(scene->awaitPage());
    QVERIFY(TransferScene::readDrive("slow.bin"_s) == generatedBody(slowSize));
    QTRY_COMPARE(scene->remounts(), rwThenRo);
}

void tst_DownloadTrouble::linkLossWhileAsking_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("size");

    QTest::newRow("all there") << plainFile << "plain.bin"_s << 2048;
    QTest::newRow("still coming") << slowFile << "slow.bin"_s << slowSize;
}

void tst_DownloadTrouble::linkLossWhileAsking()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    QFETCH(int, size);
    open(TransferScene::linkPage(), TransferScene::quietSettings().set("Network/UdpTimeout", "6"));
    QVERIFY(scene->sendFrame()); // six seconds from now
    ask(path);
    QVERIFY(log().await("Remove R7M"_s));
    QVERIFY(screen.awaitPixel({20, 20}, Qt::white)); // the error page, behind the chooser
    accept();
    awaitSaved();
    QVERIFY(TransferScene::readDrive(name) == generatedBody(size));
    QTRY_COMPARE(scene->remounts(), rwThenRo);
}

void tst_DownloadTrouble::pageLeavesWhileAsking_data()
{
    linkLossWhileAsking_data();
}

void tst_DownloadTrouble::pageLeavesWhileAsking()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    QFETCH(int, size);
    scene->server.serve("/other.html", "<html><body style='background:#0000c0'></body></html>");
    scene->server.serve("/flag", "wait", "text/plain");
    open(pageThatLeavesFor("/other.html"));
    ask(path);
    scene->server.serve("/flag", "go", "text/plain");
    QVERIFY(scene->server.awaitCount("/other.html", 1));
    QVERIFY(screen.awaitPixel({20, 20}, QColor(0, 0, 0xc0)));
    accept();
    awaitSaved();
    QVERIFY(TransferScene::readDrive(name) == generatedBody(size));
    QTRY_COMPARE(scene->remounts(), rwThenRo);
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0, 0xc0)));
}

void tst_DownloadTrouble::screenGoesDarkWhileAsking()
{
    open(TransferScene::linkPage(), TransferScene::quietSettings().set("UI/ScreenSaverInterval", "2000"));
    ask(plainFile);
    QVERIFY(log().await("goSleep"_s));
    QTRY_COMPARE(StandInSys::read(StandInSys::blankFile()), "1"_s);
    screen.move(TransferScene::chooserPlace.bottomLeft() + QPoint(5, -5)); // beside the dialog's widgets
    QTRY_COMPARE(StandInSys::read(StandInSys::blankFile()), "0"_s);
    accept();
    awaitSaved();
    QVERIFY(TransferScene::readDrive("plain.bin"_s) == generatedBody(2048));
    QTRY_COMPARE(scene->remounts(), rwThenRo);
}

void tst_DownloadTrouble::panelEndsWhileSaving()
{
    open();
    ask(slowFile);
    accept();
    QVERIFY(scene->awaitForeground(TransferScene::progressPlace));
    QCOMPARE(scene->panel.stop(), 0);
    QVERIFY(log().await({"<now> - Download to '/usbmnt/slow.bin' broken off: the application ends"_s,
                         "Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
    QCOMPARE(scene->remounts(), rwThenRo);
    const QByteArray part = TransferScene::readDrive("slow.bin"_s);
    QVERIFY(part.size() < slowSize);
    QVERIFY(part == generatedBody(part.size()));
}

void tst_DownloadTrouble::realDriveIsReadOnlyBeforeAndAfter()
{
    open();
    const MountedDrive drive;
    QVERIFY(drive.isMounted());
    QCOMPARE(MountedDrive::state(), "ro"_s);
    ask(slowFile);
    QCOMPARE(MountedDrive::state(), "ro"_s);
    accept();
    QTRY_COMPARE(MountedDrive::state(), "rw"_s);
    awaitSaved();
    QTRY_COMPARE(MountedDrive::state(), "ro"_s);
    QVERIFY(TransferScene::readDrive("slow.bin"_s) == generatedBody(slowSize));
}

void tst_DownloadTrouble::realDriveIsFull()
{
    open();
    const MountedDrive drive;
    QVERIFY(drive.isMounted());
    ask("/download/large"_s);
    accept();
    QVERIFY(log().await("<now> - Error writing file '/usbmnt/large.bin': 65536 of 5242880 octets written: "
                        "No space left on device"_s));
    QVERIFY(log().await({"Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
    QTRY_COMPARE(MountedDrive::state(), "ro"_s);
    QVERIFY(TransferScene::readDrive("large.bin"_s) == generatedBody(65536));
}

void tst_DownloadTrouble::hugeBody()
{
    const int size = 200 << 20;
    open();
    ask("/download/huge"_s);
    accept();
    QVERIFY(log().await("<now> - Download complete"_s, std::chrono::minutes(2)));
    QVERIFY(log().await("RemountUSB \"ro\""_s));
    QFile saved(TransferScene::drive("huge.bin"_s));
    QCOMPARE(saved.size(), qint64(size));
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QCryptographicHash digest(QCryptographicHash::Md5);
    QVERIFY(digest.addData(&saved));
    // Piece by piece: the body repeats itself after 16 MiB.
    QCryptographicHash expected(QCryptographicHash::Md5);
    const QByteArray piece = generatedBody(16 << 20);
    for (int done = 0; done < size; done += piece.size()) {
        expected.addData(piece.left(size - done));
    }
    QCOMPARE(digest.result(), expected.result());
}

QTEST_GUILESS_MAIN(tst_DownloadTrouble)
#include "tst_downloadtrouble.moc"
