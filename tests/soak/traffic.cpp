// SPDX-License-Identifier: MIT
#include "traffic.h"

#include <chrono>

#include <QByteArrayList>

namespace {

constexpr qint64 valuesPeriod = 50;
constexpr qint64 configurationPeriod = 500;
constexpr quint8 registers = 8;

} // namespace

Traffic::Traffic()
{
    pace.setTimerType(Qt::PreciseTimer);
    pace.setInterval(std::chrono::milliseconds(20));
    connect(&pace, &QTimer::timeout, this, &Traffic::sendFrame);
}

QByteArray Traffic::modbusMap()
{
    QByteArrayList list;
    QByteArrayList numbers;
    for (int i = 0; i < registers; ++i) {
        numbers += QByteArray::number(10 + i);
        list +=
            R"({"id": )" + numbers.last() +
            R"(, "name": "r", "mb_type": "u16", "ci_class": "c", "ci_field": "f", "ci_type": "u16", "ci_index": )" +
            QByteArray::number(i) + "}";
    }
    return R"({"info": {"mapping": "Soak", "date": "today", "target": "R7M"}, "ci": {"types": {"u16": 4},)"
           R"( "classes": {"c": {"id": 4660, "fields": {"f": 258}}}}, "registers": [)" +
           list.join(',') + R"(], "tables": [{"name": "t", "mode": "rw", "address": 100, "registers": [)" +
           numbers.join(',') + "]}]}";
}

void Traffic::sendFrame()
{
    ++frames;
    const auto output = [this](int number) {
        return static_cast<quint8>(held ? held->at(number) - '0' : frames / (number + 1) % 4);
    };
    Frame frame(++sequence);
    frame.devInfo(language.constData()).gpioState(output(0), output(1), output(2), output(3));
    if (frames % configurationPeriod == 0) {
        frame.add(configuration());
    }
    if (frames % valuesPeriod == 0) {
        frame.section(Core, values());
    }
    controller.send(frame);
}

QByteArray Traffic::values() const
{
    QByteArray items;
    for (quint8 i = 0; i < registers; ++i) {
        items += coreItem(4660, 258, i, 4, littleEndian16(static_cast<quint16>(frames + i)));
    }
    return items;
}

/// Another network, SNMP and Modbus configuration in turn, none like the one before.
QByteArray Traffic::configuration() const
{
    const qint64 turn = frames / configurationPeriod;
    switch (turn % 3) {
    case 0:
        return netCfgSection(true, false)
            .replace(hex("c0 a8 01 0a"), hex("c0 a8 01") + static_cast<char>(turn % 250));
    case 1:
        return snmpCfgSection(5).replace("community", QByteArray::number(turn % 1000).rightJustified(9, '0'));
    default:
        return modbusCfgSection(1, static_cast<quint16>(1000 + turn % 1000));
    }
}
