// SPDX-License-Identifier: MIT
#include <QtTest>

#include "logrecorder.h"
#include "mappingfile.h"
#include "modbusinterface.h"

using namespace Varnel;

/// The model of the mapping: types and their names, tables, coordinates and the reverse index.
class tst_ModbusModel : public QObject
{
    Q_OBJECT

private slots:
    void types_data();
    void types();
    void lastUnknownTypeNamesUndef();
    void typesStayUnloadedWithoutRegister();
    void unknownTypeName();
    void typeInfo();
    void accessMode_data();
    void accessMode();
    void tables_data();
    void tables();
    void lookupSharesCoordinates();
    void lookupIgnoresUnknownIds();
    void secondLoadAdds();
    void coordinates();
    void construction();
};

namespace {

const QString undef = QStringLiteral("undef");

} // namespace

void tst_ModbusModel::types_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("byteSize");
    QTest::addColumn<int>("ciSize");
    QTest::addColumn<int>("mbSize");
    QTest::addColumn<QString>("aliases");

    const auto row = [](const char* member, const char* name, int bytes, int ci, int words,
                        const char* aliases) {
        QTest::newRow(member) << QString::fromLatin1(member) << QString::fromLatin1(name) << bytes << ci
                              << words << QString::fromLatin1(aliases);
    };
    row("bool", "bool", 1, 1, 1, "bool boolean");
    row("u8", "uint8", 1, 1, 1, "u8 uint8");
    row("s8", "int8", 1, 1, 1, "int8 s8 sint8");
    row("u16", "uint16", 2, 1, 1, "u16 uint16");
    row("s16", "int16", 2, 1, 1, "int16 s16 sint16");
    row("u32", "uint32", 4, 1, 2, "u32 uint32");
    row("s32", "int32", 4, 1, 2, "int32 s32 sint32");
    row("float", "float", 4, 1, 2, "float float32");
    row("string", "string", 0, 1, 0, "str string");
    row("struct", "struct", 0, 1, 0, "struct");
    row("Float", "float", 4, 1, 2, "float float32");
    row("U8", "uint8", 1, 1, 1, "u8 uint8");
    for (const char* member : {"uint16", "boolean", "str", "float32", "double", "", "u8 "}) {
        row(member, "undef", 0, 0, 0, "undef");
    }
}

void tst_ModbusModel::types()
{
    QFETCH(QString, member);
    ModbusInterface bridge;
    bridge.LoadType({{member, 23}});
    QCOMPARE(bridge.GetCiTypeList().keys(), QList<int>({23}));
    const MbType_s type = bridge.GetCiTypeList().value(23);
    QTEST(type.name, "name");
    QTEST(type.byteSize, "byteSize");
    QTEST(type.ciSize, "ciSize");
    QTEST(type.mbSize, "mbSize");
    QTEST(QStringList(bridge.GetCiTypeLookup().keys()).join(QLatin1Char(' ')), "aliases");
    for (const int code : bridge.GetCiTypeLookup()) {
        QCOMPARE(code, 23);
    }
}

void tst_ModbusModel::lastUnknownTypeNamesUndef()
{
    ModbusInterface bridge;
    bridge.LoadType(
        {{QStringLiteral("zz"), 3}, {QStringLiteral("aa"), 9}, {QStringLiteral("u8"), QStringLiteral("x")}});
    QCOMPARE(bridge.GetCiTypeLookup().value(undef), 3); // members come in the order of their names
    QCOMPARE(bridge.GetCiTypeList().keys(), QList<int>({0, 3, 9}));
    QCOMPARE(bridge.GetCiTypeList().value(9).name, undef);
    QCOMPARE(bridge.GetCiTypeList().value(0).name, QStringLiteral("uint8")); // a code that is no number is 0

    bridge.LoadType({{QStringLiteral("bool"), 3}});
    QCOMPARE(bridge.GetCiTypeList().value(3).name, QStringLiteral("bool"));
    QCOMPARE(bridge.GetCiTypeLookup().value(undef), 3);
}

void tst_ModbusModel::typesStayUnloadedWithoutRegister()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(R"({"id": "x"})", tableText(1, "1"))));
    QVERIFY(bridge.GetCiTypeList().isEmpty());
    QVERIFY(bridge.GetCiTypeLookup().isEmpty());
    QVERIFY(loadMapping(&bridge, mappingText(registerText(1, "u8", "u8"), "")));
    QCOMPARE(bridge.GetCiTypeList().size(), 11);
}

void tst_ModbusModel::unknownTypeName()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(registerText(10, "UINT16", "u16"), "")));
    QCOMPARE(bridge.GetRegisterList().value(10).mbtype, 0);
    QVERIFY(bridge.GetCiTypeLookup().contains(QStringLiteral("UINT16")));
    QCOMPARE(bridge.GetCiTypeIndex(QStringLiteral("UINT16")), 0);
    QCOMPARE(bridge.GetCiTypeIndex(QStringLiteral("nothing")), 0);
    QVERIFY(bridge.GetCiTypeLookup().contains(QStringLiteral("nothing")));
    QCOMPARE(bridge.GetCiTypeIndex(QStringLiteral("uint16")), 4);
    QVERIFY(!bridge.GetCiTypeList().contains(0)); // the name alone was looked up, not its type
}

void tst_ModbusModel::typeInfo()
{
    ModbusInterface bridge;
    bridge.LoadType({{QStringLiteral("s32"), 7}});
    QCOMPARE(bridge.GetTypeInfo(QStringLiteral("sint32")).name, QStringLiteral("int32"));
    QCOMPARE(bridge.GetTypeInfo(QStringLiteral("sint32")).mbSize, 2);

    const MbType_s none = bridge.GetTypeInfo(QStringLiteral("who"));
    QCOMPARE(none.name, QString());
    QCOMPARE(none.byteSize + none.ciSize + none.mbSize, 0);
    QCOMPARE(bridge.GetCiTypeLookup().value(QStringLiteral("who"), -1), 0);
    QVERIFY(bridge.GetCiTypeList().contains(0));
}

void tst_ModbusModel::accessMode_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("mode");
    QTest::newRow("r: read-only") << QStringLiteral("r") << 1;
    QTest::newRow("w: write-only") << QStringLiteral("w") << 2;
    QTest::newRow("rw: both") << QStringLiteral("rw") << 3;
    QTest::newRow("wr: none") << QStringLiteral("wr") << 0;
    QTest::newRow("R: none, case matters") << QStringLiteral("R") << 0;
    QTest::newRow("blank after it: none") << QStringLiteral("r ") << 0;
    QTest::newRow("empty: none") << QString() << 0;
}

void tst_ModbusModel::accessMode()
{
    QFETCH(QString, text);
    QTEST(int(ModbusInterface::AccessModefromString(text)), "mode");
}

void tst_ModbusModel::tables_data()
{
    QTest::addColumn<QByteArray>("definition");
    QTest::addColumn<int>("address");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("mode");
    QTest::addColumn<QVector<int>>("ids");

    const QString t = QStringLiteral("t");
    QTest::newRow("complete: unchanged")
        << QByteArray(R"({"name": "t", "mode": "rw", "address": 100, "registers": [3, -2, 3, 0, 1]})") << 100
        << t << 3 << QVector<int>{3, -2, 3, 0, 1};
    QTest::newRow("empty: zero values") << QByteArray("{}") << 0 << QString() << 0 << QVector<int>{};
    QTest::newRow("not an object: zero values") << QByteArray("5") << 0 << QString() << 0 << QVector<int>{};
    QTest::newRow("address a string: 0")
        << QByteArray(R"({"name": "t", "mode": "r", "address": "5", "registers": []})") << 0 << t << 1
        << QVector<int>{};
    QTest::newRow("mode in upper case: none")
        << QByteArray(R"({"name": "t", "mode": "RW", "address": 1, "registers": []})") << 1 << t << 0
        << QVector<int>{};
    QTest::newRow("negative address: kept")
        << QByteArray(R"({"name": "t", "mode": "w", "address": -5, "registers": [70000]})") << -5 << t << 2
        << QVector<int>{70000};
    QTest::newRow("ids of other kinds: 0")
        << QByteArray(R"({"name": "t", "address": 1, "registers": ["7", 7.5, null, [7], 7.0, 1e2]})") << 1
        << t << 0 << QVector<int>{0, 0, 0, 0, 7, 100};
    QTest::newRow("registers a number: none")
        << QByteArray(R"({"name": "t", "address": 1, "registers": 7})") << 1 << t << 0 << QVector<int>{};
}

void tst_ModbusModel::tables()
{
    QFETCH(QByteArray, definition);
    QFETCH(int, address);
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText("", definition)));
    QCOMPARE(bridge.GetTableList().keys(), QList<int>({address}));
    const MbTable_s table = bridge.GetTableList().value(address);
    QTEST(table.name, "name");
    QTEST(int(table.mode), "mode");
    QTEST(table.registers, "ids");
}

void tst_ModbusModel::lookupSharesCoordinates()
{
    ModbusInterface bridge;
    const LogRecorder log;
    const QByteArray registers = registerText(10, "u8", "u8") + "," + registerText(20, "u16", "u8");
    QVERIFY(
        loadMapping(&bridge, mappingText(registers, tableText(200, "10, 10") + "," + tableText(100, "20"))));
    QCOMPARE(bridge.GetCiLookup().size(), 1);
    const MbLookup_s lookup = bridge.GetCiLookup().value({7, 3, 0, 2});
    QCOMPARE(lookup.reg, 20); // the table with the lower address comes first
    QCOMPARE(lookup.tables, QVector<int>({100, 200}));
}

void tst_ModbusModel::lookupIgnoresUnknownIds()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(
        loadMapping(&bridge, mappingText(registerText(10, "u8", "u8") + "," + registerText(11, "u8", "u8", 1),
                                         tableText(1, "99, -1, 10"))));
    QCOMPARE(bridge.GetTableList().value(1).registers, QVector<int>({99, -1, 10}));
    QCOMPARE(bridge.GetCiLookup().size(), 1); // register 11 is in no table
    QVERIFY(!bridge.GetRegisterList().contains(99));
    QCOMPARE(bridge.GetCiLookup().value({7, 3, 0, 2}).reg, 10);
}

void tst_ModbusModel::secondLoadAdds()
{
    ModbusInterface bridge;
    const LogRecorder log;
    QVERIFY(loadMapping(&bridge, mappingText(registerText(10, "u8", "u8"), tableText(100, "10"))));
    QVERIFY(loadMapping(&bridge, mappingText(registerText(20, "u8", "u8"), tableText(50, "20"))));
    QCOMPARE(bridge.GetRegisterList().keys(), QList<int>({10, 20}));
    QCOMPARE(bridge.GetTableList().keys(), QList<int>({50, 100}));
    const MbLookup_s lookup = bridge.GetCiLookup().value({7, 3, 0, 2});
    QCOMPARE(lookup.reg, 10);
    QCOMPARE(lookup.tables, QVector<int>({100, 50})); // the table already known is not entered twice
}

void tst_ModbusModel::coordinates()
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

void tst_ModbusModel::construction()
{
    QObject parent;
    const auto* bridge = new ModbusInterface(&parent);
    QCOMPARE(bridge->parent(), &parent);
    QCOMPARE(bridge->metaObject()->className(), "Varnel::ModbusInterface");
    QVERIFY(bridge->GetRegisterList().isEmpty() && bridge->GetTableList().isEmpty());
    QVERIFY(bridge->GetCiLookup().isEmpty() && bridge->GetCiTypeList().isEmpty());
    QVERIFY(bridge->GetCiTypeLookup().isEmpty() && bridge->GetJsonCfg().isEmpty());
}

QTEST_GUILESS_MAIN(tst_ModbusModel)

#include "tst_modbusmodel.moc"
