// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>
#include <QVector>

namespace VarnelCheck {

/// How the panel converts the text of a key.
enum class Kind
{
    Text,
    Unsigned16,
    Unsigned32,
    Unsigned64,
    Signed32,
    Flag,
};

/// One key that the panel knows.
struct Key
{
    QString group;
    QString name;
    Kind kind = Kind::Text;
    QVariant defaultValue;
};

/// Every key of the panel's settings, from the panel's own table.
const QVector<Key>& knownKeys();

/// The files of one panel: the running system, or a directory with an image of one.
class PanelFiles
{
public:
    /// `root` is empty for the running system.
    explicit PanelFiles(QString root);

    /// True for the running system, which has processes, sockets and mounts to inspect.
    [[nodiscard]] bool isRunningSystem() const { return root.isEmpty(); }
    /// The path here for a path of the panel.
    [[nodiscard]] QString path(const QString& panelPath) const { return root + panelPath; }
    /// The path of the settings file, as the panel names it.
    [[nodiscard]] static QString settingsPath();
    /// The text of a file of the panel; empty if it cannot be read.
    [[nodiscard]] QByteArray read(const QString& panelPath, qint64 most = qint64(1024) * 1024) const;

    /// The value that the panel uses for a key: from the file, or the default.
    [[nodiscard]] QString text(const char* group, const char* key) const;
    [[nodiscard]] quint32 number(const char* group, const char* key) const;

private:
    [[nodiscard]] QVariant value(const char* group, const char* key) const;

    const QString root;
};

} // namespace VarnelCheck
