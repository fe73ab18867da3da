// SPDX-License-Identifier: MIT
#include "filescheck.h"

#include <algorithm>

#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QProcess>
#include <QSize>
#include <QStorageInfo>
#include <QtEndian>

#include "mapchecker.h"
#include "modbusinterface.h"

namespace VarnelCheck {

namespace {

using Severity = Finding::Severity;

constexpr const char* scriptNames[] = {
    "r7m.sh",       "netcfg.sh",     "snmpctl.sh",       "snmpcfg.sh",      "snmptrap.sh",
    "modbuscfg.sh", "usbremount.sh", "mbserverstart.sh", "mbserverstop.sh", "mbserverupdate.sh"};
/// The panel's files are from 2020 or later, so an earlier time means that the clock has lost its battery.
constexpr int firstYear = 2020;
constexpr qint64 mebibyte = qint64(1024) * 1024;
constexpr qint64 leastFreeSpace = 16 * mebibyte;
constexpr qint64 largeStorage = 64 * mebibyte;
constexpr int statusPatienceMs = 10000;

/// The size of a PNG picture, from its IHDR chunk (RFC 2083, 4.1.1); invalid if it is no PNG file.
QSize pictureSize(const QByteArray& octets)
{
    if (octets.size() < 24 || !octets.startsWith("\x89PNG\r\n\x1a\n") || octets.mid(12, 4) != "IHDR") {
        return {};
    }
    return {int(qFromBigEndian<quint32>(octets.constData() + 16)),
            int(qFromBigEndian<quint32>(octets.constData() + 20))};
}

void checkPicture(const PanelFiles& panel, const QString& path, Findings* findings)
{
    if (!QFileInfo::exists(panel.path(path))) {
        findings->append(
            {Severity::Warning, path, QStringLiteral("the picture is missing"),
             QStringLiteral(
                 "The panel shows the picture of the folder \"default\", or words without a picture."),
             QStringLiteral("Copy an 800 x 480 PNG picture there.")});
        return;
    }
    const QSize size = pictureSize(panel.read(path, 64));
    if (!size.isValid()) {
        findings->append({Severity::Error, path, QStringLiteral("not a readable PNG picture"),
                          QStringLiteral("The panel's own page shows no picture."),
                          QStringLiteral("Save it as PNG; check that the user varnel may read it.")});
    } else if (size != QSize(800, 480)) {
        findings->append({Severity::Warning, path,
                          QStringLiteral("the picture has %1 x %2 pixels, not 800 x 480")
                              .arg(size.width())
                              .arg(size.height()),
                          QStringLiteral("It does not fit the screen."),
                          QStringLiteral("Scale it to 800 x 480.")});
    }
}

/// The package whose list of files names `panelPath`; empty for none.
QString packageOf(const PanelFiles& panel, const QString& panelPath)
{
    const QString directory = QStringLiteral("/var/lib/dpkg/info/");
    const QStringList lists = QDir(panel.path(directory)).entryList({QStringLiteral("varnel-*.list")});
    for (const QString& list : lists) {
        if (panel.read(directory + list).split('\n').contains(panelPath.toUtf8())) {
            return list.chopped(5);
        }
    }
    return {};
}

void checkScript(const PanelFiles& panel, const QString& path, Findings* findings)
{
    const QFileInfo script(panel.path(path));
    if (!script.exists()) {
        findings->append({Severity::Error, path,
                          script.isSymLink() ? QStringLiteral("the link leads nowhere")
                                             : QStringLiteral("the script is missing"),
                          QStringLiteral("The panel works without this script."),
                          QStringLiteral("apt install --reinstall varnel-device-scripts")});
        return;
    }
    if (!script.isExecutable()) {
        findings->append({Severity::Error, path, QStringLiteral("the script is not executable"),
                          QStringLiteral("The panel cannot run it."),
                          QStringLiteral("chmod 0755 %1").arg(path)});
    }
    if (script.permission(QFile::WriteOther) || script.permission(QFile::WriteGroup)) {
        findings->append({Severity::Error, path,
                          QStringLiteral("users other than its owner may change the script"),
                          QStringLiteral("The script service runs it as root, so it refuses it."),
                          QStringLiteral("chown root:root %1 && chmod 0755 %1").arg(path)});
    }
    const QString package = packageOf(panel, script.isSymLink() ? script.symLinkTarget() : path);
    findings->append({Severity::Note,
                      path,
                      package.isEmpty() ? QStringLiteral("of no package")
                                        : QStringLiteral("of the package %1").arg(package),
                      {},
                      {}});
}

bool isMounted(const PanelFiles& panel, const QString& directory)
{
    const QList<QByteArray> lines = panel.read(QStringLiteral("/proc/self/mounts")).split('\n');
    return std::any_of(lines.begin(), lines.end(), [&](const QByteArray& line) {
        return line.split(' ').value(1) == directory.toUtf8() && !line.startsWith("tmpfs ");
    });
}

void checkSpace(const PanelFiles& panel, const QString& directory, Findings* findings)
{
    const QStorageInfo storage(panel.path(directory));
    if (storage.isValid() && !storage.isReadOnly() && storage.bytesAvailable() < leastFreeSpace) {
        findings->append({Severity::Warning, directory,
                          QStringLiteral("only %1 MB are free").arg(storage.bytesAvailable() / 1000000),
                          QStringLiteral("Configuration and updates may fail."),
                          QStringLiteral("journalctl --vacuum-size=50M; apt clean")});
    }
}

qint64 sizeOf(const QString& directory)
{
    qint64 size = 0;
    QDirIterator files(directory, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (files.hasNext()) {
        files.next();
        size += files.fileInfo().size();
    }
    return size;
}

/// The output of varnel-config about SNMP, network and Modbus; lines that are not in effect are faults.
void checkConfiguration(Findings* findings)
{
    QProcess status;
    status.start(QStringLiteral("varnel-config"), {QStringLiteral("status")});
    if (!status.waitForFinished(statusPatienceMs)) {
        return; // not installed, as on a desk
    }
    const QList<QByteArray> lines = status.readAllStandardOutput().split('\n');
    for (const QByteArray& line : lines) {
        if (!line.trimmed().isEmpty()) {
            const bool isFault = line.contains("not in effect");
            findings->append({isFault ? Severity::Error : Severity::Note,
                              QStringLiteral("varnel-config"),
                              QString::fromUtf8(line.trimmed()),
                              {},
                              isFault ? QStringLiteral("journalctl -e -u 'varnel-*'") : QString()});
        }
    }
}

} // namespace

Findings checkPictures(const PanelFiles& panel)
{
    Findings findings;
    const QString base = panel.text("UI", "ErrorImagePath");
    QStringList languages = QDir(panel.path(base)).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    if (!languages.contains(QStringLiteral("default"))) {
        languages.prepend(QStringLiteral("default"));
    }
    constexpr int codeLength = 2; // of a language
    for (const QString& language : qAsConst(languages)) {
        const QString folder = base + QLatin1Char('/') + language + QLatin1Char('/');
        const bool hasPictures = !QDir(panel.path(folder)).entryList({QStringLiteral("*.png")}).isEmpty();
        if (hasPictures || language.size() == codeLength || language == QLatin1String("default")) {
            checkPicture(panel, folder + QLatin1String("error.png"), &findings);
            checkPicture(panel, folder + QLatin1String("front.png"), &findings);
        }
    }
    return findings;
}

Findings checkScripts(const PanelFiles& panel)
{
    Findings findings;
    const QString directory = panel.text("Files", "ScriptDir") + QLatin1Char('/');
    for (const char* name : scriptNames) {
        checkScript(panel, directory + QLatin1String(name), &findings);
    }
    return findings;
}

Findings checkMapping(const PanelFiles& panel)
{
    const QString path = panel.text("ModbusServer", "ModbusMap");
    if (!QFileInfo::exists(panel.path(path))) {
        return {{Severity::Warning, path, QStringLiteral("no mapping file"),
                 QStringLiteral("The Modbus server has no registers."),
                 QStringLiteral("cp /usr/share/doc/varnel-browser/examples/modbus.map %1").arg(path)}};
    }
    Varnel::ModbusInterface bridge;
    std::ignore = bridge.LoadConfig(panel.path(path)); // the checker reports why it fails, with the line
    const MapChecker checker(panel.read(path, 128 * mebibyte), &bridge);
    Findings findings;
    for (const ::Finding& found : checker.findings()) {
        findings.append({found.severity == ::Finding::Severity::Error ? Severity::Error : Severity::Warning,
                         path + QLatin1Char(':') + QString::number(found.line), found.text,
                         QStringLiteral("A register shows another value than intended, or none."),
                         QStringLiteral("modbus-map-check %1").arg(path)});
    }
    return findings;
}

Findings checkUsbDrive(const PanelFiles& panel)
{
    Findings findings;
    const QString directory = panel.text("Files", "Directory");
    const QString marker = panel.text("Files", "UsbDriveFile");
    const bool hasMarker = QFileInfo::exists(panel.path(marker));
    if (!panel.isRunningSystem()) {
        return findings;
    }
    if (hasMarker && !isMounted(panel, directory)) {
        findings.append(
            {Severity::Error, marker,
             QStringLiteral("the marker file is there, but no drive is mounted on %1").arg(directory),
             QStringLiteral("The panel offers a drive that is not there; downloads fail."),
             QStringLiteral("rm %1; plug the drive in again").arg(marker)});
    } else if (!hasMarker && isMounted(panel, directory)) {
        findings.append({Severity::Error, directory,
                         QStringLiteral("a drive is mounted, but the marker file %1 is missing").arg(marker),
                         QStringLiteral("The panel says \"USB drive not detected.\""),
                         QStringLiteral("Plug the drive in again; journalctl -e -u 'varnel-usbdrive@*'")});
    }
    return findings;
}

QString packageVersion(const PanelFiles& panel, const QByteArray& package)
{
    const QByteArray status = panel.read(QStringLiteral("/var/lib/dpkg/status"), 64 * mebibyte);
    const int start = status.indexOf("Package: " + package + '\n');
    if (start < 0) {
        return {};
    }
    const QByteArray entry = status.mid(start, status.indexOf("\n\n", start) - start);
    const QByteArray field = "\nVersion: ";
    const int at = entry.indexOf(field);
    return at < 0 ? QString() : QString::fromUtf8(entry.mid(at + field.size()).split('\n').first());
}

Findings checkSystem(const PanelFiles& panel)
{
    Findings findings;
    for (const char* package : {"varnel-browser", "varnel-device-scripts", "varnel-modbus-server"}) {
        if (const QString version = packageVersion(panel, package); !version.isEmpty()) {
            findings.append({Severity::Note, QLatin1String(package), version, {}, {}});
        }
    }
    if (!panel.isRunningSystem()) {
        return findings;
    }
    if (const int year = QDate::currentDate().year(); year < firstYear) {
        findings.append(
            {Severity::Warning, QStringLiteral("clock"), QStringLiteral("the year is %1").arg(year),
             QStringLiteral("Names of downloads and the log have wrong dates."),
             QStringLiteral("Replace the clock's battery, or set a time server: timedatectl set-ntp true")});
    }
    for (const char* directory : {"/", "/tmp", "/var"}) {
        checkSpace(panel, QLatin1String(directory), &findings);
    }
    const QString storage = panel.text("WebCache", "Path");
    if (const qint64 size = sizeOf(panel.path(storage)); size > largeStorage) {
        findings.append(
            {Severity::Warning, storage, QStringLiteral("the pages have stored %1 MB").arg(size / 1000000),
             QStringLiteral("The storage shares its disk with everything else."),
             QStringLiteral("systemctl stop varnel-browser; rm -r %1; systemctl start varnel-browser")
                 .arg(storage)});
    }
    checkConfiguration(&findings);
    return findings;
}

} // namespace VarnelCheck
