// SPDX-License-Identifier: MIT
#include "virtualscreen.h"

#include <algorithm>
#include <utility>

// Last: its macros (None, Bool, Status) would break Qt's headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xfixes.h>

namespace {

bool isClose(QRgb one, QRgb other, int tolerance = 8)
{
    return qAbs(qRed(one) - qRed(other)) <= tolerance && qAbs(qGreen(one) - qGreen(other)) <= tolerance &&
           qAbs(qBlue(one) - qBlue(other)) <= tolerance;
}

} // namespace

double difference(const QImage& one, const QImage& other)
{
    if (one.size() != other.size() || one.isNull()) {
        return 1;
    }
    int pixels = 0;
    for (int y = 0; y < one.height(); ++y) {
        for (int x = 0; x < one.width(); ++x) {
            pixels += isClose(one.pixel(x, y), other.pixel(x, y)) ? 0 : 1;
        }
    }
    return static_cast<double>(pixels) / (one.width() * one.height());
}

int countPixels(const QImage& picture, QRgb color, QRect area)
{
    area = area.isNull() ? picture.rect() : area;
    int pixels = 0;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            pixels += picture.pixel(x, y) == color ? 1 : 0;
        }
    }
    return pixels;
}

VirtualScreen::~VirtualScreen()
{
    if (connection != nullptr) {
        XCloseDisplay(connection);
    }
    if (windowManager) {
        windowManager->stop();
    }
    if (server) {
        server->stop();
    }
}

bool VirtualScreen::start(QSize size, const QStringList& options, WindowManager manager)
{
    server = std::make_unique<Program>("/usr/bin/Xvfb"_s);
    const QString geometry = "%1x%2x24"_s.arg(size.width()).arg(size.height());
    const QStringList usual{"-displayfd"_s, "1"_s,         "-screen"_s, "0"_s,
                            geometry,       "-nolisten"_s, "tcp"_s,     "-noreset"_s};
    const bool started = server->start(usual + options);
    if (!started || !awaitTrue([this] { return server->output().endsWith('\n'); })) {
        qWarning() << "Xvfb does not start" << server->log().lines();
        return false;
    }
    name = QLatin1Char(':') + QString::fromLatin1(server->output().trimmed());
    connection = XOpenDisplay(name.toLatin1().constData());
    return connection != nullptr && (manager == WindowManager::Absent || startWindowManager());
}

bool VirtualScreen::startWindowManager()
{
    windowManager = std::make_unique<Program>("/usr/bin/openbox"_s);
    windowManager->setEnvironment("DISPLAY"_s, name);
    return windowManager->start({"--startup"_s, "echo manages"_s}) &&
           awaitTrue([this] { return windowManager->output().contains("manages"); });
}

QImage VirtualScreen::grab() const
{
    const int width = DisplayWidth(connection, DefaultScreen(connection));
    const int height = DisplayHeight(connection, DefaultScreen(connection));
    XImage* const image =
        XGetImage(connection, DefaultRootWindow(connection), 0, 0, static_cast<unsigned>(width),
                  static_cast<unsigned>(height), AllPlanes, ZPixmap);
    if (image == nullptr) {
        return {};
    }
    // A screen of depth 24 has the layout of RGB32.
    QImage picture = QImage(reinterpret_cast<const uchar*>(image->data), width, height, image->bytes_per_line,
                            QImage::Format_RGB32)
                         .copy();
    XDestroyImage(image);
    return picture;
}

bool VirtualScreen::showsCursor() const
{
    XFixesCursorImage* const cursor = XFixesGetCursorImage(connection);
    if (cursor == nullptr) {
        return false;
    }
    // One unsigned long a pixel, whatever its width, with the opacity in bits 24 to 31.
    const int size = cursor->width * cursor->height;
    const bool visible = std::any_of(cursor->pixels, cursor->pixels + size,
                                     [](unsigned long pixel) { return (pixel & 0xFF000000UL) != 0; });
    XFree(cursor);
    return visible;
}

bool VirtualScreen::awaitPixel(QPoint point, const QColor& color, int tolerance) const
{
    const bool shown = awaitTrue([&] { return isClose(grab().pixel(point), color.rgb(), tolerance); });
    if (!shown) {
        const QImage picture = grab();
        qWarning() << "Pixel" << point << "is" << QColor(picture.pixel(point)) << "instead of" << color;
        keep(picture, "screen"_s);
    }
    return shown;
}

bool VirtualScreen::awaitPicture(const QImage& picture, QPoint at, double fraction) const
{
    const QRect area(at, picture.size());
    const bool shown = awaitTrue([&] { return difference(grab().copy(area), picture) <= fraction; });
    if (!shown) {
        const QImage screen = grab().copy(area);
        qWarning() << "Share of pixels that differ:" << difference(screen, picture);
        keep(screen, "screen"_s);
        keep(picture, "expected"_s);
    }
    return shown;
}

bool VirtualScreen::awaitStill() const
{
    QImage before = grab();
    return awaitTrue([&] {
        QTest::qWait(300);
        const QImage last = std::exchange(before, grab());
        return last == before;
    });
}

void VirtualScreen::keep(const QImage& picture, const QString& kind)
{
    QString directory = qEnvironmentVariable("VARNEL_TEST_PICTURES");
    if (directory.isEmpty()) {
        directory = "/tmp"_s;
    }
    const QString path =
        "%1/%2-%3.png"_s.arg(directory, QString::fromLatin1(QTest::currentTestFunction()), kind);
    qWarning() << (picture.save(path) ? "Picture kept in" : "Cannot write") << path;
}

void VirtualScreen::move(QPoint to)
{
    XTestFakeMotionEvent(connection, -1, to.x(), to.y(), CurrentTime);
    XSync(connection, False);
}

void VirtualScreen::button(bool down)
{
    XTestFakeButtonEvent(connection, 1, down ? True : False, CurrentTime);
    XSync(connection, False);
}

void VirtualScreen::tap(QPoint at)
{
    move(at);
    press();
    release();
}

void VirtualScreen::key(unsigned long symbol)
{
    const KeyCode code = XKeysymToKeycode(connection, symbol);
    XTestFakeKeyEvent(connection, code, True, CurrentTime);
    XTestFakeKeyEvent(connection, code, False, CurrentTime);
    XSync(connection, False);
}
