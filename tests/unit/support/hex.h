// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

/// Octets from hexadecimal text; blanks and "|" between fields are there for the reader alone.
inline QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace('|', ' '));
}
