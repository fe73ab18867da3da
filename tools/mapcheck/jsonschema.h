// SPDX-License-Identifier: MIT
#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QVector>

#include "jsonlocator.h"

/// Checks JSON values against a schema that keeps to a part of JSON Schema draft 7: $ref within the schema,
/// type, enum, minimum, maximum, items, required, properties, additionalProperties and the pattern of
/// propertyNames.
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
