// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QDir>
#include <QString>

class QUrl;

namespace Varnel {

/// The name that a Content-Disposition header value gives to a download: what follows "filename=" in the last
/// part that begins so. Case matters, quotes stay, nothing is decoded, and the extended form ("filename*=")
/// is not known: the controller sends plain names. Bytes that are not UTF-8 are taken as Latin-1. Empty when
/// no part gives a name.
[[nodiscard]] QString headerFileName(const QByteArray& contentDisposition);

/// The name under which a download is to be saved: the header's, else the last segment of the URL's path,
/// else the local date and time (logged). Never empty, and not checked: it comes from outside.
[[nodiscard]] QString downloadFileName(const QByteArray& contentDisposition, const QUrl& url);

/// True when `name` names an entry of the drive's directory itself. A "/", a ".." or a NUL (where the kernel
/// would cut the name) would lead elsewhere.
[[nodiscard]] bool staysOnDrive(const QString& name);

/// The absolute path of the entry `name` of the directory `drive`. A name that leads elsewhere does so here,
/// too.
[[nodiscard]] QString pathOnDrive(const QDir& drive, const QString& name);

/// `name`, or when the directory `drive` already has it, the first of base-1.suffix, base-2.suffix, ... that
/// is free there. A name without a suffix keeps the dot ("data-1."). A name that leads elsewhere is returned
/// unchanged.
[[nodiscard]] QString freeFileName(const QDir& drive, const QString& name);

} // namespace Varnel
