// SPDX-License-Identifier: MIT
#include "panelfiles.h"

#include <QFile>
#include <QSettings>

#include "settings.h"

using Varnel::Settings;

namespace VarnelCheck {

namespace {

/// In the order of the alternatives of Settings::Member.
constexpr Kind kinds[] = {Kind::Text,       Kind::Unsigned64, Kind::Unsigned32,
                          Kind::Unsigned16, Kind::Signed32,   Kind::Flag};

QVariant defaultOf(const Settings::Entry& entry)
{
    return std::visit([](const auto* member) { return QVariant::fromValue(*member); }, entry.member);
}

} // namespace

const QVector<Key>& knownKeys()
{
    static const QVector<Key> keys = [] {
        QVector<Key> table;
        for (const Settings::Entry& entry : Settings::entries()) {
            table.append({QLatin1String(entry.group), QLatin1String(entry.key), kinds[entry.member.index()],
                          defaultOf(entry)});
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
