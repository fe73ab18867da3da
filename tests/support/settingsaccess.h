// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QHash>
#include <QSettings>
#include <QTemporaryDir>
#include <QVariant>

#include "settings.h"

/// "group/key".
inline QString nameOf(const Varnel::Settings::Entry& entry)
{
    return QLatin1String(entry.group) + QLatin1Char('/') + QLatin1String(entry.key);
}

/// The values of the settings, by the name of the key.
inline QHash<QString, QVariant> settingsNow()
{
    QHash<QString, QVariant> values;
    for (const Varnel::Settings::Entry& entry : Varnel::Settings::entries()) {
        values.insert(nameOf(entry), entry.value());
    }
    return values;
}

/// Writes a settings file with these values, by the names of their keys.
inline void writeSettings(const QString& path, const QHash<QString, QVariant>& values)
{
    QSettings file(path, QSettings::IniFormat);
    for (auto value = values.cbegin(); value != values.cend(); ++value) {
        file.setValue(value.key(), value->toString()); // of other types it would write the octets of a stream
    }
}

/// Loads a settings file with these values.
inline void loadSettings(const QHash<QString, QVariant>& values)
{
    static const QTemporaryDir directory;
    static int files = 0; // QSettings remembers a file by its name
    const QString path = directory.filePath(QString::number(++files));
    writeSettings(path, values);
    if (!Varnel::Settings::load(path)) {
        qFatal("cannot write a settings file");
    }
    QFile::remove(path);
}

/// The values that the getters return, by the name of the key.
inline QHash<QString, QVariant> byGetters()
{
    using S = Varnel::Settings;
    return {
        {QStringLiteral("WebSite/Url"), S::getUrl()},
        {QStringLiteral("WebSite/Login"), S::getLogin()},
        {QStringLiteral("WebSite/Password"), S::getPassword()},
        {QStringLiteral("WebCache/Size"), S::getWebCacheSize()},
        {QStringLiteral("WebCache/Path"), S::getWebCachePath()},
        {QStringLiteral("Files/Directory"), S::getFilesDirectory()},
        {QStringLiteral("Files/UsbDriveFile"), S::getFilesUsbDriveFile()},
        {QStringLiteral("Files/ScriptDir"), S::getFilesScriptDir()},
        {QStringLiteral("Files/TmpCfgDir"), S::getFilesTmpCfgDir()},
        {QStringLiteral("ModbusServer/ModbusMap"), S::getModbusMap()},
        {QStringLiteral("ModbusServer/ModbusMode"), S::getModbusMode()},
        {QStringLiteral("ModbusServer/ModbusInterface"), S::getModbusIntf()},
        {QStringLiteral("Network/UdpInterface"), S::getNetUdpIntf()},
        {QStringLiteral("Network/UdpBindAddress"), S::getNetUdpAddr()},
        {QStringLiteral("Network/UdpPort"), QVariant::fromValue(S::getNetUdpPort())},
        {QStringLiteral("Network/UdpTimeout"), QVariant::fromValue(S::getNetUdpTimeout())},
        {QStringLiteral("Network/FrontInterface"), S::getNetFrontIntf()},
        {QStringLiteral("Network/RetryTimeout"), QVariant::fromValue(S::getNetRetryTimeout())},
        {QStringLiteral("Network/PageTimeout"), QVariant::fromValue(S::getNetPageTimeout())},
        {QStringLiteral("Network/ProbeAgain"), S::getNetProbeAgain()},
        {QStringLiteral("GPIO/LedGreenPin"), S::getGPIOLedGreenPin()},
        {QStringLiteral("GPIO/LedYellowPin"), S::getGPIOLedYellowPin()},
        {QStringLiteral("GPIO/LedRedPin"), S::getGPIOLedRedPin()},
        {QStringLiteral("GPIO/BuzzerPin"), S::getGPIOBuzzerPin()},
        {QStringLiteral("GPIO/LedGreenHigh"), S::getGPIOLedGreenHigh()},
        {QStringLiteral("GPIO/LedYellowHigh"), S::getGPIOLedYellowHigh()},
        {QStringLiteral("GPIO/LedRedHigh"), S::getGPIOLedRedHigh()},
        {QStringLiteral("GPIO/BuzzerHigh"), S::getGPIOBuzzerHigh()},
        {QStringLiteral("UI/HideCursor"), S::getUIHideCursor()},
        {QStringLiteral("UI/ScreenSaverInterval"), S::getUIScreenSaverInterval()},
        {QStringLiteral("UI/MsgWaitingForNetworkConfiguration"), S::getUIMsgWaitingForNetworkConfiguration()},
        {QStringLiteral("UI/MsgConnecting"), S::getUIMsgConnecting()},
        {QStringLiteral("UI/MsgConnectionError"), S::getUIMsgConnectionError()},
        {QStringLiteral("UI/MsgLoading"), S::getUIMsgLoading()},
        {QStringLiteral("UI/MsgError"), S::getUIMsgError()},
        {QStringLiteral("UI/MsgUSBDriveNotMounted"), S::getUIMsgUSBDriveNotMounted()},
        {QStringLiteral("UI/MsgFailedToOpenFile"), S::getUIMsgFailedToOpenFile()},
        {QStringLiteral("UI/MsgNoFileSelected"), S::getUIMsgNoFileSelected()},
        {QStringLiteral("UI/MsgDownloadInProgress"), S::getUIMsgDownloadInProgress()},
        {QStringLiteral("UI/MsgDownloadComplete"), S::getUIMsgDownloadComplete()},
        {QStringLiteral("UI/TextDownload"), S::getUITextDownload()},
        {QStringLiteral("UI/TextUpload"), S::getUITextUpload()},
        {QStringLiteral("UI/TextOK"), S::getUITextOK()},
        {QStringLiteral("UI/TextCancel"), S::getUITextCancel()},
        {QStringLiteral("UI/TextFilename"), S::getUITextFilename()},
        {QStringLiteral("UI/ErrorImagePath"), S::getUIErrorImagePath()},
    };
}
