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
class VirtualScreen : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(VirtualScreen)

public:
    explicit VirtualScreen(QObject* parent = nullptr);
    ~VirtualScreen() override;

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
    [[nodiscard]] bool awaitPixel(QPoint point, const QColor& color, int tolerance = 8,
                                  std::chrono::milliseconds limit = patience) const;
    /// Waits until the screen shows `picture` with its top left corner at `at`: at most `fraction` of the
    /// pixels differ by more than `tolerance` in a channel. On failure saves both as PNG files in /tmp and,
    /// where the variable VARNEL_TEST_PICTURES names a directory, there.
    [[nodiscard]] bool awaitPicture(const QImage& picture, QPoint at = {}, double fraction = 0.01,
                                    int tolerance = 8, std::chrono::milliseconds limit = patience) const;
    /// Waits until two grabs with `quiet` between them are the same; false when the screen never rests.
    [[nodiscard]] bool awaitStill(std::chrono::milliseconds quiet = std::chrono::milliseconds(300),
                                  std::chrono::milliseconds limit = patience) const;

    /// Moves the finger (the pointer) without or with the button down.
    void move(QPoint to);
    void press();
    void release();
    /// Move, press, release.
    void tap(QPoint at);
    /// Two taps fast enough to be a double click.
    void doubleTap(QPoint at);
    /// Presses and releases the key that gives the X keysym `symbol`.
    void key(unsigned long symbol);

private:
    bool startWindowManager();
    bool awaitWindowManager();

    QString name;
    std::unique_ptr<Program> server;
    std::unique_ptr<Program> windowManager;
    _XDisplay* connection = nullptr;
};

/// The share of pixels, 0 to 1, in which two pictures of the same size differ by more than `tolerance` in a
/// channel; 1 when the sizes differ.
double difference(const QImage& one, const QImage& other, int tolerance);
