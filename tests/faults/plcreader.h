// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>
#include <thread>

#include <QtGlobal>

class ModbusClient;

/// A PLC that reads the number at register 102 ten times a second, in a thread of its own, and connects again
/// when the server has gone.
class PlcReader
{
    Q_DISABLE_COPY_MOVE(PlcReader)

public:
    PlcReader();
    ~PlcReader();

    /// The number last read; 0 before the first.
    quint32 value() const { return last; }
    /// How many reads failed.
    int failures() const { return failed; }

private:
    void run();
    void readOnce();

    std::unique_ptr<ModbusClient> client;
    std::atomic<quint32> last{0};
    std::atomic<int> failed{0};
    std::atomic<bool> ending{false};
    std::thread thread;
};
