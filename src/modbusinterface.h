// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QString>
#include <QVariant>
#include <QVector>

#include "modbustypes.h"
#include "rlprecords.h"

class QJsonArray;

namespace Varnel {

/// The coordinate of one controller value.
struct CiCoord_s
{
    int ciClass = 0;
    int ciField = 0;
    int ciIndex = 0; ///< instance index
    int ciType = 0;  ///< type code of the controller's representation
};

bool operator==(const CiCoord_s& left, const CiCoord_s& right);
uint qHash(const CiCoord_s& coord);
/// The hash that containers use. The plain one gives only a thousand different values for 100 000
/// neighbouring coordinates.
uint qHash(const CiCoord_s& coord, uint seed);

/// One register definition of the mapping file.
struct MbRegister_s
{
    CiCoord_s ci; ///< the controller value shown in this register
    QString name;
    int mbtype = 0;     ///< type code of the Modbus representation
    QVariant value = 0; ///< current value: a bool, an int, an unsigned int, a float or a string
};

/// The access to a table that the mapping file grants a Modbus client. The server serves every table
/// read-only.
enum AccessMode
{
    ACCESS_NO = 0,
    ACCESS_RO = 1,
    ACCESS_WO = 2,
    ACCESS_RW = 3,
};

/// One block of the Modbus address space.
struct MbTable_s
{
    QString name;
    AccessMode mode = ACCESS_NO;
    QVector<int> registers; ///< register ids in file order; a negative entry is a gap of that many words
};

/// Where a controller value goes.
struct MbLookup_s
{
    int reg = 0;         ///< id of the register that it feeds
    QVector<int> tables; ///< base addresses of the tables to refresh, without duplicates
};

/// The bridge from the controller's values to the Modbus server: reads the mapping file, keeps the current
/// value of every register, and hands the server, by scripts, its start-up description and every change.
/// Scripts run synchronously. Main thread only.
class ModbusInterface : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ModbusInterface)

public:
    explicit ModbusInterface(QObject* parent = nullptr);
    ~ModbusInterface() override;

    /// Reads the mapping file at `filepath` into the model. False, with one log line, when it is missing, is
    /// not JSON or lacks one of its three main members. Bad registers are skipped and bad tables taken with
    /// zero values, both silently. A second call adds to what is there; nothing is cleared.
    bool LoadConfig(const QString& filepath);

    /// Enters the types of the mapping's "ci"."types" and their aliases.
    void LoadType(const QJsonObject& typetable);

    /// The code of the type with this name or alias. An unknown name gives 0 and is entered with the code 0.
    int GetCiTypeIndex(const QString& type);

    /// The type with this name or alias. An unknown name gives a default record, which is entered as well.
    /// Unused, kept.
    MbType_s GetTypeInfo(const QString& type);

    /// "r", "w" and "rw" in lower case; anything else is ACCESS_NO.
    static AccessMode AccessModefromString(const QString& smode);

    /// Stores the value of every mapped item and returns the base addresses of the tables to refresh, in the
    /// order in which they are first needed, without duplicates. Items that no table shows are ignored.
    QVector<int> CheckTableToUpdate(const QList<core_tmp>& coreupdate);

    /// Decodes `qbData` by the controller's type in `coord` and stores the result as the value of the
    /// register `regid`, which is created if necessary. Always true.
    bool SetRegisterValue(int regid, const CiCoord_s& coord, const QByteArray& qbData);

    /// Renders the tables with these base addresses from the current values. An unknown address gives a table
    /// without words. A table ends at 65536 words, the whole Modbus address space.
    QVector<MbRawData_s> ComputeRawData(const QVector<int>& tableupdate);

    /// Writes the server's start-up description into the directory `initpath`, which is created if necessary.
    /// False, with one log line and no file, when the configured mode or interface is unusable.
    bool GenerateDbusInit(const QString& initpath);

    /// Runs the start script with the path of the description in `initfilepath`. Always true.
    bool DbusStartMonitor(const QString& initfilepath);

    /// Runs the stop script. Always true.
    bool DbusStopMonitor();

    /// The command, as compact JSON, that gives the server these tables.
    static QString GenerateDbusUpdateQuery(const QVector<MbRawData_s>& rawdata);

    /// Runs the update script with the command `data`; without the script nothing happens. Always true. A
    /// command that is too long for one argument is dropped, and the first one of a row is logged.
    bool DbusUpdateRegisters(const QString& data);

    const QMap<int, MbRegister_s>& GetRegisterList() const { return registerList; }
    const QMap<int, MbTable_s>& GetTableList() const { return tableList; }
    const QHash<CiCoord_s, MbLookup_s>& GetCiLookup() const { return ciLookup; }
    const QMap<int, MbType_s>& GetCiTypeList() const { return ciTypeList; }
    const QMap<QString, int>& GetCiTypeLookup() const { return ciTypeLookup; }
    /// The mapping file as it was read last.
    const QJsonObject& GetJsonCfg() const { return jsonCfg; }

private:
    struct Definition;

    bool LoadDocument();
    void LoadRegisters(const QJsonArray& definitions, const QJsonObject& ci);
    void LoadRegister(const Definition& definition, const QJsonObject& classes);
    void LoadTables(const QJsonArray& definitions);
    void BuildLookup();
    qint64 TableLength(const MbTable_s& table);
    QVector<quint16> RenderTable(int address, int limit);
    void ReportCut(int address);

    QMap<int, MbRegister_s> registerList;  ///< by register id
    QMap<int, MbTable_s> tableList;        ///< by base address
    QHash<CiCoord_s, MbLookup_s> ciLookup; ///< where a controller value goes
    QMap<int, MbType_s> ciTypeList;        ///< by type code
    QMap<QString, int> ciTypeLookup;       ///< type code by name or alias
    QJsonObject jsonCfg;                   ///< the whole mapping file; only tests read it
    QSet<int> cutTables;                   ///< tables reported as too long for the address space
    bool commandTooLong = false;           ///< the last update command did not fit one argument
};

} // namespace Varnel
