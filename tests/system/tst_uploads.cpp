// SPDX-License-Identifier: MIT
// From the file input of a page over the chooser to the octets at the server.

#include <QCryptographicHash>

#include "rows.h"
#include "transferscene.h"

namespace {

/// The upper half of the page is the file input, the lower half sends the form to the file server.
const QByteArray formPage = R"(<meta charset=utf-8>
<form method=post enctype='multipart/form-data' action='http://192.168.7.3/upload?format=json'>
<input type=file name=log style='position:absolute;left:0;top:0;width:800px;height:240px;opacity:0'
       onchange="new Image().src='/picked'">
<input type=submit style='position:absolute;left:0;top:240px;width:800px;height:240px;opacity:0'>
</form>)";

constexpr QPoint fileInput{60, 20};
constexpr QPoint submitButton{400, 450};

} // namespace

class tst_Uploads : public TransferTest
{
    Q_OBJECT

private slots:
    void sendsTheFile_data()
    {
        const Rows<QString, QByteArray> row("name", "octets");
        QByteArray all;
        for (int octet = 0; octet < 256; ++octet) {
            all.append(static_cast<char>(octet));
        }
        row("text", "settings.ini"_s, "[Network]\nport=1\n");
        row("every octet value", "all.bin"_s, all);
        row("empty", "empty.bin"_s, {});
        row("3 MiB", "large.bin"_s, all.repeated(3 << 12));
        row("blanks and percent signs", "a %41 %1 b.txt"_s, "blanks");
        row("UTF-8", "r\xc3\xa9sum\xc3\xa9.txt"_s, "accents");
    }

    void sendsTheFile()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, octets);
        scene->drive.put(name, octets);
        // A link that leads nowhere in a circle is not listed: not even root reads it.
        QVERIFY(QFile::link(scene->drive.path("0"_s), scene->drive.path("0"_s)));
        ask();
        pick();
        screen.tap(TransferScene::okButton);
        QVERIFY(scene->server.awaitCount("/picked", 1));
        QVERIFY(scene->awaitPage());

        const QJsonObject file = submit();
        QCOMPARE(file.value("field"_s).toString(), "log"_s);
        QCOMPARE(file.value("name"_s).toString(), name);
        QCOMPARE(file.value("size"_s).toInt(), octets.size());
        QCOMPARE(file.value("md5"_s).toString(),
                 QString::fromLatin1(QCryptographicHash::hash(octets, QCryptographicHash::Md5).toHex()));
        QCOMPARE(scene->drive.content(name), octets);
        QVERIFY(scene->remounts().isEmpty()); // an upload only reads
    }

    void userCancels()
    {
        scene->drive.put("a.txt"_s, "a");
        ask();
        pick();
        screen.tap(TransferScene::cancelButton);
        QVERIFY(scene->awaitPage());
        QCOMPARE(submit().value("name"_s).toString(), QString());
        QCOMPARE(scene->server.count("/picked"), 0);
    }

    void drivePulledAfterPicking()
    {
        scene->drive.put("a.txt"_s, "a");
        ask();
        pick();
        scene->drive.pull();
        QVERIFY(QFile::remove(scene->drive.path("a.txt"_s)));
        screen.tap(TransferScene::okButton);
        QVERIFY(scene->awaitPage());
        screen.tap(submitButton); // whatever the engine does with it, the panel continues to work
        QVERIFY(scene->isAlive());
    }

    void pageLeavesWhileAsking()
    {
        scene->drive.put("a.txt"_s, "a");
        scene->server.serve("/other.html", "<html><body style='margin:0;background:#00c000'></body></html>");
        ask(QByteArray(formPage).replace(
            "<form", "<form onclick=\"setTimeout(function(){location.href='/other.html'},500)\""));
        QVERIFY(scene->server.awaitCount("/other.html", 1));
        QVERIFY(scene->isAlive()); // the page has gone, the chooser is still there
        pick();
        screen.tap(TransferScene::okButton);
        QVERIFY(scene->awaitPage());
    }

    void panelEndsWhileAsking()
    {
        scene->drive.put("a.txt"_s, "a");
        ask();
        QCOMPARE(scene->panel.stop(), 0);
    }

private:
    void ask(const QByteArray& html = formPage)
    {
        scene->server.serve("/picked", "");
        QVERIFY(scene->open(html));
        screen.tap(fileInput);
        QVERIFY(scene->awaitChooser());
    }

    /// Touches the list's first row and waits until the name beside "Filename:" is another one.
    void pick()
    {
        const QRect shownName = QRect(180, 10, 321, 41).translated(TransferScene::chooserPlace.topLeft());
        const QImage before = screen.grab().copy(shownName);
        screen.tap(TransferScene::row(0));
        QVERIFY(awaitTrue([&] { return screen.grab().copy(shownName) != before; }));
    }

    /// Sends the form; what arrived in its file input.
    QJsonObject submit()
    {
        screen.tap(submitButton);
        return scene->files.awaitUpload();
    }
};

QTEST_GUILESS_MAIN(tst_Uploads)
#include "tst_uploads.moc"
