// SPDX-License-Identifier: MIT
#include "soak.h"

#include <vector>

#include <QBuffer>
#include <QCoreApplication>
#include <QDir>
#include <QDirIterator>
#include <QTest>

namespace {

constexpr std::chrono::seconds samplePeriod{5};
constexpr QPoint onTheLink{400, 200};
constexpr QPoint besideTheLink{400, 440}; // as are the chooser's buttons
constexpr int warmUpCycles = 3;
// Descriptors that an idle panel may have more than after its warm-up: connections that the engine keeps.
constexpr int spareDescriptors = 12;
constexpr int spareThreads = 4;
constexpr int mostPictures = 20;
constexpr int mostFailedCycles = 5;

const char* const languages[] = {"de", "fr", "it", "es", "en"};

/// All in the page's colour, so that the screen shows nothing else while nothing covers the page.
const char* const page = "<!DOCTYPE html><html><head><link rel='stylesheet' href='/style.css'><script "
                         "src='/page.js'></script></head>"
                         "<body><a href='/file'><img src='/logo.png' width='800' height='300' alt=''></a>"
                         "<table><tr><td>Supply</td><td id='value'></td></tr></table>"
                         "<img id='live' src='/live.png' alt=''></body></html>";
const char* const style = "body { margin: 0; background: #00c000; color: #00c000; font-family: sans-serif }"
                          "a { display: block; width: 800px; height: 300px }";
/// Asks for the values again and again, does what the answer says, and shows it, with a picture of its own
/// for each, as pages do that want no picture from a cache.
const char* const script = "var timer = setInterval(function () {"
                           "  var request = new XMLHttpRequest();"
                           "  request.onload = function () {"
                           "    if (request.responseText == 'reload') { location.reload(); }"
                           "    else if (request.responseText == 'pause') { clearInterval(timer); }"
                           "    else {"
                           "      document.getElementById('value').textContent = request.responseText;"
                           "      document.getElementById('live').src = '/live.png?' + Date.now();"
                           "    }"
                           "  };"
                           "  request.open('GET', '/values', true);"
                           "  request.send();"
                           "}, 400);";

QByteArray plainPicture(QSize size)
{
    QImage picture(size, QImage::Format_RGB32);
    picture.fill(TransferScene::pageColor);
    QByteArray octets;
    QBuffer buffer(&octets);
    buffer.open(QIODevice::WriteOnly);
    picture.save(&buffer, "PNG");
    return octets;
}

bool copyPictures()
{
    const QString from = QStringLiteral(VARNEL_SOURCE_DIR "/device/share");
    QDirIterator files(from, {QStringLiteral("*.png")}, QDir::Files, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        const QString path = QStringLiteral("/usr/local/share") + files.next().mid(from.size());
        if (!QDir().mkpath(QFileInfo(path).path()) ||
            !(QFile::exists(path) || QFile::copy(files.filePath(), path))) {
            return false;
        }
    }
    return true;
}

bool isDark()
{
    return StandInSys::read(StandInSys::backlightFile()) == QLatin1String("1");
}

} // namespace

const std::vector<Soak::Step>& Soak::steps()
{
    static const std::vector<Step> all = {
        {"find", &Soak::findController},      {"outputs", &Soak::checkOutputs},
        {"touch", &Soak::touchAside},         {"download", &Soak::download},
        {"language", &Soak::changeLanguages}, {"reload", &Soak::reloadPage},
        {"service", &Soak::plugServiceLink},  {"dark", &Soak::darkenAndWake},
        {"refuse", &Soak::refusePage},        {"rest", &Soak::rest},
        {"loss", &Soak::loseController},
    };
    return all;
}

Soak::Soak(const QString& directory, VirtualScreen& screen)
    : directory(directory)
    , screen(screen)
    , scene(screen)
{
    connect(&scene.server, &WebServer::requested, this, [this] { ++counts.requests; });
    connect(&pace, &QTimer::timeout, this, &Soak::sample);
}

bool Soak::run(std::chrono::milliseconds duration)
{
    QElapsedTimer clock;
    clock.start();
    if (!start()) {
        qWarning() << "The panel cannot be started";
        return false;
    }
    for (int failedInARow = 0; failedInARow < mostFailedCycles;) {
        const bool good = cycle();
        failedInARow = good ? 0 : failedInARow + 1;
        if (!scene.panel.isRunning() || clock.elapsed() >= duration.count()) {
            break;
        }
        if (!good) {
            recover();
        }
    }
    sample();
    traffic.stop();
    now = QStringLiteral("end");
    if (scene.panel.stop() != 0) {
        fail(QStringLiteral("the panel has not ended in order"));
    }
    qInfo().noquote() << QStringLiteral("%1 s, %2 cycles, %3 frames, %4 reloads, %5 languages, %6 losses, "
                                        "%7 downloads, %8 darkenings, %9 error pages, %10 failures")
                             .arg(clock.elapsed() / 1000)
                             .arg(counts.cycles)
                             .arg(traffic.sent())
                             .arg(counts.reloads)
                             .arg(counts.languages)
                             .arg(counts.losses)
                             .arg(counts.downloads)
                             .arg(counts.darkenings)
                             .arg(counts.errorPages)
                             .arg(counts.failures);
    return counts.failures == 0;
}

bool Soak::start()
{
    QFile map(QStringLiteral("/usr/local/etc/modbus.map"));
    const QByteArray text = Traffic::modbusMap();
    servePage();
    scene.server.serve("/values", "1", "text/plain");
    scene.server.serve("/style.css", style, "text/css");
    scene.server.serve("/page.js", script, "application/javascript");
    scene.server.serve("/logo.png", plainPicture({400, 300}), "image/png");
    scene.server.serve("/live.png", plainPicture({320, 240}), "image/png");
    const auto settings = SettingsFile()
                              .set("Network/UdpTimeout", "3")
                              .set("Network/RetryTimeout", "2")
                              .set("UI/ScreenSaverInterval", "6000");
    if (!map.open(QIODevice::WriteOnly) || map.write(text) != text.size()) {
        return false;
    }
    map.close();
    const bool ready = copyPictures() && scene.server.listen() && scene.start(settings) &&
                       record.open(directory + QStringLiteral("/soak.csv"));
    pace.start(samplePeriod);
    return ready;
}

bool Soak::cycle()
{
    for (const Step& step : steps()) {
        now = QString::fromLatin1(step.name);
        log().skip();
        log().forget();
        scene.server.clear();
        if (!(this->*step.act)()) {
            fail(now);
            return false;
        }
    }
    scene.scripts.clear();
    ++counts.cycles;
    return true;
}

void Soak::fail(const QString& what)
{
    ++counts.failures;
    qWarning().noquote() << QDateTime::currentDateTimeUtc().toString(Qt::ISODate) << "cycle"
                         << counts.cycles + 1 << "failed at:" << what;
    if (counts.failures <= mostPictures) {
        screen.grab().save(directory + QStringLiteral("/failure-%1.png").arg(counts.failures));
    }
}

void Soak::recover()
{
    now = QStringLiteral("recover");
    traffic.stop();
    scene.sys.setOperState(QStringLiteral("usb0"), QStringLiteral("down"));
    servePage();
    scene.server.serve("/values", "1", "text/plain");
    touch(TransferScene::cancelButton);
    if (!log().await(QStringLiteral("Remove R7M"))) {
        fail(now);
    }
}

void Soak::sample()
{
    counts.frames = traffic.sent();
    counts.logLines = log().lineCount();
    counts.logOctets = log().octetCount();
    if (scene.panel.isRunning()) {
        record.add(now, processFigures(scene.panel.pid()), processFigures(QCoreApplication::applicationPid()),
                   counts);
    }
}

/// Frames begin, for every other cycle those of a controller that has rebooted.
bool Soak::findController()
{
    if (counts.cycles % 2 == 0) {
        traffic.reboot();
    }
    traffic.start();
    return log().await(QStringLiteral("Add R7M")) && scene.server.awaitCount("/index.html", 1) &&
           scene.awaitPage();
}

bool Soak::checkOutputs()
{
    for (const Outputs& outputs :
         {Outputs{1, 0, 1, 0}, Outputs{0, 1, 0, 1}, Outputs{1, 1, 1, 0}, Outputs{}}) {
        traffic.hold(outputs);
        if (!awaitOutputs(outputs)) {
            return false;
        }
    }
    traffic.hold({});
    return true;
}

bool Soak::touchAside()
{
    touch(besideTheLink);
    // A touch right behind another, which no finger can do, would be lost to the window manager.
    return log().await(QStringLiteral("resetTimer")) && awaitTrue([] { return !isDark(); });
}

/// Touches the link and the chooser's button; the file must arrive complete, and is removed again.
bool Soak::download()
{
    const QString name = QStringLiteral("soak-%1.bin").arg(counts.cycles % 10);
    const QByteArray body = generatedBody((100 << 10) << (counts.cycles % 5));
    scene.server.answer("/file",
                        "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                            QByteArray::number(body.size()) +
                            "\r\nContent-Disposition: attachment; filename=" + name.toLatin1() +
                            "\r\nConnection: close\r\n\r\n" + body);
    touch(onTheLink);
    if (!log().await(QStringLiteral("WebPage::UnsupportedContent")) || !scene.awaitChooser()) {
        return false;
    }
    touch(TransferScene::okButton);
    const bool saved = log().await(QStringLiteral("<now> - Download complete")) &&
                       log().await(QStringLiteral("RemountUSB \"ro\"")) &&
                       TransferScene::readDrive(name) == body;
    QFile::remove(TransferScene::drive(name));
    scene.server.refuse("/file", "404 Not Found");
    ++counts.downloads;
    return saved && scene.awaitPage();
}

bool Soak::changeLanguages()
{
    for (const char* const language : languages) {
        traffic.setLanguage(language);
        if (!log().await(QRegularExpression(
                QStringLiteral("^wv: Set language to \"%1\"").arg(QLatin1String(language))))) {
            return false;
        }
        ++counts.languages;
    }
    return true;
}

bool Soak::reloadPage()
{
    for (int i = 0; i < 6; ++i) {
        const int before = scene.server.count("/index.html");
        if (!tellPage("reload") || !scene.server.awaitCount("/index.html", before + 1)) {
            return false;
        }
        scene.server.serve("/values", QByteArray::number(i), "text/plain");
        // The page that asks again is the new one, at work.
        if (!scene.server.awaitCount("/values", scene.server.count("/values") + 1)) {
            return false;
        }
        ++counts.reloads;
    }
    return scene.awaitPage();
}

/// Somebody plugs the service cable: the info page comes, and the page again when it is pulled.
bool Soak::plugServiceLink()
{
    if (!tellPage("pause")) {
        return false;
    }
    scene.sys.setOperState(QStringLiteral("usb0"), QStringLiteral("up"));
    if (!log().await(QRegularExpression(QStringLiteral("^ws: Load info page"))) || !awaitNoPage()) {
        return false;
    }
    scene.server.serve("/values", "1", "text/plain");
    scene.sys.setOperState(QStringLiteral("usb0"), QStringLiteral("down"));
    return log().await(QStringLiteral("Reload last page")) && scene.server.awaitCount("/index.html", 1) &&
           scene.awaitPage();
}

bool Soak::darkenAndWake()
{
    if (!awaitTrue(isDark)) {
        return false;
    }
    ++counts.darkenings;
    screen.move(besideTheLink + QPoint(counts.darkenings % 2, 1));
    if (!awaitTrue([] { return !isDark(); })) {
        return false;
    }
    touch(besideTheLink);
    return log().await(QStringLiteral("resetTimer"));
}

/// The server refuses one reload, each time in another way; the retry brings the page back.
bool Soak::refusePage()
{
    switch (counts.cycles % 4) {
    case 0:
        scene.server.refuse("/index.html", "500 Internal Server Error");
        break;
    case 1:
        scene.server.refuse("/index.html", "404 Not Found");
        break;
    case 2:
        scene.server.refuse("/index.html", "401 Unauthorized");
        break;
    default:
        scene.server.answer("/index.html", {}, AfterAnswer::Reset);
        break;
    }
    if (!tellPage("reload") || !log().await(QRegularExpression(QStringLiteral("^wv: Load error page")))) {
        return false;
    }
    servePage();
    scene.server.serve("/values", "1", "text/plain");
    ++counts.errorPages;
    return awaitNoPage() && log().await(QRegularExpression(QStringLiteral("^WebView::loadUrl\\(\\)"))) &&
           scene.awaitPage();
}

/// Nothing to do but frames: the moment to look at what the process has got hold of.
bool Soak::rest()
{
    // Each cycle starts a new record of the scripts.
    if (scene.scripts.runsOf(QStringLiteral("mbserverupdate.sh")).isEmpty()) {
        qWarning() << "No values have gone to the Modbus server";
        return false;
    }
    ProcessFigures figures;
    if (counts.cycles < warmUpCycles) {
        figures = processFigures(scene.panel.pid());
        atRest.descriptors = qMax(atRest.descriptors, figures.descriptors);
        atRest.threads = qMax(atRest.threads, figures.threads);
        return true;
    }
    const bool bounded = awaitTrue([&] {
        QTest::qWait(100);
        figures = processFigures(scene.panel.pid());
        return figures.descriptors <= atRest.descriptors + spareDescriptors &&
               figures.threads <= atRest.threads + spareThreads && figures.children == 0;
    });
    if (!bounded) {
        qWarning() << "descriptors" << figures.descriptors << "of" << atRest.descriptors << "threads"
                   << figures.threads << "of" << atRest.threads << "children" << figures.children;
    }
    return bounded;
}

bool Soak::loseController()
{
    if (!tellPage("pause")) {
        return false;
    }
    traffic.stop();
    ++counts.losses;
    if (!log().await({QStringLiteral("Remove R7M")}) || !awaitNoPage()) {
        return false;
    }
    scene.server.serve("/values", "1", "text/plain");
    return true;
}

void Soak::servePage()
{
    scene.server.serve("/index.html", page);
}

/// Gives the page's next request for values this answer and waits until it is asked for.
bool Soak::tellPage(const QByteArray& word)
{
    const int before = scene.server.count("/values");
    scene.server.serve("/values", word, "text/plain");
    return scene.server.awaitCount("/values", before + 1);
}

/// Waits until something else than the page is shown.
bool Soak::awaitNoPage()
{
    return awaitTrue([this] { return screen.grab().pixel(onTheLink) != TransferScene::pageColor; });
}

bool Soak::awaitOutputs(const Outputs& outputs)
{
    return awaitTrue([&outputs] {
        return StandInSys::value(StandInSys::green) == QString::number(outputs.good) &&
               StandInSys::value(StandInSys::yellow) == QString::number(outputs.warning) &&
               StandInSys::value(StandInSys::red) == QString::number(outputs.critical) &&
               StandInSys::value(StandInSys::buzzer) == QString::number(outputs.buzzer);
    });
}

/// A touch that reaches what is shown, however long the last one is ago.
void Soak::touch(QPoint point)
{
    if (isDark()) {
        screen.move(point + QPoint(0, 1));
        if (!awaitTrue([] { return !isDark(); })) {
            fail(QStringLiteral("the screen stays dark"));
        }
    }
    screen.tap(point);
}

bool Soak::awaitTrue(const std::function<bool()>& condition) const
{
    return QTest::qWaitFor(condition, static_cast<int>(patience.count()));
}
