// SPDX-License-Identifier: MIT
// Loading a mapping, as a ratio to its goal; rendering an update, as a ratio to what Qt's JSON writer needs
// for the same command. Options: --rounds N, --quick.
#include <memory>

#include <QJsonDocument>

#include "figures.h"
#include "mappingfile.h"
#include "modbusinterface.h"

using namespace Varnel;
using namespace VarnelBench;

namespace {

/// A mapping of this number of registers of one word each, in tables of 1000.
QByteArray mapping(int registers)
{
    static const char* const types[] = {"bool", "u8", "s8", "u16", "s16"};
    QByteArray list;
    QByteArray tables;
    QByteArray ids;
    for (int id = 1; id <= registers; ++id) {
        const QByteArray type = types[id % 5];
        list += (id > 1 ? ",\n" : "") + registerText(id, type, type, id);
        ids += (ids.isEmpty() ? "" : ", ") + QByteArray::number(id);
        if (id % 1000 == 0) {
            tables += (tables.isEmpty() ? "" : ",\n") + tableText(id - 1000, ids);
            ids.clear();
        }
    }
    return mappingText(list, tables);
}

/// The time for 1000 registers of ever larger mappings, beside the goal: the same at every size.
void benchLoad(int rounds)
{
    std::vector<Series> figures{{"goal", 0, std::vector<double>(size_t(rounds), 5000)}};
    // A large mapping does not fit the processor's cache, so it takes up to half as long again.
    for (const auto& [thousands, target] : {std::pair(1, 1.0), std::pair(10, 1.5), std::pair(100, 1.5)}) {
        const MappingFile file(mapping(thousands * 1000));
        // The model stays until the next round: its destruction is not part of the measurement.
        std::unique_ptr<ModbusInterface> bridge;
        const Work load{"in a mapping of " + std::to_string(thousands * 1000),
                        [&] { bridge->LoadConfig(file.path()); }, target,
                        [&] { bridge = std::make_unique<ModbusInterface>(); }};
        figures.push_back(measureInTurn({load}, rounds, thousands).front());
        if (bridge->GetRegisterList().size() != thousands * 1000) {
            qFatal("the mapping of the benchmark does not load");
        }
    }
    printFigure("load of 1000 registers with its log", "us", figures);
}

void benchUpdate(int rounds)
{
    constexpr int repetitions = 20; // one alone is too short for the clock
    const auto repeated = [](auto run) {
        return [run] {
            for (int i = 0; i < repetitions; ++i) {
                run();
            }
        };
    };
    ModbusInterface bridge;
    loadMapping(&bridge, mapping(10000));
    const QVector<int> addresses = bridge.GetTableList().keys().toVector();
    const auto render = [&] {
        return ModbusInterface::GenerateDbusUpdateQuery(bridge.ComputeRawData(addresses));
    };
    const QJsonDocument document = QJsonDocument::fromJson(render().toLatin1());
    printFigure(
        "update of 10 000 words in 10 tables", "us",
        measureInTurn({{"Qt's JSON writer", repeated([&] { document.toJson(QJsonDocument::Compact); })},
                       {"panel, rendered and written", repeated(render), 1.3}},
                      rounds, repetitions));
}

} // namespace

int main(int argc, char* argv[])
{
    const int rounds = roundsFrom(argc, argv);
    dropLog();
    benchLoad(rounds);
    benchUpdate(rounds);
    return 0;
}
