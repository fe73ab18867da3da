// SPDX-License-Identifier: MIT
#include "stage.h"

#include <chrono>
#include <thread>

#include <QCoreApplication>
#include <QFile>
#include <QtDebug>

namespace VarnelBench {

namespace {

constexpr unsigned pageColor = 0xCCFFCC;
constexpr unsigned emptyColor = 0;
constexpr QPoint probe(400, 300);

const char* const page =
    "<!DOCTYPE html><html><head><title>R7M</title><link rel=\"stylesheet\" href=\"/style.css\">"
    "<script src=\"/page.js\"></script></head><body><h1>R7M controller</h1><img src=\"/logo.png\" alt=\"\">"
    "<table><tr><th>Signal</th><th>Value</th></tr><tr><td>Supply</td><td class=\"value\">24.1 V</td></tr>"
    "<tr><td>Temperature</td><td class=\"value\">41 C</td></tr></table>"
    "<form><input name=\"name\" value=\"panel\"><input type=\"submit\" value=\"Set\"></form>"
    "<p id=\"clock\"></p></body></html>";
const char* const style =
    "body { margin: 0; background: #ccffcc; font-family: sans-serif; font-size: 16px }"
    "table { border-collapse: collapse } td, th { border: 1px solid #999; padding: 4px 12px }"
    ".value { font-weight: bold; text-align: right }";
const char* const script =
    "window.onload = function () { document.getElementById('clock').textContent = 'Loaded'; };";

QStringList usualEnvironment(const QString& display)
{
    return {QStringLiteral("QT_QPA_PLATFORM=xcb"), QStringLiteral("DISPLAY=") + display};
}

QString programPath(const char* name)
{
    return QStringLiteral(VARNEL_PROGRAM_DIR "/") + QLatin1String(name);
}

} // namespace

Stage::Stage()
{
    QFile logo(QStringLiteral(VARNEL_SOURCE_DIR "/simulator/web/images/logo.png"));
    const bool ready = screen.start(QSize(800, 480), {QStringLiteral("-fbdir"), directory.path()}) &&
                       frame.map(directory.filePath(QStringLiteral("Xvfb_screen0"))) &&
                       logo.open(QIODevice::ReadOnly) && server.listen();
    if (!ready) {
        qFatal("the stage cannot be set up");
    }
    server.serve("/index.html", page);
    server.serve("/style.css", style, "text/css");
    server.serve("/page.js", script, "application/javascript");
    server.serve("/logo.png", logo.readAll(), "image/png");
}

Subject Stage::panel(const QString& program, double target) const
{
    return {QStringLiteral("panel"),
            {program.isEmpty() ? programPath("varnel-browser") : program},
            usualEnvironment(screen.display()),
            target};
}

Subject Stage::plainFloor(const QString& name, const QStringList& options) const
{
    return {name,
            QStringList(programPath("floor-browser")) + options +
                QStringList(QStringLiteral("http://192.168.7.2/index.html")),
            usualEnvironment(screen.display())};
}

Subject Stage::tunedFloor(const QString& name, const QStringList& options) const
{
    Subject subject = plainFloor(name, options);
    subject.environment += {
        QStringLiteral("QT_XCB_GL_INTEGRATION=none"), QStringLiteral("GST_PLUGIN_SYSTEM_PATH_1_0="),
        QStringLiteral("GST_REGISTRY_DISABLE=yes"),   QStringLiteral("GST_REGISTRY_FORK=no"),
        QStringLiteral("QT_ACCESSIBILITY=0"),         QStringLiteral("NO_AT_BRIDGE=1"),
        QStringLiteral("QT_BEARER_POLL_TIMEOUT=-1"),
    };
    return subject;
}

void Stage::sendFrame()
{
    const auto usual = Frame(++sequence).devInfo("en").gpioState(2, 3, 2, 3);
    if (!controller.send(usual)) {
        qFatal("the controller cannot send");
    }
}

bool Stage::isPageShown() const
{
    return frame.pixel(probe) == pageColor;
}

bool Stage::isTextShown() const
{
    return frame.pixel({4, 4}) != emptyColor && frame.isWrittenOn(QRect(200, 180, 400, 120));
}

void Stage::turn()
{
    const double now = nowMs();
    if (sending && now >= nextFrame) {
        sendFrame();
        nextFrame = now + 2;
    }
    QCoreApplication::processEvents();
    std::this_thread::sleep_for(std::chrono::microseconds(50));
}

double Stage::await(const char* what, const std::function<bool()>& condition)
{
    constexpr double limit = 20000;
    for (const double start = nowMs(); nowMs() - start < limit; turn()) {
        if (condition()) {
            return nowMs();
        }
    }
    qFatal("waited in vain for: %s", what);
}

void Stage::serveFor(double ms)
{
    for (const double start = nowMs(); nowMs() - start < ms;) {
        turn();
    }
}

void Stage::awaitEmptyScreen()
{
    await("an empty screen", [this] {
        return frame.pixel(probe) == emptyColor && frame.pixel({4, 4}) == emptyColor;
    });
}

bool isPortBound(quint16 port)
{
    QFile file(QStringLiteral("/proc/net/udp"));
    return file.open(QIODevice::ReadOnly) &&
           file.readAll().contains(':' + QByteArray::number(port, 16).toUpper() + ' ');
}

QString otherPanel(const QStringList& arguments)
{
    const int option = arguments.indexOf(QLatin1String("--panel"));
    return option >= 0 ? arguments.value(option + 1) : QString();
}

} // namespace VarnelBench
