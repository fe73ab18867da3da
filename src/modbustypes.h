// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace Varnel {

/// One data type.
struct MbType_s
{
    QString name;     ///< canonical name
    int byteSize = 0; ///< octets of a value, 0 for types of variable size
    int ciSize = 0;   ///< 1 for every known type; unused, kept
    int mbSize = 0;   ///< 16-bit registers of a value, 0 for types of variable size
};

/// One row of the table of types: the member name that defines the type, the type, and the names that refer
/// to it. Only the short names define a type: "uint16" as a member name is unknown.
struct MbTypeRow
{
    QString member;
    MbType_s type;
    QStringList aliases;
};

/// The row of the type that a member of the mapping's "types" defines; `member` in lower case. A name that is
/// not known defines the type "undef".
[[nodiscard]] const MbTypeRow& typeRow(const QString& member);

/// One table rendered for the server.
struct MbRawData_s
{
    int baseaddr = 0;
    QVector<quint16> values; ///< the table's registers in order
};

} // namespace Varnel
