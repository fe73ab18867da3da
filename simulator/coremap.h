// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"

#include <QList>
#include <QString>

namespace Simulator {

/// How a controller value is represented on the wire; the canonical names of the mapping file's types.
enum class CoreType
{
    Bool,
    Uint8,
    Int8,
    Uint16,
    Int16,
    Uint32,
    Int32,
    Float,
    String,
    Other
};

/// One controller value that a mapping file assigns to a register.
struct CorePoint
{
    int registerId = 0;
    QString name;
    quint16 ciClass = 0;
    quint16 ciField = 0;
    quint8 instance = 0;
    quint8 typeCode = 0;
    CoreType type = CoreType::Other;
};

/// Reads the controller values that the mapping file at `path` mentions, in file order, one per coordinate.
/// Refuses a mapping in which a register names no known class, field, index or type.
Varnel::Outcome<QList<CorePoint>> readCoreMap(const QString& path);

} // namespace Simulator
