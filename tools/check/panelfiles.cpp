// SPDX-License-Identifier: MIT
#include "panelfiles.h"

#include <QFile>
#include <QSettings>

#include "settings.h"

using Varnel::Settings;

namespace VarnelCheck {

namespace {

Kind kindOf(int type)
{
    switch (type) {
    case QMetaType::ULongLong:
        return Kind::Unsigned64;
    case QMetaType::UInt:
        return Kind::Unsigned32;
    case QMetaType::UShort:
        return Kind::Unsigned16;
    case QMetaType::Int:
        return Kind::Signed32;
    case QMetaType::Bool:
        return Kind::Flag;
    default:
        return Kind::Text;
    }
}

} // namespace

const QVector<Key>& knownKeys()
{
    static const QVector<Key> keys = [] {
        QVector<Key> table;
        for (const Settings::Entry& entry : Settings::entries()) {
            const QVariant value = entry.value(); // the default: no settings file is loaded
            table.append(
                {QLatin1String(entry.group), QLatin1String(entry.key), kindOf(value.userType()), value});
        }
        return table;
    }();
    return keys;
}

PanelFiles::PanelFiles(QString root)
    : root(std::move(root))
{
}

QString PanelFiles::settingsPath()
{
    return Settings::path();
}

QByteArray PanelFiles::read(const QString& panelPath, qint64 most) const
{
    QFile file(path(panelPath));
    return file.open(QIODevice::ReadOnly) ? file.read(most) : QByteArray();
}

QVariant PanelFiles::value(const char* group, const char* key) const
{
    const QSettings file(path(settingsPath()), QSettings::IniFormat);
    const QString name = QLatin1String(group) + QLatin1Char('/') + QLatin1String(key);
    for (const Key& known : knownKeys()) {
        if (known.group == QLatin1String(group) && known.name == QLatin1String(key)) {
            return file.value(name, known.defaultValue);
        }
    }
    return {};
}

QString PanelFiles::text(const char* group, const char* key) const
{
    return value(group, key).toString();
}

quint32 PanelFiles::number(const char* group, const char* key) const
{
    return value(group, key).toUInt();
}

} // namespace VarnelCheck
