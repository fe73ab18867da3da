// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVector>

#include "jsonlocator.h"

/// Checks JSON values against a schema that uses a part of JSON Schema draft 7: $ref within the schema, type,
/// enum, minimum, maximum, items, required, properties, additionalProperties and the pattern of
/// propertyNames.
///
/// Debian's header-only validator, valijson, does not replace it. For a wrong value it reports "Value type
/// not permitted by 'type' constraint." or "Failed to match against any enum values.", so the technician does
/// not learn which type or values are allowed. It reports each violation once more for every object around
/// it, and it ignores propertyNames.
class JsonSchema
{
public:
    /// One place where a value differs from the schema.
    struct Violation
    {
        JsonPath path;
        QString text;
    };

    explicit JsonSchema(const QJsonObject& schema);

    /// Every violation in `value`, from the top down.
    [[nodiscard]] QVector<Violation> check(const QJsonValue& value) const;

private:
    const QJsonObject schema;
};
