// SPDX-License-Identifier: MIT
// The user's view: pictures of the panel's screen from waiting to page, error page and info page.

#include <QDir>

#include "rows.h"
#include "scene.h"
#include "simulator.h"
#include "virtualscreen.h"

Q_DECLARE_METATYPE(SettingsFile)

namespace {

const QString pictures = "/usr/local/share/"_s;
const QByteArray greenPage = "<html><body style='margin:0;background:#00c000'></body></html>";
const QColor green(0, 0xc0, 0);
constexpr QPoint middle{400, 240};

QImage plain(const QColor& color)
{
    QImage picture(800, 480, QImage::Format_RGB32);
    picture.fill(color);
    return picture;
}

/// A picture that cannot be taken for another: stripes of white and a color.
QImage stripes(const QColor& color)
{
    QImage picture = plain(color);
    for (int y = 0; y < picture.height(); ++y) {
        for (int x = 0; x < picture.width() && y / 40 % 2 != 0; ++x) {
            picture.setPixel(x, y, qRgb(255, 255, 255));
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

const QImage errorPicture = stripes(Qt::red);
const QImage germanErrorPicture = stripes(Qt::magenta);
const QImage infoPicture = stripes(Qt::blue);

} // namespace

class tst_Screen : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(screen.start()); }

    void init()
    {
        QDir(pictures).removeRecursively();
        QVERIFY(putPicture("default/error.png"_s, errorPicture));
        QVERIFY(putPicture("de/error.png"_s, germanErrorPicture));
        QVERIFY(putPicture("default/front.png"_s, infoPicture));
        screen.move({400, 470}); // where no test looks at anything that a pointer changes
    }

    void waitingTextStandsInTheMiddle()
    {
        QList<QImage> seen;
        for (const char* const text :
             {"Waiting for network configuration...", "Attente du contr\xc3\xb4leur"}) {
            Scene scene;
            startPanel(scene, SettingsFile().set("UI/MsgWaitingForNetworkConfiguration", text));
            awaitWaitingText(screen);
            seen += screen.grab();
            QCOMPARE(scene.panel.stop(), 0);
        }
        QVERIFY(difference(seen.at(0), seen.at(1)) > 0.001);
    }

    void screenIsFilledWithoutAWindowManager()
    {
        VirtualScreen bare;
        QVERIFY(bare.start({800, 480}, {}, WindowManager::Absent));
        Scene scene;
        scene.panel.setDisplay(bare.display());
        QVERIFY(scene.start());
        awaitWaitingText(bare);
        scene.server.serve("/index.html", greenPage);
        QVERIFY(scene.connectController());
        QVERIFY(bare.awaitPicture(plain(green), {}, 0));
    }

    void controllersPageBehindItsLogin()
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

    void pageFillsTheScreenWithoutScrollBars()
    {
        Scene scene;
        startPanel(scene);
        scene.server.serve("/index.html", greenPage + "<div style='width:3000px;height:3000px'></div>");
        QVERIFY(scene.connectController());
        QVERIFY(screen.awaitPicture(plain(green), {}, 0));
    }

    void linkLossShowsThePictureOfTheLanguage()
    {
        Scene scene;
        startPanel(scene, SettingsFile().set("Network/UdpTimeout", "1"));
        for (const char* const language : {"de", "en", "de"}) {
            showGreenPage(scene, language);
            QVERIFY(scene.panel.log().await("Remove R7M"_s));
            const bool german = qstrcmp(language, "de") == 0;
            QVERIFY(screen.awaitPicture(upperPart(german ? germanErrorPicture : errorPicture), {}, 0));
        }
    }

    void deviceStandsBelowTheErrorPicture()
    {
        const QRect corner(500, 440, 300, 40);
        const QRect besideIt(0, 400, 490, 80);
        QList<QImage> seen;
        for (const auto& device : {"Panel A"_s, "Another name"_s}) {
            Scene scene;
            startPanel(scene, SettingsFile().set("Network/UdpTimeout", "1"), {"-D"_s, device});
            QVERIFY(scene.connectController());
            QVERIFY(scene.panel.log().await("Remove R7M"_s));
            QVERIFY(screen.awaitPicture(upperPart(errorPicture), {}, 0));
            seen += screen.grab();
            QVERIFY(difference(seen.last().copy(corner), errorPicture.copy(corner)) > 0.005);
            QCOMPARE(difference(seen.last().copy(besideIt), errorPicture.copy(besideIt)), 0.0);
        }
        QVERIFY(difference(seen.at(0).copy(corner), seen.at(1).copy(corner)) > 0.005);
    }

    void serviceLinkShowsTheInfoPictureAndThenThePage()
    {
        Scene scene;
        startPanel(scene);
        showGreenPage(scene);
        scene.sys.setOperState("usb0"_s, "up"_s);
        QVERIFY(screen.awaitPicture(upperPart(infoPicture), {}, 0));
        scene.sys.setOperState("usb0"_s, "down"_s);
        QVERIFY(screen.awaitPixel(middle, green));
    }

    void keysReachThePageOnlyOnceItIsTouched()
    {
        Scene scene;
        startPanel(scene);
        showGreenPage(scene, "en", "<script>onkeydown = function() { location.href = '/key'; }</script>");
        screen.key('a');
        // Whatever the keys do has been done when the touch that follows has.
        screen.tap(middle);
        QVERIFY(scene.isAlive());
        QVERIFY(screen.awaitStill());
        QCOMPARE(scene.server.count("/key"), 0);
        screen.key('a');
        QVERIFY(scene.server.awaitCount("/key", 1));
    }

    void cursorIsHidden_data()
    {
        const Rows<SettingsFile, bool> row("settings", "visible");
        row("built-in value: hidden", SettingsFile(), false);
        row("true: hidden", SettingsFile().set("UI/HideCursor", "true"), false);
        row("false: shown", SettingsFile().set("UI/HideCursor", "false"), true);
    }

    void cursorIsHidden()
    {
        QFETCH(SettingsFile, settings);
        QFETCH(bool, visible);
        Scene scene;
        QVERIFY(awaitTrue([&] { return screen.showsCursor(); })); // that of the bare screen
        startPanel(scene, settings);
        QVERIFY(awaitTrue([&] { return screen.showsCursor() == visible; }));
        // A link has a cursor of its own, and the page beside it the usual one.
        showGreenPage(scene, "en", "<a href=/x.html style='display:block;width:400px;height:480px'></a>");
        for (const int x : {200, 600}) {
            screen.move({x, 240});
            QVERIFY(scene.isAlive());
            QVERIFY(awaitTrue([&] { return screen.showsCursor() == visible; }));
        }
    }

private:
    static int blackIn(const VirtualScreen& where, const QRect& area)
    {
        return countPixels(where.grab(), qRgb(0, 0, 0), area);
    }

    /// Waits until there is text in the middle of the screen and nothing above and below.
    static void awaitWaitingText(const VirtualScreen& where)
    {
        QVERIFY(awaitTrue([&] { return blackIn(where, {100, 200, 600, 80}) > 200; }));
        QVERIFY(where.awaitStill());
        const QImage picture = where.grab();
        const QRgb background = picture.pixel(5, 5);
        QCOMPARE(countPixels(picture, background, {0, 0, 800, 200}), 800 * 200);
        QCOMPARE(countPixels(picture, background, {0, 280, 800, 200}), 800 * 200);
    }

    void startPanel(Scene& scene, const SettingsFile& settings = {}, const QStringList& arguments = {})
    {
        scene.panel.setDisplay(screen.display());
        QVERIFY(scene.start(settings, arguments));
    }

    void showGreenPage(Scene& scene, const char* language = "en", const QByteArray& more = {})
    {
        scene.server.serve("/index.html", greenPage + more);
        QVERIFY(scene.connectController(language));
        QVERIFY(screen.awaitPixel(middle, green));
    }

    VirtualScreen screen;
};

QTEST_GUILESS_MAIN(tst_Screen)
#include "tst_screen.moc"
