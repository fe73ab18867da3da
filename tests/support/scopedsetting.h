// SPDX-License-Identifier: MIT
#pragma once

#include "settingsaccess.h"

/// Gives one setting another value for as long as it lives, through a settings file.
template<typename T>
class ScopedSetting
{
public:
    ScopedSetting(const char* group, const char* key, const T& value)
        : name(QLatin1String(group) + QLatin1Char('/') + QLatin1String(key))
        , old(settingsNow().value(name))
    {
        if (old.userType() != qMetaTypeId<T>()) {
            qFatal("no such setting: %s/%s", group, key);
        }
        loadSettings({{name, QVariant::fromValue(value)}});
    }

    ~ScopedSetting() { loadSettings({{name, old}}); }

    Q_DISABLE_COPY_MOVE(ScopedSetting)

private:
    QString name;
    QVariant old;
};
