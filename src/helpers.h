// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace Varnel {

/// Small system helpers without state; safe to call from any thread.
class Helpers
{
public:
    /// Writes the Latin-1 form of `text`, without a line end, to the file at `path`, which is truncated, or
    /// created where its directory allows it. Every sysfs write goes through here. Returns false, with a
    /// critical log line, when the file cannot be opened.
    static bool echo(const QString& path, const QString& text);

    /// Writes `value` in decimal.
    static bool echo(const QString& path, int value);

    /// The local date and time as "yyyy-MM-dd hh:mm:ss.zzz", the stamp in front of log lines. The
    /// digits are ASCII in every locale.
    static QString now();

    /// Blocks the calling thread, its event loop included, for `milliseconds`. Unused, kept.
    static void sleep(int milliseconds);

    /// The MD5 digest (RFC 1321) of `data`: 16 raw bytes. Unused, kept.
    static QByteArray calculateHash(const QByteArray& data);

    /// The MD5 digest of the file's contents, which are read into memory at once; empty when the file cannot
    /// be opened, so two unreadable files compare equal. Unused, kept.
    static QByteArray calculateFileHash(const QString& path);
};

} // namespace Varnel
