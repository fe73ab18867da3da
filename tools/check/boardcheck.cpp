// SPDX-License-Identifier: MIT
#include "boardcheck.h"

#include <algorithm>

#include <QDir>
#include <QFileInfo>
#include <QMap>
#include <QNetworkInterface>

namespace VarnelCheck {

namespace {

using Severity = Finding::Severity;

const QString gpioDirectory = QStringLiteral("/sys/class/gpio");
/// The settings name lines by their low 8 bits.
constexpr int largestLine = 255;

/// A GPIO controller as the kernel numbers it (Documentation/admin-guide/gpio/sysfs.rst).
struct Chip
{
    QString name;
    QString label;
    int base = 0;
    int lines = 0;

    [[nodiscard]] bool has(int line) const { return line >= base && line < base + lines; }
};

int numberIn(const PanelFiles& panel, const QString& path)
{
    return panel.read(path, 32).trimmed().toInt();
}

QVector<Chip> chipsOf(const PanelFiles& panel)
{
    QVector<Chip> chips;
    const QDir directory(panel.path(gpioDirectory));
    const QStringList names = directory.entryList({QStringLiteral("gpiochip*")}, QDir::Dirs, QDir::Name);
    for (const QString& name : names) {
        const QString path = gpioDirectory + QLatin1Char('/') + name + QLatin1Char('/');
        chips.append({name, QString::fromUtf8(panel.read(path + QLatin1String("label"), 128).trimmed()),
                      numberIn(panel, path + QLatin1String("base")),
                      numberIn(panel, path + QLatin1String("ngpio"))});
    }
    return chips;
}

/// The number to write for line N of a chip.
Finding describe(const Chip& chip)
{
    Finding finding;
    finding.severity = chip.base > largestLine ? Severity::Warning : Severity::Note;
    finding.where = gpioDirectory + QLatin1Char('/') + chip.name;
    finding.what = QStringLiteral("%1 has the lines %2 to %3")
                       .arg(chip.label)
                       .arg(chip.base)
                       .arg(chip.base + chip.lines - 1);
    if (chip.base > largestLine) {
        finding.why = QStringLiteral("The settings cannot name a line above 255.");
        finding.fix = QStringLiteral("Give the chip a fixed base below 256 in its driver or board file.");
    } else {
        finding.why = QStringLiteral("Line N of this chip has the number %1 + N.").arg(chip.base);
    }
    return finding;
}

void checkLine(const PanelFiles& panel, const QVector<Chip>& chips, const char* key, Findings* findings)
{
    const int line = int(panel.number("GPIO", key) & largestLine);
    const bool isOffered =
        std::any_of(chips.begin(), chips.end(), [line](const Chip& chip) { return chip.has(line); });
    const QString directory = gpioDirectory + QStringLiteral("/gpio%1").arg(line);
    if (!isOffered && !QFileInfo::exists(panel.path(directory))) {
        findings->append(
            {Severity::Error, directory,
             QStringLiteral("%1 names line %2, which no GPIO chip has").arg(QLatin1String(key)).arg(line),
             QStringLiteral("This output stays dark or silent."),
             QStringLiteral("Set %1 in [GPIO] to the base of the chip plus the line.")
                 .arg(QLatin1String(key))});
        return;
    }
    if (QFileInfo::exists(panel.path(directory)) &&
        !QFileInfo::exists(panel.path(directory + QLatin1String("/value")))) {
        findings->append(
            {Severity::Error, directory,
             QStringLiteral("line %1 (%2) has no value file").arg(line).arg(QLatin1String(key)),
             QStringLiteral("This output stays dark or silent."),
             QStringLiteral("Check whether a kernel driver uses the line: cat /sys/kernel/debug/gpio")});
    }
}

Findings checkBroadcast(const QString& name)
{
    const auto interface = QNetworkInterface::interfaceFromName(name);
    const auto addresses = interface.addressEntries();
    const bool hasAddress =
        std::any_of(addresses.begin(), addresses.end(), [](const QNetworkAddressEntry& entry) {
            return entry.ip().protocol() == QAbstractSocket::IPv4Protocol;
        });
    if (hasAddress) {
        return {};
    }
    return {
        {Severity::Error, name, QStringLiteral("the interface %1 has no IPv4 address").arg(name),
         QStringLiteral("The panel does not start."),
         QStringLiteral("Give it one: /etc/systemd/network/20-controller.network, then networkctl reload")}};
}

bool isOwnAddress(const QString& text)
{
    const QHostAddress address(text);
    const auto own = QNetworkInterface::allAddresses();
    const auto interfaces = QNetworkInterface::allInterfaces();
    return address == QHostAddress(QHostAddress::AnyIPv4) || own.contains(address) ||
           std::any_of(interfaces.begin(), interfaces.end(), [&](const QNetworkInterface& interface) {
               const auto entries = interface.addressEntries();
               return std::any_of(entries.begin(), entries.end(), [&](const QNetworkAddressEntry& entry) {
                   return entry.broadcast() == address;
               });
           });
}

/// The inode of each UDP socket that is bound to `port` (proc(5), /proc/net/udp).
QStringList socketsOnPort(const PanelFiles& panel, quint16 port)
{
    QStringList inodes;
    const QList<QByteArray> lines = panel.read(QStringLiteral("/proc/net/udp")).split('\n');
    const QByteArray suffix = ':' + QByteArray::number(port, 16).rightJustified(4, '0').toUpper();
    for (const QByteArray& line : lines) {
        const QList<QByteArray> fields = line.simplified().split(' ');
        if (fields.size() > 9 && fields[1].endsWith(suffix)) {
            inodes.append(QString::fromLatin1(fields[9]));
        }
    }
    return inodes;
}

/// The program that holds the socket; empty if this user may not see it.
QString holderOf(const QString& inode)
{
    const QString wanted = QStringLiteral("socket:[%1]").arg(inode);
    const QStringList processes = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& process : processes) {
        const QDir descriptors(QStringLiteral("/proc/%1/fd").arg(process));
        const QStringList names = descriptors.entryList(QDir::System | QDir::Files);
        for (const QString& name : names) {
            if (QFile::symLinkTarget(descriptors.filePath(name)).endsWith(wanted)) {
                QFile comm(QStringLiteral("/proc/%1/comm").arg(process));
                return comm.open(QIODevice::ReadOnly) ? QString::fromUtf8(comm.readAll().trimmed()) : process;
            }
        }
    }
    return {};
}

void checkPort(const PanelFiles& panel, Findings* findings)
{
    const auto port = quint16(panel.number("Network", "UdpPort"));
    const QStringList sockets = socketsOnPort(panel, port);
    for (const QString& inode : sockets) {
        const QString holder = holderOf(inode);
        if (!holder.isEmpty() && holder != QLatin1String("varnel-browser")) {
            findings->append(
                {Severity::Error, QStringLiteral("UDP port %1").arg(port),
                 QStringLiteral("%1 has the port of the controller's frames").arg(holder),
                 QStringLiteral("The panel receives no frames and says nothing."),
                 QStringLiteral("Stop %1, or change UdpPort here and in the controller.").arg(holder)});
        }
    }
}

} // namespace

Findings checkOutputs(const PanelFiles& panel)
{
    if (!QFileInfo::exists(panel.path(gpioDirectory + QLatin1String("/export")))) {
        return {{Severity::Error, gpioDirectory, QStringLiteral("the kernel offers no GPIO lines by sysfs"),
                 QStringLiteral("LEDs stay dark, the buzzer stays silent; everything else works."),
                 QStringLiteral("Use a kernel with CONFIG_GPIO_SYSFS.")}};
    }
    Findings findings;
    const QVector<Chip> chips = chipsOf(panel);
    for (const Chip& chip : chips) {
        findings.append(describe(chip));
    }
    QMap<quint32, QString> users;
    for (const char* key : {"LedGreenPin", "LedYellowPin", "LedRedPin", "BuzzerPin"}) {
        checkLine(panel, chips, key, &findings);
        const quint32 line = panel.number("GPIO", key) & largestLine;
        if (users.contains(line)) {
            findings.append({Severity::Error, PanelFiles::settingsPath(),
                             QStringLiteral("%1 and %2 name the same line, %3")
                                 .arg(users.value(line), QLatin1String(key))
                                 .arg(line),
                             QStringLiteral("One lamp shows two signals."),
                             QStringLiteral("Give each its own line in [GPIO].")});
        }
        users.insert(line, QLatin1String(key));
    }
    return findings;
}

Findings checkDisplay(const PanelFiles& panel)
{
    Findings findings;
    const QString buffer = QStringLiteral("/sys/class/graphics/fb0");
    if (!QFileInfo::exists(panel.path(buffer))) {
        const bool hasKms = !QDir(panel.path(QStringLiteral("/dev/dri")))
                                 .entryList({QStringLiteral("card*")}, QDir::System)
                                 .isEmpty();
        findings.append(
            {Severity::Error, buffer, QStringLiteral("no frame buffer"),
             QStringLiteral("The panel does not start with the packaged unit."),
             hasKms ? QStringLiteral("systemctl edit varnel-browser: Environment=QT_QPA_PLATFORM=eglfs")
                    : QStringLiteral("Load the display's driver; dmesg | grep -i -e fb -e drm")});
        return findings;
    }
    const QString size =
        QString::fromLatin1(panel.read(buffer + QLatin1String("/virtual_size"), 32).trimmed());
    if (!size.isEmpty() && size != QLatin1String("800,480")) {
        findings.append({Severity::Warning, buffer + QLatin1String("/virtual_size"),
                         QStringLiteral("the frame buffer is %1 pixels, not 800,480").arg(size),
                         QStringLiteral("Pages and the panel's own pictures do not fit."),
                         QStringLiteral("Set the mode: video=800x480 on the kernel's command line.")});
    }
    if (!QFileInfo::exists(panel.path(buffer + QLatin1String("/blank")))) {
        findings.append({Severity::Error, buffer + QLatin1String("/blank"),
                         QStringLiteral("the display cannot be blanked"),
                         QStringLiteral("The screen saver does not switch the display off."),
                         QStringLiteral("Use a kernel with CONFIG_FB.")});
    }
    const QString backlight =
        QStringLiteral("/sys/devices/platform/pwm-backlight.0/backlight/pwm-backlight.0/bl_power");
    if (!QFileInfo::exists(panel.path(backlight))) {
        findings.append({Severity::Warning, backlight,
                         QStringLiteral("the backlight is not at the path that the panel uses"),
                         QStringLiteral("The screen saver blanks the display but leaves the backlight on."),
                         QStringLiteral("Name the node pwm-backlight.0 in the device tree.")});
    }
    return findings;
}

Findings checkNetwork(const PanelFiles& panel)
{
    Findings findings;
    const QString address = panel.text("Network", "UdpBindAddress");
    const QString name = panel.text("Network", "UdpInterface");
    if (!address.isEmpty()) {
        if (panel.isRunningSystem() && !isOwnAddress(address)) {
            findings.append({Severity::Error, PanelFiles::settingsPath(),
                             QStringLiteral("UdpBindAddress %1 is no address of this panel").arg(address),
                             QStringLiteral("The panel receives no frames and says nothing."),
                             QStringLiteral("Write an own or broadcast address, or use UdpInterface.")});
        }
    } else if (!name.isEmpty() && !QFileInfo::exists(panel.path(QStringLiteral("/sys/class/net/") + name))) {
        const QStringList present = QDir(panel.path(QStringLiteral("/sys/class/net")))
                                        .entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        findings.append(
            {Severity::Error, PanelFiles::settingsPath(),
             QStringLiteral("the interface %1 does not exist").arg(name),
             QStringLiteral("The panel does not start."),
             QStringLiteral("Set UdpInterface to one of: %1").arg(present.join(QLatin1String(", ")))});
    } else if (!name.isEmpty() && panel.isRunningSystem()) {
        findings += checkBroadcast(name);
    }
    if (panel.isRunningSystem()) {
        checkPort(panel, &findings);
    }
    return findings;
}

} // namespace VarnelCheck
