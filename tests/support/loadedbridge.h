// SPDX-License-Identifier: MIT
#pragma once

#include "logrecorder.h"
#include "mappingfile.h"

/// A bridge that has read a mapping with these registers and tables; what it logged is dropped.
class LoadedBridge : public Varnel::ModbusInterface
{
public:
    explicit LoadedBridge(const QByteArray& registers, const QByteArray& tables = {})
    {
        load(registers, tables);
    }

    /// Reads a further mapping.
    void load(const QByteArray& registers, const QByteArray& tables)
    {
        const LogRecorder log;
        if (!loadMapping(this, mappingText(registers, tables))) {
            qFatal("the mapping of the test does not load");
        }
    }
};
