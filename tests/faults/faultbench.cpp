// SPDX-License-Identifier: MIT
#include "faultbench.h"

#include <QDir>
#include <QFile>

namespace {

constexpr QPoint looked{600, 240};  // a place that shows which page it is
constexpr QPoint touched{200, 240}; // a place whose colour is another after each touch

const QByteArray page = "/index.html";

/// Its clock, its touches and the reason of its end are in the headers of its requests. It loads itself again
/// only when no request is open: one that is cancelled would count as failed.
const QByteArray workingPage = R"(<html><body style='margin:0;background:COLOR'>
<div id='area' style='width:400px;height:480px' onmousedown='touch()'></div>
<script>
var area = document.getElementById('area'), count = 0;
function touches() { return Number(window.name) || 0; }
function paint() { area.style.background = touches() % 2 ? '#0000c0' : '#00c0c0'; }
function touch() { window.name = touches() + 1; paint(); }
function answered(answer) {
  if (answer) { location.href = answer; if (/download/.test(answer)) { setTimeout(tick, 5000); } }
  else if (++count >= 6) { location.reload(); }
  else { setTimeout(tick, 500); }
}
function tick() {
  var request = new XMLHttpRequest();
  request.onload = function() { answered(request.responseText); };
  request.open('GET', '/tick');
  request.setRequestHeader('X-Now', Date.now());
  request.setRequestHeader('X-Touches', touches());
  request.send();
}
paint();
try { localStorage.setItem('loads', 1 + Number(localStorage.getItem('loads'))); } catch (e) {}
setTimeout(tick, 500);
</script></body></html>)";

QByteArray uncached(const QByteArray& body)
{
    return "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nCache-Control: no-store\r\nContent-Length: " +
           QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body;
}

bool writeErrorPicture()
{
    QImage picture(800, 480, QImage::Format_RGB32);
    picture.fill(static_cast<QRgb>(Shown::ErrorPage));
    return QDir().mkpath("/usr/local/share/default"_s) &&
           picture.save("/usr/local/share/default/error.png"_s);
}

} // namespace

FaultBench::FaultBench(VirtualScreen& virtualScreen)
    : screen(virtualScreen)
{
    settings.set("Network/UdpTimeout", "3")
        .set("Network/RetryTimeout", "4")
        .set("UI/ScreenSaverInterval", "3600000");
    serveUsual();
    otherServer.serve(page, QByteArray(workingPage).replace("COLOR", "#c0c000"));
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
    server.serve(page, QByteArray(workingPage).replace("COLOR", "#00c000"));
    server.answer("/tick", uncached({}));
    server.setDelay(std::chrono::milliseconds(0));
}

void FaultBench::sendPageTo(const QByteArray& url)
{
    server.answer("/tick", uncached(url));
}

bool FaultBench::installScripts() const
{
    return scripts.installAll() && ModbusBench::installScripts();
}

bool FaultBench::start(bool served)
{
    const QString map = "/usr/local/etc/modbus.map"_s;
    QFile::remove(map);
    if (!QFile::copy(VARNEL_SOURCE_DIR "/device/modbus.map"_s, map) || !settings.write() ||
        !bus.start("--state=/run/modbus-init"_s) || !installScripts() || !writeErrorPicture() ||
        !server.listen() || !otherServer.listen("192.168.7.3"_s) || !panel.startAndBind()) {
        return false;
    }
    if (served) {
        plc = std::make_unique<PlcReader>();
    }
    speak();
    mark();
    return awaitWorking(patience) >= 0 && answersTouch();
}

bool FaultBench::restartPanelAndRead()
{
    const bool restarted = panel.stop() == 0 && panel.startAndBind();
    plc = std::make_unique<PlcReader>();
    return restarted;
}

Shown FaultBench::shown() const
{
    return static_cast<Shown>(screen.grab().pixel(looked) | 0xff000000U);
}

bool FaultBench::awaitShown(Shown wanted, std::chrono::milliseconds limit) const
{
    const bool reached = awaitTrue([this, wanted] { return shown() == wanted; }, limit);
    if (!reached) {
        qWarning() << "The screen shows" << QColor(QRgb(shown())).name() << "instead of"
                   << QColor(QRgb(wanted)).name();
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
    return ticks() > ticksAtMark && (!plc || plc->value() > valueAtMark) && shown() == Shown::ControllerPage;
}

double FaultBench::awaitWorking(std::chrono::milliseconds limit)
{
    if (!awaitTrue([this] { return isWorking(); }, limit)) {
        qWarning() << "Shown" << QColor(QRgb(shown())).name() << "asked" << ticks() - ticksAtMark << "read"
                   << plcValue() << "of" << valueAtMark;
        return -1;
    }
    return static_cast<double>(sinceMark.elapsed()) / 1000;
}

bool FaultBench::awaitTicks(int wanted) const
{
    const int before = ticks();
    return awaitTrue([&] { return ticks() >= before + wanted; }) && awaitShown(Shown::ControllerPage);
}

bool FaultBench::showsTouch(std::chrono::milliseconds limit)
{
    const QRgb before = screen.grab().pixel(touched);
    screen.tap(touched);
    return awaitTrue([&] { return screen.grab().pixel(touched) != before; }, limit);
}

bool FaultBench::answersTouch()
{
    const auto touches = [this] { return server.last("/tick").headers.value("x-touches"); };
    const QByteArray before = touches();
    return showsTouch() && awaitTrue([&] { return touches() != before; });
}

bool FaultBench::loseLink()
{
    silence();
    return panel.log().await("Remove R7M"_s);
}
