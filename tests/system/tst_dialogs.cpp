// SPDX-License-Identifier: MIT
// Pictures of the dialogs on the real screen, measured against what their forms say.

#include <QFontMetrics>
#include <QGuiApplication>
#include <QTest>

#include "transferscene.h"

namespace {

/// The box around the pixels of `area` that are darker than `grey`, that is around its text.
QRect ink(const QImage& picture, const QRect& area, int grey = 100)
{
    QRect box;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (qGray(picture.pixel(x, y)) < grey) {
                box |= QRect(x, y, 1, 1);
            }
        }
    }
    return box;
}

/// The size of `text` in the panel's font at this number of points.
QSize textSize(const QString& text, int points)
{
    QFont font = QGuiApplication::font();
    font.setPointSize(points);
    return QFontMetrics(font).tightBoundingRect(text).size();
}

/// Equal but for what smoothing does to an outline.
bool isAbout(const QSize& one, const QSize& other)
{
    const bool about = qAbs(one.width() - other.width()) <= 4 && qAbs(one.height() - other.height()) <= 3;
    if (!about) {
        qWarning() << one << "is not about" << other;
    }
    return about;
}

const auto plainFile = "/download/custom/plain.bin?size=2048"_s;

} // namespace

class tst_Dialogs : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void messageInOneLine();
    void messageInTwoLines();
    void progress();
    void chooser();
    void chooserWithScrollBars();

private:
    QRect ownPart(const QRect& dialog, const QRect& part) const { return part.translated(dialog.topLeft()); }

    VirtualScreen screen;
    std::unique_ptr<TransferScene> scene;
};

void tst_Dialogs::initTestCase()
{
    QVERIFY(screen.start());
}

void tst_Dialogs::init()
{
    scene = std::make_unique<TransferScene>(screen);
}

void tst_Dialogs::cleanup()
{
    QCOMPARE(scene->panel.stop(), 0);
    scene.reset();
}

void tst_Dialogs::messageInOneLine()
{
    const QString text = "Download refused here"_s;
    TransferScene::pull();
    QVERIFY(scene->open(TransferScene::linkPage(),
                        TransferScene::quietSettings().set("UI/MsgUSBDriveNotMounted", text)));
    scene->leadTo(plainFile);
    screen.tap({400, 240});
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    const QRect label = ownPart(TransferScene::messagePlace, {10, 10, 381, 71});
    QTRY_VERIFY_WITH_TIMEOUT(!ink(screen.grab(), label).isEmpty(), 20000);
    const QRect words = ink(screen.grab(), TransferScene::messagePlace);
    QVERIFY(label.contains(words));
    QVERIFY(isAbout(words.size(), textSize(text, 18)));
    QVERIFY((words.center() - label.center()).manhattanLength() <= 8);
}

void tst_Dialogs::messageInTwoLines()
{
    TransferScene::pull();
    QVERIFY(scene->open(TransferScene::linkPage(),
                        TransferScene::quietSettings().set("UI/MsgUSBDriveNotMounted",
                                                           "The file could not be saved on the drive")));
    scene->leadTo(plainFile);
    screen.tap({400, 240});
    QVERIFY(scene->awaitForeground(TransferScene::messagePlace));
    const QRect label = ownPart(TransferScene::messagePlace, {10, 10, 381, 71});
    QTRY_VERIFY_WITH_TIMEOUT(!ink(screen.grab(), label).isEmpty(), 20000);
    const QImage picture = screen.grab();
    scene->keepPicture("message-wrapped"_s);
    const QRect words = ink(picture, TransferScene::messagePlace);
    QVERIFY(label.adjusted(1, 1, -1, -1).contains(words)); // nothing is cut off
    QVERIFY((words.center() - label.center()).manhattanLength() <= 8);
    QFont font = QGuiApplication::font();
    font.setPointSize(18);
    const int line = QFontMetrics(font).lineSpacing();
    QVERIFY(words.height() > line && words.height() < 2 * line);
}

void tst_Dialogs::progress()
{
    QVERIFY(scene->open(TransferScene::linkPage()));
    scene->leadTo("/download/custom/slow.bin?size=81920&pace=300"_s);
    screen.tap({400, 240});
    QVERIFY(scene->awaitChooser());
    screen.tap(TransferScene::okButton);
    QVERIFY(scene->awaitForeground(TransferScene::progressPlace));
    const QRect title = ownPart(TransferScene::progressPlace, {20, 10, 371, 31});
    QTRY_VERIFY_WITH_TIMEOUT(!ink(screen.grab(), title).isEmpty(), 20000);
    const QImage picture = screen.grab();
    QVERIFY(isAbout(ink(picture, title).size(), textSize("Download in progress"_s, 18)));
    // Above, below and beside the bar there is only the dialog's colour, and within it no text: the edge of
    // its blue is dark, but not black.
    const QRgb background = picture.pixel(TransferScene::progressPlace.topLeft() + QPoint(2, 2));
    const QRect bar = ownPart(TransferScene::progressPlace, {20, 60, 371, 41});
    for (const QPoint& beside : {bar.topLeft() - QPoint(2, 0), bar.topLeft() - QPoint(0, 2),
                                 bar.bottomRight() + QPoint(2, 0), bar.bottomRight() + QPoint(0, 2)}) {
        QCOMPARE(picture.pixel(beside), background);
    }
    QVERIFY(picture.pixel(bar.center()) != background);
    QVERIFY(ink(picture, bar.adjusted(4, 4, -4, -4), 40).isEmpty());
    QVERIFY(scene->panel.log().await("RemountUSB \"ro\""_s));
}

void tst_Dialogs::chooser()
{
    QVERIFY(TransferScene::writeDrive("report.txt"_s, {}));
    QVERIFY(scene->open(TransferScene::linkPage(),
                        TransferScene::quietSettings().set("UI/TextFilename", "Name")));
    scene->leadTo(plainFile);
    screen.tap({400, 240});
    QVERIFY(scene->awaitChooser());
    const QImage picture = screen.grab();
    const QRect place = TransferScene::chooserPlace;
    QVERIFY(isAbout(ink(picture, ownPart(place, {10, 10, 170, 41})).size(), textSize("Name"_s, 28)));
    QVERIFY(isAbout(ink(picture, ownPart(place, {181, 10, 320, 41})).size(), textSize("plain.bin"_s, 28)));
    const QRect list = ownPart(place, {10, 60, 491, 221});
    QCOMPARE(picture.pixel(list.center()), qRgb(255, 255, 255));
    QVERIFY(isAbout(ink(picture, list.adjusted(3, 3, -3, -3)).size(), textSize("report.txt"_s, 28)));
    // Beside the buttons' pictures only their texts are dark.
    const QRect buttons = ownPart(place, {10, 291, 491, 31});
    const QRect ok = ink(picture, QRect(TransferScene::okButton - QPoint(12, 12), QSize(38, 24)));
    QVERIFY(isAbout(ok.size(), textSize("OK"_s, 18)));
    QVERIFY(buttons.contains(ok));
    screen.tap(TransferScene::cancelButton);
    QVERIFY(scene->panel.log().await("<now> - Download canceled by user"_s));
    QVERIFY(scene->awaitPage());
}

void tst_Dialogs::chooserWithScrollBars()
{
    for (int n = 0; n < 20; ++n) {
        QVERIFY(TransferScene::writeDrive(QString::number(n) + QString(60, QLatin1Char('n')), {}));
    }
    QVERIFY(scene->open(TransferScene::linkPage()));
    scene->leadTo(plainFile);
    screen.tap({400, 240});
    QVERIFY(scene->awaitChooser());
    const QImage picture = screen.grab();
    scene->keepPicture("chooser-scrollbars"_s);
    // The white of the list ends where the bars begin: 32 pixels before its frame, on the right and below.
    const QRect list = ownPart(TransferScene::chooserPlace, {10, 60, 491, 221});
    const QRgb white = qRgb(255, 255, 255);
    QCOMPARE(picture.pixel(list.right() - 34, list.top() + 2), white);
    QVERIFY(picture.pixel(list.right() - 17, list.top() + 60) != white);
    QCOMPARE(picture.pixel(list.left() + 2, list.bottom() - 34), white);
    QVERIFY(picture.pixel(list.left() + 100, list.bottom() - 17) != white);
    screen.tap(TransferScene::cancelButton);
    QVERIFY(scene->awaitPage());
}

int main(int argc, char* argv[])
{
    // The fonts are measured here, and only there is a screen: the platform needs none.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    const QGuiApplication application(argc, argv);
    tst_Dialogs test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_dialogs.moc"
