// SPDX-License-Identifier: MIT
#pragma once

#include <variant>

#include <QtGlobal>

#include "settings.h"

/// Gives one setting another value for as long as it lives, as if the settings file had held it.
template<typename T>
class ScopedSetting
{
public:
    ScopedSetting(const char* group, const char* key, const T& value)
        : member(find(group, key))
        , old(*member)
    {
        *member = value;
    }

    ~ScopedSetting() { *member = old; }

    Q_DISABLE_COPY_MOVE(ScopedSetting)

private:
    static T* find(const char* group, const char* key)
    {
        for (const Varnel::Settings::Entry& entry : Varnel::Settings::entries()) {
            if (qstrcmp(entry.group, group) == 0 && qstrcmp(entry.key, key) == 0) {
                return std::get<T*>(entry.member);
            }
        }
        qFatal("no such setting: %s/%s", group, key);
    }

    T* member = nullptr;
    T old;
};
