// SPDX-License-Identifier: MIT
#include "registerlist.h"

#include <algorithm>

#include <QHash>
#include <QJsonObject>

#include "modbusinterface.h"

using Varnel::CiCoord_s;
using Varnel::ModbusInterface;

namespace {

/// The number of Modbus addresses; the panel cuts every table after that many words.
constexpr int addressSpace = 65536;

/// Limit, in words, for one Modbus request.
constexpr int wordsPerRequest = 125;

/// Names of classes and fields by number.
class SourceNames
{
public:
    explicit SourceNames(const QJsonObject& mapping)
    {
        const QJsonObject all =
            mapping.value(QLatin1String("ci")).toObject().value(QLatin1String("classes")).toObject();
        for (auto one = all.constBegin(); one != all.constEnd(); ++one) {
            const int number = one.value()[QLatin1String("id")].toInt();
            classes.insert(number, one.key());
            const QJsonObject members = one.value()[QLatin1String("fields")].toObject();
            for (auto field = members.constBegin(); field != members.constEnd(); ++field) {
                fields.insert({number, field.value().toInt()}, field.key());
            }
        }
    }

    QString operator()(const CiCoord_s& coord) const
    {
        return QStringLiteral("%1.%2[%3]")
            .arg(classes.value(coord.ciClass), fields.value({coord.ciClass, coord.ciField}))
            .arg(coord.ciIndex);
    }

private:
    QHash<int, QString> classes;
    QHash<QPair<int, int>, QString> fields;
};

const QStringList headings = {QStringLiteral("Address"), QStringLiteral("Words"), QStringLiteral("Type"),
                              QStringLiteral("Table"),   QStringLiteral("Name"),  QStringLiteral("Value"),
                              QStringLiteral("Sent as")};

QStringList fields(const RegisterRow& row)
{
    return {QString::number(row.address),
            QString::number(row.words),
            row.type,
            row.tableName,
            row.name,
            row.source,
            row.ciType};
}

/// Rows that a client can read.
QVector<RegisterRow> readableRows(QVector<RegisterRow> rows)
{
    rows.erase(
        std::remove_if(rows.begin(), rows.end(), [](const RegisterRow& row) { return row.words == 0; }),
        rows.end());
    return rows;
}

const QStringList clientHeadings = {QStringLiteral("Function"), QStringLiteral("Word order"),
                                    QStringLiteral("Access"), QStringLiteral("Unit id"),
                                    QStringLiteral("Unit")};

/// "V" for "Voltage (V)".
QString unitOf(const QString& name)
{
    const int open = name.lastIndexOf(QLatin1Char('('));
    return open >= 0 && name.endsWith(QLatin1Char(')')) ? name.mid(open + 1, name.size() - open - 2)
                                                        : QString();
}

/// The server serves every table read-only, as holding registers (3) and as input registers (4) alike.
QStringList clientFields(const RegisterRow& row, const QString& unitId)
{
    return {QStringLiteral("3"), row.words > 1 ? QStringLiteral("high word first") : QString(),
            QStringLiteral("read-only"), unitId, unitOf(row.name)};
}

QString csvField(QString text)
{
    const bool isPlain = std::none_of(text.cbegin(), text.cend(), [](QChar c) {
        return c == QLatin1Char(',') || c == QLatin1Char('"') || c == QLatin1Char('\n') ||
               c == QLatin1Char('\r');
    });
    if (isPlain) {
        return text;
    }
    return QLatin1Char('"') + text.replace(QLatin1Char('"'), QLatin1String("\"\"")) + QLatin1Char('"');
}

/// The value of mbpoll's option -t that shows a type.
QString displayOf(const QString& type)
{
    if (type == QLatin1String("float")) {
        return QStringLiteral("4:float");
    }
    return type == QLatin1String("int32") || type == QLatin1String("uint32") ? QStringLiteral("4:int")
                                                                             : QStringLiteral("4");
}

QString shellWord(const QString& text)
{
    const bool isPlain = !text.isEmpty() && std::all_of(text.cbegin(), text.cend(), [](QChar c) {
        return c.isLetterOrNumber() || QLatin1String("-_./:").contains(c);
    });
    return isPlain ? text
                   : QLatin1Char('\'') + QString(text).replace(QLatin1Char('\''), QLatin1String("'\\''")) +
                         QLatin1Char('\'');
}

/// A register's name on a comment line.
QString commentWord(QString name)
{
    for (QChar& c : name) {
        if (!c.isPrint()) {
            c = QLatin1Char(' ');
        }
    }
    return name;
}

} // namespace

QVector<RegisterRow> registerRows(const ModbusInterface& bridge)
{
    QVector<RegisterRow> rows;
    const SourceNames sourceOf(bridge.GetJsonCfg());
    const auto& tables = bridge.GetTableList();
    for (auto table = tables.constBegin(); table != tables.constEnd(); ++table) {
        qint64 address = table.key();
        for (int entry = 0; entry < table->registers.size(); ++entry) {
            const int id = table->registers[entry];
            if (id <= 0) {
                address = std::min(address - id, qint64(table.key()) + addressSpace);
                continue;
            }
            const auto reg = bridge.GetRegisterList().constFind(id);
            RegisterRow row;
            row.table = table.key();
            row.address = int(address);
            row.id = id;
            row.entry = entry;
            row.tableName = table->name;
            row.isDefined = reg != bridge.GetRegisterList().constEnd();
            const auto type = bridge.GetCiTypeList().value(row.isDefined ? reg->mbtype : 0);
            row.words = type.mbSize;
            row.type = type.name;
            if (row.isDefined) {
                row.name = reg->name;
                row.source = sourceOf(reg->ci);
                row.ciType = bridge.GetCiTypeList().value(reg->ci.ciType).name;
            }
            rows.append(row);
            address += row.words;
        }
    }
    return rows;
}

QString asTable(const QVector<RegisterRow>& rows)
{
    constexpr int numericColumns = 2;
    QVector<QStringList> lines{headings};
    for (const RegisterRow& row : readableRows(rows)) {
        lines.append(fields(row));
    }
    QVector<int> widths(headings.size());
    for (const QStringList& line : lines) {
        for (int column = 0; column < line.size(); ++column) {
            widths[column] = std::max(widths[column], line[column].size());
        }
    }
    QString result;
    for (const QStringList& line : lines) {
        QString text;
        for (int column = 0; column < line.size(); ++column) {
            const QString& field = line[column];
            text += column < numericColumns ? field.rightJustified(widths[column])
                                            : field.leftJustified(widths[column]);
            text += QLatin1String("  ");
        }
        while (text.endsWith(QLatin1Char(' '))) {
            text.chop(1);
        }
        result += text + QLatin1Char('\n');
    }
    return result;
}

QString asCsv(const QVector<RegisterRow>& rows, const QString& unitId)
{
    QVector<QStringList> lines{headings + clientHeadings};
    for (const RegisterRow& row : readableRows(rows)) {
        lines.append(fields(row) + clientFields(row, unitId));
    }
    QString result;
    for (const QStringList& line : qAsConst(lines)) {
        QStringList quoted;
        std::transform(line.cbegin(), line.cend(), std::back_inserter(quoted), csvField);
        result += quoted.join(QLatin1Char(',')) + QLatin1String("\r\n");
    }
    return result;
}

QStringList asMbpoll(const QVector<RegisterRow>& rows, const ServerAddress& server)
{
    QStringList result;
    for (auto row = rows.cbegin(); row != rows.cend();) {
        if (row->words == 0) {
            ++row;
            continue;
        }
        const auto first = row;
        const QString display = displayOf(first->type);
        QStringList names;
        int next = first->address;
        while (row != rows.cend() && row->table == first->table &&
               (row->words == 0 || (row->address == next && displayOf(row->type) == display &&
                                    next + row->words - first->address <= wordsPerRequest))) {
            if (row->words > 0) {
                names << commentWord(row->name);
                next += row->words;
            }
            ++row;
        }
        QStringList command{QStringLiteral("mbpoll")};
        command << server.options << QStringLiteral("-0") << QStringLiteral("-1") << QStringLiteral("-B")
                << QStringLiteral("-t") << display << QStringLiteral("-r") << QString::number(first->address)
                << QStringLiteral("-c") << QString::number(names.size()) << server.target;
        std::transform(command.cbegin(), command.cend(), command.begin(), shellWord);
        result
            << QStringLiteral("# %1: %2").arg(commentWord(first->tableName), names.join(QLatin1String(", ")))
            << command.join(QLatin1Char(' '));
    }
    return result;
}
