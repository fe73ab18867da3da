// SPDX-License-Identifier: MIT
// The soak: runs the panel through everything that happens to one, again and again. See scripts/soak.

#include <QBuffer>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>

#include <algorithm>

#include "processfigures.h"
#include "traffic.h"
#include "transferscene.h"

namespace {

constexpr QPoint onTheLink{400, 200};
constexpr QPoint besideTheLink{400, 440}; // as are the chooser's buttons
constexpr int warmUpCycles = 3;
// Descriptors that an idle panel may have more than after its warm-up: connections that the engine keeps.
constexpr int spareDescriptors = 12;
constexpr int spareThreads = 4;
constexpr int mostPictures = 20;
constexpr int mostFailedCycles = 5;

const char* const languageCodes[] = {"de", "fr", "it", "es", "en"};

/// All in the page's colour, so that the screen shows nothing else while nothing covers the page.
const char* const page = R"(<!DOCTYPE html><html><head><link rel='stylesheet' href='/style.css'>
<script src='/page.js'></script></head><body>
<a href='/file'><img src='/logo.png' width='800' height='300' alt=''></a>
<table><tr><td>Supply</td><td id='value'></td></tr></table>
<img id='live' src='/live.png' alt=''></body></html>)";
const char* const style = R"(body { margin: 0; background: #00c000; color: #00c000; font-family: sans-serif }
a { display: block; width: 800px; height: 300px })";
/// Asks for the values again and again, does what the answer says, and shows it, with a picture of its own
/// for each, as pages do that want no picture from a cache.
const char* const script = R"(var timer = setInterval(function () {
  var request = new XMLHttpRequest();
  request.onload = function () {
    if (request.responseText == 'reload') { location.reload(); }
    else if (request.responseText == 'pause') { clearInterval(timer); }
    else {
      document.getElementById('value').textContent = request.responseText;
      document.getElementById('live').src = '/live.png?' + Date.now();
    }
  };
  request.open('GET', '/values', true);
  request.send();
}, 400);)";

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

bool isDark()
{
    return StandInSys::read(StandInSys::backlightFile()) == "1"_s;
}

/// A panel that lives through months in hours: cycle after cycle of everything that happens to one, each
/// thing checked, with a sample of what the kernel tells of the process every few seconds.
class Soak : public QObject
{
public:
    /// `outputDirectory` takes the record and the pictures of failures.
    Soak(const QString& outputDirectory, VirtualScreen& virtualScreen)
        : directory(outputDirectory)
        , screen(virtualScreen)
        , scene(virtualScreen)
    {
        connect(&scene.server, &WebServer::requested, this, [this] { ++counts["requests"]; });
        connect(&pace, &QTimer::timeout, this, &Soak::sample);
    }

    /// Puts a command in front of the panel, which it must become itself: "env" with variables, for example.
    void setLauncher(const QStringList& command) { scene.panel.setLauncher(command); }
    /// Runs whole cycles until `duration` is over, at least one, and ends the panel. True without any
    /// failure.
    [[nodiscard]] bool run(std::chrono::milliseconds duration)
    {
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
        now = "end";
        if (scene.panel.stop() != 0) {
            fail("the panel has not ended in order");
        }
        return failures == 0;
    }

private:
    bool start()
    {
        serveUsual();
        scene.server.serve("/style.css", style, "text/css");
        scene.server.serve("/page.js", script, "application/javascript");
        scene.server.serve("/logo.png", plainPicture({400, 300}), "image/png");
        scene.server.serve("/live.png", plainPicture({320, 240}), "image/png");
        const auto settings = SettingsFile()
                                  .set("Network/UdpTimeout", "3")
                                  .set("Network/RetryTimeout", "2")
                                  .set("UI/ScreenSaverInterval", "6000");
        writeFile("/usr/local/etc/modbus.map"_s, Traffic::modbusMap());
        record.setFileName(directory + "/soak.csv"_s);
        pace.start(std::chrono::seconds(5));
        return record.open(QIODevice::WriteOnly) && scene.server.listen() && scene.start(settings) &&
               Program::runTool(
                   {"cp"_s, "-r"_s, VARNEL_SOURCE_DIR "/device/share/."_s, "/usr/local/share"_s});
    }

    bool cycle()
    {
        struct Step
        {
            const char* name;
            bool (Soak::*act)();
        };
        static const Step steps[] = {
            {"find", &Soak::findController},      {"outputs", &Soak::checkOutputs},
            {"touch", &Soak::touchAside},         {"download", &Soak::download},
            {"language", &Soak::changeLanguages}, {"reload", &Soak::reloadPage},
            {"service", &Soak::plugServiceLink},  {"dark", &Soak::darkenAndWake},
            {"refuse", &Soak::refusePage},        {"rest", &Soak::rest},
            {"loss", &Soak::loseController},
        };
        for (const Step& step : steps) {
            now = step.name;
            log().skip();
            log().forget();
            scene.server.clear();
            if (!(this->*step.act)()) {
                fail(now);
                return false;
            }
        }
        scene.scripts.clear();
        ++cycles;
        return true;
    }

    void recover()
    {
        now = "recover";
        traffic.stop();
        scene.sys.setOperState("usb0"_s, "down"_s);
        serveUsual();
        touch(TransferScene::cancelButton);
        if (!log().await("Remove R7M"_s)) {
            fail(now);
        }
    }

    void fail(const char* what)
    {
        ++failures;
        qWarning().noquote() << QDateTime::currentDateTimeUtc().toString(Qt::ISODate) << "cycle" << cycles + 1
                             << "failed at:" << what;
        if (failures <= mostPictures) {
            screen.grab().save(directory + "/failure-%1.png"_s.arg(failures));
        }
    }

    /// Adds a line to the record, written through at once so that a run that is cut short keeps all but its
    /// last seconds. The first line has the names.
    void sample()
    {
        if (!scene.panel.isRunning()) {
            return;
        }
        const ProcessFigures panel = processFigures(scene.panel.pid());
        const std::pair<const char*, qint64> columns[] = {
            {"rss_kib", panel.rss},
            {"pss_kib", panel.pss},
            {"anonymous_kib", panel.anonymous},
            {"heap_kib", panel.heap},
            {"descriptors", panel.descriptors},
            {"sockets", panel.sockets},
            {"timer_descriptors", panel.timerDescriptors},
            {"children", panel.children},
            {"threads", panel.threads},
            {"voluntary_switches", panel.voluntarySwitches},
            {"cpu_ms", panel.cpuMs},
            {"frames", traffic.sent()},
            {"log_lines", log().lineCount()},
            {"log_octets", log().octetCount()},
            {"cycles", cycles},
            {"failures", failures},
        };
        QByteArray names = "seconds,step";
        QByteArray values = QByteArray::number(double(clock.elapsed()) / 1000, 'f', 1) + ',' + now;
        for (const auto& [name, value] : columns) {
            names += QByteArray(",") + name;
            values += ',' + QByteArray::number(value);
        }
        for (auto count = counts.cbegin(); count != counts.cend(); ++count) {
            names += ',' + count.key();
            values += ',' + QByteArray::number(*count);
        }
        if (record.write((record.pos() == 0 ? names + '\n' : QByteArray()) + values + '\n') < 0 ||
            !record.flush()) {
            qWarning() << "Cannot write" << record.fileName() << record.errorString();
        }
    }

    /// Frames begin, for every other cycle those of a controller that has rebooted.
    bool findController()
    {
        if (cycles % 2 == 0) {
            traffic.reboot();
        }
        traffic.start();
        return log().await("Add R7M"_s) && scene.server.awaitCount("/index.html", 1) && scene.awaitPage();
    }

    bool checkOutputs()
    {
        for (const char* const outputs : {"1010", "0101", "1110", "0000"}) {
            traffic.hold(outputs);
            if (!awaitTrue([outputs] { return StandInSys::outputs() == QLatin1String(outputs); })) {
                return false;
            }
        }
        traffic.hold({});
        return true;
    }

    bool touchAside()
    {
        touch(besideTheLink);
        // A touch right behind another, which no finger can do, would be lost to the window manager.
        return log().await("resetTimer"_s) && awaitTrue([] { return !isDark(); });
    }

    /// Touches the link and the chooser's button; the file must arrive complete, and is removed again.
    bool download()
    {
        const QString name = "soak-%1.bin"_s.arg(cycles % 10);
        const QByteArray body = generatedBody((100 << 10) << (cycles % 5));
        scene.server.answer("/file",
                            "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                                QByteArray::number(body.size()) +
                                "\r\nContent-Disposition: attachment; filename=" + name.toLatin1() +
                                "\r\nConnection: close\r\n\r\n" + body);
        touch(onTheLink);
        if (!log().await("WebPage::UnsupportedContent"_s) || !scene.awaitChooser()) {
            return false;
        }
        touch(TransferScene::okButton);
        const bool saved = log().await({"<now> - Download complete"_s, "RemountUSB \"ro\""_s}) &&
                           scene.drive.content(name) == body;
        QFile::remove(scene.drive.path(name));
        scene.server.refuse("/file", "404 Not Found");
        ++counts["downloads"];
        return saved && scene.awaitPage();
    }

    bool changeLanguages()
    {
        return std::all_of(std::begin(languageCodes), std::end(languageCodes), [this](const char* language) {
            traffic.setLanguage(language);
            ++counts["languages"];
            return log().await(
                QRegularExpression("^wv: Set language to \"%1\""_s.arg(QLatin1String(language))));
        });
    }

    bool reloadPage()
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
            ++counts["reloads"];
        }
        return scene.awaitPage();
    }

    /// Somebody plugs the service cable: the info page comes, and the page again when it is pulled.
    bool plugServiceLink()
    {
        if (!tellPage("pause")) {
            return false;
        }
        scene.sys.setOperState("usb0"_s, "up"_s);
        if (!log().await(QRegularExpression("^ws: Load info page"_s)) || !awaitNoPage()) {
            return false;
        }
        serveUsual();
        scene.sys.setOperState("usb0"_s, "down"_s);
        return log().await("Reload last page"_s) && scene.server.awaitCount("/index.html", 1) &&
               scene.awaitPage();
    }

    bool darkenAndWake()
    {
        if (!awaitTrue(isDark)) {
            return false;
        }
        ++counts["darkenings"];
        screen.move(besideTheLink + QPoint(counts["darkenings"] % 2, 1));
        if (!awaitTrue([] { return !isDark(); })) {
            return false;
        }
        touch(besideTheLink);
        return log().await("resetTimer"_s);
    }

    /// The server refuses one reload, each time in another way; the retry brings the page back.
    bool refusePage()
    {
        const char* const statuses[] = {"500 Internal Server Error", "404 Not Found", "401 Unauthorized"};
        if (cycles % 4 < 3) {
            scene.server.refuse("/index.html", statuses[cycles % 4]);
        } else {
            scene.server.answer("/index.html", {}, AfterAnswer::Reset);
        }
        if (!tellPage("reload") || !log().await(QRegularExpression("^wv: Load error page"_s))) {
            return false;
        }
        serveUsual();
        ++counts["error_pages"];
        return awaitNoPage() && log().await(QRegularExpression("^WebView::loadUrl\\(\\)"_s)) &&
               scene.awaitPage();
    }

    /// Nothing to do but frames: the moment to look at what the process has got hold of.
    bool rest()
    {
        // Each cycle starts a new record of the scripts.
        if (scene.scripts.argumentsOf("mbserverupdate.sh"_s).isEmpty()) {
            qWarning() << "No values have gone to the Modbus server";
            return false;
        }
        ProcessFigures figures;
        if (cycles < warmUpCycles) {
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

    bool loseController()
    {
        if (!tellPage("pause")) {
            return false;
        }
        traffic.stop();
        ++counts["losses"];
        if (!log().await({"Remove R7M"_s}) || !awaitNoPage()) {
            return false;
        }
        serveUsual();
        return true;
    }

    void serveUsual()
    {
        scene.server.serve("/index.html", page);
        scene.server.serve("/values", "1", "text/plain");
    }

    /// Gives the page's next request for values this answer and waits until it is asked for.
    bool tellPage(const QByteArray& word)
    {
        const int before = scene.server.count("/values");
        scene.server.serve("/values", word, "text/plain");
        return scene.server.awaitCount("/values", before + 1);
    }

    /// Waits until something else than the page is shown.
    bool awaitNoPage()
    {
        return awaitTrue([this] { return screen.grab().pixel(onTheLink) != TransferScene::pageColor; });
    }

    /// A touch that reaches what is shown, however long the last one is ago.
    void touch(QPoint point)
    {
        if (isDark()) {
            screen.move(point + QPoint(0, 1));
            if (!awaitTrue([] { return !isDark(); })) {
                fail("the screen stays dark");
            }
        }
        screen.tap(point);
    }

    LogReader& log() { return scene.panel.log(); }

    QString directory;
    VirtualScreen& screen;
    TransferScene scene;
    Traffic traffic;
    QFile record; ///< CSV, which ../soak/report reads
    QElapsedTimer clock;
    QTimer pace;
    ProcessFigures atRest;
    const char* now = "start"; ///< the step
    int cycles = 0;
    int failures = 0;
    /// Other events, each a column of the record.
    QMap<QByteArray, int> counts{{"requests", 0},  {"reloads", 0},    {"languages", 0},  {"losses", 0},
                                 {"downloads", 0}, {"darkenings", 0}, {"error_pages", 0}};
};

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument("DIRECTORY"_s, "takes soak.csv"_s);
    parser.addPositionalArgument("SECONDS"_s, "how long to run"_s);
    parser.addPositionalArgument("COMMAND"_s, "prefix of the panel's command"_s, "[COMMAND...]"_s);
    parser.process(application);
    bool isNumber = false;
    const QStringList arguments = parser.positionalArguments();
    const int seconds = arguments.value(1).toInt(&isNumber);
    if (!isNumber || seconds < 0) {
        parser.showHelp(2);
    }
    VirtualScreen screen;
    if (!screen.start()) {
        return 1;
    }
    Soak soak(arguments.constFirst(), screen);
    soak.setLauncher(arguments.mid(2));
    return soak.run(std::chrono::seconds(seconds)) ? 0 : 1;
}
