// SPDX-License-Identifier: MIT
#pragma once

#include <variant>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QVariant>

namespace Varnel {

/// The configuration of the process: built-in defaults, replaced key by key by the settings file, plus three
/// values from the command line. Read-only once start-up is over; main thread only.
class Settings
{
public:
    /// One key of the settings file, for code that lists, checks or documents the settings.
    class Entry
    {
    public:
        const char* group;
        const char* key;

        /// The key's current value, in the type to which its text is converted.
        [[nodiscard]] QVariant value() const;

    private:
        friend class Settings;
        using Member = std::variant<QString*, quint64*, quint32*, quint16*, qint32*, bool*>;

        Entry(const char* group, const char* key, Member member)
            : group(group)
            , key(key)
            , member(member)
        {
        }
        void read(const QVariant& text) const;

        Member member;
    };

    /// Every key of the settings file, in the order in which it is read.
    static const std::vector<Entry>& entries();

    /// The path of the settings file.
    static const QString& path() { return filePath; }

    /// Reads the settings file. Returns false, with one log line, when it does not exist; the defaults then
    /// stay. A key that is missing leaves its default, a value that cannot be converted becomes 0. Nothing is
    /// validated.
    static bool load() { return load(filePath); }
    /// The same with another file in place of the panel's own.
    static bool load(const QString& path);

    static bool isLogVerbose() { return logVerbose; }
    static void setLogVerbose(bool verbose) { logVerbose = verbose; }
    static QString getInfoDevice() { return infoDevice; }
    static void setInfoDevice(QString device) { infoDevice = std::move(device); }
    static QString getInfoRelease() { return infoRelease; }
    static void setInfoRelease(QString release) { infoRelease = std::move(release); }

    static const QString& getUrl() { return url; }
    static const QString& getLogin() { return login; }
    static const QString& getPassword() { return password; }
    /// The value of an Authorization header for HTTP basic authentication (RFC 7617), from the current login
    /// and password, whether or not the login is empty.
    static QByteArray getHttpAuthorizationBytes();

    static quint64 getWebCacheSize() { return webCacheSize; } // unused, kept
    static const QString& getWebCachePath() { return webCachePath; }

    static const QString& getFilesDirectory() { return filesDirectory; }
    static const QString& getFilesUsbDriveFile() { return filesUsbDriveFile; }
    static const QString& getFilesScriptDir() { return filesScriptDir; }
    static const QString& getFilesTmpCfgDir() { return filesTmpCfgDir; }

    /// GPIO line numbers; the sysfs code uses the low 8 bits.
    static quint32 getGPIOLedGreenPin() { return gpioLedGreenPin; }
    static quint32 getGPIOLedYellowPin() { return gpioLedYellowPin; }
    static quint32 getGPIOLedRedPin() { return gpioLedRedPin; }
    static quint32 getGPIOBuzzerPin() { return gpioBuzzerPin; }
    /// True when the line is active high.
    static bool getGPIOLedGreenHigh() { return gpioLedGreenHigh; }
    static bool getGPIOLedYellowHigh() { return gpioLedYellowHigh; }
    static bool getGPIOLedRedHigh() { return gpioLedRedHigh; }
    static bool getGPIOBuzzerHigh() { return gpioBuzzerHigh; }
    /// The panel always has its GPIO lines; a constant of the board, not a setting.
    static constexpr bool hasGPIOPort() { return true; }

    static const QString& getNetUdpIntf() { return netUdpIntf; }
    static const QString& getNetUdpAddr() { return netUdpAddr; }
    static quint16 getNetUdpPort() { return netUdpPort; }
    /// Seconds without a frame after which the controller counts as gone.
    static quint16 getNetUdpTimeout() { return netUdpTimeout; }
    static const QString& getNetFrontIntf() { return netFrontIntf; }
    /// Seconds between a failed load and the next try.
    static quint16 getNetRetryTimeout() { return netRetryTimeout; }
    /// Seconds after which a page whose request has no answer counts as failed; 0: never.
    static quint16 getNetPageTimeout() { return netPageTimeout; }
    /// True when a failed retry is followed by more.
    static bool getNetProbeAgain() { return netProbeAgain; }

    static const QString& getModbusMode() { return modbusMode; }
    static const QString& getModbusIntf() { return modbusIntf; }
    static const QString& getModbusMap() { return modbusMap; }

    static bool getUIHideCursor() { return uiHideCursor; }
    /// Milliseconds without a touch until the screen goes dark.
    static qint32 getUIScreenSaverInterval() { return uiScreenSaverInterval; }
    static const QString& getUIMsgWaitingForNetworkConfiguration()
    {
        return uiMsgWaitingForNetworkConfiguration;
    }
    static const QString& getUIMsgConnecting() { return uiMsgConnecting; }
    // These three: unused, kept.
    static const QString& getUIMsgConnectionError() { return uiMsgConnectionError; }
    static const QString& getUIMsgLoading() { return uiMsgLoading; }
    static const QString& getUIMsgError() { return uiMsgError; }
    static const QString& getUIMsgUSBDriveNotMounted() { return uiMsgUSBDriveNotMounted; }
    static const QString& getUIMsgFailedToOpenFile() { return uiMsgFailedToOpenFile; }
    static const QString& getUIMsgNoFileSelected() { return uiMsgNoFileSelected; }
    static const QString& getUIMsgDownloadInProgress() { return uiMsgDownloadInProgress; }
    static const QString& getUIMsgDownloadComplete() { return uiMsgDownloadComplete; }
    static const QString& getUITextDownload() { return uiTextDownload; }
    static const QString& getUITextUpload() { return uiTextUpload; }
    static const QString& getUITextOK() { return uiTextOK; }
    static const QString& getUITextCancel() { return uiTextCancel; }
    static const QString& getUITextFilename() { return uiTextFilename; }
    static const QString& getUIErrorImagePath() { return uiErrorImagePath; }

private:
    static bool logVerbose;
    static QString infoDevice;
    static QString infoRelease;
    static QString url;
    static QString login;
    static QString password;
    static quint64 webCacheSize;
    static QString webCachePath;
    static QString filesDirectory;
    static QString filesUsbDriveFile;
    static QString filesScriptDir;
    static QString filesTmpCfgDir;
    static quint32 gpioLedGreenPin;
    static quint32 gpioLedYellowPin;
    static quint32 gpioLedRedPin;
    static quint32 gpioBuzzerPin;
    static bool gpioLedGreenHigh;
    static bool gpioLedYellowHigh;
    static bool gpioLedRedHigh;
    static bool gpioBuzzerHigh;
    static QString netUdpIntf;
    static QString netUdpAddr;
    static quint16 netUdpPort;
    static quint16 netUdpTimeout;
    static QString netFrontIntf;
    static quint16 netRetryTimeout;
    static quint16 netPageTimeout;
    static bool netProbeAgain;
    static QString modbusMode;
    static QString modbusIntf;
    static QString modbusMap;
    static bool uiHideCursor;
    static qint32 uiScreenSaverInterval;
    static QString uiMsgWaitingForNetworkConfiguration;
    static QString uiMsgConnecting;
    static QString uiMsgConnectionError;
    static QString uiMsgLoading;
    static QString uiMsgError;
    static QString uiMsgUSBDriveNotMounted;
    static QString uiMsgFailedToOpenFile;
    static QString uiMsgNoFileSelected;
    static QString uiMsgDownloadInProgress;
    static QString uiMsgDownloadComplete;
    static QString uiTextDownload;
    static QString uiTextUpload;
    static QString uiTextOK;
    static QString uiTextCancel;
    static QString uiTextFilename;
    static QString uiErrorImagePath;
    static QString filePath;
};

} // namespace Varnel
