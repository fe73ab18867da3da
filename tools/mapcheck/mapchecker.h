// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>
#include <QString>
#include <QVector>

#include "jsonlocator.h"
#include "modbusinterface.h"
#include "registerlist.h"

class QJsonDocument;

/// One finding about a mapping file.
struct Finding
{
    enum class Severity
    {
        Warning, ///< works, but probably not as intended
        Error,   ///< a value is not where it should be
    };

    Severity severity = Severity::Error;
    int line = 0; ///< from 1
    QString text;
};

/// Checks a mapping file. The panel's own loader reads it as well, and every statement about the result
/// (which registers there are, how wide they are, which addresses they get) comes from the loader's model.
class MapChecker
{
public:
    /// Checks the mapping `text`, which `bridge` has loaded from the same file.
    MapChecker(const QByteArray& text, Varnel::ModbusInterface* bridge);

    /// Everything found, in the order of the lines.
    [[nodiscard]] const QVector<Finding>& findings() const { return found; }

    [[nodiscard]] int count(Finding::Severity severity) const;

private:
    /// A register or table definition: its index in the file and its members.
    struct Definition
    {
        int index = 0;
        QJsonObject members;
    };

    void report(Finding::Severity severity, const JsonPath& path, const QString& text);
    void error(const JsonPath& path, const QString& text) { report(Finding::Severity::Error, path, text); }
    void warning(const JsonPath& path, const QString& text)
    {
        report(Finding::Severity::Warning, path, text);
    }

    void checkSchema(const QJsonDocument& document);
    void noteFault(const JsonPath& path);
    [[nodiscard]] bool isKnownFault(const JsonPath& path) const;
    [[nodiscard]] bool isLoadable() const;
    void checkTypes();
    void checkNumbers(const QJsonObject& objects, const JsonPath& path, const QString& kind);
    void checkClasses();
    void checkRegisters();
    void checkRegister(const Definition& reg);
    void noteFaultyRegister(int index);
    void checkTypeName(const Definition& reg, const char* member);
    void checkSource(const Definition& reg);
    void checkEncoding(const Definition& reg);
    void checkFloats();
    void checkTables();
    void checkEntries(const Definition& table);
    void checkUnlisted();
    void checkRows();
    void checkAlignment(const QVector<RegisterRow>& rows);
    void checkLengths();
    JsonPath entryPath(const RegisterRow& row) const;

    Varnel::ModbusInterface* const bridge;
    std::optional<JsonLocator> places;
    QJsonObject mapping;
    QSet<QString> typeNames;         ///< names and aliases that the mapping defines
    QSet<QString> faultyTypes;       ///< names and aliases of the types whose definition is an error
    QSet<int> faultyRegisters;       ///< indices of registers with an error of their own
    QSet<int> faultyIds;             ///< their ids, as far as they can be read
    QSet<int> faultyTables;          ///< indices of tables with an error of their own
    QVector<int> silentFloats;       ///< indices of registers sent as float that have no "note"
    QHash<int, int> registerIndices; ///< index of the last definition by id
    QHash<int, int> tableIndices;    ///< index of the last definition by base address
    QHash<QString, int> coordinates; ///< id of the first register by class, field, index and type
    QVector<Finding> found;
};
