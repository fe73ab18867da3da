// SPDX-License-Identifier: MIT
#include "faultbench.h"

#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

constexpr QRgb pageColor = qRgb(0, 0xc0, 0);
constexpr QRgb otherColor = qRgb(0xc0, 0xc0, 0);
constexpr QRgb errorColor = qRgb(0xc0, 0, 0);
constexpr QPoint looked{600, 240};  // a place that shows which page it is
constexpr QPoint touched{200, 240}; // a place whose colour is another after each touch

const QByteArray page = "/index.html";

/// Its clock, its touches and the reason of its end are in the headers of its requests. It loads itself again
/// only when no request is open: one that is cancelled would count as failed.
QByteArray workingPage(const QByteArray& color)
{
    return "<html><body style='margin:0;background:" + color +
           "'>"
           "<div id='area' style='width:400px;height:480px' onmousedown='touch()'></div>"
           "<script>"
           "var area = document.getElementById('area'), count = 0;"
           "function touches() { return Number(window.name) || 0; }"
           "function paint() { area.style.background = touches() % 2 ? '#0000c0' : '#00c0c0'; }"
           "function touch() { window.name = touches() + 1; paint(); }"
           "function answered(answer) {"
           "  if (answer) { location.href = answer; if (/download/.test(answer)) { setTimeout(tick, 5000); } "
           "}"
           "  else if (++count >= 6) { location.reload(); }"
           "  else { setTimeout(tick, 500); }"
           "}"
           "function tick() {"
           "  var request = new XMLHttpRequest();"
           "  request.onload = function() { answered(request.responseText); };"
           "  request.open('GET', '/tick');"
           "  request.setRequestHeader('X-Now', Date.now());"
           "  request.setRequestHeader('X-Touches', touches());"
           "  request.send();"
           "}"
           "paint();"
           "try { localStorage.setItem('loads', 1 + Number(localStorage.getItem('loads'))); } catch (e) {}"
           "setTimeout(tick, 500);"
           "</script></body></html>";
}

QByteArray uncached(const QByteArray& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nCache-Control: no-store\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

bool writeErrorPicture()
{
    QImage picture(800, 480, QImage::Format_RGB32);
    picture.fill(errorColor);
    return QDir().mkpath("/usr/local/share/default"_s) &&
           picture.save("/usr/local/share/default/error.png"_s);
}

} // namespace

FaultBench::FaultBench(VirtualScreen& virtualScreen)
    : screen(virtualScreen)
{
    settings.set("Network/UdpTimeout", QString::number(udpTimeout))
        .set("Network/RetryTimeout", QString::number(retryTimeout))
        .set("UI/ScreenSaverInterval", "3600000");
    serveUsual();
    otherServer.serve(page, workingPage("#c0c000"));
    otherServer.answer("/tick", uncached({}));
    panel.setDisplay(screen.display());
    screen.move({400, 470});
}

FaultBench::~FaultBench()
{
    std::ignore = ModbusBench::killServer(); // which D-Bus started, if it came to that
    QFile::remove("/run/modbus-init"_s);
}

void FaultBench::serveUsual()
{
    server.serve(page, workingPage("#00c000"));
    server.answer("/tick", uncached({}));
}

void FaultBench::sendPageTo(const QByteArray& url)
{
    server.answer("/tick", uncached(url));
}

bool FaultBench::installScripts()
{
    const QStringList names = RecordingScripts::allNames();
    for (const QString& name : names) {
        const QString device = name == "mbserverupdate.sh"_s
                                   ? QStringLiteral(VARNEL_PROGRAM_DIR "/") + name
                                   : QStringLiteral(VARNEL_SOURCE_DIR "/device/scripts/") + name;
        const QString target = "/usr/local/bin/"_s + name;
        const bool isModbus = name.startsWith("mbserver"_s);
        if (isModbus ? !(QFile::remove(target), QFile::copy(device, target)) : !scripts.install(name)) {
            return false;
        }
    }
    return true;
}

bool FaultBench::start(bool modbusServed)
{
    served = modbusServed;
    const QString map = "/usr/local/etc/modbus.map"_s;
    QFile::remove(map);
    if (!QFile::copy(QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"), map) || !settings.write() ||
        !bus.start("--state=/run/modbus-init"_s) || !installScripts() || !writeErrorPicture() ||
        !server.listen() || !otherServer.listen("192.168.7.3"_s) || !panel.startAndBind()) {
        return false;
    }
    if (served) {
        startPlc();
    }
    frames.setRate(usualRate);
    mark();
    return awaitWorking(patience) >= 0 && answersTouch();
}

void FaultBench::startPlc()
{
    served = true;
    plc = std::make_unique<PlcReader>();
}

bool FaultBench::restartPanel()
{
    return panel.stop() == 0 && panel.startAndBind();
}

Shown FaultBench::shown() const
{
    const QImage picture = screen.grab();
    const QRgb color = picture.pixel(looked) | 0xff000000U;
    switch (color) {
    case pageColor:
        return Shown::ControllerPage;
    case otherColor:
        return Shown::OtherControllersPage;
    case errorColor:
        return Shown::ErrorPage;
    case qRgb(0xff, 0xff, 0xff):
        return Shown::Blank;
    default:
        return Shown::Else;
    }
}

bool FaultBench::awaitShown(Shown wanted, std::chrono::milliseconds limit) const
{
    const bool reached =
        QTest::qWaitFor([this, wanted] { return shown() == wanted; }, static_cast<int>(limit.count()));
    if (!reached) {
        qWarning() << "The screen shows" << static_cast<int>(shown()) << "instead of"
                   << static_cast<int>(wanted);
    }
    return reached;
}

void FaultBench::mark()
{
    ticksAtMark = ticks();
    valueAtMark = frames.sent();
    sinceMark.start();
}

bool FaultBench::isWorking() const
{
    return ticks() > ticksAtMark && (!served || plc->value() > valueAtMark) &&
           shown() == Shown::ControllerPage;
}

double FaultBench::awaitWorking(std::chrono::milliseconds limit)
{
    if (!QTest::qWaitFor([this] { return isWorking(); }, static_cast<int>(limit.count()))) {
        qWarning() << "Shown" << static_cast<int>(shown()) << "asked" << ticks() - ticksAtMark << "read"
                   << (served ? plc->value() : 0) << "of" << valueAtMark;
        return -1;
    }
    return static_cast<double>(sinceMark.elapsed()) / 1000;
}

bool FaultBench::showsTouch(std::chrono::milliseconds limit)
{
    const QRgb before = screen.grab().pixel(touched);
    screen.tap(touched);
    return QTest::qWaitFor([&] { return screen.grab().pixel(touched) != before; },
                           static_cast<int>(limit.count()));
}

bool FaultBench::answersTouch(std::chrono::milliseconds limit)
{
    const QByteArray before = lastHeader("x-touches");
    return showsTouch(limit) && QTest::qWaitFor([&] { return lastHeader("x-touches") != before; },
                                                static_cast<int>(limit.count()));
}

QByteArray FaultBench::lastHeader(const QByteArray& name) const
{
    const QList<WebServer::Request>& requests = server.requests();
    const auto found =
        std::find_if(requests.crbegin(), requests.crend(),
                     [](const WebServer::Request& request) { return request.path == "/tick"; });
    return found == requests.crend() ? QByteArray() : found->headers.value(name);
}

qint64 FaultBench::panelMemory() const
{
    QFile file("/proc/%1/statm"_s.arg(panel.pid()));
    const QList<QByteArray> numbers =
        file.open(QIODevice::ReadOnly) ? file.readAll().split(' ') : QList<QByteArray>();
    return numbers.value(1).toLongLong() * ::sysconf(_SC_PAGESIZE);
}
