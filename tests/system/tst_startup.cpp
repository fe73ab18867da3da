// SPDX-License-Identifier: MIT
// From the command line and the settings file to the panel that listens.

#include <QFile>

#include "rows.h"
#include "scene.h"

namespace {

const QString missingSettings =
    "<now> - Settings file '/usr/local/etc/varnel-browser.ini' does not exist, using default values"_s;

/// The log from the banner to the last of the three values.
QStringList startOfLog(const QStringList& between, const QString& verbose = "false"_s,
                       const QString& device = "DeviceUndef"_s, const QString& release = "ReleaseUndef"_s)
{
    return QStringList{"<now> - Running VarnelBrowser on embedded platform"_s, "Running on ARM"_s,
                       "Running on linux"_s} +
           between +
           QStringList{"verbose =  "_s + verbose, "device  =  \"%1\""_s.arg(device),
                       "release =  \"%1\""_s.arg(release)};
}

} // namespace

class tst_Startup : public QObject
{
    Q_OBJECT

private slots:
    void commandLine_data()
    {
        const Rows<QString, QStringList> row("arguments", "log");
        row("no options: built-in values", {}, startOfLog({missingSettings}));
        row("all three", "-D X -R Y -v"_s, startOfLog({missingSettings}, "true"_s, "X"_s, "Y"_s));
        row("a mistake: one line, continues, options before it kept", "-v -x"_s,
            startOfLog({"Unknown argument: -x"_s, missingSettings}, "true"_s));
    }

    void commandLine()
    {
        QFETCH(QString, arguments);
        QFETCH(QStringList, log);
        Scene scene;
        QVERIFY(scene.panel.startAndBind(arguments.split(QLatin1Char(' '), Qt::SkipEmptyParts)));
        QCOMPARE(scene.panel.log().lines().mid(0, log.size()), log);
        QVERIFY(scene.isAlive());
        QCOMPARE(scene.panel.stop(), 0);
    }

    void wholeLogOfAQuietStart()
    {
        Scene scene;
        QVERIFY(scene.start());
        QVERIFY(scene.isAlive());
        QStringList lines = scene.panel.log().lines();
        lines = lines.mid(0, lines.indexOf("All LEDs on, Buzzer off"_s) + 1);
        lines.replaceInStrings(QRegularExpression("(?<= = ) [0-9]+$"_s), QString()); // the interface's place
        // Nothing but the panel's own words, each once: whoever reads the journal can look every line up.
        QCOMPARE(lines,
                 startOfLog({}) + QStringList({"setScreenState 1"_s,
                                               "stopBuzzer()"_s,
                                               "Install screensaver"_s,
                                               "resetTimer"_s,
                                               "Interface found.  \"eth1\"  = "_s,
                                               "Try to open mapping file  \"/usr/local/etc/modbus.map\""_s,
                                               "\"\""_s,
                                               "Mapping =  \"\""_s,
                                               "Date    =  \"\""_s,
                                               "Target  =  \"\""_s,
                                               "CI defs is not an array"_s,
                                               "Failed to load modbus map"_s,
                                               "Stop modbus monitor"_s,
                                               "Start modbus monitor"_s,
                                               "\"/usr/local/bin/mbserverstart.sh\""_s,
                                               "\"/tmp/etc/mbserver_init.dbus\""_s,
                                               QString(),
                                               "UDP listen  \"192.168.7.255\" : 9876"_s,
                                               "UDP bound"_s,
                                               "Initialize GPIOs"_s,
                                               "All LEDs on, Buzzer off"_s}));
    }

    void bannerComesBeforeTheScreen()
    {
        Scene scene;
        scene.panel.setDisplay(":77"_s); // which does not exist
        QVERIFY(scene.panel.start({"-x"_s}));
        QVERIFY(scene.panel.awaitEnd());
        QCOMPARE(scene.panel.log().lines().mid(0, 3), startOfLog({}).mid(0, 3));
        QCOMPARE(scene.panel.log().lines().filter("Unknown argument"_s), QStringList());
    }

    void stampsReadTheSameInEveryLocale()
    {
        // Arabic digits would be question marks in a log line, which is Latin-1.
        Scene scene;
        scene.panel.setEnvironment("LC_ALL"_s, "ar_EG.UTF-8"_s);
        QVERIFY(scene.panel.start());
        QVERIFY(scene.panel.log().await({"<now> - Running VarnelBrowser on embedded platform"_s,
                                         "UDP listen  \"192.168.7.255\" : 9876"_s}));
    }

    void helpReachesAPipeAtOnce_data()
    {
        const Rows<QString> row("option");
        row("-h: printed, continues", "-h"_s);
        row("--help: printed, continues", "--help"_s);
    }

    void helpReachesAPipeAtOnce()
    {
        QFETCH(QString, option);
        Scene scene;
        QVERIFY(scene.panel.start({option}));
        QVERIFY(awaitTrue([&] { return scene.panel.output().contains("Print this help."); }));
        QVERIFY(scene.panel.isRunning());
        const QByteArray help = scene.panel.output();
        QVERIFY(help.startsWith("Usage: " VARNEL_PROGRAM_DIR "/varnel-browser"));
        QVERIFY(help.contains("\n\nDescription: Main application of VARNEL"));
        QVERIFY(scene.panel.log().await("UDP bound"_s));
        QVERIFY(scene.isAlive());
        QCOMPARE(scene.panel.output(), help);
        const QStringList expected = startOfLog({missingSettings});
        QCOMPARE(scene.panel.log().lines().mid(0, expected.size()), expected);
    }

    void verboseLogsRequests()
    {
        Scene scene;
        QVERIFY(scene.start({}, {"-v"_s}));
        QVERIFY(scene.connectController());
        QVERIFY(
            scene.panel.log().await("<now> - [REQUEST] Request 'http://192.168.7.2/index.html' started"_s));
        QVERIFY(scene.panel.log().await(QRegularExpression(
            R"(^<now> - \[REQUEST\] Request 'http://192\.168\.7\.2/index\.html' finished \(took \d+ms\)$)"_s)));
    }

    void logReachesAFile()
    {
        Scene scene;
        QFile file("/tmp/panel.log"_s);
        file.remove();
        scene.panel.setLauncher({"/bin/sh"_s, "-c"_s, "exec \"$@\" 2> /tmp/panel.log"_s, "sh"_s});
        // A service manager sets this where its journal reads standard error.
        scene.panel.setEnvironment("JOURNAL_STREAM"_s, "8:12345"_s);
        QVERIFY(scene.panel.start());
        QVERIFY(awaitTrue([&] { return file.isOpen() || file.open(QIODevice::ReadOnly); }));
        QByteArray log;
        QVERIFY(awaitTrue([&] { return (log += file.readAll()).contains("UDP bound\n"); }));
        QCOMPARE(scene.panel.stop(), 0);
    }

    void closedStandardErrorDoesNoHarm()
    {
        Scene scene;
        QVERIFY(scene.scripts.installAll());
        scene.panel.setLauncher({"/bin/sh"_s, "-c"_s, "exec \"$@\" 2>&- >&-"_s, "sh"_s});
        QVERIFY(scene.panel.start());
        QVERIFY(awaitTrue([] { return StandInSys::value(StandInSys::green) == "1"_s; }));
        QVERIFY(scene.isAlive());
        QCOMPARE(scene.panel.stop(), 0);
    }

    void udpAddress_data()
    {
        const Rows<QString, QString, QString, QString> row("bindAddress", "interface", "choice", "address");
        row("address and a missing interface: the address, no look at the interface", "127.0.0.1"_s,
            "none0"_s, "^UDP listen"_s, "127.0.0.1"_s);
        row("neither: any address", {}, {}, "^No UDP config, use default$"_s, "0.0.0.0"_s);
        row("existing interface: its broadcast address", {}, "eth1"_s,
            R"(^Interface found\.  "eth1"  =  \d+$)"_s, "192.168.7.255"_s);
    }

    void udpAddress()
    {
        QFETCH(QString, bindAddress);
        QFETCH(QString, interface);
        QFETCH(QString, choice);
        QFETCH(QString, address);
        Scene scene;
        QVERIFY(scene.start(SettingsFile()
                                .set("Network/UdpBindAddress", bindAddress)
                                .set("Network/UdpInterface", interface)));
        scene.panel.log().rewind();
        QVERIFY(scene.panel.log().await(QRegularExpression(choice)));
        scene.panel.log().rewind();
        QVERIFY(scene.panel.log().await("UDP listen  \"%1\" : 9876"_s.arg(address)));
        QCOMPARE(scene.panel.log().lines().filter("Interface found"_s).size(), interface == "eth1"_s ? 1 : 0);

        // The sender is named as plain IPv4, whatever the socket is bound to.
        const QString source = address.startsWith("192."_s) ? "192.168.7.2"_s : "127.0.0.9"_s;
        RawController controller(source, address == "0.0.0.0"_s ? "127.0.0.1"_s : address);
        QVERIFY(controller.send(Frame(1).devInfo("en")));
        QVERIFY(scene.panel.log().await(
            "First frame, try to connect to the web server at  \"%1\""_s.arg(source)));
    }

    void unusableInterfaceEndsThePanel_data()
    {
        const Rows<QString, QString> row("interface", "line");
        const QString notFound = "UDP interface not found, use default"_s;
        row("no such interface: ends", "none0"_s, notFound);
        row("name in the wrong case: ends", "ETH1"_s, notFound);
        row("interface without address: ends", "bare0"_s, "Interface found.  \"bare0\"  = "_s);
    }

    void unusableInterfaceEndsThePanel()
    {
        QFETCH(QString, interface);
        QFETCH(QString, line);
        Scene scene;
        QVERIFY(interface != "bare0"_s || Program::runTool("ip link add bare0 type veth peer name bare1"_s));
        QVERIFY(SettingsFile().set("Network/UdpInterface", interface).write());
        QVERIFY(scene.panel.start());
        QVERIFY(scene.panel.awaitEnd());
        QVERIFY(scene.panel.exitStatus() != 0);
        QVERIFY(scene.panel.log().await(QRegularExpression("^"_s + QRegularExpression::escape(line))));
        QCOMPARE(scene.panel.log().lines().filter("UDP listen"_s), QStringList());
    }
};

QTEST_GUILESS_MAIN(tst_Startup)
#include "tst_startup.moc"
