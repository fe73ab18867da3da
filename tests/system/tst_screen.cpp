// SPDX-License-Identifier: MIT
// The user's view: pictures of the panel's screen from waiting to page, error page and info page.

#include <QColor>
#include <QDir>
#include <QFile>
#include <QTest>

#include "scene.h"
#include "simulator.h"
#include "virtualscreen.h"

Q_DECLARE_METATYPE(SettingsFile)

namespace {

const QString pictures = "/usr/local/share/"_s;

/// A picture of the panel's size that cannot be taken for another: stripes of two colours.
QImage stripes(const QColor& one, const QColor& other)
{
    QImage picture(800, 480, QImage::Format_RGB32);
    for (int y = 0; y < picture.height(); ++y) {
        const QRgb color = y / 40 % 2 == 0 ? one.rgb() : other.rgb();
        for (int x = 0; x < picture.width(); ++x) {
            picture.setPixel(x, y, color);
        }
    }
    return picture;
}

bool putPicture(const QString& name, const QImage& picture)
{
    const QString path = pictures + name;
    return QDir().mkpath(path.section(QLatin1Char('/'), 0, -2)) && picture.save(path);
}

/// The part of a picture that the device's name never covers.
QImage upperPart(const QImage& picture)
{
    return picture.copy(0, 0, picture.width(), 400);
}

int count(const QImage& picture, const QRect& area, QRgb color)
{
    int pixels = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            pixels += picture.pixel(x, y) == color ? 1 : 0;
        }
    }
    return pixels;
}

const QImage errorPicture = stripes(Qt::red, Qt::white);
const QImage germanErrorPicture = stripes(Qt::magenta, Qt::white);
const QImage infoPicture = stripes(Qt::blue, Qt::yellow);

} // namespace

class tst_Screen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void waitingTextStandsInTheMiddle();
    void controllersPageBehindItsLogin();
    void pageFillsTheScreenWithoutScrollBars();
    void screenIsFilledWithoutAWindowManager();
    void wrongPasswordShowsTheErrorPage();
    void linkLossShowsThePictureOfTheLanguage();
    void deviceAndReleaseStandBelowTheErrorPicture();
    void missingPictureSaysSo();
    void serviceLinkShowsTheInfoPictureAndThenThePage();
    void keysReachThePageOnlyOnceItIsTouched();
    void touchReachesThePage();
    void cursorIsHidden_data();
    void cursorIsHidden();

private:
    void startPanel(Scene& scene, const SettingsFile& settings = {}, const QStringList& arguments = {});

    VirtualScreen screen;
};

void tst_Screen::initTestCase()
{
    QVERIFY(screen.start());
}

void tst_Screen::init()
{
    QDir(pictures).removeRecursively();
    QVERIFY(putPicture("default/error.png"_s, errorPicture));
    QVERIFY(putPicture("de/error.png"_s, germanErrorPicture));
    QVERIFY(putPicture("default/front.png"_s, infoPicture));
    screen.move({400, 470}); // where no test looks at anything that a pointer changes
}

void tst_Screen::startPanel(Scene& scene, const SettingsFile& settings, const QStringList& arguments)
{
    scene.panel.setDisplay(screen.display());
    QVERIFY(scene.start(settings, arguments));
}

void tst_Screen::waitingTextStandsInTheMiddle()
{
    QList<QImage> seen;
    for (const char* const text : {"Waiting for network configuration...", "Attente du contr\xc3\xb4leur"}) {
        Scene scene;
        startPanel(scene, SettingsFile().set("UI/MsgWaitingForNetworkConfiguration", text));
        QTRY_VERIFY_WITH_TIMEOUT(count(screen.grab(), {100, 200, 600, 80}, qRgb(0, 0, 0)) > 200, 20000);
        QVERIFY(screen.awaitStill());
        const QImage picture = screen.grab();
        const QRgb background = picture.pixel(5, 5);
        QCOMPARE(count(picture, {0, 0, 800, 200}, background), 800 * 200);
        QCOMPARE(count(picture, {0, 280, 800, 200}, background), 800 * 200);
        seen += picture;
        QCOMPARE(scene.panel.stop(), 0);
    }
    QVERIFY(difference(seen.at(0), seen.at(1), 8) > 0.001);
}

void tst_Screen::controllersPageBehindItsLogin()
{
    Scene scene;
    startPanel(scene, SettingsFile().set("WebSite/Login", "admin").set("WebSite/Password", "secret"));
    Simulator simulator;
    QVERIFY(simulator.startAndListen({"--page"_s, "plain"_s, "--password"_s, "secret"_s}));
    const QImage expected = Simulator::plainPage();
    // The band's caption covers less than two percent.
    QVERIFY(screen.awaitPicture(expected, {}, 0.02));
    QVERIFY(screen.awaitPicture(upperPart(expected), {}, 0.002));
}

void tst_Screen::pageFillsTheScreenWithoutScrollBars()
{
    Scene scene;
    startPanel(scene);
    scene.server.serve("/index.html", "<html><body style='margin:0;background:#00c000'>"
                                      "<div style='width:3000px;height:3000px'></div></body></html>");
    QVERIFY(scene.connectController());
    QImage green(800, 480, QImage::Format_RGB32);
    green.fill(QColor(0, 0xc0, 0));
    QVERIFY(screen.awaitPicture(green, {}, 0));
}

void tst_Screen::screenIsFilledWithoutAWindowManager()
{
    VirtualScreen bare;
    QVERIFY(bare.start({800, 480}, {}, WindowManager::Absent));
    Scene scene;
    scene.panel.setDisplay(bare.display());
    QVERIFY(scene.start());
    QTRY_VERIFY_WITH_TIMEOUT(count(bare.grab(), {100, 200, 600, 80}, qRgb(0, 0, 0)) > 200, 20000);
    QVERIFY(bare.awaitStill());
    const QImage waiting = bare.grab();
    const QRgb background = waiting.pixel(5, 5);
    QCOMPARE(count(waiting, {0, 0, 800, 200}, background), 800 * 200);
    QCOMPARE(count(waiting, {0, 280, 800, 200}, background), 800 * 200);

    scene.server.serve("/index.html", "<html><body style='background:#00c000'></body></html>");
    QVERIFY(scene.connectController());
    QImage green(800, 480, QImage::Format_RGB32);
    green.fill(QColor(0, 0xc0, 0));
    QVERIFY(bare.awaitPicture(green, {}, 0));
}

void tst_Screen::wrongPasswordShowsTheErrorPage()
{
    Scene scene;
    startPanel(scene, SettingsFile().set("WebSite/Login", "admin").set("WebSite/Password", "wrong"));
    Simulator simulator;
    QVERIFY(simulator.startAndListen(
        {"--page"_s, "plain"_s, "--password"_s, "secret"_s, "--set"_s, "devinfo.lang=en"_s}));
    QVERIFY(screen.awaitPicture(upperPart(errorPicture), {}, 0));
}

void tst_Screen::linkLossShowsThePictureOfTheLanguage()
{
    Scene scene;
    startPanel(scene, SettingsFile().set("Network/UdpTimeout", "1"));
    scene.server.serve("/index.html", "<html><body style='background:#00c000'></body></html>");
    for (const char* const language : {"de", "en", "de"}) {
        QVERIFY(scene.connectController(language));
        QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
        QVERIFY(scene.panel.log().await("Remove R7M"_s));
        const bool german = qstrcmp(language, "de") == 0;
        QVERIFY(screen.awaitPicture(upperPart(german ? germanErrorPicture : errorPicture), {}, 0));
    }
}

void tst_Screen::deviceAndReleaseStandBelowTheErrorPicture()
{
    const QRect corner(500, 440, 300, 40);
    QList<QImage> seen;
    for (const char* const device : {"Panel A", "Another name"}) {
        Scene scene;
        startPanel(scene, SettingsFile().set("Network/UdpTimeout", "1"),
                   {"-D"_s, QString::fromLatin1(device)});
        QVERIFY(scene.connectController());
        QVERIFY(scene.panel.log().await("Remove R7M"_s));
        QVERIFY(screen.awaitPicture(upperPart(errorPicture), {}, 0));
        seen += screen.grab();
        QVERIFY(difference(seen.last().copy(corner), errorPicture.copy(corner), 8) > 0.005);
    }
    QVERIFY(difference(seen.at(0).copy(corner), seen.at(1).copy(corner), 8) > 0.005);
    const QRect besideIt(0, 400, 490, 80);
    QCOMPARE(difference(seen.at(0).copy(besideIt), errorPicture.copy(besideIt), 8), 0.0);
}

void tst_Screen::missingPictureSaysSo()
{
    QDir(pictures).removeRecursively();
    Scene scene;
    startPanel(scene, SettingsFile().set("Network/UdpTimeout", "1"));
    scene.server.serve("/index.html", "<html><body style='background:#00c000'></body></html>");
    QVERIFY(scene.connectController());
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    QVERIFY(screen.awaitPixel({400, 240}, Qt::white));
    // The heading in the upper left, the device in the lower right.
    QTRY_VERIFY_WITH_TIMEOUT(count(screen.grab(), {20, 20, 400, 100}, qRgb(0, 0, 0)) > 300, 20000);
    QVERIFY(count(screen.grab(), {500, 440, 300, 40}, qRgb(0, 0, 0)) > 50);
}

void tst_Screen::serviceLinkShowsTheInfoPictureAndThenThePage()
{
    Scene scene;
    startPanel(scene);
    scene.server.serve("/index.html", "<html><body style='background:#00c000'></body></html>");
    QVERIFY(scene.connectController());
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
    scene.sys.setOperState("usb0"_s, "up"_s);
    QVERIFY(screen.awaitPicture(upperPart(infoPicture), {}, 0));
    scene.sys.setOperState("usb0"_s, "down"_s);
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
}

void tst_Screen::keysReachThePageOnlyOnceItIsTouched()
{
    Scene scene;
    startPanel(scene);
    scene.server.serve(
        "/index.html",
        "<html><body style='background:#00c000' onkeydown=\"location.href='/key'\"></body></html>");
    QVERIFY(scene.connectController());
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
    screen.key('a');
    // Whatever the keys do has been done when the touch that follows has.
    screen.tap({400, 240});
    QVERIFY(scene.isAlive());
    QVERIFY(screen.awaitStill());
    QCOMPARE(scene.server.count("/key"), 0);
    screen.key('a');
    QVERIFY(scene.server.awaitCount("/key", 1));
}

void tst_Screen::touchReachesThePage()
{
    Scene scene;
    startPanel(scene);
    scene.server.serve("/index.html", "<html><body style='margin:0;background:#00c000'><a href=/touched.html "
                                      "style='display:block;width:800px;height:480px'></a></body></html>");
    scene.server.serve("/touched.html", "<html><body style='background:#0000c0'></body></html>");
    QVERIFY(scene.connectController());
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
    screen.tap({400, 240});
    QVERIFY(scene.server.awaitCount("/touched.html", 1));
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0, 0xc0)));
}

void tst_Screen::cursorIsHidden_data()
{
    QTest::addColumn<SettingsFile>("settings");
    QTest::addColumn<bool>("visible");
    QTest::newRow("built-in value: hidden") << SettingsFile() << false;
    QTest::newRow("true: hidden") << SettingsFile().set("UI/HideCursor", "true") << false;
    QTest::newRow("false: shown") << SettingsFile().set("UI/HideCursor", "false") << true;
    QTest::newRow("0: shown") << SettingsFile().set("UI/HideCursor", "0") << true;
    QTest::newRow("off: hidden, as any other text") << SettingsFile().set("UI/HideCursor", "off") << false;
}

void tst_Screen::cursorIsHidden()
{
    QFETCH(SettingsFile, settings);
    QFETCH(bool, visible);
    Scene scene;
    QTRY_VERIFY_WITH_TIMEOUT(screen.showsCursor(), 20000); // that of the bare screen
    startPanel(scene, settings);
    scene.server.serve("/index.html", "<html><body style='margin:0;background:#00c000'><a href=/x.html "
                                      "style='display:block;width:400px;height:480px'></a></body></html>");
    QTRY_COMPARE_WITH_TIMEOUT(screen.showsCursor(), visible, 20000);
    QVERIFY(scene.connectController());
    QVERIFY(screen.awaitPixel({400, 240}, QColor(0, 0xc0, 0)));
    // A link has a cursor of its own, and the page beside it the usual one.
    for (const int x : {200, 600}) {
        screen.move({x, 240});
        QVERIFY(scene.isAlive());
        QTRY_COMPARE_WITH_TIMEOUT(screen.showsCursor(), visible, 20000);
    }
}

QTEST_GUILESS_MAIN(tst_Screen)
#include "tst_screen.moc"
