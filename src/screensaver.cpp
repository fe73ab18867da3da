// SPDX-License-Identifier: MIT
#include "screensaver.h"

#include <chrono>

#include <QEvent>
#include <QTimer>
#include <QtDebug>

#include "helpers.h"
#include "logline.h"
#include "settings.h"

namespace Varnel {

namespace {

// The kernel's files for the panel's display. In both, 0 lights it and 1 darkens it.
const auto displayBlankFile = QStringLiteral("/sys/class/graphics/fb0/blank");
const auto backlightPowerFile =
    QStringLiteral("/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power");

/// True for what the filter swallows without waking the screen.
bool isTouchOnDarkScreen(QEvent::Type type)
{
    return type == QEvent::MouseButtonPress || type == QEvent::MouseButtonRelease ||
           type == QEvent::MouseButtonDblClick || type == QEvent::MouseTrackingChange;
}

} // namespace

bool MouseEventFilter::eventFilter(QObject* object, QEvent* event)
{
    ScreenSaver* const screenSaver = ScreenSaver::instance();
    if (!screenSaver->active()) {
        // The touch screen reports the move to the finger before the press, so the move wakes the screen.
        if (event->type() == QEvent::MouseMove) {
            return screenSaver->activate(true);
        }
        if (isTouchOnDarkScreen(event->type())) {
            return true;
        }
    } else if (event->type() == QEvent::MouseButtonPress) {
        screenSaver->stopBuzzer();
        screenSaver->resetTimer();
    }
    return QObject::eventFilter(object, event);
}

ScreenSaver* ScreenSaver::staticInstance = nullptr;

ScreenSaver* ScreenSaver::instance()
{
    if (!staticInstance) {
        staticInstance = new ScreenSaver;
    }
    return staticInstance;
}

ScreenSaver::ScreenSaver()
{
    if (!timerAsleep) {
        timerAsleep = new QTimer(this);
        timerAsleep->setTimerType(Qt::PreciseTimer); // a coarse timer may be 5 % early
    }
    // The initial state is inactive, so this writes the display files, whatever their previous content.
    setScreenState(ScreenActive);
}

void ScreenSaver::restore()
{
    setScreenState(ScreenActive);
}

bool ScreenSaver::save(int /*level*/)
{
    return setScreenState(ScreenInactive);
}

void ScreenSaver::handleMouseMove(QObject* widget)
{
    widget->installEventFilter(&mouseEventFilter);
}

void ScreenSaver::install()
{
    qDebug() << "Install screensaver";
    timerAsleep->stop();
    connect(timerAsleep, &QTimer::timeout, this, &ScreenSaver::goSleep);
    resetTimer();
}

void ScreenSaver::uninstall() {}

bool ScreenSaver::activate(bool on)
{
    if (on == active()) {
        return false;
    }
    setScreenState(on ? ScreenActive : ScreenInactive);
    return true;
}

void ScreenSaver::resetTimer()
{
    qDebug() << "resetTimer";
    timerAsleep->setInterval(std::chrono::milliseconds(Settings::getUIScreenSaverInterval()));
    timerAsleep->setSingleShot(true);
    timerAsleep->start();
}

void ScreenSaver::goSleep()
{
    qDebug() << "goSleep";
    activate(false);
}

void ScreenSaver::stopBuzzer()
{
    qDebug() << "stopBuzzer()";
}

void ScreenSaver::setStopBuzzerServer(const QString& server)
{
    logStamped(QStringLiteral("Stop buzzer server: %1").arg(server));
}

bool ScreenSaver::setScreenState(ScreenState state)
{
    if (currentState == state) {
        return true;
    }
    qDebug() << "setScreenState" << int(state);
    currentState = state;
    emit activated(currentState == ScreenInactive);
    if (currentState == ScreenActive) {
        stopBuzzer();
    }
    const int value = state == ScreenInactive ? 1 : 0;
    return Helpers::echo(displayBlankFile, value) && Helpers::echo(backlightPowerFile, value);
}

} // namespace Varnel
