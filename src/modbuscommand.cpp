// SPDX-License-Identifier: MIT
#include "modbuscommand.h"

#include <charconv>
#include <iterator>

#include <QJsonObject>
#include <QJsonValue>
#include <QStringList>
#include <QtDebug>

namespace Varnel {

namespace {

/// One member of the server's interface object.
struct InterfaceMember
{
    const char* name;
    bool isNumber;
};

/// The server's modes and what the parts of the interface setting mean in each.
constexpr struct
{
    const char* mode;
    const char* incomplete; ///< what to log when the number of parts differs
    int parts;
    InterfaceMember members[4];
} serverModes[] = {
    {"rtu",
     "Missing info in RTU interface config",
     4,
     {{"devid", true}, {"port", false}, {"baud", true}, {"mode", false}}},
    {"tcp",
     "Missing info in TCP interface config",
     3,
     {{"listen", false}, {"port", true}, {"clients", true}}},
};

/// Appends `number` in decimal. QByteArray::number would allocate memory for each word.
void appendNumber(QByteArray* text, int number)
{
    char digits[11]; // "-2147483648"
    const auto written = std::to_chars(std::begin(digits), std::end(digits), number);
    text->append(digits, int(written.ptr - digits));
}

} // namespace

bool serverInterface(const QString& mode, const QString& setting, QJsonObject* result)
{
    const QStringList parts = setting.split(QLatin1Char(':'), Qt::KeepEmptyParts);
    for (const auto& known : serverModes) {
        if (mode != QLatin1String(known.mode)) {
            continue;
        }
        if (parts.size() != known.parts) {
            qDebug() << known.incomplete;
            return false;
        }
        for (int i = 0; i < parts.size(); ++i) {
            const InterfaceMember& member = known.members[i];
            result->insert(QLatin1String(member.name),
                           member.isNumber ? QJsonValue(parts[i].toInt()) : parts[i]);
        }
        return true;
    }
    qDebug() << "Unrecognized Modbus mode";
    return false;
}

QString updateCommand(const QVector<MbRawData_s>& rawdata)
{
    QByteArray text(R"({"cmd":"setconfig","data":[)");
    int words = 0;
    for (const MbRawData_s& table : rawdata) {
        words += table.values.size();
    }
    constexpr int wordWidth = 6;   // "65535,"
    constexpr int tableWidth = 40; // {"address":-2147483648,"values":[]},
    text.reserve(text.size() + words * wordWidth + rawdata.size() * tableWidth + 2);
    for (const MbRawData_s& table : rawdata) {
        text.append("{\"address\":");
        appendNumber(&text, table.baseaddr);
        text.append(",\"values\":[");
        for (const quint16 word : table.values) {
            appendNumber(&text, word);
            text.append(',');
        }
        if (!table.values.isEmpty()) {
            text.chop(1);
        }
        text.append("]},");
    }
    if (!rawdata.isEmpty()) {
        text.chop(1);
    }
    text.append("]}");
    return QString::fromLatin1(text);
}

} // namespace Varnel
