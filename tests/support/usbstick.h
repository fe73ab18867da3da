// SPDX-License-Identifier: MIT
#pragma once

#include <QTemporaryDir>

#include "drive.h"
#include "recordingscripts.h"
#include "scopedsetting.h"

/// A USB drive and a remount script in a temporary directory, to which the settings point.
class UsbStick : QTemporaryDir, public Drive
{
public:
    UsbStick()
        : Drive(filePath("stick of the day"_s), filePath("plugged"_s))
    {
        QDir().mkpath(Drive::path());
        plug();
        if (!scripts.install(remount)) {
            qFatal("cannot write %s", qUtf8Printable(script()));
        }
    }

    Q_DISABLE_COPY_MOVE(UsbStick)

    using Drive::path;
    QString script() const { return scripts.path(remount); }

    /// The argument lists with which the remount script was run.
    QStringList remounts() const { return scripts.argumentsOf(remount); }

private:
    const QString remount = "usbremount.sh"_s;
    RecordingScripts scripts{filePath("bin"_s)};
    ScopedSetting<QString> directory{"Files", "Directory", path()};
    ScopedSetting<QString> markerFile{"Files", "UsbDriveFile", marker()};
    ScopedSetting<QString> scriptDirectory{"Files", "ScriptDir", filePath("bin"_s)};
};
