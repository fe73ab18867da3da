// SPDX-License-Identifier: MIT
#pragma once

#include <QCryptographicHash>
#include <QJsonObject>
#include <QSaveFile>
#include <QString>

#include <memory>

namespace Simulator {

/// A file name that is safe in a directory: no path, no control characters, never empty, "." or "..".
QString safeFileName(const QString& name);

/// One file while it is received: measured, hashed and, with a directory, stored under its safe name; a
/// file of that name is replaced when the upload is complete.
class Upload
{
public:
    Upload(QString formField, const QString& sentName, const QString& directory);

    /// Takes the next data.
    void append(const char* octets, qint64 count);

    /// Ends the file; field, name, stored name, size, MD5 in hexadecimal, and "error" when it could not be
    /// stored.
    QJsonObject finish();

private:
    QString field;
    QString name;
    qint64 size = 0;
    QCryptographicHash digest{QCryptographicHash::Md5};
    std::unique_ptr<QSaveFile> file;
};

} // namespace Simulator
