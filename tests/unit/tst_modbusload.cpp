// SPDX-License-Identifier: MIT
#include <QJsonDocument>
#include <QtTest>

#include "logrecorder.h"
#include "mappingfile.h"
#include "modbusinterface.h"

using namespace Varnel;

/// Reading the mapping file: the model it gives and the lines it logs.
class tst_ModbusLoad : public QObject
{
    Q_OBJECT

private slots:
    void logLines_data();
    void logLines();
    void missingFile();
    void wholeDocumentIsLoggedAsOneString();
    void badDocuments_data();
    void badDocuments();
    void structureChecksLeaveTheModel();
    void incompleteRegisters_data();
    void incompleteRegisters();
    void sideEffectsOfSkippedRegisters_data();
    void sideEffectsOfSkippedRegisters();
    void registerFields();
    void startValue_data();
    void startValue();
    void integers_data();
    void integers();
    void laterEntriesReplace();
    void fiftyMegabytes();
};

namespace {

QString quoted(const QString& text)
{
    QString result;
    QDebug(&result).nospace() << text;
    return result;
}

QStringList infoLines(const QString& mapping, const QString& date, const QString& target)
{
    return {QStringLiteral("Mapping =  ") + quoted(mapping), QStringLiteral("Date    =  ") + quoted(date),
            QStringLiteral("Target  =  ") + quoted(target)};
}

} // namespace

void tst_ModbusLoad::logLines_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("info");
    QTest::addColumn<QString>("complaint");

    const QStringList none = {QString(), QString(), QString()};
    const QString ci = QStringLiteral("CI defs is not an array");
    const QString registers = QStringLiteral("Register defs is not an array");
    const QString tables = QStringLiteral("Table defs is not an array");

    QTest::newRow("complete: loaded")
        << QByteArray(R"({"info": {"mapping": "Panel", "date": "2024-05-13", "target": "R7M"},
                          "ci": {}, "registers": [], "tables": []})")
        << QStringList{QStringLiteral("Panel"), QStringLiteral("2024-05-13"), QStringLiteral("R7M")}
        << QString();
    QTest::newRow("no info: three empty strings, loaded")
        << QByteArray(R"({"ci": {}, "registers": [], "tables": []})") << none << QString();
    QTest::newRow("info members of the wrong kind: empty strings")
        << QByteArray(R"({"info": {"mapping": 1, "date": [], "target": null}, "ci": {}, "registers": [],
                          "tables": []})")
        << none << QString();
    QTest::newRow("info not an object: empty strings")
        << QByteArray(R"({"info": "x", "ci": {}, "registers": [], "tables": []})") << none << QString();
    QTest::newRow("empty object: ci") << QByteArray("{}") << none << ci;
    QTest::newRow("top level an array: ci") << QByteArray("[1, 2]") << none << ci;
    QTest::newRow("ci an array: ci") << QByteArray(R"({"ci": [], "registers": [], "tables": []})") << none
                                     << ci;
    QTest::newRow("all three wrong: ci first")
        << QByteArray(R"({"ci": 1, "registers": 2, "tables": 3})") << none << ci;
    QTest::newRow("registers missing: registers")
        << QByteArray(R"({"ci": {}, "tables": []})") << none << registers;
    QTest::newRow("registers an object, tables wrong: registers first")
        << QByteArray(R"({"ci": {}, "registers": {}, "tables": 3})") << none << registers;
    QTest::newRow("tables an object: tables")
        << QByteArray(R"({"ci": {}, "registers": [], "tables": {}})") << none << tables;
}

void tst_ModbusLoad::logLines()
{
    QFETCH(QByteArray, text);
    QFETCH(QStringList, info);
    QFETCH(QString, complaint);

    const MappingFile file(text);
    ModbusInterface bridge;
    LogRecorder log;
    QCOMPARE(bridge.LoadConfig(file.path()), complaint.isEmpty());

    const QByteArray compact = QJsonDocument::fromJson(text).toJson(QJsonDocument::Compact);
    QStringList expected{QStringLiteral("Try to open mapping file  ") + quoted(file.path()),
                         QStringLiteral("Json file parsed"), quoted(QString::fromUtf8(compact))};
    expected += infoLines(info[0], info[1], info[2]);
    if (!complaint.isEmpty()) {
        expected << complaint;
    }
    QCOMPARE(log.texts(), expected);
    QCOMPARE(log.lines().size(), expected.size());
    for (const LogRecorder::Line& line : log.lines()) {
        QCOMPARE(line.type, QtDebugMsg);
    }
}

void tst_ModbusLoad::missingFile()
{
    const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("no such.map"));
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(!bridge.LoadConfig(path));
    QCOMPARE(log.texts(), QStringList({QStringLiteral("Try to open mapping file  ") + quoted(path),
                                       QStringLiteral("\"\"")}) +
                              infoLines({}, {}, {}) + QStringList(QStringLiteral("CI defs is not an array")));
    QVERIFY(bridge.GetCiTypeList().isEmpty());

    // The values from before stay, except the document.
    QVERIFY(loadMapping(&bridge, mappingText(registerText(10, "u16", "u16"), tableText(100, "10"))));
    QVERIFY(!bridge.LoadConfig(path));
    QVERIFY(bridge.GetJsonCfg().isEmpty());
    QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({10}));
}

void tst_ModbusLoad::wholeDocumentIsLoggedAsOneString()
{
    // Keys come sorted, blanks go, and the log's own quoting is that of any string: a JSON quote is escaped.
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(loadMapping(
        &bridge, "{ \"tables\":[],\n \"ci\":{}, \"registers\" : [ ], \"x\": \"a\\\"b\\\\ \xC3\xA9 \\t\" }"));
    QCOMPARE(log.texts().at(2), QString::fromUtf8("\"{\\\"ci\\\":{},\\\"registers\\\":[],\\\"tables\\\":[],"
                                                  "\\\"x\\\":\\\"a\\\\\\\"b\\\\\\\\ \xC3\xA9 \\\\t\\\"}\""));
}

void tst_ModbusLoad::badDocuments_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("message");

    QTest::newRow("empty file: illegal value") << QByteArray() << QStringLiteral("illegal value");
    QTest::newRow("plain text: illegal value") << QByteArray("hello") << QStringLiteral("illegal value");
    QTest::newRow("cut in an object: object")
        << QByteArray("{\"ci\": {") << QStringLiteral("unterminated object");
    QTest::newRow("two documents: garbage")
        << QByteArray("{} {}") << QStringLiteral("garbage at the end of the document");
    QTest::newRow("10 000 deep: refused")
        << QByteArray("{\"ci\": ") + QByteArray(10000, '[') + QByteArray(10000, ']') + "}"
        << QStringLiteral("too deeply nested document");
}

void tst_ModbusLoad::badDocuments()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, message);

    const MappingFile file(text);
    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(!bridge.LoadConfig(file.path()));
    QCOMPARE(log.texts(), QStringList({QStringLiteral("Try to open mapping file  ") + quoted(file.path()),
                                       quoted(message)}));
    QVERIFY(bridge.GetRegisterList().isEmpty());
    QVERIFY(bridge.GetJsonCfg().isEmpty());
}

void tst_ModbusLoad::structureChecksLeaveTheModel()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(registerText(10, "u16", "u16"), tableText(100, "10"))));
    QVERIFY(!loadMapping(&bridge, R"({"ci": {}, "registers": [], "kept": 1})"));
    QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({10}));
    QCOMPARE(bridge.GetTableList().keys(), QList<int>({100}));
    QCOMPARE(bridge.GetJsonCfg().value(QStringLiteral("kept")).toInt(), 1);
}

void tst_ModbusLoad::incompleteRegisters_data()
{
    QTest::addColumn<QByteArray>("definition");
    QTest::addColumn<bool>("used");

    const QByteArray good = registerText(10, "u16", "u16");
    const auto changed = [&good](const char* from, const char* to) {
        Q_ASSERT(good.contains(from));
        return QByteArray(good).replace(from, to);
    };
    QTest::newRow("complete: used") << good << true;
    QTest::newRow("id a string: skipped") << changed("\"id\": 10", "\"id\": \"10\"") << false;
    QTest::newRow("id missing: skipped") << changed("\"id\"", "\"ID\"") << false;
    QTest::newRow("id null: skipped") << changed("\"id\": 10", "\"id\": null") << false;
    QTest::newRow("name a number: skipped") << changed("\"r10\"", "10") << false;
    QTest::newRow("name empty: used") << changed("\"r10\"", "\"\"") << true;
    QTest::newRow("mb_type a number: skipped") << changed("\"mb_type\": \"u16\"", "\"mb_type\": 4") << false;
    QTest::newRow("ci_class a number: skipped") << changed("\"c\"", "7") << false;
    QTest::newRow("ci_class unknown: skipped") << changed("\"c\"", "\"C\"") << false;
    QTest::newRow("ci_field a number: skipped") << changed("\"f\"", "3") << false;
    QTest::newRow("ci_field unknown: skipped") << changed("\"f\"", "\"h\"") << false;
    QTest::newRow("ci_index a string: skipped") << changed("\"ci_index\": 0", "\"ci_index\": \"0\"") << false;
    QTest::newRow("ci_index with a fraction: used")
        << changed("\"ci_index\": 0", "\"ci_index\": 0.5") << true;
    QTest::newRow("ci_type an array: skipped") << changed("\"ci_type\": \"u16\"", "\"ci_type\": []") << false;
    QTest::newRow("ci_type unknown: used") << changed("\"ci_type\": \"u16\"", "\"ci_type\": \"x\"") << true;
    QTest::newRow("not an object: skipped") << QByteArray("17") << false;
    QTest::newRow("an array: skipped") << QByteArray("[]") << false;
}

void tst_ModbusLoad::incompleteRegisters()
{
    QFETCH(QByteArray, definition);
    QFETCH(bool, used);

    ModbusInterface bridge;
    LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(definition + "," + registerText(20, "u8", "u8"), "")));
    QCOMPARE(bridge.GetRegisterList().contains(10), used);
    QVERIFY(bridge.GetRegisterList().contains(20));
    QCOMPARE(log.lines().size(), 6); // without a log line
}

void tst_ModbusLoad::sideEffectsOfSkippedRegisters_data()
{
    QTest::addColumn<QByteArray>("definition");
    QTest::addColumn<bool>("mbTypeEntered");
    QTest::addColumn<bool>("ciTypeEntered");

    const QByteArray base = registerText(10, "MB", "CI");
    QTest::newRow("complete: both names") << base << true << true;
    QTest::newRow("id a string: no name")
        << QByteArray(base).replace("\"id\": 10", "\"id\": \"10\"") << false << false;
    QTest::newRow("class unknown: Modbus type only")
        << QByteArray(base).replace("\"c\"", "\"x\"") << true << false;
    QTest::newRow("field unknown: both names") << QByteArray(base).replace("\"f\"", "\"x\"") << true << true;
}

void tst_ModbusLoad::sideEffectsOfSkippedRegisters()
{
    QFETCH(QByteArray, definition);
    QFETCH(bool, mbTypeEntered);
    QFETCH(bool, ciTypeEntered);

    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(definition, "")));
    QCOMPARE(bridge.GetCiTypeLookup().contains(QStringLiteral("MB")), mbTypeEntered);
    QCOMPARE(bridge.GetCiTypeLookup().contains(QStringLiteral("CI")), ciTypeEntered);
    QCOMPARE(bridge.GetCiTypeLookup().value(QStringLiteral("MB"), 0), 0);
    QCOMPARE(bridge.GetCiTypeLookup().contains(QStringLiteral("uint16")), mbTypeEntered);
}

void tst_ModbusLoad::registerFields()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(R"({"id": 10, "name": "Pump \u00e9", "mb_type": "float32",
        "ci_class": "c", "ci_field": "g", "ci_index": 2, "ci_type": "sint16", "more": true})",
                                             "")));
    const MbRegister_s reg = bridge.GetRegisterList().value(10);
    QCOMPARE(reg.name, QString::fromUtf8("Pump \xC3\xA9"));
    QCOMPARE(reg.mbtype, 8);
    QVERIFY(reg.ci == (CiCoord_s{7, 4, 2, 5}));
    QCOMPARE(reg.value, QVariant(0));
    QCOMPARE(reg.value.userType(), int(QMetaType::Int));
}

void tst_ModbusLoad::startValue_data()
{
    QTest::addColumn<QByteArray>("start");
    QTest::newRow("5: 0") << QByteArray("5");
    QTest::newRow("a string of digits: 0") << QByteArray("\"5\"");
    QTest::newRow("true: 0") << QByteArray("true");
    QTest::newRow("an object: 0") << QByteArray("{\"x\": 5}");
}

void tst_ModbusLoad::startValue()
{
    QFETCH(QByteArray, start);
    ModbusInterface bridge;
    const LogRecorder log;
    const QByteArray reg =
        registerText(10, "u16", "u16").replace("\"id\"", "\"default\": " + start + ", \"id\"");
    QVERIFY(loadMapping(&bridge, mappingText(reg, "")));
    QCOMPARE(bridge.GetRegisterList().value(10).value, QVariant(0));
    QCOMPARE(bridge.GetRegisterList().value(10).value.userType(), int(QMetaType::Int));
}

void tst_ModbusLoad::integers_data()
{
    QTest::addColumn<QByteArray>("number");
    QTest::addColumn<int>("id");
    QTest::newRow("65536: kept") << QByteArray("65536") << 65536;
    QTest::newRow("negative: kept") << QByteArray("-3") << -3;
    QTest::newRow("10.0: 10") << QByteArray("10.0") << 10;
    QTest::newRow("1e3: 1000") << QByteArray("1e3") << 1000;
    QTest::newRow("10.5: 0") << QByteArray("10.5") << 0;
    QTest::newRow("2147483647: kept") << QByteArray("2147483647") << 2147483647;
    QTest::newRow("2147483648: 0") << QByteArray("2147483648") << 0;
    QTest::newRow("1e300: 0") << QByteArray("1e300") << 0;
}

void tst_ModbusLoad::integers()
{
    QFETCH(QByteArray, number);
    QFETCH(int, id);
    ModbusInterface bridge;
    const LogRecorder log;
    const QByteArray reg = registerText(10, "u8", "u8").replace("\"id\": 10", "\"id\": " + number);
    QVERIFY(loadMapping(&bridge, mappingText(reg, "")));
    QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({id}));
}

void tst_ModbusLoad::laterEntriesReplace()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge,
                        mappingText(registerText(10, "u8", "u8", 1) + "," + registerText(10, "u16", "u8", 2),
                                    tableText(5, "10, 11") + "," + tableText(5, "10"))));
    QCOMPARE(bridge.GetRegisterList().size(), 1);
    QCOMPARE(bridge.GetRegisterList().value(10).ci.ciIndex, 2);
    QCOMPARE(bridge.GetTableList().value(5).registers, QVector<int>({10}));
}

void tst_ModbusLoad::fiftyMegabytes()
{
    constexpr int count = 100000;
    const QByteArray padding = "\"note\": \"" + QByteArray(400, 'x') + "\", \"id\"";
    QByteArray registers;
    QByteArray ids;
    for (int id = 0; id < count; ++id) {
        const char* const comma = id > 0 ? "," : "";
        registers += comma + registerText(id, "u16", "u16", id).replace("\"id\"", padding);
        ids += comma + QByteArray::number(id);
    }
    const QByteArray text = mappingText(registers, tableText(100, ids));
    QVERIFY(text.size() > 50000000);
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, text));
    QCOMPARE(bridge.GetRegisterList().size(), count);
    QCOMPARE(bridge.GetCiLookup().size(), count);
    QCOMPARE(log.texts().size(), 6);
}

QTEST_GUILESS_MAIN(tst_ModbusLoad)

#include "tst_modbusload.moc"
