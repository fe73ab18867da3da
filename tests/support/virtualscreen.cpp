// SPDX-License-Identifier: MIT
#include "virtualscreen.h"

#include <algorithm>

#include <QTest>

// Last: its macros (None, Bool, Status) would break Qt's headers.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/extensions/Xfixes.h>

namespace {

bool isClose(QRgb one, QRgb other, int tolerance)
{
    return qAbs(qRed(one) - qRed(other)) <= tolerance && qAbs(qGreen(one) - qGreen(other)) <= tolerance &&
           qAbs(qBlue(one) - qBlue(other)) <= tolerance;
}

void keep(const QImage& picture, const QString& kind)
{
    QString directory = qEnvironmentVariable("VARNEL_TEST_PICTURES");
    if (directory.isEmpty()) {
        directory = QStringLiteral("/tmp");
    }
    const QString path = QStringLiteral("%1/%2-%3.png")
                             .arg(directory, QString::fromLatin1(QTest::currentTestFunction()), kind);
    qWarning() << (picture.save(path) ? "Picture kept in" : "Cannot write") << path;
}

} // namespace

double difference(const QImage& one, const QImage& other, int tolerance)
{
    if (one.size() != other.size() || one.isNull()) {
        return 1;
    }
    const QImage left = one.convertToFormat(QImage::Format_RGB32);
    const QImage right = other.convertToFormat(QImage::Format_RGB32);
    qint64 count = 0;
    for (int y = 0; y < left.height(); ++y) {
        for (int x = 0; x < left.width(); ++x) {
            count += isClose(left.pixel(x, y), right.pixel(x, y), tolerance) ? 0 : 1;
        }
    }
    return static_cast<double>(count) / (static_cast<double>(left.width()) * left.height());
}

VirtualScreen::VirtualScreen(QObject* parent)
    : QObject(parent)
{
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
    server = std::make_unique<Program>(QStringLiteral("/usr/bin/Xvfb"));
    const QString geometry = QStringLiteral("%1x%2x24").arg(size.width()).arg(size.height());
    const QStringList usual{QStringLiteral("-displayfd"),
                            QStringLiteral("1"),
                            QStringLiteral("-screen"),
                            QStringLiteral("0"),
                            geometry,
                            QStringLiteral("-nolisten"),
                            QStringLiteral("tcp"),
                            QStringLiteral("-noreset")};
    const bool started = server->start(usual + options);
    if (!started || !QTest::qWaitFor([this] { return server->output().endsWith('\n'); }, 20000)) {
        qWarning() << "Xvfb does not start" << server->log().lines();
        return false;
    }
    name = QLatin1Char(':') + QString::fromLatin1(server->output().trimmed());
    connection = XOpenDisplay(name.toLatin1().constData());
    return connection != nullptr && (manager == WindowManager::Absent || startWindowManager());
}

bool VirtualScreen::startWindowManager()
{
    windowManager = std::make_unique<Program>(QStringLiteral("/usr/bin/openbox"));
    windowManager->setEnvironment(QStringLiteral("DISPLAY"), name);
    return windowManager->start() && awaitWindowManager();
}

bool VirtualScreen::awaitWindowManager()
{
    const Atom property = XInternAtom(connection, "_NET_SUPPORTING_WM_CHECK", False);
    const auto isManaged = [this, property] {
        Atom type = 0;
        int format = 0;
        unsigned long items = 0;
        unsigned long rest = 0;
        unsigned char* data = nullptr;
        XGetWindowProperty(connection, DefaultRootWindow(connection), property, 0, 1, False, AnyPropertyType,
                           &type, &format, &items, &rest, &data);
        if (data != nullptr) {
            XFree(data);
        }
        return items == 1;
    };
    return QTest::qWaitFor(isManaged, 20000);
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

bool VirtualScreen::awaitPixel(QPoint point, const QColor& color, int tolerance,
                               std::chrono::milliseconds limit) const
{
    const bool shown = QTest::qWaitFor([&] { return isClose(grab().pixel(point), color.rgb(), tolerance); },
                                       static_cast<int>(limit.count()));
    if (!shown) {
        const QImage picture = grab();
        qWarning() << "Pixel" << point << "is" << QColor(picture.pixel(point)) << "instead of" << color;
        keep(picture, QStringLiteral("screen"));
    }
    return shown;
}

bool VirtualScreen::awaitPicture(const QImage& picture, QPoint at, double fraction, int tolerance,
                                 std::chrono::milliseconds limit) const
{
    const QRect area(at, picture.size());
    const bool shown =
        QTest::qWaitFor([&] { return difference(grab().copy(area), picture, tolerance) <= fraction; },
                        static_cast<int>(limit.count()));
    if (!shown) {
        const QImage screen = grab().copy(area);
        qWarning() << "Share of pixels that differ:" << difference(screen, picture, tolerance);
        keep(screen, QStringLiteral("screen"));
        keep(picture, QStringLiteral("expected"));
    }
    return shown;
}

bool VirtualScreen::awaitStill(std::chrono::milliseconds quiet, std::chrono::milliseconds limit) const
{
    const auto pause = static_cast<int>(quiet.count());
    const auto deadline = std::chrono::steady_clock::now() + limit;
    QImage before = grab();
    while (std::chrono::steady_clock::now() < deadline) {
        QTest::qWait(pause);
        const QImage now = grab();
        if (now == before) {
            return true;
        }
        before = now;
    }
    return false;
}

void VirtualScreen::move(QPoint to)
{
    XTestFakeMotionEvent(connection, -1, to.x(), to.y(), CurrentTime);
    XSync(connection, False);
}

void VirtualScreen::press()
{
    XTestFakeButtonEvent(connection, 1, True, CurrentTime);
    XSync(connection, False);
}

void VirtualScreen::release()
{
    XTestFakeButtonEvent(connection, 1, False, CurrentTime);
    XSync(connection, False);
}

void VirtualScreen::tap(QPoint at)
{
    move(at);
    press();
    release();
}

void VirtualScreen::doubleTap(QPoint at)
{
    tap(at);
    tap(at);
}

void VirtualScreen::key(unsigned long symbol)
{
    const KeyCode code = XKeysymToKeycode(connection, symbol);
    XTestFakeKeyEvent(connection, code, True, CurrentTime);
    XTestFakeKeyEvent(connection, code, False, CurrentTime);
    XSync(connection, False);
}
