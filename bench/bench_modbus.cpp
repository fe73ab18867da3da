// SPDX-License-Identifier: MIT
// Loading a mapping, as a ratio to its goal; rendering an update, as a ratio to what Qt's JSON writer needs
// for the same command. To be run in the sandbox. Options: --rounds N, --quick.
#include <memory>
#include <utility>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include "figures.h"
#include "modbusinterface.h"
#include "scriptfloor.h"
#include "settings.h"

using namespace Varnel;
using namespace VarnelBench;

namespace {

constexpr int instances = 200;
constexpr int fieldsPerClass = 40;

QByteArray number(int value)
{
    return QByteArray::number(value);
}

/// A mapping as an engineer's script writes it: this number of registers of one word each, in tables.
QByteArray mappingText(int registers, int wordsPerTable = 1000)
{
    static const char* const types[] = {"bool", "u8", "s8", "u16", "s16"};
    QByteArray text(
        "{\n    \"info\": {\"mapping\": \"bench\", \"date\": \"2024-05-13\", \"target\": \"R7M\"},\n"
        "    \"ci\": {\n        \"types\": {\"bool\": 1, \"u8\": 2, \"s8\": 3, \"u16\": 4, \"s16\": 5},\n"
        "        \"classes\": {\n");
    const int classes = 1 + (registers - 1) / (instances * fieldsPerClass);
    for (int i = 0; i < classes; ++i) {
        text += "            \"class" + number(i) + "\": {\"id\": " + number(i + 1) + ", \"fields\": {";
        for (int field = 0; field < fieldsPerClass; ++field) {
            text += (field > 0 ? ", \"field" : "\"field") + number(field) + "\": " + number(field + 1);
        }
        text += i + 1 < classes ? "}},\n" : "}}\n";
    }
    text += "        }\n    },\n    \"registers\": [\n";
    for (int i = 0; i < registers; ++i) {
        const QByteArray type = types[i % 5];
        text += "        {\"id\": " + number(i + 1) + ", \"name\": \"Register " + number(i + 1) +
                "\", \"mb_type\": \"" + type + "\",\n         \"ci_class\": \"class" +
                number(i / (instances * fieldsPerClass)) + "\", \"ci_field\": \"field" +
                number(i / instances % fieldsPerClass) + "\", \"ci_index\": " + number(i % instances) +
                ", \"ci_type\": \"" + type + "\", \"default\": 0}" + (i + 1 < registers ? ",\n" : "\n");
    }
    text += "    ],\n    \"tables\": [\n";
    for (int first = 1; first <= registers; first += wordsPerTable) {
        text += "        {\"name\": \"table" + number(first) +
                "\", \"mode\": \"r\", \"address\": " + number(first) + ", \"registers\": [";
        const int last = std::min(first + wordsPerTable - 1, registers);
        for (int id = first; id <= last; ++id) {
            text += (id > first ? ", " : "") + number(id);
        }
        text += last < registers ? "]},\n" : "]}\n";
    }
    return text + "    ]\n}\n";
}

void writeMapping(const QString& path, const QByteArray& text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text) != text.size()) {
        qFatal("cannot write the mapping");
    }
}

/// The time for 1000 registers of ever larger mappings, beside the goal: the same at every size.
void benchLoad(int rounds)
{
    constexpr double goal = 5000;
    constexpr int registersPerShare = 1000;
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("modbus.map"));
    std::vector<Series> figures{{"goal", std::vector<double>(size_t(rounds), goal), 0}};
    // A large mapping does not fit the processor's cache, so it takes up to half as long again.
    for (const auto& [registers, target] :
         {std::pair(1000, 1.0), std::pair(10000, 1.5), std::pair(100000, 1.5)}) {
        writeMapping(path, mappingText(registers));
        // The model stays until the next round: its destruction is not part of the measurement.
        std::unique_ptr<ModbusInterface> bridge;
        const Work load{"as one of " + std::to_string(registers), [&] { bridge->LoadConfig(path); }, target,
                        [&] { bridge = std::make_unique<ModbusInterface>(); }};
        figures.push_back(measureInTurn({load}, rounds, registers / registersPerShare).front());
        if (bridge->GetRegisterList().size() != registers) {
            qFatal("the mapping of the benchmark does not load");
        }
    }
    printFigure("load of 1000 registers with its log", "us", figures);
}

/// Many repetitions a round: one alone is too short for the clock.
constexpr int repetitions = 20;

template<typename Run>
std::function<void()> repeated(Run run)
{
    return [run] {
        for (int i = 0; i < repetitions; ++i) {
            run();
        }
    };
}

/// A Core section's items, and how large the tables are that show them.
struct Update
{
    int items = 0;
    int words = 0;
    int tables = 0;

    std::string title() const
    {
        return std::to_string(items) + " items, " + std::to_string(words) + " words in " +
               std::to_string(tables) + (tables == 1 ? " table" : " tables");
    }
};

/// Loads a mapping for the update and returns its items.
QList<core_tmp> prepare(ModbusInterface* bridge, const Update& update)
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("modbus.map"));
    writeMapping(path, mappingText(update.words, update.words / update.tables));
    bridge->LoadConfig(path);
    QList<core_tmp> core;
    int position = 0;
    for (const MbRegister_s& reg : bridge->GetRegisterList()) {
        if (position++ % (update.words / update.items) == 0) { // spread over the tables
            core.append({quint16(reg.ci.ciClass), quint16(reg.ci.ciField), quint8(reg.ci.ciIndex),
                         quint8(reg.ci.ciType), 2, QByteArray::fromHex("1f40")});
        }
    }
    if (bridge->CheckTableToUpdate(core).size() != std::min(update.items, update.tables)) {
        qFatal("the update of the benchmark does not reach its tables");
    }
    return core;
}

void benchUpdate(const Update& update, int rounds)
{
    ModbusInterface bridge;
    const QList<core_tmp> core = prepare(&bridge, update);
    const QVector<int> addresses = bridge.CheckTableToUpdate(core);
    const QVector<MbRawData_s> rendered = bridge.ComputeRawData(addresses);
    const QJsonDocument document =
        QJsonDocument::fromJson(ModbusInterface::GenerateDbusUpdateQuery(rendered).toLatin1());
    const auto render = [&] { ModbusInterface::GenerateDbusUpdateQuery(bridge.ComputeRawData(addresses)); };
    printFigure(
        "Core update: " + update.title(), "us",
        measureInTurn({{"Qt writes the command", repeated([&] { document.toJson(QJsonDocument::Compact); })},
                       {"ComputeRawData", repeated([&] { bridge.ComputeRawData(addresses); })},
                       {"rendered and written", repeated(render), 1.3},
                       {"CheckTableToUpdate", repeated([&] { bridge.CheckTableToUpdate(core); })}},
                      rounds, repetitions));
}

/// The whole of an update, from the items to the end of the script that hands it over.
void benchUpdateByScript(const Update& update, const QString& script, int rounds)
{
    ModbusInterface bridge;
    const QList<core_tmp> core = prepare(&bridge, update);
    const auto command = [&] {
        const QVector<int> addresses = bridge.CheckTableToUpdate(core);
        return ModbusInterface::GenerateDbusUpdateQuery(bridge.ComputeRawData(addresses));
    };
    const QByteArray path = QFile::encodeName(script);
    const QByteArray argument = command().toLatin1();
    printFigure("Core update with script: " + update.title(), "us",
                measureScripts({{"posix_spawn, waitpid", [&] { spawnAndWait(path, argument); }},
                                {"panel", [&] { bridge.DbusUpdateRegisters(command()); }}},
                               rounds));
}

} // namespace

int main(int argc, char* argv[])
{
    const int rounds = roundsFrom(argc, argv);
    dropLog();
    qputenv("QT_FORCE_STDERR_LOGGING", "1");
    benchLoad(rounds);
    for (const int items : {10, 100, 1000, 10000}) {
        benchUpdate({items, 10000, 10}, rounds);
    }
    for (const int tables : {1, 100}) {
        benchUpdate({1000, 10000, tables}, rounds);
    }
    benchUpdate({10, 1000, 1}, rounds);
    const QString script = writeScript(Settings::getFilesScriptDir() + QStringLiteral("/mbserverupdate.sh"));
    for (const Update& update : {Update{10, 100, 1}, Update{1000, 10000, 1}, Update{1000, 10000, 100}}) {
        benchUpdateByScript(update, script, rounds);
    }
    return 0;
}
