// SPDX-License-Identifier: MIT
#include "screensaver.h"

#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTimer>
#include <QWidget>

#include "logrecorder.h"
#include "rows.h"
#include "scopedsetting.h"

using Varnel::ScreenSaver;

namespace {

const auto blankFailed = "Error opening file '/sys/class/graphics/fb0/blank'"_s;
const auto dark = "setScreenState 0"_s;
const auto lit = "setScreenState 1"_s;
const auto stopBuzzer = "stopBuzzer()"_s;
const auto resetTimer = "resetTimer"_s;

/// A widget that counts what reaches it.
class Page : public QWidget
{
public:
    QVector<QEvent::Type> reached;

protected:
    bool event(QEvent* event) override
    {
        switch (event->type()) {
        case QEvent::MouseMove:
        case QEvent::MouseButtonPress:
        case QEvent::MouseButtonRelease:
        case QEvent::MouseButtonDblClick:
        case QEvent::MouseTrackingChange:
        case QEvent::User:
            reached << event->type();
            break;
        default:
            break;
        }
        return QWidget::event(event);
    }
};

} // namespace

/// The panel's display files do not exist where this runs, which every change of state says in the log; the
/// system tests look into the files themselves.
class tst_ScreenSaver : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        // Without display files: each write to them is then a line in the log. A real display is left alone.
        QVERIFY2(!QFile::exists("/sys/kernel"_s), "this test needs a stand-in /sys: run it in the sandbox");
        QVERIFY(QDir("/sys/class/graphics"_s).removeRecursively());
        QVERIFY(QDir("/sys/devices"_s).removeRecursively());
        const LogRecorder log;
        saver = ScreenSaver::instance();
        constructionLog = log.texts();
        litByConstruction = saver->active();
    }

    void init()
    {
        page = std::make_unique<Page>();
        page->setMouseTracking(true); // without it Qt keeps moves without a pressed button to itself
        page->reached.clear();
        saver->handleMouseMove(page.get());
    }

    void cleanup()
    {
        const LogRecorder log;
        page.reset();
        timer()->stop();
        disconnect(timer(), nullptr, saver, nullptr); // what install() did
        saver->activate(true);
    }

    void isOneObject()
    {
        QCOMPARE(ScreenSaver::instance(), saver);
        QVERIFY(!saver->parent());
        QCOMPARE(saver->findChildren<QTimer*>().size(), 1);
        QCOMPARE(timer()->timerType(), Qt::PreciseTimer); // not dark before the time is over
        QVERIFY(litByConstruction);
        QCOMPARE(constructionLog, QStringList({lit, stopBuzzer, blankFailed}));
    }

    void metaObject()
    {
        const QMetaObject& meta = ScreenSaver::staticMetaObject;
        QVERIFY(meta.indexOfSignal("activated(bool)") != -1);
        QVERIFY(meta.indexOfSlot("goSleep()") != -1);
        QCOMPARE(meta.methodCount() - meta.methodOffset(), 2);
        QCOMPARE(int(ScreenSaver::ScreenInactive), 0);
        QCOMPARE(int(ScreenSaver::ScreenActive), 1);
    }

    void activate_data()
    {
        const Rows<bool, bool, QStringList> row("before", "on", "lines");
        // Without the first display file the second one is not tried: one line about it, not two.
        row("lit, on: nothing", true, true, {});
        row("lit, off: dark", true, false, {dark, blankFailed});
        row("dark, off: nothing", false, false, {});
        row("dark, on: lit", false, true, {lit, stopBuzzer, blankFailed});
    }

    void activate()
    {
        QFETCH(bool, before);
        QFETCH(bool, on);
        saver->activate(before);
        const LogRecorder log;
        QSignalSpy activated(saver, &ScreenSaver::activated);
        QCOMPARE(saver->activate(on), before != on); // whether or not the display files could be written
        QCOMPARE(saver->active(), on);
        QTEST(log.texts(), "lines");
        QCOMPARE(static_cast<const QList<QVariantList>&>(activated),
                 before == on ? QList<QVariantList>() : QList<QVariantList>{{!on}});
    }

    void setScreenState()
    {
        const LogRecorder log;
        QSignalSpy activated(saver, &ScreenSaver::activated);
        QVERIFY(saver->setScreenState(ScreenSaver::ScreenActive)); // nothing to do is no failure
        QVERIFY(log.lines().isEmpty());
        QVERIFY(activated.isEmpty());

        QVERIFY(!saver->setScreenState(ScreenSaver::ScreenInactive)); // the display file is not there
        QVERIFY(!saver->active());                                    // but the state has changed
        QCOMPARE(log.texts(), QStringList({dark, blankFailed}));
        QCOMPARE(log.lines().constLast().type, QtCriticalMsg);
        QVERIFY(saver->setScreenState(ScreenSaver::ScreenInactive));
        QCOMPARE(log.lines().size(), 2);
    }

    void bothDisplayFilesCount()
    {
        const QString backlight = "/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0"_s;
        QVERIFY(QDir().mkpath("/sys/class/graphics/fb0"_s));
        const LogRecorder log;
        QVERIFY(!saver->setScreenState(ScreenSaver::ScreenInactive)); // the first one alone
        QCOMPARE(log.texts(), QStringList({dark, "Error opening file '%1/bl_power'"_s.arg(backlight)}));
        QVERIFY(QDir().mkpath(backlight));
        QVERIFY(saver->setScreenState(ScreenSaver::ScreenActive));
        QVERIFY(QDir("/sys/class/graphics"_s).removeRecursively());
        QVERIFY(QDir("/sys/devices"_s).removeRecursively());
    }

    void saveRestoreAndSleep()
    {
        const LogRecorder log;
        QVERIFY(!saver->save(7));
        QVERIFY(saver->save(0)); // dark already
        saver->restore();
        QVERIFY(saver->active());
        saver->goSleep();
        saver->goSleep();
        QVERIFY(!saver->active());
        QCOMPARE(log.texts(), QStringList({dark, blankFailed, lit, stopBuzzer, blankFailed, "goSleep"_s, dark,
                                           blankFailed, "goSleep"_s}));
    }

    void hooksOnlyLog()
    {
        const LogRecorder log;
        saver->stopBuzzer();
        saver->setStopBuzzerServer("http://r7m/%20a.html"_s);
        QCOMPARE(withoutStamps(log.texts()),
                 QStringList({stopBuzzer, "TIME - Stop buzzer server: http://r7m/%20a.html"_s}));
    }

    void installStartsPeriod()
    {
        const ScopedSetting<qint32> interval("UI", "ScreenSaverInterval", 60000);
        const LogRecorder log;
        saver->install();
        QCOMPARE(log.texts(), QStringList({"Install screensaver"_s, resetTimer}));
        QVERIFY(timer()->isActive() && timer()->isSingleShot());
        QCOMPARE(timer()->interval(), 60000);
        QVERIFY(saver->active());

        timer()->start(10); // nearly over
        send(QEvent::MouseButtonPress);
        QVERIFY(timer()->isActive());
        QCOMPARE(timer()->interval(), 60000);
        saver->uninstall(); // does nothing
        QVERIFY(timer()->isActive());
        QVERIFY(saver->active());
        QCOMPARE(log.texts().mid(2), QStringList({stopBuzzer, resetTimer}));
    }

    void intervalZeroDarkensAtOnce()
    {
        const ScopedSetting<qint32> interval("UI", "ScreenSaverInterval", 0);
        const LogRecorder log;
        QSignalSpy activated(saver, &ScreenSaver::activated);
        saver->install();
        QVERIFY(saver->active()); // not before the event loop turns
        QCoreApplication::processEvents();
        QVERIFY(!saver->active());
        QCOMPARE(activated.size(), 1);
        QCOMPARE(activated.first().first().toBool(), true);

        send(QEvent::MouseMove); // lit by the move, and again dark after the press
        QVERIFY(saver->active());
        QCoreApplication::processEvents();
        QVERIFY(saver->active());
        send(QEvent::MouseButtonPress);
        QVERIFY(saver->active());
        QCoreApplication::processEvents();
        QVERIFY(!saver->active());
    }

    void events_data()
    {
        const Rows<QEvent::Type, bool, QStringList> row("type", "reachesInTheDark", "linesWhenLit");
        row("press", QEvent::MouseButtonPress, false, {stopBuzzer, resetTimer});
        row("release", QEvent::MouseButtonRelease, false, {});
        row("double click", QEvent::MouseButtonDblClick, false, {});
        row("tracking change", QEvent::MouseTrackingChange, false, {});
        row("other event", QEvent::User, true, {});
    }

    void events()
    {
        QFETCH(QEvent::Type, type);
        QFETCH(bool, reachesInTheDark);
        LogRecorder log;
        send(type);
        QCOMPARE(page->reached, QVector<QEvent::Type>{type});
        QTEST(log.texts(), "linesWhenLit");

        saver->activate(false);
        timer()->stop();
        page->reached.clear();
        log.clear();
        const bool taken = send(type);
        QCOMPARE(page->reached.isEmpty(), !reachesInTheDark);
        QVERIFY(taken || reachesInTheDark);
        QVERIFY(!saver->active()); // only a move wakes
        QVERIFY(!timer()->isActive());
        QVERIFY(log.lines().isEmpty());
    }

    void moveWakesAndIsSwallowed()
    {
        saver->activate(false);
        const LogRecorder log;
        QSignalSpy activated(saver, &ScreenSaver::activated);
        QVERIFY(send(QEvent::MouseMove));
        QVERIFY(saver->active());
        QVERIFY(page->reached.isEmpty());
        QCOMPARE(activated.size(), 1);
        QCOMPARE(activated.first().first().toBool(), false);
        QCOMPARE(log.texts(), QStringList({lit, stopBuzzer, blankFailed}));

        send(QEvent::MouseMove);       // once it is lit, everything reaches the page
        QVERIFY(!timer()->isActive()); // lit until the next press, however long that takes
        send(QEvent::MouseButtonPress);
        send(QEvent::MouseButtonRelease);
        QCOMPARE(page->reached, QVector<QEvent::Type>({QEvent::MouseMove, QEvent::MouseButtonPress,
                                                       QEvent::MouseButtonRelease}));
        QCOMPARE(log.texts().mid(3), QStringList({stopBuzzer, resetTimer}));
        QVERIFY(timer()->isActive());
    }

private:
    /// Sends a mouse or other event to the page; true when the page or Qt has taken it or the filter
    /// swallowed it.
    bool send(QEvent::Type type)
    {
        if (type == QEvent::MouseTrackingChange || type == QEvent::User) {
            QEvent event(type);
            return QCoreApplication::sendEvent(page.get(), &event);
        }
        const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
        QMouseEvent event(type, QPointF(3, 4), button, button, Qt::NoModifier);
        return QCoreApplication::sendEvent(page.get(), &event);
    }

    QTimer* timer() const { return saver->findChild<QTimer*>(); }

    ScreenSaver* saver = nullptr;
    std::unique_ptr<Page> page;
    QStringList constructionLog;
    bool litByConstruction = false;
};

QTEST_MAIN(tst_ScreenSaver)
#include "tst_screensaver.moc"
