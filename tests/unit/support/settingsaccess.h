// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QVariant>

#include "settings.h"

/// "group/key".
inline QString nameOf(const Varnel::Settings::Entry& entry)
{
    return QLatin1String(entry.group) + QLatin1Char('/') + QLatin1String(entry.key);
}

/// What the settings hold for the key now.
inline QVariant valueOf(const Varnel::Settings::Entry& entry)
{
    return std::visit([](const auto* member) { return QVariant::fromValue(*member); }, entry.member);
}

/// Gives the key another value, of the same type.
inline void assign(const Varnel::Settings::Entry& entry, const QVariant& value)
{
    std::visit(
        [&value](auto* member) { *member = value.value<std::remove_reference_t<decltype(*member)>>(); },
        entry.member);
}

/// The key of that name, or null.
inline const Varnel::Settings::Entry* find(const QString& name)
{
    for (const Varnel::Settings::Entry& entry : Varnel::Settings::entries()) {
        if (nameOf(entry) == name) {
            return &entry;
        }
    }
    return nullptr;
}

/// What every key's getter says, by the name of the key.
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
