// SPDX-License-Identifier: MIT
// Pictures of the dialogs on the real screen, measured against what their forms say.

#include <QFontMetrics>
#include <QGuiApplication>

#include "rows.h"
#include "transferscene.h"

namespace {

/// The box around the dark pixels of `area`, that is around its text.
QRect ink(const QImage& picture, const QRect& area)
{
    QRect box;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (qGray(picture.pixel(x, y)) < 100) {
                box |= QRect(x, y, 1, 1);
            }
        }
    }
    return box;
}

QFont panelFont(int points)
{
    QFont font = QGuiApplication::font();
    font.setPointSize(points);
    return font;
}

/// As large as `text` in the panel's font at this number of points, but for what smoothing does to an
/// outline.
bool isText(const QRect& box, const QString& text, int points)
{
    const QSize size = QFontMetrics(panelFont(points)).tightBoundingRect(text).size();
    const bool about = qAbs(box.width() - size.width()) <= 4 && qAbs(box.height() - size.height()) <= 3;
    if (!about) {
        qWarning() << box << "is not about as large as" << text << size;
    }
    return about;
}

constexpr QRgb white = qRgb(255, 255, 255);
const auto plainFile = "/download/custom/plain.bin?size=2048"_s;

} // namespace

class tst_Dialogs : public TransferTest
{
    Q_OBJECT

private slots:
    void message_data()
    {
        const Rows<QString, bool> row("text", "wraps");
        row("in one line", "Download refused here"_s, false);
        row("in two lines", "The file could not be saved on the drive"_s, true);
    }

    void message()
    {
        QFETCH(QString, text);
        QFETCH(bool, wraps);
        scene->drive.pull();
        touchLink(plainFile, TransferScene::quietSettings().set("UI/MsgUSBDriveNotMounted", text));
        QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
        const QRect label = part(TransferScene::messagePlace, {10, 10, 381, 71});
        QVERIFY(awaitTrue([&] { return !ink(screen.grab(), label).isEmpty(); }));
        scene->keepPicture(wraps ? "message-wrapped"_s : "message"_s);
        const QRect words = ink(screen.grab(), TransferScene::messagePlace);
        QVERIFY(label.adjusted(1, 1, -1, -1).contains(words)); // nothing is cut off
        QVERIFY((words.center() - label.center()).manhattanLength() <= 8);
        if (wraps) {
            const int line = QFontMetrics(panelFont(18)).lineSpacing();
            QVERIFY(words.height() > line && words.height() < 2 * line);
        } else {
            QVERIFY(isText(words, text, 18));
        }
    }

    void chooser()
    {
        scene->drive.put("report.txt"_s, {});
        touchLink(plainFile, TransferScene::quietSettings().set("UI/TextFilename", "Name"));
        QVERIFY(scene->awaitChooser());
        const QImage picture = screen.grab();
        const QRect place = TransferScene::chooserPlace;
        QVERIFY(isText(ink(picture, part(place, {10, 10, 170, 41})), "Name"_s, 28));
        QVERIFY(isText(ink(picture, part(place, {181, 10, 320, 41})), "plain.bin"_s, 28));
        const QRect list = part(place, {10, 60, 491, 221});
        QCOMPARE(picture.pixel(list.center()), white);
        QVERIFY(isText(ink(picture, list.adjusted(3, 3, -3, -3)), "report.txt"_s, 28));
        // Beside the buttons' pictures only their texts are dark.
        const QRect ok = ink(picture, QRect(TransferScene::okButton - QPoint(12, 12), QSize(38, 24)));
        QVERIFY(isText(ok, "OK"_s, 18));
        QVERIFY(part(place, {10, 291, 491, 31}).contains(ok));
        screen.tap(TransferScene::cancelButton);
        QVERIFY(log().await("<now> - Download canceled by user"_s));
        QVERIFY(scene->awaitPage());
    }

    void chooserWithScrollBars()
    {
        for (int n = 0; n < 20; ++n) {
            scene->drive.put(QString::number(n) + QString(60, QLatin1Char('n')), {});
        }
        touchLink(plainFile);
        QVERIFY(scene->awaitChooser());
        const QImage picture = screen.grab();
        scene->keepPicture("chooser-scrollbars"_s);
        // The white of the list ends where the bars begin: 32 pixels before its frame, on the right and
        // below.
        const QRect list = part(TransferScene::chooserPlace, {10, 60, 491, 221});
        QCOMPARE(picture.pixel(list.right() - 34, list.top() + 2), white);
        QVERIFY(picture.pixel(list.right() - 17, list.top() + 60) != white);
        QCOMPARE(picture.pixel(list.left() + 2, list.bottom() - 34), white);
        QVERIFY(picture.pixel(list.left() + 100, list.bottom() - 17) != white);
    }

private:
    static QRect part(const QRect& dialog, const QRect& place) { return place.translated(dialog.topLeft()); }

    void touchLink(const QString& path, const SettingsFile& settings = TransferScene::quietSettings())
    {
        QVERIFY(scene->open(TransferScene::linkPage(), settings));
        scene->leadTo(path);
        screen.tap({400, 240});
    }
};

int main(int argc, char* argv[])
{
    // The fonts are measured here, and only there is a screen: the platform needs none.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    tst_Dialogs test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_dialogs.moc"
