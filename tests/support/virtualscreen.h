// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QSize>

#include "program.h"

struct _XDisplay;

/// The window manager of a screen.
enum class WindowManager
{
    Absent, ///< none, as on a panel that shows a single program
    Openbox,
};

/// The panel's screen and touch: an X server without hardware, usually with a window manager. Both end with
/// the object.
class VirtualScreen
{
    Q_DISABLE_COPY_MOVE(VirtualScreen)

public:
    VirtualScreen() = default;
    ~VirtualScreen();

    /// Starts server and window manager and waits until both serve. `options` are handed to the server.
    [[nodiscard]] bool start(QSize size = QSize(800, 480), const QStringList& options = {},
                             WindowManager manager = WindowManager::Openbox);
    /// The display's name for the environment variable DISPLAY.
    QString display() const { return name; }

    /// The present picture of the screen.
    QImage grab() const;
    /// True when the pointer's picture, which grab() leaves out, has anything to see.
    bool showsCursor() const;
    /// Waits until the pixel at `point` is `color`, each channel within `tolerance`.
    [[nodiscard]] bool awaitPixel(QPoint point, const QColor& color, int tolerance = 8) const;
    /// Waits until the screen shows `picture` with its top left corner at `at`: at most `fraction` of the
    /// pixels differ by more than 8 in a channel. On failure keeps both.
    [[nodiscard]] bool awaitPicture(const QImage& picture, QPoint at = {}, double fraction = 0.01) const;
    /// Waits until two grabs with 300 ms between them are the same; false when the screen never rests.
    [[nodiscard]] bool awaitStill() const;
    /// Saves a picture as PNG file in /tmp or, where the variable VARNEL_TEST_PICTURES names a directory,
    /// there.
    static void keep(const QImage& picture, const QString& kind);

    /// Moves the finger (the pointer) without or with the button down.
    void move(QPoint to);
    void press() { button(true); }
    void release() { button(false); }
    /// Move, press, release.
    void tap(QPoint at);
    /// Presses and releases the key that gives the X keysym `symbol`.
    void key(unsigned long symbol);

private:
    bool startWindowManager();
    void button(bool down);

    QString name;
    std::unique_ptr<Program> server;
    std::unique_ptr<Program> windowManager;
    _XDisplay* connection = nullptr;
};

/// The share of pixels, 0 to 1, in which two pictures of the same size differ by more than 8 in a
/// channel; 1 when the sizes differ.
double difference(const QImage& one, const QImage& other);

/// How many pixels of `area`, by default of the whole picture, have this color.
int countPixels(const QImage& picture, QRgb color, QRect area = {});
