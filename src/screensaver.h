// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

class QTimer;

namespace Varnel {

/// The event filter of every widget that receives touches. While the screen is dark it swallows the touch
/// that wakes it, so that this touch clicks nothing on the page; while the screen is lit it only notes
/// presses.
class MouseEventFilter : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MouseEventFilter)

public:
    MouseEventFilter() = default;

    bool eventFilter(QObject* object, QEvent* event) override;
};

/// Blanks the display and switches its backlight off after `Settings::getUIScreenSaverInterval()`
/// milliseconds without a press, and lights both again at the next touch. One per process; main thread only.
class ScreenSaver : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ScreenSaver)

public:
    enum ScreenState
    {
        ScreenInactive = 0, ///< display blanked, backlight off
        ScreenActive = 1,   ///< display and backlight on
    };

    /// The one screen saver, created (and the screen lit) at the first call and never deleted. It needs a
    /// QCoreApplication.
    static ScreenSaver* instance();

    /// Lights the screen. Kept, nothing calls it.
    virtual void restore();

    /// Darkens the screen; `level` is not used. Returns false when a display file could not be written. Kept,
    /// nothing calls it.
    virtual bool save(int level);

    ~ScreenSaver() override = default;

    /// Lets touches on `widget` keep the screen awake and wake it. The caller keeps the widget.
    void handleMouseMove(QObject* widget);

    /// Starts the period of inactivity. Call it once, after start-up.
    void install();

    /// Kept, without effect: the timer ends with the process.
    void uninstall();

    /// Lights (true) or darkens (false) the screen. Returns false when the state was the same already, and
    /// true when the state has changed, even if a display file could not be written.
    bool activate(bool on);

    /// True while the screen is lit.
    [[nodiscard]] bool active() const { return currentState == ScreenActive; }

    /// Begins a new period of inactivity.
    void resetTimer();

    /// Called for each touch; only logs, because the controller drives the buzzer over its UDP link.
    void stopBuzzer();

    /// Called for each page that is opened; only logs.
    void setStopBuzzerServer(const QString& server);

    /// Enters `state`: logs, signals, and writes both display files. Returns true when the state is the same
    /// or both files were written. The state changes in any case.
    bool setScreenState(ScreenState state);

signals:
    /// The screen has just gone dark (true) or has just lit (false).
    void activated(bool active_state);

public slots:
    /// Darkens the screen at the end of a period of inactivity.
    void goSleep();

private:
    ScreenSaver();

    static ScreenSaver* staticInstance;

    ScreenState currentState = ScreenInactive;
    MouseEventFilter mouseEventFilter;
    QTimer* timerAsleep = nullptr;
};

} // namespace Varnel
