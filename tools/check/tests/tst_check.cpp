// SPDX-License-Identifier: MIT
// One fault after the other is put into the image of a good panel; the checks find each with the right words.
#include <functional>

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "blink.h"
#include "boardcheck.h"
#include "filescheck.h"
#include "report.h"
#include "settingscheck.h"

using namespace VarnelCheck;
using Severity = Finding::Severity;
using Check = Findings (*)(const PanelFiles&);

Q_DECLARE_METATYPE(Check)
Q_DECLARE_METATYPE(Finding::Severity)

namespace {

const QString settings = QStringLiteral("/usr/local/etc/varnel-browser.ini");
const QString mapping = QStringLiteral("/usr/local/etc/modbus.map");
const QString gpio = QStringLiteral("/sys/class/gpio");
const QString backlight =
    QStringLiteral("/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power");
const QStringList scripts = {QStringLiteral("r7m.sh"),          QStringLiteral("netcfg.sh"),
                             QStringLiteral("snmpctl.sh"),      QStringLiteral("snmpcfg.sh"),
                             QStringLiteral("snmptrap.sh"),     QStringLiteral("modbuscfg.sh"),
                             QStringLiteral("usbremount.sh"),   QStringLiteral("mbserverstart.sh"),
                             QStringLiteral("mbserverstop.sh"), QStringLiteral("mbserverupdate.sh")};

/// The files of a panel without any fault, in a directory of its own.
class Image
{
public:
    Image()
    {
        write(settings, "[WebSite]\nLogin=admin\n");
        write(gpio + QLatin1String("/export"), {});
        write(gpio + QLatin1String("/gpiochip224/base"), "224\n");
        write(gpio + QLatin1String("/gpiochip224/ngpio"), "8\n");
        write(gpio + QLatin1String("/gpiochip224/label"), "board\n");
        write(QStringLiteral("/sys/class/graphics/fb0/virtual_size"), "800,480\n");
        write(QStringLiteral("/sys/class/graphics/fb0/blank"), "0\n");
        write(backlight, "0\n");
        QDir(root.path()).mkpath(QStringLiteral("sys/class/net/eth1"));
        for (const char* picture : {"error.png", "front.png"}) {
            copy(QStringLiteral(VARNEL_DEVICE_DIR "/share/default/") + QLatin1String(picture),
                 QStringLiteral("/usr/local/share/default/") + QLatin1String(picture));
        }
        for (const QString& script : scripts) {
            write(QStringLiteral("/usr/local/bin/") + script, "#!/bin/sh\n");
            setMode(QStringLiteral("/usr/local/bin/") + script, 0755);
        }
        copy(QStringLiteral(VARNEL_DEVICE_DIR "/modbus.map"), mapping);
        write(QStringLiteral("/var/lib/dpkg/info/varnel-device-scripts.list"), "/usr/local/bin/netcfg.sh\n");
    }

    [[nodiscard]] PanelFiles panel() const { return PanelFiles(root.path()); }
    [[nodiscard]] QString path(const QString& panelPath) const { return root.path() + panelPath; }

    void write(const QString& panelPath, const QByteArray& octets) const
    {
        QDir().mkpath(QFileInfo(path(panelPath)).path());
        QFile file(path(panelPath));
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(octets), octets.size());
    }

    void copy(const QString& source, const QString& panelPath) const
    {
        QFile file(source);
        QVERIFY(file.open(QIODevice::ReadOnly));
        write(panelPath, file.readAll());
    }

    void remove(const QString& panelPath) const
    {
        QVERIFY(QFileInfo(path(panelPath)).isDir() ? QDir(path(panelPath)).removeRecursively()
                                                   : QFile::remove(path(panelPath)));
    }

    void setMode(const QString& panelPath, int mode) const
    {
        QFile::Permissions permissions;
        for (int bit = 0; bit < 9; ++bit) {
            if ((mode & (1 << bit)) != 0) {
                permissions |= QFile::Permission(1 << (bit % 3 + bit / 3 * 4));
            }
        }
        QVERIFY(QFile::setPermissions(path(panelPath), permissions | QFile::ReadUser));
    }

private:
    QTemporaryDir root;
};

using Fault = std::function<void(const Image&)>;

Fault ini(const QByteArray& text)
{
    return [text](const Image& image) { image.write(settings, text); };
}

Fault gone(const QString& path)
{
    return [path](const Image& image) { image.remove(path); };
}

Fault with(const QString& path, const QByteArray& text)
{
    return [path, text](const Image& image) { image.write(path, text); };
}

Fault mode(const QString& path, int bits)
{
    return [path, bits](const Image& image) { image.setMode(path, bits); };
}

QVector<Finding> faultsIn(const Findings& findings)
{
    QVector<Finding> faults;
    std::copy_if(findings.begin(), findings.end(), std::back_inserter(faults),
                 [](const Finding& finding) { return finding.severity != Severity::Note; });
    return faults;
}

} // namespace

Q_DECLARE_METATYPE(Fault)

class tst_Check : public QObject
{
    Q_OBJECT

private slots:
    static void goodPanelHasNoFault();
    static void findsFault_data();
    static void findsFault();
    static void valueThatIsFineIsNotReported_data();
    static void valueThatIsFineIsNotReported();
    static void chipsAreListedWithTheirNumbers();
    static void packageOfAScriptIsNamed();
    static void versionIsThatOfThePackage();
    static void reportSaysWhatWhyAndHow();
    static void blinkAsksForEachOutput();
    static void blinkReportsALineThatCannotBeWritten();
};

void tst_Check::goodPanelHasNoFault()
{
    const Image image;
    for (const Check check : {&checkSettings, &checkOutputs, &checkDisplay, &checkNetwork, &checkPictures,
                              &checkScripts, &checkMapping, &checkUsbDrive}) {
        const auto faults = faultsIn(check(image.panel()));
        QVERIFY2(faults.isEmpty(), qPrintable(faults.value(0).where + faults.value(0).what));
    }
}

void tst_Check::findsFault_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<Check>("check");
    QTest::addColumn<Severity>("severity");
    QTest::addColumn<QString>("where");
    QTest::addColumn<QString>("what");
    QTest::addColumn<QString>("fix");

    const auto row = [](const char* name, const Fault& fault, Check check, Severity severity,
                        const QString& where, const char* what, const char* fix) {
        QTest::newRow(name) << fault << check << severity << where << QString::fromUtf8(what)
                            << QString::fromUtf8(fix);
    };
    const auto setting = [&](const char* name, const char* text, int line, const char* what, const char* fix,
                             Severity severity = Severity::Error) {
        row(name, ini(text), &checkSettings, severity,
            line > 0 ? settings + QLatin1Char(':') + QString::number(line) : settings, what, fix);
    };
    setting("misspelt key: nearest one", "[Network]\nUdpIntreface=eth0\n", 2, "unknown key UdpIntreface",
            "Write UdpInterface in [Network].");
    setting("unknown key: none near", "[UI]\nColour=red\n", 2, "unknown key Colour",
            "Remove the line; man 5 varnel-browser.ini lists the keys.");
    setting("key in the wrong group", "[WebSite]\nUdpPort=9876\n", 2,
            "UdpPort is in the wrong group, [WebSite]", "Move the line to [Network].");
    setting("key above all groups", "Login=a\n", 1, "Login is in the wrong group, []",
            "Move the line to [WebSite].");
    setting("wrong letter case", "[WebSite]\nlogin=a\n", 2, "login is written in the wrong letter case",
            "Write Login.");
    setting("misspelt group", "[Netwrk]\nUdpPort=1\n", 1, "unknown group [Netwrk]", "Write [Network].");
    setting("group without bracket", "[Network\n", 1, "a group without \"]\": \"[Network\"",
            "Write [GROUP].");
    setting("number with a unit", "[Network]\nUdpTimeout=10s\n", 2,
            "UdpTimeout is not a decimal number: \"10s\"", "Write digits only, without a unit.");
    setting("hexadecimal number", "[GPIO]\nLedRedPin=0xe4\n", 2,
            "LedRedPin is not a decimal number: \"0xe4\"", "Write digits only, without a unit.");
    setting("number above 16 bits", "[Network]\nUdpPort=70000\n", 2, "UdpPort is out of range: 70000",
            "Write a number from 0 to 65535.");
    setting("negative number", "[Network]\nUdpTimeout=-1\n", 2, "UdpTimeout is out of range: -1",
            "Write a number from 0 to 65535.");
    setting("time-out of 0", "[Network]\nUdpTimeout=0\n", 2, "UdpTimeout is 0",
            "Remove the line to get the default.");
    setting("line number above 255", "[GPIO]\nBuzzerPin=518\n", 2, "BuzzerPin is above 255: 518",
            "Let the kernel number this line below 256; see docs/board.md.");
    setting("flag: no", "[UI]\nHideCursor=no\n", 2, "HideCursor is not true or false: \"no\"",
            "Write true or false.", Severity::Warning);
    setting("comma without quotes", "[UI]\nMsgError=Error, call\n", 2, "MsgError has a comma outside quotes",
            "Put the value into double quotes.");
    setting("semicolon without quotes", "[WebSite]\nPassword=a;b\n", 2,
            "Password has a semicolon outside quotes", "Put the value into double quotes.");
    setting("# is no comment", "[WebSite]\n#Login=a\n", 2, "\"#\" does not start a comment",
            "Start the line with \";\".", Severity::Warning);
    setting("key twice", "[WebSite]\nLogin=a\nLogin=b\n", 3, "Login is set twice", "Remove one of the lines.",
            Severity::Warning);
    setting("letters beyond ASCII", "[UI]\nTextOK=G\xc3\xb6\n", 2, "TextOK has letters beyond ASCII",
            "Write such letters as \\x and their hexadecimal code point.", Severity::Warning);
    setting("a program",
            QByteArrayLiteral("\x7f"
                              "ELF\x02\x01")
                .constData(),
            0, "the settings file is not a text file",
            "cp /usr/share/doc/varnel-browser/examples/varnel-browser.ini /usr/local/etc/varnel-browser.ini");
    setting("no assignment", "[UI]\nHideCursor\n", 2, "neither a group, a key nor a comment: \"HideCursor\"",
            "Write KEY=VALUE, or start the line with \";\".");
    setting("unknown mode", "[ModbusServer]\nModbusMode=ascii\n", 2, "ModbusMode is \"ascii\"",
            "Write tcp or rtu.");
    setting("parts of a TCP interface", "[ModbusServer]\nModbusInterface=0.0.0.0:502\n", 0,
            "ModbusInterface has 2 parts instead of 3: \"0.0.0.0:502\"",
            "Write address:port:clients, for example 0.0.0.0:502:10.");
    setting("parts of a serial interface", "[ModbusServer]\nModbusMode=rtu\n", 0,
            "ModbusInterface has 3 parts instead of 4: \"0.0.0.0:502:10\"",
            "Write unit:device:baud:format, for example 1:/dev/ttyS1:19200:8N1.");
    setting("slash behind the pictures' path", "[UI]\nErrorImagePath=/usr/local/share/\n", 2,
            "ErrorImagePath ends in a slash", "Remove the slash.", Severity::Warning);
    row(
        "password for everyone",
        [](const Image& image) {
            image.write(settings, "[WebSite]\nPassword=secret\n");
            image.setMode(settings, 0644);
        },
        &checkSettings, Severity::Warning, settings, "every user may read the password in the file",
        "chmod o-r /usr/local/etc/varnel-browser.ini");

    row("interface missing", ini("[Network]\nUdpInterface=eth7\n"), &checkNetwork, Severity::Error, settings,
        "the interface eth7 does not exist", "Set UdpInterface to one of: eth1");
    row("no GPIO by sysfs", gone(gpio), &checkOutputs, Severity::Error, gpio,
        "the kernel offers no GPIO lines by sysfs", "Use a kernel with CONFIG_GPIO_SYSFS.");
    row("line of no chip", ini("[GPIO]\nLedRedPin=17\n"), &checkOutputs, Severity::Error,
        gpio + QLatin1String("/gpio17"), "LedRedPin names line 17, which no GPIO chip has",
        "Set LedRedPin in [GPIO] to the base of the chip plus the line.");
    row("one line twice", ini("[GPIO]\nLedRedPin=224\n"), &checkOutputs, Severity::Error, settings,
        "LedGreenPin and LedRedPin name the same line, 224", "Give each its own line in [GPIO].");
    row("chip numbered from 512", with(gpio + QLatin1String("/gpiochip512/base"), "512\n"), &checkOutputs,
        Severity::Warning, gpio + QLatin1String("/gpiochip512"), " has the lines 512 to 511",
        "Give the chip a fixed base below 256 in its driver or board file.");
    row("exported line without value", with(gpio + QLatin1String("/gpio225/direction"), "in\n"),
        &checkOutputs, Severity::Error, gpio + QLatin1String("/gpio225"),
        "line 225 (LedYellowPin) has no value file",
        "Check whether a kernel driver uses the line: cat /sys/kernel/debug/gpio");
    row("no frame buffer", gone(QStringLiteral("/sys/class/graphics/fb0")), &checkDisplay, Severity::Error,
        QStringLiteral("/sys/class/graphics/fb0"), "no frame buffer",
        "Load the display's driver; dmesg | grep -i -e fb -e drm");
    row("frame buffer of another size",
        with(QStringLiteral("/sys/class/graphics/fb0/virtual_size"), "1024,768\n"), &checkDisplay,
        Severity::Warning, QStringLiteral("/sys/class/graphics/fb0/virtual_size"),
        "the frame buffer is 1024,768 pixels, not 800,480",
        "Set the mode: video=800x480 on the kernel's command line.");
    row("no blanking", gone(QStringLiteral("/sys/class/graphics/fb0/blank")), &checkDisplay, Severity::Error,
        QStringLiteral("/sys/class/graphics/fb0/blank"), "the display cannot be blanked",
        "Use a kernel with CONFIG_FB.");
    row("backlight elsewhere", gone(backlight), &checkDisplay, Severity::Warning, backlight,
        "the backlight is not at the path that the panel uses",
        "Name the node pwm-backlight.0 in the device tree.");

    const QString picture = QStringLiteral("/usr/local/share/default/error.png");
    row("picture missing", gone(picture), &checkPictures, Severity::Warning, picture,
        "the picture is missing", "Copy an 800 x 480 PNG picture there.");
    row("picture broken", with(picture, "no picture"), &checkPictures, Severity::Error, picture,
        "not a readable PNG picture", "Save it as PNG; check that the user varnel may read it.");
    row("picture too large",
        with(picture, QByteArray::fromHex("89504e470d0a1a0a0000000d49484452000004000000030008020000")),
        &checkPictures, Severity::Warning, picture, "the picture has 1024 x 768 pixels, not 800 x 480",
        "Scale it to 800 x 480.");
    row("language without pictures", with(QStringLiteral("/usr/local/share/pl/error.jpg"), "x"),
        &checkPictures, Severity::Warning, QStringLiteral("/usr/local/share/pl/error.png"),
        "the picture is missing", "Copy an 800 x 480 PNG picture there.");
    row("language incomplete", with(QStringLiteral("/usr/local/share/pl/other.png"), "x"), &checkPictures,
        Severity::Warning, QStringLiteral("/usr/local/share/pl/error.png"), "the picture is missing",
        "Copy an 800 x 480 PNG picture there.");

    const QString script = QStringLiteral("/usr/local/bin/r7m.sh");
    row("script missing", gone(script), &checkScripts, Severity::Error, script, "the script is missing",
        "apt install --reinstall varnel-device-scripts");
    row("script not executable", mode(script, 0644), &checkScripts, Severity::Error, script,
        "the script is not executable", "chmod 0755 /usr/local/bin/r7m.sh");
    row("script writable by others", mode(script, 0777), &checkScripts, Severity::Error, script,
        "users other than its owner may change the script",
        "chown root:root /usr/local/bin/r7m.sh && chmod 0755 /usr/local/bin/r7m.sh");
    row(
        "script: dangling link",
        [script](const Image& image) {
            image.remove(script);
            QVERIFY(QFile::link(QStringLiteral("/nowhere"), image.path(script)));
        },
        &checkScripts, Severity::Error, script, "the link leads nowhere",
        "apt install --reinstall varnel-device-scripts");
    row("mapping missing", gone(mapping), &checkMapping, Severity::Warning, mapping, "no mapping file",
        "cp /usr/share/doc/varnel-browser/examples/modbus.map /usr/local/etc/modbus.map");
}

void tst_Check::findsFault()
{
    QFETCH(const Fault, fault);
    QFETCH(const Check, check);
    QFETCH(const Severity, severity);
    QFETCH(const QString, where);
    QFETCH(const QString, what);
    QFETCH(const QString, fix);
    const Image image;
    fault(image);
    const auto faults = faultsIn(check(image.panel()));
    QVERIFY(!faults.isEmpty());
    QCOMPARE(faults.first().where, where);
    QCOMPARE(faults.first().what, what);
    QCOMPARE(faults.first().fix, fix);
    QCOMPARE(faults.first().severity, severity);
    QVERIFY(!faults.first().why.isEmpty());
}

void tst_Check::valueThatIsFineIsNotReported_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("comma in quotes") << QByteArray("[UI]\nMsgError=\"Error, call\"\n");
    QTest::newRow("empty flag") << QByteArray("[UI]\nHideCursor=\n");
    QTest::newRow("flag in capitals") << QByteArray("[UI]\nHideCursor=TRUE\n");
    QTest::newRow("largest numbers") << QByteArray(
        "[Network]\nUdpPort=65535\n[WebCache]\nSize=18446744073709551615\n");
    QTest::newRow("negative time") << QByteArray("[UI]\nScreenSaverInterval=-5\n");
    QTest::newRow("blanks and DOS line ends") << QByteArray(" [UI] \r\n HideCursor = 1 \r\n\r\n; text\r\n");
    QTest::newRow("serial line") << QByteArray(
        "[ModbusServer]\nModbusMode=RTU\nModbusInterface=1:/dev/ttyS1:19200:8N1\n");
}

void tst_Check::valueThatIsFineIsNotReported()
{
    QFETCH(const QByteArray, text);
    const Image image;
    image.write(settings, text);
    const auto faults = faultsIn(checkSettings(image.panel()));
    QVERIFY2(faults.isEmpty(), qPrintable(faults.value(0).what));
}

void tst_Check::chipsAreListedWithTheirNumbers()
{
    const Image image;
    const Findings findings = checkOutputs(image.panel());
    QCOMPARE(findings.size(), 1);
    QCOMPARE(findings.first().what, QStringLiteral("board has the lines 224 to 231"));
    QCOMPARE(findings.first().why, QStringLiteral("Line N of this chip has the number 224 + N."));
}

void tst_Check::packageOfAScriptIsNamed()
{
    const Image image;
    QStringList notes;
    for (const Finding& finding : checkScripts(image.panel())) {
        notes.append(finding.where.section(QLatin1Char('/'), -1) + QLatin1Char(' ') + finding.what);
    }
    QCOMPARE(notes.size(), scripts.size());
    QVERIFY(notes.contains(QStringLiteral("netcfg.sh of the package varnel-device-scripts")));
    QVERIFY(notes.contains(QStringLiteral("r7m.sh of no package")));
}

void tst_Check::versionIsThatOfThePackage()
{
    const Image image;
    QCOMPARE(packageVersion(image.panel(), "varnel-browser"), QString());
    image.write(QStringLiteral("/var/lib/dpkg/status"),
                "Package: varnel-browser-dbgsym\nVersion: 1\n\nPackage: varnel-browser\nStatus: install ok "
                "installed\n"
                "Version: 2.0.240\nDescription: a\n\nPackage: other\nVersion: 3\n");
    QCOMPARE(packageVersion(image.panel(), "varnel-browser"), QStringLiteral("2.0.240"));
    QCOMPARE(checkSystem(image.panel()).value(0).what, QStringLiteral("2.0.240"));
}

void tst_Check::reportSaysWhatWhyAndHow()
{
    const Report report = {{QStringLiteral("settings"),
                            {{Severity::Error, QStringLiteral("f:2"), QStringLiteral("bad"),
                              QStringLiteral("Because."), QStringLiteral("Do it.")},
                             {Severity::Note, QStringLiteral("g"), QStringLiteral("fact"), {}, {}}}},
                           {QStringLiteral("network"), {}}};
    QCOMPARE(asText(report, false, false),
             QStringLiteral("settings: \n  error: f:2: bad\n      Because.\n      -> Do it.\n"
                            "network: ok\n1 error, 0 warnings\n"));
    QVERIFY(asText(report, false, true).contains(QStringLiteral("  note: g: fact\n")));
    QVERIFY(asText(report, true, false).contains(QStringLiteral("\x1b[31merror:\x1b[0m f:2")));
    QCOMPARE(asShortText(report), QStringLiteral("error: f:2: bad. Do it.\n"));
    const QJsonObject json = QJsonDocument::fromJson(asJson(report, QStringLiteral("2.0.9"))).object();
    QCOMPARE(json.value(QLatin1String("version")).toString(), QStringLiteral("2.0.9"));
    QCOMPARE(json.value(QLatin1String("errors")).toInt(), 1);
    QCOMPARE(json.value(QLatin1String("findings")).toArray().size(), 2);
}

void tst_Check::blinkAsksForEachOutput()
{
    const Image image;
    for (const char* line : {"224", "225", "228", "230"}) {
        QDir(image.path(gpio)).mkpath(QStringLiteral("gpio") + QLatin1String(line));
    }
    QString answers = QStringLiteral("y\ny\nn\ny\n");
    QTextStream in(&answers);
    QString asked;
    QTextStream out(&asked);
    QVERIFY(!blinkOutputs(image.panel(), in, out));
    QVERIFY(asked.contains(QStringLiteral("wrong line: change LedRedPin")));
    QVERIFY(!asked.contains(QStringLiteral("change LedGreenPin")));
    const auto content = [&](const char* file) { return image.panel().read(gpio + QLatin1String(file)); };
    QCOMPARE(content("/gpio224/direction"), QByteArray("out"));
    QCOMPARE(content("/gpio224/active_low"), QByteArray("1"));
    QCOMPARE(content("/gpio230/active_low"), QByteArray("0"));
    QCOMPARE(content("/gpio230/value"), QByteArray("0"));
}

void tst_Check::blinkReportsALineThatCannotBeWritten()
{
    const Image image;
    QString answers;
    QTextStream in(&answers);
    QString asked;
    QTextStream out(&asked);
    QVERIFY(!blinkOutputs(image.panel(), in, out));
    QCOMPARE(asked.count(QStringLiteral("cannot write to line")), 4);
}

QTEST_GUILESS_MAIN(tst_Check)
#include "tst_check.moc"
