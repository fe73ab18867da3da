// SPDX-License-Identifier: MIT
#include "traffic.h"

#include <chrono>

#include <QByteArrayList>

namespace {

constexpr std::chrono::milliseconds framePeriod{20};
constexpr qint64 valuesPeriod = 50;
constexpr qint64 configurationPeriod = 500;
constexpr int registers = 8;

QByteArray little(qint64 value, int width)
{
    QByteArray octets;
    for (int i = 0; i < width; ++i) {
        octets += static_cast<char>(value >> (8 * i));
    }
    return octets;
}

/// An SNMP section: V3 with privacy, texts and one receiver of traps; `variant` is in the first text.
QByteArray snmpBody(qint64 variant)
{
    constexpr int texts = 17;
    constexpr int textWidth = 32;
    QByteArray body = hex("05 00 01 02 01 03 02 02");
    for (int i = 0; i < texts; ++i) {
        const QByteArray text = "t" + QByteArray::number(i == 0 ? variant : i);
        body += text.leftJustified(textWidth, '\0');
    }
    return body + hex("a1 00 | a2 00 | 0a 00 00 05 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00");
}

} // namespace

Traffic::Traffic(QObject* parent)
    : QObject(parent)
{
    pace.setTimerType(Qt::PreciseTimer);
    pace.setInterval(framePeriod);
    connect(&pace, &QTimer::timeout, this, &Traffic::sendFrame);
}

QByteArray Traffic::modbusMap()
{
    QByteArrayList list;
    QByteArrayList numbers;
    for (int i = 0; i < registers; ++i) {
        const QByteArray number = QByteArray::number(10 + i);
        numbers += number;
        list += R"({"id": )" + number + R"(, "name": "r)" + number +
                R"(", "mb_type": "u16", "ci_class": "c", "ci_field": "f", "ci_index": )" +
                QByteArray::number(i) + R"(, "ci_type": "u16"})";
    }
    return R"({"info": {"mapping": "Soak", "date": "today", "target": "R7M"}, "ci": {"types": {"u16": 4},)"
           R"( "classes": {"c": {"id": 4660, "fields": {"f": 258}}}}, "registers": [)" +
           list.join(',') + R"(], "tables": [{"name": "t", "mode": "rw", "address": 100, "registers": [)" +
           numbers.join(',') + "]}]}";
}

void Traffic::sendFrame()
{
    ++frames;
    const Outputs now = outputs();
    Frame frame(++sequence);
    frame.devInfo(language.constData()).gpioState(now.good, now.warning, now.critical, now.buzzer);
    if (frames % configurationPeriod == 0) {
        addConfiguration(&frame);
    }
    if (frames % valuesPeriod == 0) {
        addValues(&frame);
    }
    controller.send(frame);
}

Outputs Traffic::outputs() const
{
    const auto turn = [this](int divisor) { return static_cast<quint8>(frames / divisor % 4); };
    return held.value_or(Outputs{turn(1), turn(2), turn(3), turn(4)});
}

void Traffic::addValues(Frame* frame) const
{
    QByteArray items;
    for (int i = 0; i < registers; ++i) {
        items += hex("34 12 02 01") + little(i, 1) + hex("04 02 00") + little(frames + i, 2);
    }
    frame->section(Core, items);
}

void Traffic::addConfiguration(Frame* frame) const
{
    const qint64 turn = frames / configurationPeriod;
    switch (turn % 3) {
    case 0:
        frame->section(NetCfg, hex("01 00 | c0 a8 01") + little(turn % 250, 1) +
                                   hex("ff ff ff 00 | c0 a8 01 01 | c0 a8 01 02 | c0 a8 01 03"));
        break;
    case 1:
        frame->section(SnmpCfg, snmpBody(turn));
        break;
    default:
        frame->modbusCfg(1, static_cast<quint16>(1000 + turn % 1000));
        break;
    }
}
