// SPDX-License-Identifier: MIT
// From the file input of a page over the chooser to the octets at the server.

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QTest>

#include "transferscene.h"

namespace {

/// The upper half of the page is the file input, the lower half sends the form to the file server.
QByteArray formPage()
{
    return "<meta charset=utf-8><form method=post enctype='multipart/form-data' "
           "action='http://192.168.7.3/upload?format=json'>"
           "<input type=file name=log style='position:absolute;left:0;top:0;width:800px;height:240px;"
           "opacity:0' onchange=\"new Image().src='/picked'\">"
           "<input type=submit style='position:absolute;left:0;top:240px;width:800px;height:240px;opacity:0'>"
           "</form>";
}

constexpr QPoint fileInput{60, 20};
constexpr QPoint submitButton{400, 450};

/// The middle of the list's first, second, ... row.
QPoint row(int index)
{
    return TransferScene::chooserPlace.topLeft() + QPoint(150, 60 + 24 + index * 45);
}

} // namespace

class tst_Uploads : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void sendsTheFile_data();
    void sendsTheFile();
    void userCancels();
    void nothingPicked();
    void withoutDrive();
    void drivePulledAfterPicking();
    void unreadableFile();
    void pageLeavesWhileAsking();
    void panelEndsWhileAsking();

private:
    void ask();
    void pick(int index);
    QJsonObject submit();
    LogReader& log() { return scene->panel.log(); }

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};

void tst_Uploads::initTestCase()
{
    QVERIFY(screen.start());
}

void tst_Uploads::init()
{
    scene = std::make_unique<TransferScene>(screen);
    scene->server.serve("/picked", "");
}

void tst_Uploads::cleanup()
{
    if (scene->panel.isRunning()) {
        QVERIFY(scene->isAlive());
        QVERIFY(scene->remounts().isEmpty()); // an upload only reads
        QCOMPARE(scene->panel.stop(), 0);
    }
    QCOMPARE(scene->panel.exitStatus(), 0);
    scene.reset();
}

void tst_Uploads::ask()
{
    screen.tap(fileInput);
    QVERIFY(scene->awaitChooser());
}

/// Touches a row of the list and waits until the name beside "Filename:" is another one.
void tst_Uploads::pick(int index)
{
    const QRect shownName = QRect(180, 10, 321, 41).translated(TransferScene::chooserPlace.topLeft());
    const QImage before = screen.grab().copy(shownName);
    screen.tap(row(index));
    QTRY_VERIFY_WITH_TIMEOUT(screen.grab().copy(shownName) != before, 20000);
}

/// Sends the form; what arrived in its file input, or an empty object when nothing did.
QJsonObject tst_Uploads::submit()
{
    const auto arrived = [this] {
        const QList<QJsonObject> events = scene->files.events();
        for (const QJsonObject& event : events) {
            if (event.value("path"_s) == "/upload"_s) {
                return event;
            }
        }
        return QJsonObject();
    };
    screen.tap(submitButton);
    if (!QTest::qWaitFor([&] { return !arrived().isEmpty(); }, 20000)) {
        qWarning() << "Nothing arrives";
    }
    return arrived().value("uploads"_s).toArray().at(0).toObject();
}

void tst_Uploads::sendsTheFile_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("octets");

    QByteArray all;
    for (int octet = 0; octet < 256; ++octet) {
        all.append(static_cast<char>(octet));
    }
    QTest::newRow("text") << "settings.ini"_s << QByteArray("[Network]\nport=1\n");
    QTest::newRow("every octet value") << "all.bin"_s << all;
    QTest::newRow("empty") << "empty.bin"_s << QByteArray();
    QTest::newRow("3 MiB") << "large.bin"_s << all.repeated(3 << 12);
    QTest::newRow("blanks and percent signs") << "a %41 %1 b.txt"_s << QByteArray("blanks");
    QTest::newRow("UTF-8") << QString::fromUtf8("r\xc3\xa9sum\xc3\xa9.txt") << QByteArray("accents");
}

void tst_Uploads::sendsTheFile()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, octets);
    QVERIFY(TransferScene::writeDrive(name, octets));
    QVERIFY(scene->open(formPage()));
    ask();
    pick(0);
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->server.awaitCount("/picked", 1));
    QVERIFY(scene->awaitPage());

    const QJsonObject file = submit();
    QCOMPARE(file.value("field"_s).toString(), "log"_s);
    QCOMPARE(file.value("name"_s).toString(), name);
    QCOMPARE(file.value("size"_s).toInt(), octets.size());
    QCOMPARE(file.value("md5"_s).toString(),
             QString::fromLatin1(QCryptographicHash::hash(octets, QCryptographicHash::Md5).toHex()));
    QCOMPARE(TransferScene::readDrive(name), octets);
}

void tst_Uploads::userCancels()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    QVERIFY(scene->open(formPage()));
    ask();
    pick(0);
    screen.tap(TransferScene::cancelButton);
    QVERIFY(scene->awaitPage());
    QCOMPARE(submit().value("name"_s).toString(), QString());
    QCOMPARE(scene->server.count("/picked"), 0);
}

void tst_Uploads::nothingPicked()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    QVERIFY(scene->open(formPage()));
    ask();
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    QVERIFY(scene->awaitPage()); // the message closes by itself
    QCOMPARE(submit().value("name"_s).toString(), QString());
}

void tst_Uploads::withoutDrive()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    TransferScene::pull();
    QVERIFY(scene->open(formPage()));
    screen.tap(fileInput);
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    QVERIFY(scene->awaitPage());
    QCOMPARE(submit().value("name"_s).toString(), QString());
    QCOMPARE(scene->server.count("/picked"), 0);
}

void tst_Uploads::drivePulledAfterPicking()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    QVERIFY(scene->open(formPage()));
    ask();
    pick(0);
    TransferScene::pull();
    QVERIFY(QFile::remove(TransferScene::drive("a.txt"_s)));
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->awaitPage());
    screen.tap(submitButton); // whatever the engine does with it, the panel continues to work
    QVERIFY(scene->isAlive());
}

void tst_Uploads::unreadableFile()
{
    // Not even root reads a file that leads nowhere in a circle.
    QVERIFY(QFile::link(TransferScene::drive("loop.txt"_s), TransferScene::drive("loop.txt"_s)));
    QVERIFY(TransferScene::writeDrive("readable.txt"_s, "octets"));
    QVERIFY(scene->open(formPage()));
    ask();
    pick(0); // the circle is not listed
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->server.awaitCount("/picked", 1));
    QVERIFY(scene->awaitPage());
    QCOMPARE(submit().value("name"_s).toString(), "readable.txt"_s);
}

void tst_Uploads::pageLeavesWhileAsking()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    scene->server.serve("/other.html", "<html><body style='margin:0;background:#00c000'></body></html>");
    QByteArray html = formPage();
    html.replace("<form", "<form onclick=\"setTimeout(function(){location.href='/other.html'},500)\"");
    QVERIFY(scene->open(html));
    ask();
    QVERIFY(scene->server.awaitCount("/other.html", 1));
    QVERIFY(scene->isAlive()); // the page has gone, the chooser is still there
    pick(0);
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->awaitPage());
    QVERIFY(scene->isAlive());
}

void tst_Uploads::panelEndsWhileAsking()
{
    QVERIFY(TransferScene::writeDrive("a.txt"_s, "a"));
    QVERIFY(scene->open(formPage()));
    ask();
    QCOMPARE(scene->panel.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_Uploads)
#include "tst_uploads.moc"
