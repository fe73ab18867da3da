// SPDX-License-Identifier: MIT
// Compares the addresses at which the panel renders the registers with the ids, which are meant to be these
// addresses.
#include "mapchecker.h"

#include <limits>

#include <QMap>

#include "mappingtexts.h"

using Varnel::MbTable_s;

namespace {

constexpr int addressSpace = 65536;

/// Limit, in bytes, for an update command: one argument of a script has 32 pages of 4096 bytes, its final NUL
/// included.
constexpr qint64 longestCommand = 32 * 4096 - 1;

QString wordCount(int words)
{
    return QStringLiteral("%1 %2").arg(words).arg(words == 1 ? QStringLiteral("word")
                                                             : QStringLiteral("words"));
}

/// Why a register is not at the address of its id.
QString shiftText(const RegisterRow& row, const RegisterRow& before)
{
    const QString name = QStringLiteral("register %1 %2").arg(row.id).arg(quoted(row.name));
    const QString taken = QStringLiteral("takes %1 as %2").arg(wordCount(before.words), before.type);
    if (row.id > before.id && row.id < before.id + before.words) {
        return QStringLiteral("%1 overlaps register %2, which %3; it gets address %4")
            .arg(name)
            .arg(before.id)
            .arg(taken)
            .arg(row.address);
    }
    return QStringLiteral("%1 gets address %2: register %3 before it %4")
        .arg(name)
        .arg(row.address)
        .arg(before.id)
        .arg(taken);
}

} // namespace

void MapChecker::checkRows()
{
    QMap<int, QVector<RegisterRow>> tables;
    for (const RegisterRow& row : registerRows(*bridge)) {
        tables[row.table].append(row);
        if (row.words == 0 && !row.type.isEmpty()) {
            warning(
                entryPath(row),
                QStringLiteral("register %1 %2 of type %3 takes no words; the following registers move down")
                    .arg(row.id)
                    .arg(quoted(row.name), quoted(row.type)));
        }
    }
    for (auto table = tables.cbegin(); table != tables.cend(); ++table) {
        if (!faultyTables.contains(tableIndices.value(table.key(), -1))) {
            checkAlignment(*table);
        }
    }
}

/// Ids are meant to be addresses. If the first id of a table is its address (or one more, counted from 1),
/// every further id has to keep the same distance; a table that numbers its registers otherwise is reported
/// once.
void MapChecker::checkAlignment(const QVector<RegisterRow>& rows)
{
    const RegisterRow& first = rows.first();
    int distance = first.id - first.address;
    if (std::abs(distance) > 1) {
        warning(entryPath(first), QStringLiteral("register %1 %2 gets address %3; the ids of this table "
                                                 "are no addresses")
                                      .arg(first.id)
                                      .arg(quoted(first.name))
                                      .arg(first.address));
        return;
    }
    // A row with a finding of its own explains the rows that it moves.
    QSet<int> seen{first.id};
    bool isMoved = first.words == 0 || faultyIds.contains(first.id);
    for (int i = 1; i < rows.size(); ++i) {
        const RegisterRow& row = rows[i];
        const bool isShifted = row.id - row.address != distance;
        const bool isReported = seen.contains(row.id) || faultyIds.contains(row.id) || row.type.isEmpty();
        distance = row.id - row.address;
        seen.insert(row.id);
        if (isShifted && !isReported && !isMoved) {
            warning(entryPath(row), shiftText(row, rows[i - 1]));
        }
        isMoved = isReported || row.words == 0;
    }
}

JsonPath MapChecker::entryPath(const RegisterRow& row) const
{
    return tablePath(tableIndices.value(row.table)) / QStringLiteral("registers") / row.entry;
}

/// Tables side by side in the address space, with the words that the panel renders for them.
void MapChecker::checkLengths()
{
    constexpr int wordOctets = 6;   // "65535,"
    constexpr int tableOctets = 40; // {"address":65535,"values":[]},
    qint64 command = tableOctets;
    qint64 end = std::numeric_limits<qint64>::min();
    QString before;
    for (const int address : bridge->GetTableList().keys()) {
        const int words = bridge->ComputeRawData({address}).first().values.size();
        const QString name = tableName({{QStringLiteral("name"), bridge->GetTableList()[address].name}});
        const JsonPath path = tablePath(tableIndices.value(address));
        if (faultyTables.contains(tableIndices.value(address, -1))) {
            continue;
        }
        if (address < end) {
            error(path, QStringLiteral("%1 at %2 overlaps %3, which ends at %4")
                            .arg(name)
                            .arg(address)
                            .arg(before)
                            .arg(end - 1));
        }
        if (qint64(address) + words > addressSpace) {
            error(path, QStringLiteral("%1 at %2 does not fit the address space").arg(name).arg(address));
        }
        command += tableOctets + qint64(words) * wordOctets;
        if (qint64(address) + words > end) {
            end = qint64(address) + words;
            before = name;
        }
    }
    if (command > longestCommand) {
        warning(
            JsonPath() / QStringLiteral("tables"),
            QStringLiteral("an update of all tables may have %1 octets; the panel cannot send more than %2")
                .arg(command)
                .arg(longestCommand));
    }
}
