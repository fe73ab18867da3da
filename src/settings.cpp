// SPDX-License-Identifier: MIT
#include "settings.h"

#include <type_traits>

#include <QFile>
#include <QFileInfo>
#include <QSettings>

#include "logline.h"

namespace Varnel {

bool Settings::logVerbose = false;
QString Settings::infoDevice = QStringLiteral("DeviceUndef");
QString Settings::infoRelease = QStringLiteral("ReleaseUndef");
QString Settings::url = QStringLiteral("http://127.0.0.1/index.html");
QString Settings::login;
QString Settings::password;
quint64 Settings::webCacheSize = 0;
QString Settings::webCachePath = QStringLiteral("/tmp/varnel-browser-cache");
QString Settings::filesDirectory = QStringLiteral("/usbmnt");
QString Settings::filesUsbDriveFile = QStringLiteral("/tmp/usbdrive");
QString Settings::filesScriptDir = QStringLiteral("/usr/local/bin");
QString Settings::filesTmpCfgDir = QStringLiteral("/tmp/etc");
quint32 Settings::gpioLedGreenPin = 224;
quint32 Settings::gpioLedYellowPin = 225;
quint32 Settings::gpioLedRedPin = 228;
quint32 Settings::gpioBuzzerPin = 230;
bool Settings::gpioLedGreenHigh = false;
bool Settings::gpioLedYellowHigh = false;
bool Settings::gpioLedRedHigh = false;
bool Settings::gpioBuzzerHigh = true;
QString Settings::netUdpIntf = QStringLiteral("eth1");
QString Settings::netUdpAddr;
quint16 Settings::netUdpPort = 9876;
quint16 Settings::netUdpTimeout = 10;
QString Settings::netFrontIntf = QStringLiteral("usb0");
quint16 Settings::netRetryTimeout = 15;
quint16 Settings::netPageTimeout = 0;
bool Settings::netProbeAgain = false;
QString Settings::modbusMode = QStringLiteral("tcp");
QString Settings::modbusIntf = QStringLiteral("0.0.0.0:502:10");
QString Settings::modbusMap = QStringLiteral("/usr/local/etc/modbus.map");
bool Settings::uiHideCursor = true;
qint32 Settings::uiScreenSaverInterval = 15000;
QString Settings::uiMsgWaitingForNetworkConfiguration =
    QStringLiteral("Waiting for network configuration...");
QString Settings::uiMsgConnecting = QStringLiteral("Connection in progress...");
QString Settings::uiMsgConnectionError = QStringLiteral("Connection error: automatic retry in a few seconds");
QString Settings::uiMsgLoading = QStringLiteral("Please wait while loading... (%1%)");
QString Settings::uiMsgError = QStringLiteral("Error");
QString Settings::uiMsgUSBDriveNotMounted = QStringLiteral("USB drive not detected.");
QString Settings::uiMsgFailedToOpenFile = QStringLiteral("Error opening file '%1' for writing.");
QString Settings::uiMsgNoFileSelected = QStringLiteral("No file has been selected.");
QString Settings::uiMsgDownloadInProgress = QStringLiteral("Download in progress");
QString Settings::uiMsgDownloadComplete = QStringLiteral("Download complete");
QString Settings::uiTextDownload = QStringLiteral("Download");
QString Settings::uiTextUpload = QStringLiteral("Upload");
QString Settings::uiTextOK = QStringLiteral("OK");
QString Settings::uiTextCancel = QStringLiteral("Cancel");
QString Settings::uiTextFilename = QStringLiteral("Filename:");
QString Settings::uiErrorImagePath = QStringLiteral("/usr/local/share");
QString Settings::filePath = QStringLiteral("/usr/local/etc/varnel-browser.ini");

const std::vector<Settings::Entry>& Settings::entries()
{
    static const std::vector<Entry> table = {
        {"WebSite", "Url", &url},
        {"WebSite", "Login", &login},
        {"WebSite", "Password", &password},
        {"WebCache", "Size", &webCacheSize},
        {"WebCache", "Path", &webCachePath},
        {"Files", "Directory", &filesDirectory},
        {"Files", "UsbDriveFile", &filesUsbDriveFile},
        {"Files", "ScriptDir", &filesScriptDir},
        {"Files", "TmpCfgDir", &filesTmpCfgDir},
        {"ModbusServer", "ModbusMap", &modbusMap},
        {"ModbusServer", "ModbusMode", &modbusMode},
        {"ModbusServer", "ModbusInterface", &modbusIntf},
        {"Network", "UdpInterface", &netUdpIntf},
        {"Network", "UdpBindAddress", &netUdpAddr},
        {"Network", "UdpPort", &netUdpPort},
        {"Network", "UdpTimeout", &netUdpTimeout},
        {"Network", "FrontInterface", &netFrontIntf},
        {"Network", "RetryTimeout", &netRetryTimeout},
        {"Network", "PageTimeout", &netPageTimeout},
        {"Network", "ProbeAgain", &netProbeAgain},
        {"GPIO", "LedGreenPin", &gpioLedGreenPin},
        {"GPIO", "LedYellowPin", &gpioLedYellowPin},
        {"GPIO", "LedRedPin", &gpioLedRedPin},
        {"GPIO", "BuzzerPin", &gpioBuzzerPin},
        {"GPIO", "LedGreenHigh", &gpioLedGreenHigh},
        {"GPIO", "LedYellowHigh", &gpioLedYellowHigh},
        {"GPIO", "LedRedHigh", &gpioLedRedHigh},
        {"GPIO", "BuzzerHigh", &gpioBuzzerHigh},
        {"UI", "HideCursor", &uiHideCursor},
        {"UI", "ScreenSaverInterval", &uiScreenSaverInterval},
        {"UI", "MsgWaitingForNetworkConfiguration", &uiMsgWaitingForNetworkConfiguration},
        {"UI", "MsgConnecting", &uiMsgConnecting},
        {"UI", "MsgConnectionError", &uiMsgConnectionError},
        {"UI", "MsgLoading", &uiMsgLoading},
        {"UI", "MsgError", &uiMsgError},
        {"UI", "MsgUSBDriveNotMounted", &uiMsgUSBDriveNotMounted},
        {"UI", "MsgFailedToOpenFile", &uiMsgFailedToOpenFile},
        {"UI", "MsgNoFileSelected", &uiMsgNoFileSelected},
        {"UI", "MsgDownloadInProgress", &uiMsgDownloadInProgress},
        {"UI", "MsgDownloadComplete", &uiMsgDownloadComplete},
        {"UI", "TextDownload", &uiTextDownload},
        {"UI", "TextUpload", &uiTextUpload},
        {"UI", "TextOK", &uiTextOK},
        {"UI", "TextCancel", &uiTextCancel},
        {"UI", "TextFilename", &uiTextFilename},
        {"UI", "ErrorImagePath", &uiErrorImagePath},
    };
    return table;
}

QVariant Settings::Entry::value() const
{
    return std::visit([](const auto* target) { return QVariant::fromValue(*target); }, member);
}

/// QVariant's own conversions: an unreadable number is 0, a flag is false only for "", "0" and "false".
/// The 16-bit members take the low half of the number.
void Settings::Entry::read(const QVariant& text) const
{
    std::visit(
        [&text](auto* target) {
            using T = std::remove_pointer_t<decltype(target)>;
            if constexpr (std::is_same_v<T, quint16>) {
                *target = static_cast<T>(text.toUInt());
            } else {
                *target = text.value<T>();
            }
        },
        member);
}

bool Settings::load(const QString& path)
{
    if (!QFile::exists(path)) {
        logStamped(QStringLiteral("Settings file '%1' does not exist, using default values").arg(path));
        return false;
    }
    if (!QFileInfo(path).isFile()) {
        return true; // nothing is read from a directory; a pipe would have to be waited for
    }
    const QSettings file(path, QSettings::IniFormat);
    for (const Entry& entry : entries()) {
        const QString name = QLatin1String(entry.group) + QLatin1Char('/') + QLatin1String(entry.key);
        if (file.contains(name)) {
            entry.read(file.value(name));
        }
    }
    return true;
}

QByteArray Settings::getHttpAuthorizationBytes()
{
    const QByteArray credentials = (login + QLatin1Char(':') + password).toLocal8Bit();
    return QString(QLatin1String("Basic ") + QLatin1String(credentials.toBase64())).toLocal8Bit();
}

} // namespace Varnel
