// SPDX-License-Identifier: MIT
#include "plcreader.h"

#include <chrono>

#include "modbusbench.h"

namespace {

constexpr std::chrono::milliseconds period{100};
constexpr int registerNumber = 102;

} // namespace

PlcReader::PlcReader()
    : thread([this] { run(); })
{
}

PlcReader::~PlcReader()
{
    ending = true;
    thread.join();
}

void PlcReader::run()
{
    while (!ending) {
        readOnce();
        std::this_thread::sleep_for(period);
    }
}

void PlcReader::readOnce()
{
    if (!client) {
        client = ModbusClient::tcp(502);
        if (!client->connect()) {
            client.reset();
            ++failed;
            return;
        }
    }
    const QVector<quint16> words = client->holding(registerNumber, 2);
    if (words.size() != 2) {
        client.reset();
        ++failed;
        return;
    }
    last = static_cast<quint32>(words.at(0)) << 16U | words.at(1);
}
