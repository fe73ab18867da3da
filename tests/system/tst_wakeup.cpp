// SPDX-License-Identifier: MIT
// The screen goes dark and wakes, and the page does not get the touch that wakes it.

#include <QTest>

#include "scene.h"
#include "virtualscreen.h"

namespace {

const QByteArrayList domEvents{"mousedown", "mouseup", "click", "dblclick", "mousemove"};

/// A page that tells the server each mouse event that reaches it.
QByteArray tellingPage()
{
    return "<html><body style='margin:0;background:#00c000'><script>"
           "['" +
           domEvents.join("','") +
           "'].forEach(function(type) {"
           "  window.addEventListener(type, function() {"
           "    var request = new XMLHttpRequest();"
           "    request.open('POST', '/event/' + type, true);"
           "    request.send();"
           "  });"
           "});"
           "</script></body></html>";
}

constexpr QPoint here{400, 240};
constexpr QPoint there{200, 100};

} // namespace

class tst_WakeUp : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { QVERIFY(screen.start()); }

    void init()
    {
        screen.move(here);
        scene = std::make_unique<Scene>();
        scene->panel.setDisplay(screen.display());
        scene->server.serve("/index.html", tellingPage());
        for (const QByteArray& event : domEvents) {
            scene->server.serve("/event/" + event, "noted", "text/plain");
        }
    }

    void cleanup()
    {
        QVERIFY(scene->isAlive());
        QCOMPARE(scene->panel.stop(), 0);
        scene.reset();
    }

    void darkensBothFilesAndLightsThemAgain()
    {
        const QString blank = StandInSys::blankFile();
        const QString backlight = StandInSys::backlightFile();
        WriteRecorder display({blank, backlight});
        open();
        QCOMPARE(display.texts(blank).value(0), "0"_s); // at the start, whatever was there before
        QCOMPARE(display.texts(backlight).value(0), "0"_s);
        touchAndRest();
        display.clear();
        awaitDark();
        screen.move(there);
        awaitLit();
        QVERIFY(display.awaitWrites(backlight, 2));
        QStringList words;
        const QList<WriteRecorder::Write> writes = display.writes();
        for (const WriteRecorder::Write& write : writes) {
            words += write.path.section(QLatin1Char('/'), -1) + QLatin1Char('=') + write.text;
        }
        QCOMPARE(words, QStringList({"blank=1"_s, "bl_power=1"_s, "blank=0"_s, "bl_power=0"_s}));
    }

    void pressStaysInTheDarkAndMoveWakes()
    {
        goDark();
        screen.press();
        screen.release();
        QVERIFY(scene->isAlive());
        QVERIFY(scene->isAlive());
        QCOMPARE(StandInSys::read(StandInSys::blankFile()), "1"_s);
        QVERIFY(!log().unread().contains("setScreenState 1"_s));
        screen.move(there);
        awaitLit();
        QVERIFY(scene->isAlive());
        QCOMPARE(events(), QByteArrayList());
        expectOneClickNext();
        QVERIFY(!events().contains("mousemove"));
    }

    void dragWakesButNeverClicks()
    {
        goDark();
        screen.press();
        screen.move(here + QPoint(30, 0)); // wakes
        awaitLit();
        screen.move(here + QPoint(60, 0));
        screen.release();
        QVERIFY(scene->server.awaitCount("/event/mouseup", 1));
        QVERIFY(!events().contains("mousedown"));
        QVERIFY(!events().contains("click"));
        QVERIFY(events().count("mousemove") <= 1); // at most the second one
        expectOneClickNext();
    }

    void touchElsewhereWakesByItsMove()
    {
        goDark();
        // The touch screen moves the pointer to the finger first. That wakes; the press then finds a lit
        // screen.
        screen.tap(there);
        QVERIFY(log().await({"setScreenState 1"_s, "stopBuzzer()"_s, "stopBuzzer()"_s, "resetTimer"_s}));
        QVERIFY(scene->server.awaitCount("/event/click", 1));
        QVERIFY(!events().contains("mousemove"));
        awaitDark(); // a new period began with the press
    }

private:
    /// Starts the panel and opens the page.
    void open()
    {
        QVERIFY(scene->start(
            SettingsFile().set("UI/ScreenSaverInterval", "1000").set("Network/UdpTimeout", "3600")));
        QVERIFY(scene->connectController());
        QVERIFY(screen.awaitPixel(here, QColor(0, 0xc0, 0)));
    }

    void goDark()
    {
        open();
        touchAndRest();
        awaitDark();
    }

    /// Touches the page, which begins a period, and lets the finger rest there. The toolkit takes a press at
    /// a place where it has not yet seen the finger for a move to there.
    void touchAndRest()
    {
        screen.move(here + QPoint(0, 1));
        log().skip();
        screen.tap(here);
        QVERIFY(scene->server.awaitCount("/event/click", 1));
    }

    void awaitDark()
    {
        QVERIFY(log().await({"goSleep"_s, "setScreenState 0"_s}));
        QVERIFY(awaitTrue([] { return StandInSys::read(StandInSys::backlightFile()) == "1"_s; }));
        scene->server.clear();
    }

    void awaitLit()
    {
        QVERIFY(log().await({"setScreenState 1"_s, "stopBuzzer()"_s}));
        QVERIFY(awaitTrue([] { return StandInSys::read(StandInSys::backlightFile()) == "0"_s; }));
    }

    /// Touches the lit screen. The page must see this touch, and whatever it saw before comes before it.
    void expectOneClickNext()
    {
        screen.press();
        screen.release();
        QVERIFY(scene->server.awaitCount("/event/click", 1));
        QVERIFY(scene->isAlive());
        QCOMPARE(scene->server.count("/event/mousedown"), 1);
        QCOMPARE(scene->server.count("/event/click"), 1);
        QCOMPARE(scene->server.count("/event/dblclick"), 0);
    }

    /// The events that the page has reported, in order.
    QByteArrayList events() const
    {
        QByteArrayList result;
        for (const WebServer::Request& request : scene->server.requests()) {
            if (request.path.startsWith("/event/")) {
                result += request.path.mid(7);
            }
        }
        return result;
    }

    LogReader& log() { return scene->panel.log(); }

    VirtualScreen screen;
    std::unique_ptr<Scene> scene;
};

QTEST_GUILESS_MAIN(tst_WakeUp)
#include "tst_wakeup.moc"
