// SPDX-License-Identifier: MIT
// The controller's own page, as a service technician uses it: logs to the drive, a file back to the
// controller.

#include <QCryptographicHash>
#include <QJsonArray>
#include <QTest>

#include "transferscene.h"

namespace {

// On the control board: the tab of the files, and what its sheet holds.
constexpr QPoint filesTab{56, 351};
constexpr QPoint reportKey{237, 94};
constexpr QPoint slowFileKey{679, 94};
constexpr QPoint chooseKey{367, 445};
constexpr QPoint uploadKey{698, 445};
const QRect sheet{114, 58, 686, 422};

} // namespace

class tst_SiteFiles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void reportToDrive();
    void slowFileToDrive();
    void fileToController();
    void withoutDrive();

private:
    void awaitDialog(const QRect& place);
    void awaitSheet();

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
    QImage board; ///< the sheet of files without anything over it
};

void tst_SiteFiles::initTestCase()
{
    QVERIFY(screen.start());
}

/// Starts panel and controller and opens the board's sheet of files.
void tst_SiteFiles::init()
{
    scene = std::make_unique<TransferScene>(screen);
    QVERIFY(TransferScene::quietSettings()
                .set("WebSite/Login", "admin")
                .set("WebSite/Password", "admin")
                .write());
    QVERIFY(scene->scripts.installAll());
    QVERIFY(scene->files.startAndListen({"--set"_s, "devinfo.lang=en"_s}));
    QVERIFY(scene->panel.startAndBind());
    QVERIFY(screen.awaitPixel({2, 100}, QColor(0xf2, 0xa3, 0x3a))); // the tab that is open at first
    screen.tap(filesTab);
    const QColor keyColor(0x22, 0x2c, 0x37);
    for (const QPoint& key : {reportKey, slowFileKey, chooseKey, uploadKey}) {
        QVERIFY(screen.awaitPixel(key + QPoint(-80, 0), keyColor));
    }
    screen.move({60, 20});
    board = screen.grab().copy(sheet);
}

void tst_SiteFiles::cleanup()
{
    QCOMPARE(scene->panel.stop(), 0);
    scene.reset();
}

/// Waits for a dialog in its place, its edges light on the dark board, and until its text is there.
void tst_SiteFiles::awaitDialog(const QRect& place)
{
    const QColor light(0xef, 0xef, 0xef);
    QVERIFY(screen.awaitPixel(place.topLeft(), light));
    QVERIFY(screen.awaitPixel(place.bottomRight(), light));
    QVERIFY(screen.awaitStill());
}

/// Waits until the board's sheet is as it was.
void tst_SiteFiles::awaitSheet()
{
    QVERIFY(screen.awaitPicture(board, sheet.topLeft()));
}

void tst_SiteFiles::reportToDrive()
{
    QVERIFY(TransferScene::writeDrive("alarms.csv"_s, {}));
    screen.tap(reportKey);
    awaitDialog(TransferScene::chooserPlace);
    scene->keepPicture("download-chooser"_s);
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->panel.log().await("<now> - Download complete"_s));
    awaitDialog(TransferScene::messagePlace);
    scene->keepPicture("download-complete"_s);
    QVERIFY(scene->panel.log().await("RemountUSB \"ro\""_s));
    QVERIFY(TransferScene::readDrive("report.txt"_s) == generatedBody(2048));
    screen.move({60, 20});
    awaitSheet();
}

void tst_SiteFiles::slowFileToDrive()
{
    screen.tap(slowFileKey);
    awaitDialog(TransferScene::chooserPlace);
    screen.tap(TransferScene::okButton);
    const QPoint middleOfBar = TransferScene::progressPlace.topLeft() + QPoint(200, 80);
    QVERIFY(screen.awaitPixel(middleOfBar, QColor(48, 140, 198), 40)); // half is there
    scene->keepPicture("download-progress"_s);
    QVERIFY(scene->panel.log().await({"<now> - Download complete"_s, "RemountUSB \"ro\""_s}));
    QVERIFY(TransferScene::readDrive("slow.bin"_s) == generatedBody(100 << 10));
    screen.move({60, 20});
    awaitSheet();
}

void tst_SiteFiles::fileToController()
{
    const QByteArray octets = generatedBody(70000);
    for (const auto& name : {"backup.r7m"_s, "settings.r7m"_s, "alarms.csv"_s}) {
        QVERIFY(TransferScene::writeDrive(name, octets));
    }
    screen.tap(chooseKey);
    awaitDialog(TransferScene::chooserPlace);
    screen.tap(TransferScene::chooserPlace.topLeft() + QPoint(150, 60 + 24 + 45)); // the second row
    QVERIFY(screen.awaitStill());
    scene->keepPicture("upload-chooser"_s);
    screen.tap(TransferScene::okButton);
    QVERIFY(screen.awaitPixel(TransferScene::chooserPlace.topLeft(), QColor(0x1a, 0x23, 0x2b), 30));
    screen.tap(uploadKey);
    const auto uploads = [this] {
        const QList<QJsonObject> events = scene->files.events();
        for (const QJsonObject& event : events) {
            if (event.value("path"_s) == "/upload"_s) {
                return event.value("uploads"_s).toArray();
            }
        }
        return QJsonArray();
    };
    QTRY_COMPARE_WITH_TIMEOUT(uploads().size(), 1, 20000);
    const QJsonObject file = uploads().at(0).toObject();
    QCOMPARE(file.value("name"_s).toString(), "backup.r7m"_s);
    QCOMPARE(file.value("size"_s).toInt(), octets.size());
    QCOMPARE(file.value("md5"_s).toString(),
             QString::fromLatin1(QCryptographicHash::hash(octets, QCryptographicHash::Md5).toHex()));
    QVERIFY(scene->remounts().isEmpty());
}

void tst_SiteFiles::withoutDrive()
{
    TransferScene::pull();
    for (const QPoint& key : {reportKey, chooseKey}) {
        screen.tap(key);
        awaitDialog(TransferScene::messagePlace);
        scene->keepPicture("no-drive"_s);
        screen.move({60, 20});
        awaitSheet();
    }
    QVERIFY(scene->remounts().isEmpty());
}

QTEST_GUILESS_MAIN(tst_SiteFiles)
#include "tst_sitefiles.moc"
