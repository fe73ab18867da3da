// SPDX-License-Identifier: MIT
#include "screensaver.h"

#include <QDir>
#include <QFile>
#include <QMetaMethod>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QWidget>

#include "logrecorder.h"
#include "scopedsetting.h"

using Varnel::ScreenSaver;

namespace {

const auto blankFailed = QStringLiteral("Error opening file '/sys/class/graphics/fb0/blank'");
const auto dark = QStringLiteral("setScreenState 0");
const auto lit = QStringLiteral("setScreenState 1");
const auto stopBuzzer = QStringLiteral("stopBuzzer()");
const auto resetTimer = QStringLiteral("resetTimer");

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
        case QEvent::KeyPress:
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
    void initTestCase();
    void init();
    void cleanup();

    void isOneObject();
    void metaObject();
    void startsLit();
    void activate_data();
    void activate();
    void setScreenState();
    void saveAndRestore();
    void goSleep();
    void hooksOnlyLog();
    void installStartsPeriod();
    void intervalZeroDarkensAtOnce();
    void pressBeginsNewPeriod();
    void uninstallDoesNothing();
    void litSwallowsNothing_data();
    void litSwallowsNothing();
    void darkSwallows_data();
    void darkSwallows();
    void moveWakesAndIsSwallowed();
    void pressAfterWakingMoveIsDelivered();
    void wakingStartsNoPeriod();

private:
    bool send(QEvent::Type type);
    QTimer* timer() const { return saver->findChild<QTimer*>(); }

    ScreenSaver* saver = nullptr;
    std::unique_ptr<Page> page;
    QStringList constructionLog;
    bool litByConstruction = false;
};

void tst_ScreenSaver::initTestCase()
{
    // Without display files: each write to them is then a line in the log. A real display is left alone.
    QVERIFY2(!QFile::exists(QStringLiteral("/sys/kernel")),
             "this test needs a stand-in /sys: run it in the sandbox");
    QVERIFY(QDir(QStringLiteral("/sys/class/graphics")).removeRecursively());
    QVERIFY(QDir(QStringLiteral("/sys/devices")).removeRecursively());
    const LogRecorder log;
    saver = ScreenSaver::instance();
    constructionLog = log.texts();
    litByConstruction = saver->active();
}

void tst_ScreenSaver::init()
{
    page = std::make_unique<Page>();
    page->setMouseTracking(true); // without it Qt keeps moves without a pressed button to itself
    page->reached.clear();
    saver->handleMouseMove(page.get());
}

void tst_ScreenSaver::cleanup()
{
    const LogRecorder log;
    page.reset();
    timer()->stop();
    disconnect(timer(), nullptr, saver, nullptr); // what install() did
    saver->activate(true);
}

/// Sends a mouse or other event to the page; true when the page or Qt has taken it or the filter swallowed
/// it.
bool tst_ScreenSaver::send(QEvent::Type type)
{
    if (type == QEvent::MouseTrackingChange || type == QEvent::User) {
        QEvent event(type);
        return QCoreApplication::sendEvent(page.get(), &event);
    }
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, QPointF(3, 4), button, button, Qt::NoModifier);
    return QCoreApplication::sendEvent(page.get(), &event);
}

void tst_ScreenSaver::isOneObject()
{
    QCOMPARE(ScreenSaver::instance(), saver);
    QVERIFY(!saver->parent());
    QCOMPARE(saver->findChildren<QTimer*>().size(), 1);
    QCOMPARE(timer()->timerType(), Qt::PreciseTimer); // not dark before the time is over
}

void tst_ScreenSaver::metaObject()
{
    QStringList signalNames;
    QStringList slotNames;
    const QMetaObject& meta = ScreenSaver::staticMetaObject;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        (method.methodType() == QMetaMethod::Signal ? signalNames : slotNames)
            << QString::fromLatin1(method.methodSignature());
    }
    QCOMPARE(signalNames, QStringList(QStringLiteral("activated(bool)")));
    QCOMPARE(slotNames, QStringList(QStringLiteral("goSleep()")));
    QCOMPARE(int(ScreenSaver::ScreenInactive), 0);
    QCOMPARE(int(ScreenSaver::ScreenActive), 1);
}

void tst_ScreenSaver::startsLit()
{
    QVERIFY(litByConstruction);
    QCOMPARE(constructionLog, QStringList({lit, stopBuzzer, blankFailed}));
}

void tst_ScreenSaver::activate_data()
{
    QTest::addColumn<bool>("before");
    QTest::addColumn<bool>("on");
    QTest::addColumn<bool>("changes");
    QTest::addColumn<QStringList>("lines");

    // Without the first display file the second one is not tried: one line about it, not two.
    QTest::newRow("lit, on: nothing") << true << true << false << QStringList();
    QTest::newRow("lit, off: dark") << true << false << true << QStringList{dark, blankFailed};
    QTest::newRow("dark, off: nothing") << false << false << false << QStringList();
    QTest::newRow("dark, on: lit") << false << true << true << QStringList{lit, stopBuzzer, blankFailed};
}

void tst_ScreenSaver::activate()
{
    QFETCH(bool, before);
    QFETCH(bool, on);
    QFETCH(bool, changes);
    saver->activate(before);

    const LogRecorder log;
    QSignalSpy activated(saver, &ScreenSaver::activated);
    QCOMPARE(saver->activate(on), changes); // whether or not the display files could be written
    QCOMPARE(saver->active(), on);
    QTEST(log.texts(), "lines");
    QCOMPARE(activated.size(), changes ? 1 : 0);
    if (changes) {
        QCOMPARE(activated.first().first().toBool(), !on);
    }
}

void tst_ScreenSaver::setScreenState()
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

void tst_ScreenSaver::saveAndRestore()
{
    const LogRecorder log;
    QVERIFY(!saver->save(7));
    QVERIFY(!saver->active());
    QVERIFY(saver->save(0)); // dark already
    saver->restore();
    QVERIFY(saver->active());
    QCOMPARE(log.texts(), QStringList({dark, blankFailed, lit, stopBuzzer, blankFailed}));
}

void tst_ScreenSaver::goSleep()
{
    const LogRecorder log;
    saver->goSleep();
    QVERIFY(!saver->active());
    saver->goSleep();
    QCOMPARE(log.texts(),
             QStringList({QStringLiteral("goSleep"), dark, blankFailed, QStringLiteral("goSleep")}));
}

void tst_ScreenSaver::hooksOnlyLog()
{
    const LogRecorder log;
    saver->stopBuzzer();
    saver->setStopBuzzerServer(QStringLiteral("http://r7m/%20a.html"));
    QCOMPARE(log.texts().size(), 2);
    QCOMPARE(log.texts().first(), stopBuzzer);
    const QRegularExpression line(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}"
                                                 " - Stop buzzer server: http://r7m/%20a\\.html$"));
    QVERIFY2(line.match(log.texts().constLast()).hasMatch(), qPrintable(log.texts().constLast()));
}

void tst_ScreenSaver::installStartsPeriod()
{
    const ScopedSetting<qint32> interval("UI", "ScreenSaverInterval", 60000);
    const LogRecorder log;
    saver->install();
    QCOMPARE(log.texts(), QStringList({QStringLiteral("Install screensaver"), resetTimer}));
    QVERIFY(timer()->isActive());
    QVERIFY(timer()->isSingleShot());
    QCOMPARE(timer()->interval(), 60000);
    QVERIFY(saver->active());
}

void tst_ScreenSaver::intervalZeroDarkensAtOnce()
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

void tst_ScreenSaver::pressBeginsNewPeriod()
{
    const ScopedSetting<qint32> interval("UI", "ScreenSaverInterval", 60000);
    const LogRecorder log;
    saver->install();
    timer()->start(10); // nearly over
    send(QEvent::MouseButtonPress);
    QVERIFY(timer()->isActive());
    QCOMPARE(timer()->interval(), 60000);
    QCOMPARE(log.texts().mid(2), QStringList({stopBuzzer, resetTimer}));
}

void tst_ScreenSaver::uninstallDoesNothing()
{
    const LogRecorder log;
    saver->install();
    saver->uninstall();
    QVERIFY(timer()->isActive());
    QVERIFY(saver->active());
    QCOMPARE(log.lines().size(), 2);
}

void tst_ScreenSaver::litSwallowsNothing_data()
{
    QTest::addColumn<QEvent::Type>("type");
    QTest::addColumn<QStringList>("lines");

    const QStringList touched{stopBuzzer, resetTimer};
    QTest::newRow("press: new period") << QEvent::MouseButtonPress << touched;
    QTest::newRow("move: no new period") << QEvent::MouseMove << QStringList();
    QTest::newRow("release: no new period") << QEvent::MouseButtonRelease << QStringList();
    QTest::newRow("double click: no new period") << QEvent::MouseButtonDblClick << QStringList();
    QTest::newRow("tracking change: no new period") << QEvent::MouseTrackingChange << QStringList();
    QTest::newRow("other event: no new period") << QEvent::User << QStringList();
}

void tst_ScreenSaver::litSwallowsNothing()
{
    QFETCH(QEvent::Type, type);
    const LogRecorder log;
    send(type);
    QCOMPARE(page->reached, QVector<QEvent::Type>{type});
    QTEST(log.texts(), "lines");
}

void tst_ScreenSaver::darkSwallows_data()
{
    QTest::addColumn<QEvent::Type>("type");
    QTest::addColumn<bool>("swallowed");

    QTest::newRow("press: swallowed") << QEvent::MouseButtonPress << true;
    QTest::newRow("release: swallowed") << QEvent::MouseButtonRelease << true;
    QTest::newRow("double click: swallowed") << QEvent::MouseButtonDblClick << true;
    QTest::newRow("tracking change: swallowed") << QEvent::MouseTrackingChange << true;
    QTest::newRow("other event: delivered") << QEvent::User << false;
}

void tst_ScreenSaver::darkSwallows()
{
    QFETCH(QEvent::Type, type);
    QFETCH(bool, swallowed);
    saver->activate(false);
    timer()->stop();

    const LogRecorder log;
    const bool taken = send(type);
    QCOMPARE(page->reached.isEmpty(), swallowed);
    QVERIFY(taken || !swallowed);
    QVERIFY(!saver->active()); // only a move wakes
    QVERIFY(!timer()->isActive());
    QVERIFY(log.lines().isEmpty());
}

void tst_ScreenSaver::moveWakesAndIsSwallowed()
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
}

void tst_ScreenSaver::pressAfterWakingMoveIsDelivered()
{
    saver->activate(false);
    const LogRecorder log;
    send(QEvent::MouseMove);
    send(QEvent::MouseButtonPress);
    send(QEvent::MouseButtonRelease);
    QCOMPARE(page->reached, QVector<QEvent::Type>({QEvent::MouseButtonPress, QEvent::MouseButtonRelease}));
    QCOMPARE(log.texts(), QStringList({lit, stopBuzzer, blankFailed, stopBuzzer, resetTimer}));
    QVERIFY(timer()->isActive());
}

void tst_ScreenSaver::wakingStartsNoPeriod()
{
    const ScopedSetting<qint32> interval("UI", "ScreenSaverInterval", 0);
    const LogRecorder log;
    saver->install();
    QTRY_VERIFY(!saver->active());
    QVERIFY(!timer()->isActive());
    send(QEvent::MouseMove);
    send(QEvent::MouseMove);
    QVERIFY(saver->active());
    QVERIFY(!timer()->isActive()); // lit until the next press, however long that takes
    QCOMPARE(page->reached, QVector<QEvent::Type>{QEvent::MouseMove});
}

QTEST_MAIN(tst_ScreenSaver)
#include "tst_screensaver.moc"
