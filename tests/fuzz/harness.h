// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <QByteArray>
#include <QFile>
#include <QString>
#include <QStringList>
#include <QtGlobal>

namespace fuzz {

/// Ends the run as a crash, with the broken promise in words, unless `holds`.
inline void require(bool holds, const char* promise)
{
    if (!holds) {
        std::fprintf(stderr, "BROKEN PROMISE: %s\n", promise);
        std::abort();
    }
}

/// The same for two texts, which are printed when they differ.
inline void requireSame(const QString& actual, const QString& wanted, const char* promise)
{
    if (actual != wanted) {
        std::fprintf(stderr, "is:     %s\nwanted: %s\n", qUtf8Printable(actual), qUtf8Printable(wanted));
        require(false, promise);
    }
}

/// A copy in a buffer of its own, in which the sanitizer sees a read past the end.
inline QByteArray copied(const QByteArray& octets)
{
    QByteArray copy(octets.constData(), octets.size());
    copy.squeeze();
    return copy;
}

inline void writeFile(const QString& path, const QByteArray& octets)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) && file.write(octets) == octets.size(),
            "the harness can write its files");
}

/// Takes the place of standard error: every line is formatted as always, and kept until the next clear().
class QuietLog
{
public:
    static void install() { qInstallMessageHandler(&QuietLog::keep); }
    static const QStringList& lines() { return kept(); }
    static void clear() { kept().clear(); }

private:
    static QStringList& kept()
    {
        static QStringList list;
        return list;
    }

    static void keep(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        if (type == QtFatalMsg) {
            std::fprintf(stderr, "%s\n", qUtf8Printable(text));
            std::abort();
        }
        kept() << qFormatLogMessage(type, context, text);
    }
};

/// The input, taken from its front. A read past the end gives 0 or nothing.
class Input
{
public:
    Input(const uint8_t* data, size_t size)
        : octets(QByteArray::fromRawData(reinterpret_cast<const char*>(data), int(size)))
    {
    }

    bool isEmpty() const { return at >= octets.size(); }

    quint8 u8() { return isEmpty() ? quint8(0) : static_cast<quint8>(octets.at(at++)); }

    quint16 u16()
    {
        const quint16 low = u8();
        return static_cast<quint16>(low | u8() << 8U);
    }

    /// At most `count` octets.
    QByteArray take(int count)
    {
        const int length = qMin(count, octets.size() - at);
        at += length;
        return copied(QByteArray::fromRawData(octets.constData() + at - length, length));
    }

    QByteArray rest() { return take(octets.size() - at); }

    /// Up to the next `separator`, which is taken as well, or all that is left.
    QByteArray takeUntil(const QByteArray& separator)
    {
        const int end = octets.indexOf(separator, at);
        const QByteArray part = take(end < 0 ? octets.size() - at : end - at);
        at += end < 0 ? 0 : separator.size();
        return part;
    }

private:
    const QByteArray octets;
    int at = 0;
};

} // namespace fuzz
