// SPDX-License-Identifier: MIT
// One fault after the other is put into the image of a good panel; the checks find each with the right words.
#include <functional>

#include <sys/stat.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QtTest>

#include "blink.h"
#include "boardcheck.h"
#include "files.h"
#include "filescheck.h"
#include "literals.h"
#include "report.h"
#include "rows.h"
#include "settingscheck.h"

using namespace VarnelCheck;
using Severity = Finding::Severity;
using Check = Findings (*)(const PanelFiles&);

Q_DECLARE_METATYPE(Check)

namespace {

const QString settings = "/usr/local/etc/varnel-browser.ini"_s;
const QString mapping = "/usr/local/etc/modbus.map"_s;
const QString gpio = "/sys/class/gpio"_s;
const QString backlight = "/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power"_s;
const QStringList scripts = {
    "r7m.sh"_s,       "netcfg.sh"_s,     "snmpctl.sh"_s,       "snmpcfg.sh"_s,      "snmptrap.sh"_s,
    "modbuscfg.sh"_s, "usbremount.sh"_s, "mbserverstart.sh"_s, "mbserverstop.sh"_s, "mbserverupdate.sh"_s};

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
        write("/sys/class/graphics/fb0/virtual_size"_s, "800,480\n");
        write("/sys/class/graphics/fb0/blank"_s, "0\n");
        write(backlight, "0\n");
        QDir(root.path()).mkpath("sys/class/net/eth1"_s);
        for (const char* picture : {"error.png", "front.png"}) {
            write("/usr/local/share/default/"_s + QLatin1String(picture),
                  contentOf(VARNEL_DEVICE_DIR "/share/default/"_s + QLatin1String(picture)));
        }
        for (const QString& script : scripts) {
            write("/usr/local/bin/"_s + script, "#!/bin/sh\n");
            setMode("/usr/local/bin/"_s + script, 0755);
        }
        write(mapping, contentOf(VARNEL_DEVICE_DIR "/modbus.map"_s));
        write("/var/lib/dpkg/info/varnel-device-scripts.list"_s, "/usr/local/bin/netcfg.sh\n");
    }

    [[nodiscard]] PanelFiles panel() const { return PanelFiles(root.path()); }
    [[nodiscard]] QString path(const QString& panelPath) const { return root.path() + panelPath; }

    void write(const QString& panelPath, const QByteArray& octets) const
    {
        writeFile(path(panelPath), octets);
    }

    void remove(const QString& panelPath) const
    {
        QVERIFY(QFileInfo(path(panelPath)).isDir() ? QDir(path(panelPath)).removeRecursively()
                                                   : QFile::remove(path(panelPath)));
    }

    void setMode(const QString& panelPath, unsigned mode) const
    {
        QCOMPARE(::chmod(path(panelPath).toUtf8().constData(), mode), 0);
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

Fault mode(const QString& path, unsigned bits)
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
    static void goodPanelHasNoFault()
    {
        const Image image;
        for (const Check check : {&checkSettings, &checkOutputs, &checkDisplay, &checkNetwork, &checkPictures,
                                  &checkScripts, &checkMapping, &checkUsbDrive}) {
            const auto faults = faultsIn(check(image.panel()));
            QVERIFY2(faults.isEmpty(), qPrintable(faults.value(0).where + faults.value(0).what));
        }
    }

    static void findsFault_data()
    {
        // told: severity, place, fault -> remedy; nothing of a value that is fine
        const Rows<Fault, Check, QString> row("fault", "check", "told");
        const auto setting = [&](const char* name, const char* text, const char* told) {
            row(name, ini(text), &checkSettings, QString::fromUtf8(told));
        };
        setting("misspelt key: nearest one", "[Network]\nUdpIntreface=eth0\n",
                "error INI:2: unknown key UdpIntreface -> Write UdpInterface in [Network].");
        setting(
            "unknown key: none near", "[UI]\nColour=red\n",
            "error INI:2: unknown key Colour -> Remove the line; man 5 varnel-browser.ini lists the keys.");
        setting("key in the wrong group", "[WebSite]\nUdpPort=9876\n",
                "error INI:2: UdpPort is in the wrong group, [WebSite] -> Move the line to [Network].");
        setting("key above all groups", "Login=a\n",
                "error INI:1: Login is in the wrong group, [] -> Move the line to [WebSite].");
        setting("wrong letter case", "[WebSite]\nlogin=a\n",
                "error INI:2: login is written in the wrong letter case -> Write Login.");
        setting("misspelt group", "[Netwrk]\nUdpPort=1\n",
                "error INI:1: unknown group [Netwrk] -> Write [Network].");
        setting("group without bracket", "[Network\n",
                "error INI:1: a group without \"]\": \"[Network\" -> Write [GROUP].");
        setting(
            "number with a unit", "[Network]\nUdpTimeout=10s\n",
            "error INI:2: UdpTimeout is not a decimal number: \"10s\" -> Write digits only, without a unit.");
        setting(
            "hexadecimal number", "[GPIO]\nLedRedPin=0xe4\n",
            "error INI:2: LedRedPin is not a decimal number: \"0xe4\" -> Write digits only, without a unit.");
        setting("number above 16 bits", "[Network]\nUdpPort=70000\n",
                "error INI:2: UdpPort is out of range: 70000 -> Write a number from 0 to 65535.");
        setting("negative number", "[Network]\nUdpTimeout=-1\n",
                "error INI:2: UdpTimeout is out of range: -1 -> Write a number from 0 to 65535.");
        setting("time-out of 0", "[Network]\nUdpTimeout=0\n",
                "error INI:2: UdpTimeout is 0 -> Remove the line to get the default.");
        setting("line number above 255", "[GPIO]\nBuzzerPin=518\n",
                "error INI:2: BuzzerPin is above 255: 518 -> Let the kernel number this line below 256; see "
                "docs/board.md.");
        setting("flag: no", "[UI]\nHideCursor=no\n",
                "warning INI:2: HideCursor is not true or false: \"no\" -> Write true or false.");
        setting("comma without quotes", "[UI]\nMsgError=Error, call\n",
                "error INI:2: MsgError has a comma outside quotes -> Put the value into double quotes.");
        setting("semicolon without quotes", "[WebSite]\nPassword=a;b\n",
                "error INI:2: Password has a semicolon outside quotes -> Put the value into double quotes.");
        setting("# is no comment", "[WebSite]\n#Login=a\n",
                "warning INI:2: \"#\" does not start a comment -> Start the line with \";\".");
        setting("key twice", "[WebSite]\nLogin=a\nLogin=b\n",
                "warning INI:3: Login is set twice -> Remove one of the lines.");
        setting("letters beyond ASCII", "[UI]\nTextOK=G\xc3\xb6\n",
                "warning INI:2: TextOK has letters beyond ASCII -> Write such letters as \\x and their "
                "hexadecimal code point.");
        setting(
            "a program",
            "\x7f"
            "ELF\x02\x01",
            "error INI: the settings file is not a text file -> cp "
            "/usr/share/doc/varnel-browser/examples/varnel-browser.ini /usr/local/etc/varnel-browser.ini");
        setting("no assignment", "[UI]\nHideCursor\n",
                "error INI:2: neither a group, a key nor a comment: \"HideCursor\" -> Write KEY=VALUE, or "
                "start the line with \";\".");
        setting("unknown mode", "[ModbusServer]\nModbusMode=ascii\n",
                "error INI:2: ModbusMode is \"ascii\" -> Write tcp or rtu.");
        setting("comma in quotes", "[UI]\nMsgError=\"Error, call\"\n", "");
        setting("empty flag", "[UI]\nHideCursor=\n", "");
        setting("flag in capitals", "[UI]\nHideCursor=TRUE\n", "");
        setting("largest numbers", "[Network]\nUdpPort=65535\n[WebCache]\nSize=18446744073709551615\n", "");
        setting("negative time", "[UI]\nScreenSaverInterval=-5\n", "");
        setting("blanks and DOS line ends", " [UI] \r\n HideCursor = 1 \r\n\r\n; text\r\n", "");
        setting("serial line", "[ModbusServer]\nModbusMode=RTU\nModbusInterface=1:/dev/ttyS1:19200:8N1\n",
                "");
        setting("parts of a TCP interface", "[ModbusServer]\nModbusInterface=0.0.0.0:502\n",
                "error INI: ModbusInterface has 2 parts instead of 3: \"0.0.0.0:502\" -> Write "
                "address:port:clients, for example 0.0.0.0:502:10.");
        setting("parts of a serial interface", "[ModbusServer]\nModbusMode=rtu\n",
                "error INI: ModbusInterface has 3 parts instead of 4: \"0.0.0.0:502:10\" -> Write "
                "unit:device:baud:format, for example 1:/dev/ttyS1:19200:8N1.");
        setting("slash behind the pictures' path", "[UI]\nErrorImagePath=/usr/local/share/\n",
                "warning INI:2: ErrorImagePath ends in a slash -> Remove the slash.");
        row(
            "password for everyone",
            [](const Image& image) {
                image.write(settings, "[WebSite]\nPassword=secret\n");
                image.setMode(settings, 0644);
            },
            &checkSettings,
            "warning INI: every user may read the password in the file -> chmod o-r "
            "/usr/local/etc/varnel-browser.ini"_s);
        row("interface missing", ini("[Network]\nUdpInterface=eth7\n"), &checkNetwork,
            "error INI: the interface eth7 does not exist -> Set UdpInterface to one of: eth1"_s);
        row("no GPIO by sysfs", gone(gpio), &checkOutputs,
            "error /sys/class/gpio: the kernel offers no GPIO lines by sysfs -> Use a kernel with "
            "CONFIG_GPIO_SYSFS."_s);
        row("line of no chip", ini("[GPIO]\nLedRedPin=17\n"), &checkOutputs,
            "error /sys/class/gpio/gpio17: LedRedPin names line 17, which no GPIO chip has -> Set LedRedPin "
            "in [GPIO] to the base of the chip plus the line."_s);
        row("one line twice", ini("[GPIO]\nLedRedPin=224\n"), &checkOutputs,
            "error INI: LedGreenPin and LedRedPin name the same line, 224 -> Give each its own line in "
            "[GPIO]."_s);
        row("chip numbered from 512", with(gpio + QLatin1String("/gpiochip512/base"), "512\n"), &checkOutputs,
            "warning /sys/class/gpio/gpiochip512:  has the lines 512 to 511 -> Give the chip a fixed base "
            "below 256 in its driver or board file."_s);
        row("exported line without value", with(gpio + QLatin1String("/gpio225/direction"), "in\n"),
            &checkOutputs,
            "error /sys/class/gpio/gpio225: line 225 (LedYellowPin) has no value file -> Check whether a "
            "kernel driver uses the line: cat /sys/kernel/debug/gpio"_s);
        row("no frame buffer", gone("/sys/class/graphics/fb0"_s), &checkDisplay,
            "error /sys/class/graphics/fb0: no frame buffer -> Load the display's driver; dmesg | grep -i -e "
            "fb -e drm"_s);
        row("frame buffer of another size", with("/sys/class/graphics/fb0/virtual_size"_s, "1024,768\n"),
            &checkDisplay,
            "warning /sys/class/graphics/fb0/virtual_size: the frame buffer is 1024,768 pixels, not 800,480 "
            "-> Set the mode: video=800x480 on the kernel's command line."_s);
        row("no blanking", gone("/sys/class/graphics/fb0/blank"_s), &checkDisplay,
            "error /sys/class/graphics/fb0/blank: the display cannot be blanked -> Use a kernel with "
            "CONFIG_FB."_s);
        row("backlight elsewhere", gone(backlight), &checkDisplay,
            "warning /sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power: the backlight "
            "is not at the path that the panel uses -> Name the node pwm-backlight.0 in the device tree."_s);
        const QString picture = "/usr/local/share/default/error.png"_s;
        row("picture missing", gone(picture), &checkPictures,
            "warning /usr/local/share/default/error.png: the picture is missing -> Copy an 800 x 480 PNG "
            "picture there."_s);
        row("picture broken", with(picture, "no picture"), &checkPictures,
            "error /usr/local/share/default/error.png: not a readable PNG picture -> Save it as PNG; check "
            "that the user varnel may read it."_s);
        row("picture too large",
            with(picture, QByteArray::fromHex("89504e470d0a1a0a0000000d49484452000004000000030008020000")),
            &checkPictures,
            "warning /usr/local/share/default/error.png: the picture has 1024 x 768 pixels, not 800 x 480 -> "
            "Scale it to 800 x 480."_s);
        row("language without pictures", with("/usr/local/share/pl/error.jpg"_s, "x"), &checkPictures,
            "warning /usr/local/share/pl/error.png: the picture is missing -> Copy an 800 x 480 PNG picture there."_s);
        row("language incomplete", with("/usr/local/share/pl/other.png"_s, "x"), &checkPictures,
            "warning /usr/local/share/pl/error.png: the picture is missing -> Copy an 800 x 480 PNG picture "
            "there."_s);
        const QString script = "/usr/local/bin/r7m.sh"_s;
        row("script missing", gone(script), &checkScripts,
            "error /usr/local/bin/r7m.sh: the script is missing -> apt install --reinstall "
            "varnel-device-scripts"_s);
        row("script not executable", mode(script, 0644), &checkScripts,
            "error /usr/local/bin/r7m.sh: the script is not executable -> chmod 0755 /usr/local/bin/r7m.sh"_s);
        row("script writable by others", mode(script, 0777), &checkScripts,
            "error /usr/local/bin/r7m.sh: users other than its owner may change the script -> chown "
            "root:root /usr/local/bin/r7m.sh && chmod 0755 /usr/local/bin/r7m.sh"_s);
        row(
            "script: dangling link",
            [script](const Image& image) {
                image.remove(script);
                QVERIFY(QFile::link("/nowhere"_s, image.path(script)));
            },
            &checkScripts,
            "error /usr/local/bin/r7m.sh: the link leads nowhere -> apt install --reinstall "
            "varnel-device-scripts"_s);
        row("mapping missing", gone(mapping), &checkMapping,
            "warning /usr/local/etc/modbus.map: no mapping file -> cp "
            "/usr/share/doc/varnel-browser/examples/modbus.map /usr/local/etc/modbus.map"_s);
    }

    static void findsFault()
    {
        QFETCH(const Fault, fault);
        QFETCH(const Check, check);
        const Image image;
        fault(image);
        const auto faults = faultsIn(check(image.panel()));
        const Finding first = faults.value(0);
        const QString severity = first.severity == Severity::Error ? "error"_s : "warning"_s;
        const QString where = QString(first.where).replace(settings, "INI"_s);
        const QString told = "%1 %2: %3 -> %4"_s.arg(severity, where, first.what, first.fix);
        QTEST(faults.isEmpty() ? QString() : told, "told");
        QCOMPARE(faults.isEmpty(), first.why.isEmpty());
    }

    static void chipsAreListedWithTheirNumbers()
    {
        const Image image;
        const Findings findings = checkOutputs(image.panel());
        QCOMPARE(findings.size(), 1);
        QCOMPARE(findings.first().what, "board has the lines 224 to 231"_s);
        QCOMPARE(findings.first().why, "Line N of this chip has the number 224 + N."_s);
    }

    static void packageOfAScriptIsNamed()
    {
        const Image image;
        QStringList notes;
        for (const Finding& finding : checkScripts(image.panel())) {
            notes.append(finding.where.section(QLatin1Char('/'), -1) + QLatin1Char(' ') + finding.what);
        }
        QCOMPARE(notes.size(), scripts.size());
        QVERIFY(notes.contains("netcfg.sh of the package varnel-device-scripts"_s));
        QVERIFY(notes.contains("r7m.sh of no package"_s));
    }

    static void versionIsThatOfThePackage()
    {
        const Image image;
        QCOMPARE(packageVersion(image.panel(), "varnel-browser"), QString());
        image.write(
            "/var/lib/dpkg/status"_s,
            "Package: varnel-browser-dbgsym\nVersion: 1\n\nPackage: varnel-browser\nStatus: install ok "
            "installed\n"
            "Version: 2.0.240\nDescription: a\n\nPackage: other\nVersion: 3\n");
        QCOMPARE(packageVersion(image.panel(), "varnel-browser"), "2.0.240"_s);
        QCOMPARE(checkSystem(image.panel()).value(0).what, "2.0.240"_s);
    }

    static void reportSaysWhatWhyAndHow()
    {
        const Report report = {{"settings"_s,
                                {{Severity::Error, "f:2"_s, "bad"_s, "Because."_s, "Do it."_s},
                                 {Severity::Note, "g"_s, "fact"_s, {}, {}}}},
                               {"network"_s, {}}};
        QCOMPARE(asText(report, false, false),
                 "settings: \n  error: f:2: bad\n      Because.\n      -> Do it.\n"
                 "network: ok\n1 error, 0 warnings\n"_s);
        QVERIFY(asText(report, false, true).contains("  note: g: fact\n"_s));
        QVERIFY(asText(report, true, false).contains("\x1b[31merror:\x1b[0m f:2"_s));
        QCOMPARE(asShortText(report), "error: f:2: bad. Do it.\n"_s);
        const QJsonObject json = QJsonDocument::fromJson(asJson(report, "2.0.9"_s)).object();
        QCOMPARE(json.value(QLatin1String("version")).toString(), "2.0.9"_s);
        QCOMPARE(json.value(QLatin1String("errors")).toInt(), 1);
        QCOMPARE(json.value(QLatin1String("findings")).toArray().size(), 2);
    }

    static void blinkAsksForEachOutput()
    {
        const Image image;
        for (const char* line : {"224", "225", "228", "230"}) {
            QDir(image.path(gpio)).mkpath("gpio"_s + QLatin1String(line));
        }
        QString answers = "y\ny\nn\ny\n"_s;
        QTextStream in(&answers);
        QString asked;
        QTextStream out(&asked);
        QVERIFY(!blinkOutputs(image.panel(), in, out));
        QVERIFY(asked.contains("wrong line: change LedRedPin"_s));
        QVERIFY(!asked.contains("change LedGreenPin"_s));
        const auto content = [&](const char* file) { return image.panel().read(gpio + QLatin1String(file)); };
        QCOMPARE(content("/gpio224/direction"), QByteArray("out"));
        QCOMPARE(content("/gpio224/active_low"), QByteArray("1"));
        QCOMPARE(content("/gpio230/active_low"), QByteArray("0"));
        QCOMPARE(content("/gpio230/value"), QByteArray("0"));
    }

    static void blinkReportsALineThatCannotBeWritten()
    {
        const Image image;
        QString answers;
        QTextStream in(&answers);
        QString asked;
        QTextStream out(&asked);
        QVERIFY(!blinkOutputs(image.panel(), in, out));
        QCOMPARE(asked.count("cannot write to line"_s), 4);
    }
};

QTEST_GUILESS_MAIN(tst_Check)
#include "tst_check.moc"
