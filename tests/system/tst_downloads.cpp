// SPDX-License-Identifier: MIT
// From a touch of a download link to the octets on the drive: every way the controller may name a file.

#include "rows.h"
#include "transferscene.h"

class tst_Downloads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(screen.start());
        scene = std::make_unique<TransferScene>(screen);
        QVERIFY(scene->open(TransferScene::linkPage()));
    }

    void cleanupTestCase()
    {
        QCOMPARE(scene->panel.stop(), 0);
        scene.reset();
    }

    void savesUnderTheName_data()
    {
        const Rows<QString, QString, int> add("path", "name", "size");
        const auto row = [&add](const char* path, const char* name, int size = 2048) {
            add(path, "/download/"_s + QString::fromLatin1(path), QString::fromUtf8(name), size);
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

    void savesUnderTheName()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        QFETCH(int, size);
        QVERIFY(scene->awaitPage());
        scene->leadTo(path);
        scene->panel.log().skip();
        scene->scripts.clear();
        screen.tap({400, 240});
        QVERIFY(
            scene->panel.log().await({"WebPage::UnsupportedContent"_s,
                                      "<now> - Download request for 'http://192.168.7.3%1'"_s.arg(path)}));
        QVERIFY(scene->awaitChooser());
        screen.tap(TransferScene::okButton);
        const QString logged =
            QString::fromUtf8(name.toLatin1()); // the panel writes Latin-1, the reader takes UTF-8
        QVERIFY(scene->panel.log().await({"Rw-remount the usb drive"_s, "RemountUSB \"rw\""_s,
                                          "<now> - File will be saved to '/usbmnt/%1'"_s.arg(logged),
                                          "<now> - Download complete"_s, "Ro-remount the usb drive"_s,
                                          "RemountUSB \"ro\""_s}));
        QTRY_COMPARE(scene->remounts(), QStringList({"rw"_s, "ro"_s}));
        QVERIFY(scene->drive.content(name) == generatedBody(size));
        QVERIFY(QFile::remove(scene->drive.path(name)));
        QCOMPARE(scene->drive.entries(), QStringList());
    }

private:
    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};

QTEST_GUILESS_MAIN(tst_Downloads)
#include "tst_downloads.moc"
