// SPDX-License-Identifier: MIT
// The controller's own page, as a service technician uses it: logs to the drive, a file back to the
// controller.

#include <QCryptographicHash>
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

class tst_SiteFiles : public TransferTest
{
    Q_OBJECT

private slots:
    /// Starts panel and controller and opens the board's sheet of files.
    void init()
    {
        TransferTest::init();
        QVERIFY(TransferScene::quietSettings()
                    .set("WebSite/Login", "admin")
                    .set("WebSite/Password", "admin")
                    .write());
        QVERIFY(scene->scripts.installAll());
        QVERIFY(scene->files.startAndListen({"--set"_s, "devinfo.lang=en"_s}));
        QVERIFY(scene->panel.startAndBind());
        QVERIFY(screen.awaitPixel({2, 100}, QColor(0xf2, 0xa3, 0x3a))); // the tab that is open at first
        screen.tap(filesTab);
        for (const QPoint& key : {reportKey, slowFileKey, chooseKey, uploadKey}) {
            QVERIFY(screen.awaitPixel(key + QPoint(-80, 0), QColor(0x22, 0x2c, 0x37)));
        }
        screen.move({60, 20});
        board = screen.grab().copy(sheet);
    }

    void cleanup()
    {
        QCOMPARE(scene->panel.stop(), 0);
        scene.reset();
    }

    void reportToDrive()
    {
        scene->drive.put("alarms.csv"_s, {});
        screen.tap(reportKey);
        awaitDialog(TransferScene::chooserPlace);
        scene->keepPicture("download-chooser"_s);
        screen.tap(TransferScene::okButton);
        QVERIFY(log().await("<now> - Download complete"_s));
        awaitDialog(TransferScene::messagePlace);
        scene->keepPicture("download-complete"_s);
        QVERIFY(log().await("RemountUSB \"ro\""_s));
        QVERIFY(scene->drive.content("report.txt"_s) == generatedBody(2048));
        awaitSheet();
    }

    void slowFileToDrive()
    {
        screen.tap(slowFileKey);
        awaitDialog(TransferScene::chooserPlace);
        screen.tap(TransferScene::okButton);
        // The bar's middle is filled, its end is not yet.
        const QPoint bar = TransferScene::progressPlace.topLeft() + QPoint(20, 80);
        const QColor filled(48, 140, 198);
        QVERIFY(screen.awaitPixel(bar + QPoint(180, 0), filled, 40));
        QVERIFY(screen.grab().pixelColor(bar + QPoint(360, 0)) != filled);
        scene->keepPicture("download-progress"_s);
        QVERIFY(log().await({"<now> - Download complete"_s, "RemountUSB \"ro\""_s}));
        QVERIFY(scene->drive.content("slow.bin"_s) == generatedBody(100 << 10));
        awaitSheet();
    }

    void fileToController()
    {
        const QByteArray octets = generatedBody(70000);
        for (const auto& name : {"backup.r7m"_s, "settings.r7m"_s, "alarms.csv"_s}) {
            scene->drive.put(name, octets);
        }
        screen.tap(chooseKey);
        awaitDialog(TransferScene::chooserPlace);
        screen.tap(TransferScene::row(1));
        QVERIFY(screen.awaitStill());
        scene->keepPicture("upload-chooser"_s);
        screen.tap(TransferScene::okButton);
        QVERIFY(screen.awaitPixel(TransferScene::chooserPlace.topLeft(), QColor(0x1a, 0x23, 0x2b), 30));
        screen.tap(uploadKey);
        const QJsonObject file = scene->files.awaitUpload();
        QCOMPARE(file.value("name"_s).toString(), "backup.r7m"_s);
        QCOMPARE(file.value("size"_s).toInt(), octets.size());
        QCOMPARE(file.value("md5"_s).toString(),
                 QString::fromLatin1(QCryptographicHash::hash(octets, QCryptographicHash::Md5).toHex()));
        QVERIFY(scene->remounts().isEmpty());
    }

    void withoutDrive()
    {
        scene->drive.pull();
        for (const QPoint& key : {reportKey, chooseKey}) {
            screen.tap(key);
            awaitDialog(TransferScene::messagePlace);
            scene->keepPicture("no-drive"_s);
            awaitSheet();
        }
        QVERIFY(scene->remounts().isEmpty());
    }

private:
    /// Waits for a dialog in its place, its edges light on the dark board, and until its text is there.
    void awaitDialog(const QRect& place)
    {
        const QColor light(0xef, 0xef, 0xef);
        QVERIFY(screen.awaitPixel(place.topLeft(), light));
        QVERIFY(screen.awaitPixel(place.bottomRight(), light));
        QVERIFY(screen.awaitStill());
    }

    /// Waits until the board's sheet is as it was.
    void awaitSheet()
    {
        screen.move({60, 20});
        QVERIFY(screen.awaitPicture(board, sheet.topLeft()));
    }

    QImage board; ///< the sheet of files without anything over it
};

QTEST_GUILESS_MAIN(tst_SiteFiles)
#include "tst_sitefiles.moc"
