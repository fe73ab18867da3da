// SPDX-License-Identifier: MIT
#pragma once

#include <QTemporaryDir>

#include "files.h"
#include "modbusinterface.h"

/// A mapping file in a directory of its own.
class MappingFile
{
public:
    explicit MappingFile(const QByteArray& text) { writeFile(path(), text); }

    QString path() const { return directory.filePath(QStringLiteral("modbus.map")); }

private:
    QTemporaryDir directory;
};

/// A mapping text with all types, one class "c" (number 7, fields "f" 3 and "g" 4) and these registers and
/// tables, each a comma-separated list of JSON objects.
inline QByteArray mappingText(const QByteArray& registers, const QByteArray& tables)
{
    return R"({"ci": {"types": {"bool": 1, "u8": 2, "s8": 3, "u16": 4, "s16": 5, "u32": 6, "s32": 7, "float": 8,
        "string": 9, "struct": 10, "vector": 11}, "classes": {"c": {"id": 7, "fields": {"f": 3, "g": 4}}}},
        "registers": [)" +
           registers + R"(], "tables": [)" + tables + "]}";
}

/// A register definition for mappingText: the value of field "f", instance `index`.
inline QByteArray registerText(int id, const QByteArray& mbType, const QByteArray& ciType, int index = 0)
{
    return R"({"id": )" + QByteArray::number(id) + R"(, "name": "r)" + QByteArray::number(id) +
           R"(", "mb_type": ")" + mbType + R"(", "ci_class": "c", "ci_field": "f", "ci_index": )" +
           QByteArray::number(index) + R"(, "ci_type": ")" + ciType + R"("})";
}

/// A table definition for mappingText.
inline QByteArray tableText(int address, const QByteArray& ids, const QByteArray& mode = "r")
{
    return R"({"name": "t)" + QByteArray::number(address) + R"(", "mode": ")" + mode + R"(", "address": )" +
           QByteArray::number(address) + R"(, "registers": [)" + ids + "]}";
}

/// Loads the mapping `text` into `bridge`.
inline bool loadMapping(Varnel::ModbusInterface* bridge, const QByteArray& text)
{
    const MappingFile file(text);
    return bridge->LoadConfig(file.path());
}

/// One item of a Core section: field "f" (number 3) of class "c" (number 7) of mappingText.
inline Varnel::core_tmp coreItem(int index, int type, const QByteArray& payload)
{
    return {7, 3, quint8(index), quint8(type), quint16(payload.size()), payload};
}
