// SPDX-License-Identifier: MIT
#include "loadedbridge.h"
#include "rows.h"

using namespace Varnel;

namespace {

QString quoted(const QString& text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}

QStringList infoLines(const QString& mapping = {}, const QString& date = {}, const QString& target = {})
{
    return {"Mapping =  "_s + quoted(mapping), "Date    =  "_s + quoted(date),
            "Target  =  "_s + quoted(target)};
}

const QString noCi = "CI defs is not an array"_s;
const QString noRegisters = "Register defs is not an array"_s;
const QString noTables = "Table defs is not an array"_s;
const QString undef = "undef"_s;

} // namespace

/// Reading the mapping file: the lines it logs and the model it gives: types and their names, tables,
/// coordinates and the reverse index.
class tst_ModbusLoad : public QObject
{
    Q_OBJECT

private slots:
    void documents_data()
    {
        // text: compact and with its members sorted, as it is logged
        const Rows<QByteArray, QStringList, QString> add("text", "info", "complaint");
        const auto row = [&add](const char* name, const char* text, const QString& complaint = {},
                                const QStringList& info = infoLines()) {
            add(name, QByteArray(text), info, complaint);
        };
        row("complete: loaded",
            R"({"ci":{},"info":{"date":"2024-05-13","mapping":"Panel","target":"R7M"},"registers":[],"tables":[]})",
            {}, infoLines("Panel"_s, "2024-05-13"_s, "R7M"_s));
        row("no info: three empty strings, loaded", R"({"ci":{},"registers":[],"tables":[]})");
        row("info members of the wrong kind: empty strings",
            R"({"ci":{},"info":{"date":[],"mapping":1,"target":null},"registers":[],"tables":[]})");
        row("info not an object: empty strings", R"({"ci":{},"info":"x","registers":[],"tables":[]})");
        row("empty object: ci", "{}", noCi);
        row("top level an array: ci", "[1,2]", noCi);
        row("ci an array: ci", R"({"ci":[],"registers":[],"tables":[]})", noCi);
        row("all three wrong: ci first", R"({"ci":1,"registers":2,"tables":3})", noCi);
        row("registers missing: registers", R"({"ci":{},"tables":[]})", noRegisters);
        row("registers an object, tables wrong: registers first", R"({"ci":{},"registers":{},"tables":3})",
            noRegisters);
        row("tables an object: tables", R"({"ci":{},"registers":[],"tables":{}})", noTables);
    }

    void documents()
    {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, info);
        QFETCH(QString, complaint);
        const MappingFile file(text);
        ModbusInterface bridge;
        LogRecorder log;
        QCOMPARE(bridge.LoadConfig(file.path()), complaint.isEmpty());
        QStringList expected{"Try to open mapping file  "_s + quoted(file.path()), "Json file parsed"_s,
                             quoted(QString::fromUtf8(text))};
        expected += info;
        if (!complaint.isEmpty()) {
            expected << complaint;
        }
        QCOMPARE(log.texts(), expected);
        QCOMPARE(log.lines().size(), expected.size());
        for (const LogRecorder::Line& line : log.lines()) {
            QCOMPARE(line.type, QtDebugMsg);
        }
    }

    void documentIsLoggedCompactAndSorted()
    {
        // The log's own quoting is that of any string: a JSON quote is escaped.
        ModbusInterface bridge;
        LogRecorder log;
        QVERIFY(loadMapping(
            &bridge,
            "{ \"tables\":[],\n \"ci\":{}, \"registers\" : [ ], \"x\": \"a\\\"b\\\\ \xC3\xA9 \\t\" }"));
        QCOMPARE(log.texts().at(2), "\"{\\\"ci\\\":{},\\\"registers\\\":[],\\\"tables\\\":[],"
                                    "\\\"x\\\":\\\"a\\\\\\\"b\\\\\\\\ \xC3\xA9 \\\\t\\\"}\""_s);
    }

    void badDocuments_data()
    {
        const Rows<QByteArray, QString> row("text", "message");
        row("empty file: illegal value", {}, "illegal value"_s);
        row("plain text: illegal value", "hello", "illegal value"_s);
        row("cut in an object: object", "{\"ci\": {", "unterminated object"_s);
        row("two documents: garbage", "{} {}", "garbage at the end of the document"_s);
        row("10 000 deep: refused",
            QByteArray("{\"ci\": ") + QByteArray(10000, '[') + QByteArray(10000, ']') + "}",
            "too deeply nested document"_s);
    }

    void badDocuments()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, message);
        const MappingFile file(text);
        ModbusInterface bridge;
        LogRecorder log;
        QVERIFY(!bridge.LoadConfig(file.path()));
        QCOMPARE(log.texts(),
                 QStringList({"Try to open mapping file  "_s + quoted(file.path()), quoted(message)}));
        QVERIFY(bridge.GetRegisterList().isEmpty());
        QVERIFY(bridge.GetJsonCfg().isEmpty());
    }

    void failuresLeaveTheModel()
    {
        LoadedBridge bridge(registerText(10, "u16", "u16"), tableText(100, "10"));
        LogRecorder log;
        QVERIFY(!loadMapping(&bridge, R"({"ci": {}, "registers": [], "kept": 1})"));
        QCOMPARE(bridge.GetJsonCfg().value("kept"_s).toInt(), 1);
        log.clear();
        QVERIFY(!bridge.LoadConfig("/no such.map"_s));
        QCOMPARE(log.texts(), QStringList({"Try to open mapping file  \"/no such.map\""_s, "\"\""_s}) +
                                  infoLines() + QStringList(noCi));
        QVERIFY(bridge.GetJsonCfg().isEmpty());
        QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({10}));
        QCOMPARE(bridge.GetTableList().keys(), QList<int>({100}));
    }

    void incompleteRegisters_data()
    {
        // from: what is replaced in a complete definition
        // mbTypeEntered: the names of types that its definition enters
        const Rows<QByteArray, QByteArray, bool, bool, bool> row("from", "to", "used", "mbTypeEntered",
                                                                 "ciTypeEntered");
        const auto used = [&row](const char* name, const char* from, const char* to) {
            row(name, QByteArray(from), QByteArray(to), true, true, true);
        };
        const auto skipped = [&row](const char* name, const char* from, const char* to,
                                    bool mbTypeEntered = false, bool ciTypeEntered = false) {
            row(name, QByteArray(from), QByteArray(to), false, mbTypeEntered, ciTypeEntered);
        };
        used("complete", "{", "{");
        used("name empty", "\"r10\"", "\"\"");
        used("ci_index with a fraction", "\"ci_index\": 0", "\"ci_index\": 0.5");
        skipped("id a string", "\"id\": 10", "\"id\": \"10\"");
        skipped("id missing", "\"id\"", "\"ID\"");
        skipped("id null", "\"id\": 10", "\"id\": null");
        skipped("name a number", "\"r10\"", "10");
        skipped("mb_type a number", "\"MB\"", "4");
        skipped("ci_class a number", "\"c\"", "7");
        skipped("ci_class unknown", "\"c\"", "\"C\"", true);
        skipped("ci_field a number", "\"f\"", "3");
        skipped("ci_field unknown", "\"f\"", "\"h\"", true, true);
        skipped("ci_index a string", "\"ci_index\": 0", "\"ci_index\": \"0\"");
        skipped("ci_type an array", "\"CI\"", "[]");
        skipped("an array", registerText(10, "MB", "CI"), "[]");
    }

    void incompleteRegisters()
    {
        QFETCH(QByteArray, from);
        QFETCH(QByteArray, to);
        QFETCH(bool, used);
        QFETCH(bool, mbTypeEntered);
        const QByteArray definition = registerText(10, "MB", "CI");
        QVERIFY(definition.contains(from));
        ModbusInterface bridge;
        LogRecorder log;
        QVERIFY(loadMapping(&bridge, mappingText(QByteArray(definition).replace(from, to), "")));
        QCOMPARE(log.lines().size(), 6); // none about a register
        QCOMPARE(bridge.GetRegisterList().contains(10), used);
        QCOMPARE(bridge.GetCiTypeLookup().contains("MB"_s), mbTypeEntered);
        QTEST(bridge.GetCiTypeLookup().contains("CI"_s), "ciTypeEntered");
        QCOMPARE(bridge.GetCiTypeLookup().value("MB"_s, 0), 0);
        // The types themselves are loaded with the first complete definition.
        QCOMPARE(bridge.GetCiTypeLookup().contains("uint16"_s), mbTypeEntered);
        QCOMPARE(bridge.GetCiTypeList().size(), mbTypeEntered ? 11 : 0);

        QVERIFY(loadMapping(&bridge, mappingText(registerText(20, "u8", "u8"), "")));
        QVERIFY(bridge.GetRegisterList().contains(20));
    }

    void registerFields()
    {
        const LoadedBridge bridge(R"({"id": 10, "name": "Pump \u00e9", "mb_type": "float32", "ci_class": "c",
            "ci_field": "g", "ci_index": 2, "ci_type": "sint16", "more": true})");
        const MbRegister_s reg = bridge.GetRegisterList().value(10);
        QCOMPARE(reg.name, "Pump \u00e9"_s);
        QCOMPARE(reg.mbtype, 8);
        QVERIFY(reg.ci == (CiCoord_s{7, 4, 2, 5}));
    }

    void startValueIsZero()
    {
        for (const char* const start : {"5", "\"5\"", "true", "{\"x\": 5}"}) {
            const LoadedBridge bridge(
                registerText(10, "u16", "u16")
                    .replace("\"id\"", QByteArray("\"default\": ") + start + ", \"id\""));
            QCOMPARE(bridge.GetRegisterList().value(10).value, QVariant(0));
            QCOMPARE(bridge.GetRegisterList().value(10).value.userType(), int(QMetaType::Int));
        }
    }

    void integers_data()
    {
        const Rows<int> row("id");
        row("-3", -3);
        row("1e3", 1000);
        row("10.5", 0);
        row("2147483648", 0);
    }

    void integers()
    {
        QFETCH(int, id);
        const QByteArray number = QTest::currentDataTag();
        const LoadedBridge bridge(registerText(10, "u8", "u8").replace("\"id\": 10", "\"id\": " + number));
        QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({id}));
    }

    void laterEntriesReplace()
    {
        const LoadedBridge bridge(registerText(10, "u8", "u8", 1) + "," + registerText(10, "u16", "u8", 2),
                                  tableText(5, "10, 11") + "," + tableText(5, "10"));
        QCOMPARE(bridge.GetRegisterList().size(), 1);
        QCOMPARE(bridge.GetRegisterList().value(10).ci.ciIndex, 2);
        QCOMPARE(bridge.GetTableList().value(5).registers, QVector<int>({10}));
    }

    void types_data()
    {
        // type: name, octets, controller's size, words, names that refer to it
        const Rows<QString> row("type");
        row("bool", "bool 1 1 1 bool boolean"_s);
        row("u8", "uint8 1 1 1 u8 uint8"_s);
        row("s8", "int8 1 1 1 int8 s8 sint8"_s);
        row("u16", "uint16 2 1 1 u16 uint16"_s);
        row("s16", "int16 2 1 1 int16 s16 sint16"_s);
        row("u32", "uint32 4 1 2 u32 uint32"_s);
        row("s32", "int32 4 1 2 int32 s32 sint32"_s);
        row("float", "float 4 1 2 float float32"_s);
        row("string", "string 0 1 0 str string"_s);
        row("struct", "struct 0 1 0 struct"_s);
        row("Float", "float 4 1 2 float float32"_s);
        row("U8", "uint8 1 1 1 u8 uint8"_s);
        for (const char* member : {"uint16", "boolean", "str", "float32", "double", "", "u8 "}) {
            row(member, "undef 0 0 0 undef"_s);
        }
    }

    void types()
    {
        ModbusInterface bridge;
        bridge.LoadType({{QString::fromLatin1(QTest::currentDataTag()), 23}});
        QCOMPARE(bridge.GetCiTypeList().keys(), QList<int>({23}));
        const MbType_s type = bridge.GetCiTypeList().value(23);
        const QStringList names = bridge.GetCiTypeLookup().keys();
        QTEST("%1 %2 %3 %4 %5"_s.arg(type.name)
                  .arg(type.byteSize)
                  .arg(type.ciSize)
                  .arg(type.mbSize)
                  .arg(names.join(QLatin1Char(' '))),
              "type");
        for (const int code : bridge.GetCiTypeLookup()) {
            QCOMPARE(code, 23);
        }
    }

    void lastUnknownTypeNamesUndef()
    {
        ModbusInterface bridge;
        bridge.LoadType({{"zz"_s, 3}, {"aa"_s, 9}, {"u8"_s, "x"_s}});
        QCOMPARE(bridge.GetCiTypeLookup().value(undef), 3); // members come in the order of their names
        QCOMPARE(bridge.GetCiTypeList().keys(), QList<int>({0, 3, 9}));
        QCOMPARE(bridge.GetCiTypeList().value(9).name, undef);
        QCOMPARE(bridge.GetCiTypeList().value(0).name, "uint8"_s); // a code that is no number is 0

        bridge.LoadType({{"bool"_s, 3}});
        QCOMPARE(bridge.GetCiTypeList().value(3).name, "bool"_s);
        QCOMPARE(bridge.GetCiTypeLookup().value(undef), 3);
    }

    void unknownTypeName()
    {
        LoadedBridge bridge(registerText(10, "UINT16", "u16"));
        QCOMPARE(bridge.GetRegisterList().value(10).mbtype, 0);
        QVERIFY(bridge.GetCiTypeLookup().contains("UINT16"_s));
        QCOMPARE(bridge.GetCiTypeIndex("UINT16"_s), 0);
        QCOMPARE(bridge.GetCiTypeIndex("nothing"_s), 0);
        QVERIFY(bridge.GetCiTypeLookup().contains("nothing"_s));
        QCOMPARE(bridge.GetCiTypeIndex("uint16"_s), 4);
        QVERIFY(!bridge.GetCiTypeList().contains(0)); // the name alone was looked up, not its type
    }

    void typeInfo()
    {
        ModbusInterface bridge;
        bridge.LoadType({{"s32"_s, 7}});
        QCOMPARE(bridge.GetTypeInfo("sint32"_s).name, "int32"_s);
        QCOMPARE(bridge.GetTypeInfo("sint32"_s).mbSize, 2);

        const MbType_s none = bridge.GetTypeInfo("who"_s);
        QCOMPARE(none.name, QString());
        QCOMPARE(none.byteSize + none.ciSize + none.mbSize, 0);
        QCOMPARE(bridge.GetCiTypeLookup().value("who"_s, -1), 0);
        QVERIFY(bridge.GetCiTypeList().contains(0));
    }

    void accessMode()
    {
        const auto mode = [](const QString& text) {
            return int(ModbusInterface::AccessModefromString(text));
        };
        QCOMPARE(mode("r"_s), 1);
        QCOMPARE(mode("w"_s), 2);
        QCOMPARE(mode("rw"_s), 3);
        for (const QString& none : {"wr"_s, "R"_s, "r "_s, QString()}) {
            QCOMPARE(mode(none), 0);
        }
    }

    void tables_data()
    {
        // table: address, name, mode, ids
        const Rows<QByteArray, QString> row("definition", "table");
        row("complete", R"({"name": "t", "mode": "rw", "address": 100, "registers": [3, -2, 3, 0, 1]})",
            "100 't' 3: 3 -2 3 0 1"_s);
        row("empty: zero values", "{}", "0 '' 0:"_s);
        row("not an object: zero values", "5", "0 '' 0:"_s);
        row("address a string: 0", R"({"mode": "r", "address": "5", "registers": []})", "0 '' 1:"_s);
        row("mode in upper case: none", R"({"mode": "RW", "address": 1})", "1 '' 0:"_s);
        row("negative address: kept", R"({"mode": "w", "address": -5, "registers": [70000]})",
            "-5 '' 2: 70000"_s);
        row("ids of other kinds: 0", R"({"registers": ["7", 7.5, null, [7], 7.0, 1e2]})",
            "0 '' 0: 0 0 0 0 7 100"_s);
        row("registers a number: none", R"({"address": 1, "registers": 7})", "1 '' 0:"_s);
    }

    void tables()
    {
        QFETCH(QByteArray, definition);
        const LoadedBridge bridge("", definition);
        QCOMPARE(bridge.GetTableList().size(), 1);
        const MbTable_s table = bridge.GetTableList().first();
        QString text = "%1 '%2' %3:"_s.arg(bridge.GetTableList().firstKey()).arg(table.name).arg(table.mode);
        for (const int id : table.registers) {
            text += " %1"_s.arg(id);
        }
        QTEST(text, "table");
    }

    void lookupSharesCoordinates()
    {
        const LoadedBridge bridge(registerText(10, "u8", "u8") + "," + registerText(20, "u16", "u8"),
                                  tableText(200, "10, 10") + "," + tableText(100, "20"));
        QCOMPARE(bridge.GetCiLookup().size(), 1);
        const MbLookup_s lookup = bridge.GetCiLookup().value({7, 3, 0, 2});
        QCOMPARE(lookup.reg, 20); // the table with the lower address comes first
        QCOMPARE(lookup.tables, QVector<int>({100, 200}));
    }

    void lookupIgnoresUnknownIds()
    {
        const LoadedBridge bridge(registerText(10, "u8", "u8") + "," + registerText(11, "u8", "u8", 1),
                                  tableText(1, "99, -1, 10"));
        QCOMPARE(bridge.GetTableList().value(1).registers, QVector<int>({99, -1, 10}));
        QCOMPARE(bridge.GetCiLookup().size(), 1); // register 11 is in no table
        QVERIFY(!bridge.GetRegisterList().contains(99));
        QCOMPARE(bridge.GetCiLookup().value({7, 3, 0, 2}).reg, 10);
    }

    void secondLoadAdds()
    {
        LoadedBridge bridge(registerText(10, "u8", "u8"), tableText(100, "10"));
        bridge.load(registerText(20, "u8", "u8"), tableText(50, "20"));
        QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({10, 20}));
        QCOMPARE(bridge.GetTableList().keys(), QList<int>({50, 100}));
        const MbLookup_s lookup = bridge.GetCiLookup().value({7, 3, 0, 2});
        QCOMPARE(lookup.reg, 10);
        QCOMPARE(lookup.tables, QVector<int>({100, 50})); // the table already known is not entered twice
    }

    void coordinates()
    {
        const CiCoord_s base{1, 2, 3, 4};
        QVERIFY(base == (CiCoord_s{1, 2, 3, 4}));
        for (const CiCoord_s& other : {CiCoord_s{9, 2, 3, 4}, {1, 9, 3, 4}, {1, 2, 9, 4}, {1, 2, 3, 9}}) {
            QVERIFY(!(base == other));
        }
        QCOMPARE(qHash(CiCoord_s{}), 0U);
        QCOMPARE(qHash(base), 41U); // 1 ^ 4 ^ 12 ^ 32
        QCOMPARE(qHash(CiCoord_s{-1, 0, 0, 0}), 0xFFFFFFFFU);
        QCOMPARE(qHash(CiCoord_s{0, -1, 0, 0}), 0xFFFFFFFEU); // the shifted-out bits are lost
        QCOMPARE(qHash(CiCoord_s{0, 0, 0x40000001, 0x20000001}), 12U);
    }

    void construction()
    {
        QObject parent;
        const auto* bridge = new ModbusInterface(&parent);
        QCOMPARE(bridge->parent(), &parent);
        QCOMPARE(bridge->metaObject()->className(), "Varnel::ModbusInterface");
        QVERIFY(bridge->GetRegisterList().isEmpty() && bridge->GetTableList().isEmpty());
        QVERIFY(bridge->GetCiTypeLookup().isEmpty() && bridge->GetJsonCfg().isEmpty());
    }
};

QTEST_GUILESS_MAIN(tst_ModbusLoad)
#include "tst_modbusload.moc"
