// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QtEndian>

namespace Varnel {

/// Little-endian fields of one datagram or section. It checks all bounds: a read past the end gives 0 and
/// clears ok(). It keeps a reference: the octets must outlive it and must not change.
class FieldReader
{
public:
    explicit FieldReader(const QByteArray& data)
        : octets(data)
    {
    }
    explicit FieldReader(const QByteArray&&) = delete;

    [[nodiscard]] quint8 u8(int offset) { return read<quint8>(offset); }
    [[nodiscard]] quint16 u16(int offset) { return read<quint16>(offset); }
    [[nodiscard]] quint32 u32(int offset) { return read<quint32>(offset); }

    /// Four octets in network order, as an IPv4 address in host order.
    [[nodiscard]] quint32 ipv4(int offset) { return qbswap(read<quint32>(offset)); }

    /// A text of at most `width` octets, up to its first NUL octet, read as Latin-1. Empty when a part of the
    /// field is missing.
    [[nodiscard]] QString latin1(int offset, int width)
    {
        if (offset < 0 || width < 0 || offset > octets.size() - width) {
            inside = false;
            return {};
        }
        const char* const field = octets.constData() + offset;
        return QString::fromLatin1(field, int(qstrnlen(field, uint(width))));
    }

    /// False after a read past the end.
    [[nodiscard]] bool ok() const { return inside; }

private:
    template<typename T>
    T read(int offset)
    {
        if (offset < 0 || offset > octets.size() - int(sizeof(T))) {
            inside = false;
            return 0;
        }
        return qFromLittleEndian<T>(octets.constData() + offset); // copies, so alignment does not matter
    }

    const QByteArray& octets;
    bool inside = true;
};

} // namespace Varnel
