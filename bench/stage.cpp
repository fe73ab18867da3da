// SPDX-License-Identifier: MIT
#include "stage.h"

#include <thread>

#include <QCoreApplication>
#include <QtEndian>

#include "figures.h"

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

/// The panel sets these itself (src/enginesetup.cpp). A floor gets them too, so that both load only what the
/// page needs.
const std::pair<const char*, const char*> tuned[] = {
    {"QT_XCB_GL_INTEGRATION", "none"}, {"GST_PLUGIN_SYSTEM_PATH_1_0", ""}, {"GST_REGISTRY_DISABLE", "yes"},
    {"GST_REGISTRY_FORK", "no"},       {"QT_ACCESSIBILITY", "0"},          {"NO_AT_BRIDGE", "1"},
    {"QT_BEARER_POLL_TIMEOUT", "-1"},
};

} // namespace

Stage::Stage()
{
    QFile logo(QStringLiteral(VARNEL_SOURCE_DIR "/simulator/web/images/logo.png"));
    const bool started = screen.start(QSize(800, 480), {QStringLiteral("-fbdir"), directory.path()});
    screenFile.setFileName(directory.filePath(QStringLiteral("Xvfb_screen0")));
    if (!started || !logo.open(QIODevice::ReadOnly) || !server.listen() ||
        !screenFile.open(QIODevice::ReadOnly) || (dump = screenFile.map(0, screenFile.size())) == nullptr) {
        qFatal("the stage cannot be set up");
    }
    server.serve("/index.html", page);
    server.serve("/style.css", style, "text/css");
    server.serve("/page.js", script, "application/javascript");
    server.serve("/logo.png", logo.readAll(), "image/png");
}

std::unique_ptr<Program> Stage::start(const QStringList& command)
{
    await("an empty screen", [this] { return pixel(probe) == emptyColor && pixel({4, 4}) == emptyColor; });
    auto program = std::make_unique<Program>(command.first());
    program->setEnvironment(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
    program->setEnvironment(QStringLiteral("DISPLAY"), screen.display());
    for (const auto& [name, value] : tuned) {
        if (command.first().startsWith(QLatin1String("floor"))) {
            program->setEnvironment(QLatin1String(name), QLatin1String(value));
        }
    }
    if (!program->start(command.mid(1))) {
        qFatal("a program is missing");
    }
    return program;
}

void Stage::sendFrame()
{
    if (!controller.send(Frame(++sequence).devInfo("en").gpioState(2, 3, 2, 3))) {
        qFatal("the controller cannot send");
    }
}

double Stage::awaitPageWhileSending()
{
    double nextFrame = 0;
    return await("the page", [this, &nextFrame] {
        if (nowMs() >= nextFrame) {
            sendFrame();
            nextFrame = nowMs() + 2;
        }
        return pixel(probe) == pageColor;
    });
}

double Stage::awaitPage()
{
    return await("the page", [this] { return pixel(probe) == pageColor; });
}

/// Read from the file in memory where the server keeps its screen, which puts no load on the server. The file
/// is an X window dump (X11/XWDFile.h): header, colours of 12 octets, lines.
unsigned Stage::pixel(QPoint at) const
{
    const auto field = [this](std::ptrdiff_t number) -> std::ptrdiff_t {
        return qFromBigEndian<qint32>(dump + 4 * number);
    };
    const uchar* const pixels = dump + field(0) + field(19) * 12;
    return qFromLittleEndian<quint32>(pixels + at.y() * field(12) + std::ptrdiff_t{at.x()} * 4) & 0xFFFFFFU;
}

void Stage::turn()
{
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

std::optional<SocketQueue> socketQueue()
{
    QFile file(QStringLiteral("/proc/net/udp"));
    const QByteArray suffix = ':' + QByteArray::number(panelPort, 16).toUpper();
    if (!file.open(QIODevice::ReadOnly)) {
        qFatal("cannot read /proc/net/udp");
    }
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> words = line.simplified().split(' ');
        if (words.value(1).endsWith(suffix)) {
            return SocketQueue{words.value(4).endsWith("00000000"), words.constLast().toLongLong()};
        }
    }
    return std::nullopt;
}

double nowMs()
{
    return nowUs() / 1e3;
}

double cpuMs(const Program& program)
{
    clockid_t clock{};
    ::clock_getcpuclockid(static_cast<pid_t>(program.pid()), &clock);
    return nowUs(clock) / 1e3;
}

} // namespace VarnelBench
