// SPDX-License-Identifier: MIT
// From a touch of a download link to the octets on the drive: every way the controller may name a file.

#include <QTest>

#include "transferscene.h"

class tst_Downloads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void savesUnderTheName_data();
    void savesUnderTheName();
    void savesUnderDateAndTime();
    void refusesName_data();
    void refusesName();
    void numbersTakenNames();
    void userCancels();
    void withoutDrive();

private:
    void touchLink(const QString& path);

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};

void tst_Downloads::initTestCase()
{
    QVERIFY(screen.start());
    scene = std::make_unique<TransferScene>(screen);
    QVERIFY(scene->open(TransferScene::linkPage()));
}

void tst_Downloads::cleanupTestCase()
{
    QCOMPARE(scene->panel.stop(), 0);
    scene.reset();
}

void tst_Downloads::touchLink(const QString& path)
{
    scene->leadTo(path);
    scene->panel.log().skip();
    scene->scripts.clear();
    screen.tap({400, 240});
    QVERIFY(scene->panel.log().await({"WebPage::UnsupportedContent"_s,
                                      "<now> - Download request for 'http://192.168.7.3%1'"_s.arg(path)}));
}

void tst_Downloads::savesUnderTheName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("size");

    const auto row = [](const char* path, const char* name, int size = 2048) {
        QTest::newRow(path) << "/download/"_s + QString::fromLatin1(path) << QString::fromUtf8(name) << size;
    };
    row("plain", "report.txt");
    row("quoted", "\"report.txt\"");
    row("twice", "b.txt");
    row("upper", "upper");
    row("extended", "extended");
    row("nameless", "nameless");
    row("blanks", "blanks");
    row("dot", "-1.");
    row("latin1", "r\xc3\xa9sum\xc3\xa9.txt");
    row("utf8", "\xd0\xbe\xd1\x82\xd1\x87\xd1\x91\xd1\x82.txt");
    row("percent", "100%25-%s-%1.txt");
    row("hidden", ".hidden");
    row("no-suffix", "data");
    row("no-header/data.bin", "data.bin");
    row("empty", "empty.bin", 0);
    row("large", "large.bin", 5 << 20);
}

void tst_Downloads::savesUnderTheName()
{
    QFETCH(QString, path);
    QFETCH(QString, name);
    QFETCH(int, size);
    QVERIFY(scene->awaitPage());
    touchLink(path);
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::okButton);
    const QString logged =
        QString::fromUtf8(name.toLatin1()); // the panel writes Latin-1, the reader takes UTF-8
    QVERIFY(scene->panel.log().await({"Rw-remount the usb drive"_s, "RemountUSB \"rw\""_s,
                                      "<now> - File will be saved to '/usbmnt/%1'"_s.arg(logged),
                                      "<now> - Download complete"_s, "Ro-remount the usb drive"_s,
                                      "RemountUSB \"ro\""_s}));
    QTRY_COMPARE(scene->remounts(), QStringList({"rw"_s, "ro"_s}));
    QVERIFY(TransferScene::readDrive(name) == generatedBody(size));
    QVERIFY(QFile::remove(TransferScene::drive(name)));
    QCOMPARE(TransferScene::driveEntries(), QStringList());
}

void tst_Downloads::savesUnderDateAndTime()
{
    QVERIFY(scene->awaitPage());
    touchLink("/download/slash/"_s);
    QVERIFY(scene->panel.log().await(
        QRegularExpression("^<now> - No filename specified, using '(\\d{8}-\\d{6})'$"_s)));
    const QString name = scene->panel.log().lastMatch().captured(1);
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->panel.log().await("RemountUSB \"ro\""_s));
    QCOMPARE(TransferScene::driveEntries(), QStringList(name));
    QVERIFY(TransferScene::readDrive(name) == generatedBody(2048));
    QVERIFY(QFile::remove(TransferScene::drive(name)));
}

void tst_Downloads::refusesName_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("target");

    QTest::newRow("..") << "/download/dotdot"_s
                        << "/usbmnt/.."_s;
    QTest::newRow("../ in front") << "/download/climb"_s
                                  << "/usbmnt/../escaped.txt"_s;
    QTest::newRow("a directory in front") << "/download/subdirectory"_s
                                          << "/usbmnt/logs/today.txt"_s;
    QTest::newRow("300 characters") << "/download/long"_s
                                    << "/usbmnt/"_s + QString(296, QLatin1Char('n')) + ".txt"_s;
}

void tst_Downloads::refusesName()
{
    QFETCH(QString, path);
    QFETCH(QString, target);
    QVERIFY(QDir("/usbmnt"_s).mkdir("logs"_s));
    QVERIFY(scene->awaitPage());
    touchLink(path);
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::okButton);
    QVERIFY(
        scene->panel.log().await({"RemountUSB \"rw\""_s, "<now> - File will be saved to '%1'"_s.arg(target),
                                  "<now> - Error opening file '%1' for writing."_s.arg(target)}));
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    QVERIFY(scene->panel.log().await({"Ro-remount the usb drive"_s, "RemountUSB \"ro\""_s}));
    QTRY_COMPARE(scene->remounts(), QStringList({"rw"_s, "ro"_s}));
    QVERIFY(!QFile::exists("/escaped.txt"_s));
    QCOMPARE(TransferScene::driveEntries(), QStringList("logs"_s));
    QVERIFY(QDir("/usbmnt"_s).rmdir("logs"_s)); // it is empty still
}

void tst_Downloads::numbersTakenNames()
{
    QVERIFY(TransferScene::writeDrive("report.txt"_s, "old"));
    QVERIFY(TransferScene::writeDrive("report-1.txt"_s, "older"));
    QVERIFY(scene->awaitPage());
    touchLink("/download/plain"_s);
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->panel.log().await("RemountUSB \"ro\""_s));
    QCOMPARE(TransferScene::readDrive("report.txt"_s), QByteArray("old"));
    QCOMPARE(TransferScene::readDrive("report-1.txt"_s), QByteArray("older"));
    QVERIFY(TransferScene::readDrive("report-2.txt"_s) == generatedBody(2048));
    for (const char* const name : {"report.txt", "report-1.txt", "report-2.txt"}) {
        QVERIFY(QFile::remove(TransferScene::drive(QString::fromLatin1(name))));
    }
}

void tst_Downloads::userCancels()
{
    QVERIFY(scene->awaitPage());
    touchLink("/download/plain"_s);
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::cancelButton);
    QVERIFY(scene->panel.log().await("<now> - Download canceled by user"_s));
    QVERIFY(scene->awaitPage());
    QVERIFY(scene->isAlive());
    QVERIFY(scene->remounts().isEmpty());
    QVERIFY(TransferScene::driveEntries().isEmpty());
}

void tst_Downloads::withoutDrive()
{
    TransferScene::pull();
    QVERIFY(scene->awaitPage());
    touchLink("/download/plain"_s);
    QVERIFY(scene->panel.log().await("<now> - Download canceled: USB drive not mounted"_s));
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    QVERIFY(scene->awaitPage()); // the message goes by itself
    TransferScene::plug();
    QVERIFY(scene->isAlive());
    QVERIFY(scene->remounts().isEmpty());
    QVERIFY(TransferScene::driveEntries().isEmpty());
}

QTEST_GUILESS_MAIN(tst_Downloads)
#include "tst_downloads.moc"
