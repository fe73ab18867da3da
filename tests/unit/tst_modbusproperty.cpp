// SPDX-License-Identifier: MIT
#include <random>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "logrecorder.h"
#include "mappingfile.h"
#include "modbusinterface.h"
#include "modbusoracle.h"
#include "scopedsetting.h"

using namespace Varnel;

/// Random mappings and Core items, through the bridge and through an independent oracle.
class tst_ModbusProperty : public QObject
{
    Q_OBJECT

private slots:
    void randomMappings_data();
    void randomMappings();
};

namespace {

constexpr int mappingsPerSeed = 250;
constexpr int framesPerMapping = 4;

/// Everything that is left to chance, from one seed.
class Chance
{
public:
    explicit Chance(quint32 seed)
        : engine(seed)
    {
    }

    int below(int limit) { return int(engine() % unsigned(limit)); }
    bool oneIn(int count) { return below(count) == 0; }

    template<typename T>
    T any(std::initializer_list<T> choices)
    {
        return *(choices.begin() + below(int(choices.size())));
    }

    oracle::Mapping mapping();
    std::vector<oracle::Item> items();

private:
    oracle::Register aRegister();
    oracle::Table aTable();
    std::string typeName();
    std::string payload();

    std::mt19937 engine;
};

std::string Chance::typeName()
{
    return any<std::string>({"bool",   "boolean", "u8",     "uint8",  "s8",      "sint8",  "int8",
                             "u16",    "uint16",  "s16",    "sint16", "int16",   "u32",    "uint32",
                             "s32",    "sint32",  "int32",  "float",  "float32", "string", "str",
                             "struct", "undef",   "UINT16", "nothing"});
}

oracle::Register Chance::aRegister()
{
    oracle::Register reg;
    reg.id = below(12);
    reg.mbType = typeName();
    reg.ciClass = any<std::string>({"a", "b", "b", "missing"});
    reg.ciField = any<std::string>({"x", "y", "y", "missing"});
    reg.index = below(3);
    reg.ciType = oneIn(3) ? typeName() : reg.mbType;
    reg.complete = !oneIn(8);
    return reg;
}

oracle::Table Chance::aTable()
{
    oracle::Table table;
    table.address = below(6) * 100 - 100;
    for (int count = below(9); count > 0; --count) {
        table.entries.push_back(oneIn(4) ? -below(4) : below(14));
    }
    return table;
}

oracle::Mapping Chance::mapping()
{
    oracle::Mapping result;
    for (const char* name : {"bool", "u8", "S8", "u16", "s16", "U32", "s32", "Float", "string", "struct",
                             "vector", "uint16", "float"}) {
        if (!oneIn(6)) {
            result.types[name] = below(14); // codes may meet, and 0 is one of them
        }
    }
    result.classes = {{"a", 1}, {"b", oneIn(4) ? 1 : 2}};
    result.fields = {{"x", 1}, {"y", 2}};
    for (int count = below(14); count > 0; --count) {
        result.registers.push_back(aRegister());
    }
    for (int count = below(5); count > 0; --count) {
        result.tables.push_back(aTable());
    }
    return result;
}

std::string Chance::payload()
{
    if (oneIn(3)) { // decimal text, never halfway between two whole numbers
        return any<std::string>({"0", "false", "", "17", "65536", "3.5x", "pump"}) +
               any<std::string>({"", "", "1", "7.3", ".2"});
    }
    if (oneIn(6)) {
        return any<std::string>({"-12.3", "1e6", "-0.001", "123456.7", "0.1"});
    }
    std::string octets;
    for (int count = below(7); count > 0; --count) {
        octets += any<char>({'\x00', '\x01', '\x7f', char(0x80), char(0xff), char(1 + below(126))});
    }
    return octets;
}

std::vector<oracle::Item> Chance::items()
{
    std::vector<oracle::Item> result;
    for (int count = below(12); count > 0; --count) {
        result.push_back({1 + below(2), 1 + below(2), below(3), below(14), payload()});
    }
    return result;
}

QString text(const std::string& octets)
{
    return QString::fromStdString(octets);
}

QJsonObject toJson(const std::map<std::string, long>& members)
{
    QJsonObject result;
    for (const auto& [name, number] : members) {
        result.insert(text(name), int(number));
    }
    return result;
}

QByteArray toJson(const oracle::Mapping& mapping, Chance* chance)
{
    QJsonObject classes;
    for (const auto& [name, number] : mapping.classes) {
        classes.insert(text(name), QJsonObject{{QStringLiteral("id"), int(number)},
                                               {QStringLiteral("fields"), toJson(mapping.fields)}});
    }
    QJsonArray registers;
    for (const oracle::Register& reg : mapping.registers) {
        QJsonObject object{{QStringLiteral("id"), int(reg.id)},
                           {QStringLiteral("name"), QStringLiteral("n")},
                           {QStringLiteral("mb_type"), text(reg.mbType)},
                           {QStringLiteral("ci_class"), text(reg.ciClass)},
                           {QStringLiteral("ci_field"), text(reg.ciField)},
                           {QStringLiteral("ci_index"), int(reg.index)},
                           {QStringLiteral("ci_type"), text(reg.ciType)}};
        if (!reg.complete) {
            object.insert(object.keys().at(chance->below(object.size())), QJsonValue(true));
        }
        if (chance->oneIn(2)) {
            object.insert(QStringLiteral("default"), chance->below(100));
        }
        registers.append(object);
    }
    QJsonArray tables;
    for (const oracle::Table& table : mapping.tables) {
        QJsonArray ids;
        for (const long entry : table.entries) {
            ids.append(int(entry));
        }
        tables.append(QJsonObject{{QStringLiteral("address"), int(table.address)},
                                  {QStringLiteral("mode"), QStringLiteral("rw")},
                                  {QStringLiteral("registers"), ids}});
    }
    const QJsonObject ci{{QStringLiteral("types"), toJson(mapping.types)},
                         {QStringLiteral("classes"), classes}};
    return QJsonDocument(QJsonObject{{QStringLiteral("ci"), ci},
                                     {QStringLiteral("registers"), registers},
                                     {QStringLiteral("tables"), tables}})
        .toJson();
}

QList<core_tmp> toItems(const std::vector<oracle::Item>& items)
{
    QList<core_tmp> result;
    for (const oracle::Item& item : items) {
        result.append({quint16(item.ciClass), quint16(item.ciField), quint8(item.index), quint8(item.type),
                       quint16(item.octets.size()), QByteArray::fromStdString(item.octets)});
    }
    return result;
}

std::string lengths(const QString& initFile)
{
    QFile file(initFile);
    std::ostringstream result;
    if (file.open(QIODevice::ReadOnly)) {
        const QJsonObject init = QJsonDocument::fromJson(file.readAll()).object();
        for (const QJsonValue table : init.value(QStringLiteral("tables")).toArray()) {
            result << table[QStringLiteral("address")].toInt() << ':'
                   << table[QStringLiteral("length")].toInt() << ' ';
        }
    }
    return result.str();
}

std::string lengths(const oracle::Bridge& expected)
{
    std::ostringstream result;
    for (const oracle::Table& table : expected.tables()) {
        result << table.address << ':' << expected.length(table.address) << ' ';
    }
    return result.str();
}

/// One frame, as the command would read if every word were written with a stream.
std::string command(const oracle::Bridge& expected, const std::vector<long>& addresses)
{
    std::ostringstream result;
    result << R"({"cmd":"setconfig","data":[)";
    const char* between = "";
    for (const long address : addresses) {
        result << between << R"({"address":)" << address << R"(,"values":[)";
        const char* comma = "";
        for (const int word : expected.render(address)) {
            result << comma << word;
            comma = ",";
        }
        result << "]}";
        between = ",";
    }
    result << "]}";
    return result.str();
}

} // namespace

void tst_ModbusProperty::randomMappings_data()
{
    QTest::addColumn<quint32>("seed");
    for (const quint32 seed : {1U, 4711U, 20240513U, 0xC0FFEEU}) {
        QTest::addRow("seed %u: bridge and oracle agree", seed) << seed;
    }
}

void tst_ModbusProperty::randomMappings()
{
    QFETCH(quint32, seed);
    const QTemporaryDir directory;
    const ScopedSetting<QString> mode("ModbusServer", "ModbusMode", QStringLiteral("tcp"));
    int words = 0;
    for (int round = 0; round < mappingsPerSeed; ++round) {
        const quint32 roundSeed = seed + quint32(round) * 7919U;
        Chance chance(roundSeed);
        const oracle::Mapping mapping = chance.mapping();
        QByteArray json = toJson(mapping, &chance);
        if (round % 2 != 0) { // not plain: read by Qt's parser
            json.replace(0, 1, R"({"scale": 0.5,)");
        }
        const auto where = [&] {
            return "mapping seed " + std::to_string(roundSeed) + "\n" + json.toStdString();
        };
        oracle::Bridge expected(mapping);
        ModbusInterface bridge;
        const LogRecorder log;
        QVERIFY2(loadMapping(&bridge, json), where().c_str());
        for (int frame = 0; frame < framesPerMapping; ++frame) {
            const std::vector<oracle::Item> items = chance.items();
            const std::vector<long> addresses = expected.update(items);
            const QVector<int> updated = bridge.CheckTableToUpdate(toItems(items));
            const std::string actual =
                ModbusInterface::GenerateDbusUpdateQuery(bridge.ComputeRawData(updated)).toStdString();
            const std::string wanted = command(expected, addresses);
            words += int(std::count(wanted.begin(), wanted.end(), ','));
            QVERIFY2(actual == wanted,
                     (actual + "\ninstead of\n").append(wanted).append("\nat ").append(where()).c_str());
        }
        QVERIFY(bridge.GenerateDbusInit(directory.path()));
        const std::string actual = lengths(directory.filePath(QStringLiteral("mbserver_init.dbus")));
        QVERIFY2(actual == lengths(expected), (actual + "\nat " + where()).c_str());
    }
    QVERIFY(words > 1000); // the chances are such that there is something to compare
}

QTEST_GUILESS_MAIN(tst_ModbusProperty)

#include "tst_modbusproperty.moc"
