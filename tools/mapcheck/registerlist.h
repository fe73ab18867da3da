// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace Varnel {
class ModbusInterface;
}

/// One register from the view of a Modbus client.
struct RegisterRow
{
    int table = 0;   ///< base address of its table
    int address = 0; ///< address of its first word, counted from 0 as in the protocol
    int words = 0;   ///< 0 for types without words
    int id = 0;
    int entry = 0;         ///< index in the table's list
    bool isDefined = true; ///< false for an id that no register has
    QString tableName;
    QString name;
    QString type;   ///< canonical name of the Modbus type
    QString source; ///< class.field[index] of the controller's value
    QString ciType; ///< canonical name of the controller's type
};

/// Every entry of every table, without gaps, in the order of the addresses, as the panel renders them.
[[nodiscard]] QVector<RegisterRow> registerRows(const Varnel::ModbusInterface& bridge);

/// The registers that a client can read, as a table in plain text with a heading.
[[nodiscard]] QString asTable(const QVector<RegisterRow>& rows);

/// The same as comma-separated values (RFC 4180) with a heading, and further settings of a client: function
/// code, word order, access, unit id of the server, and the unit that a register's name ends with, in
/// brackets.
[[nodiscard]] QString asCsv(const QVector<RegisterRow>& rows, const QString& unitId);

/// The client's connection to the server.
struct ServerAddress
{
    QString target;      ///< host name, or serial device
    QStringList options; ///< further options for mbpoll
};

/// One mbpoll command for each run of registers that can be read at once, each after a comment that names
/// them.
[[nodiscard]] QStringList asMbpoll(const QVector<RegisterRow>& rows, const ServerAddress& server);
