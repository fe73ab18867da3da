// SPDX-License-Identifier: MIT
#include "frame.h"
#include "loadedbridge.h"
#include "logrecorder.h"
#include "rows.h"

Q_DECLARE_METATYPE(Varnel::core_tmp)

using namespace Varnel;

namespace {

constexpr int typeU16 = 4;
constexpr int typeMissing = 99;

using Words = QVector<quint16>;

const QByteArray aRegister = registerText(10, "u16", "u16");

} // namespace

/// The road of a controller value: from a Core item to the value of a register, and from there to words.
class tst_ModbusInterface : public QObject
{
    Q_OBJECT

private slots:
    void decoding_data()
    {
        const Rows<QString, QByteArray, QVariant> row("type", "payload", "value");
        row("bool 00: false", "bool"_s, hex("00"), false);
        row("bool 80000000: true", "bool"_s, hex("80000000"), true);
        row("bool empty: false", "bool"_s, {}, false);
        row("bool of five octets: false", "bool"_s, hex("0101010101"), false);
        row("uint8 0102: low octet 2", "u8"_s, hex("0102"), 2);
        row("uint8 ff: 255", "u8"_s, hex("ff"), 255);
        row("int8 ff: -1", "s8"_s, hex("ff"), -1);
        row("int8 017f: 127", "s8"_s, hex("017f"), 127);
        row("int8 ffffffff: no signed number, 0", "s8"_s, hex("ffffffff"), 0);
        row("int8 7fffff80: -128", "s8"_s, hex("7fffff80"), -128);
        row("uint16 fffe: 65534", "u16"_s, hex("fffe"), 65534);
        row("uint16 ffffffff: low half 65535", "u16"_s, hex("ffffffff"), 65535);
        row("uint16 07: 7", "u16"_s, hex("07"), 7);
        row("int16 fffe: -2", "s16"_s, hex("fffe"), -2);
        row("int16 fe: 254, not sign-extended", "s16"_s, hex("fe"), 254);
        row("int16 8000: -32768", "s16"_s, hex("8000"), -32768);
        row("uint32 ffffffff: 4294967295", "u32"_s, hex("ffffffff"), 4294967295U);
        row("uint32 12345678: most significant first", "u32"_s, hex("12345678"), 0x12345678U);
        row("uint32 of five octets: 0", "u32"_s, hex("0000000001"), 0U);
        row("int32 80000000: 0", "s32"_s, hex("80000000"), 0);
        row("int32 7fffffff: 2147483647", "s32"_s, hex("7fffffff"), 2147483647);
        row("int32 010203: 66051", "s32"_s, hex("010203"), 66051);
        row("float text 3.5: 3.5", "float"_s, "3.5", 3.5F);
        row("float text -1e-3: -0.001", "float"_s, "-1e-3", -0.001F);
        row("float of IEEE 754 octets: 0", "float"_s, hex("40600000"), 0.0F);
        row("float text 1e99: out of range, 0", "float"_s, "1e99", 0.0F);
        row("float text 0x10: 0", "float"_s, "0x10", 0.0F);
        row("float empty: 0", "float"_s, {}, 0.0F);
        row("string: text", "string"_s, "Pump 1", "Pump 1"_s);
        row("string empty: empty", "string"_s, {}, QString());
        row("string in UTF-8: decoded", "string"_s, "\xC3\xA9", QString(QChar(0xE9)));
        row("struct: 0", "struct"_s, hex("0102"), 0);
        row("undef: 0", "undef"_s, hex("0102"), 0);
    }

    void decoding()
    {
        QFETCH(QString, type);
        QFETCH(QByteArray, payload);
        QFETCH(QVariant, value);
        LoadedBridge bridge(aRegister);
        QVERIFY(bridge.SetRegisterValue(10, {7, 3, 0, bridge.GetCiTypeIndex(type)}, payload));
        const QVariant stored = bridge.GetRegisterList().value(10).value;
        QCOMPARE(stored, value);
        QCOMPARE(stored.userType(), value.userType());
    }

    void unknownsAreEntered()
    {
        LoadedBridge bridge(aRegister, tableText(100, "99, 10"));
        QVERIFY(!bridge.GetCiTypeList().contains(typeMissing));
        QVERIFY(bridge.SetRegisterValue(10, {7, 3, 0, typeMissing}, hex("01")));
        QCOMPARE(bridge.GetRegisterList().value(10).value, QVariant(0));
        QVERIFY(bridge.GetCiTypeList().contains(typeMissing));
        QCOMPARE(bridge.GetCiTypeList().value(typeMissing).name, QString());

        QVERIFY(bridge.SetRegisterValue(77, {7, 3, 0, typeU16}, hex("0102")));
        QCOMPARE(bridge.GetRegisterList().value(77).value, QVariant(258));
        QCOMPARE(bridge.GetRegisterList().value(77).name, QString());
        QCOMPARE(bridge.GetRegisterList().value(77).mbtype, 0);

        const QVector<MbRawData_s> tables = bridge.ComputeRawData({55, 100});
        QCOMPARE(tables[0].baseaddr, 55);
        QCOMPARE(tables[0].values, Words());
        QVERIFY(bridge.GetTableList().contains(55));
        QCOMPARE(bridge.GetTableList().value(55).mode, ACCESS_NO);
        QCOMPARE(tables[1].values, Words({0}));
        QVERIFY(bridge.GetRegisterList().contains(99));
        QVERIFY(bridge.GetCiTypeList().contains(0)); // the type code of a register that nothing defines
    }

    void tablesToUpdate()
    {
        LoadedBridge bridge(aRegister + "," + registerText(11, "u16", "u16", 1) + "," +
                                registerText(12, "u16", "u16", 2) + "," + registerText(13, "u16", "u16", 3),
                            tableText(100, "10, 11") + "," + tableText(200, "12") + "," +
                                tableText(300, "10"));
        const auto value = [&bridge](int id) { return bridge.GetRegisterList().value(id).value.toInt(); };
        const auto item = [](int index, const char* octets) { return coreItem(index, typeU16, hex(octets)); };

        QCOMPARE(bridge.CheckTableToUpdate({}), QVector<int>());
        QCOMPARE(bridge.CheckTableToUpdate({item(0, "0001"), item(1, "0002")}), QVector<int>({100, 300}));
        QCOMPARE(bridge.CheckTableToUpdate({item(2, "0003"), item(1, "0004"), item(0, "0005")}),
                 QVector<int>({200, 100, 300})); // the order of first need
        QCOMPARE(value(10), 5);
        QCOMPARE(value(11), 4);
        QCOMPARE(value(12), 3);
        // Twice the same item: the later value stays.
        QCOMPARE(bridge.CheckTableToUpdate({item(2, "0006"), item(2, "0007")}), QVector<int>({200}));
        QCOMPARE(value(12), 7);
        // A register in no table.
        QCOMPARE(bridge.CheckTableToUpdate({item(3, "0008")}), QVector<int>());
        QCOMPARE(value(13), 0);
    }

    void coordinateDecides_data()
    {
        const Rows<core_tmp, bool> row("item", "mapped");
        row("same coordinate: mapped", core_tmp{7, 3, 200, 4, 1, "\x05"}, true);
        row("other class: ignored", core_tmp{8, 3, 200, 4, 1, "\x05"}, false);
        row("other field: ignored", core_tmp{7, 4, 200, 4, 1, "\x05"}, false);
        row("other instance: ignored", core_tmp{7, 3, 201, 4, 1, "\x05"}, false);
        row("other type: ignored", core_tmp{7, 3, 200, 6, 1, "\x05"}, false);
        row("wide index in the mapping: beyond every instance", core_tmp{7, 3, 44, 4, 1, "\x05"}, false);
    }

    void coordinateDecides()
    {
        QFETCH(core_tmp, item);
        QFETCH(bool, mapped);
        LoadedBridge bridge(registerText(10, "u32", "u16", 200) + "," + registerText(11, "u32", "u16", 300),
                            tableText(100, "10, 11"));
        QCOMPARE(bridge.CheckTableToUpdate({item}), mapped ? QVector<int>({100}) : QVector<int>());
        QCOMPARE(bridge.GetRegisterList().value(10).value, QVariant(mapped ? 5 : 0));
    }

    void itemsNeedNoTable()
    {
        ModbusInterface bridge; // nothing loaded at all
        QCOMPARE(bridge.CheckTableToUpdate({coreItem(0, typeU16, hex("0001"))}), QVector<int>());
        QVERIFY(bridge.GetRegisterList().isEmpty());
        QVERIFY(bridge.GetCiTypeList().isEmpty());
        QCOMPARE(bridge.ComputeRawData({}).size(), 0);
    }

    void rendering_data()
    {
        const Rows<QByteArray, QByteArray, QByteArray, Words> row("mbType", "ciType", "payload", "words");
        row("uint32 12345678: high word first", "u32", "u32", hex("12345678"), {0x1234, 0x5678});
        row("float -2.5: c020 0000", "float", "float", "-2.5", {0xC020, 0x0000});
        row("float 0.1: 3dcc cccd", "float32", "float", "0.1", {0x3DCC, 0xCCCD});
        row("300 as uint8: low octet", "u8", "u16", hex("012c"), {0x002C});
        row("-2 as int16: two's complement", "s16", "s16", hex("fffe"), {0xFFFE});
        row("-2 as int8: low octet only", "s8", "s8", hex("fe"), {0x00FE});
        row("-2 as int32: both words", "s32", "s16", hex("fffe"), {0xFFFF, 0xFFFE});
        row("-2 as uint32: both words", "u32", "s16", hex("fffe"), {0xFFFF, 0xFFFE});
        row("uint32 in int16: low word", "s16", "u32", hex("12345678"), {0x5678});
        row("true as bool: 1", "bool", "bool", hex("05"), {1});
        row("5 as bool: 1", "bool", "u8", hex("05"), {1});
        row("0 as bool: 0", "bool", "u8", hex("00"), {0});
        row("3.5 as uint16: rounded", "u16", "float", "3.5", {4});
        row("3.5 as int32: rounded", "s32", "float", "3.5", {0, 4});
        row("true as uint32: 1", "u32", "bool", hex("ff"), {0, 1});
        row("3 as float: 4040 0000", "float", "u8", hex("03"), {0x4040, 0x0000});
        row("text 42 as uint16: 42", "u16", "string", "42", {42});
        row("text 70000 as uint32: both words", "u32", "string", "70000", {1, 4464});
        row("text -5 as int32: -5", "s32", "string", "-5", {0xFFFF, 0xFFFB});
        row("text -5 as uint32: no unsigned number, 0", "u32", "string", "-5", {0, 0});
        row("text of 64 bits as uint32: low half", "u32", "string", "18446744073414584320", {0xEE6B, 0x2800});
        row("text false as bool: 0", "bool", "string", "false", {0});
        row("float 1e10 as uint32: low half", "u32", "float", "1e10", {0x540B, 0xE400});
        row("float 1e30 as uint32: beyond 64 bits, 0", "u32", "float", "1e30", {0, 0});
        row("float -1e30 as uint32: beyond 64 bits, 0", "u32", "float", "-1e30", {0, 0});
        row("float 1e30 as int32: beyond 64 bits, 0", "s32", "float", "1e30", {0, 0});
        row("float 9.3e18 as int32: beyond 63 bits, 0", "s32", "float", "9.3e18", {0, 0});
        row("float inf as uint16: 0", "u16", "float", "inf", {0});
        row("float nan as int16: 0", "s16", "float", "nan", {0});
        row("float 1e30 as bool: 1", "bool", "float", "1e30", {1});
        row("float -1e30 as bool: 1", "bool", "float", "-1e30", {1});
        row("float nan as bool: 0", "bool", "float", "nan", {0});
        row("as string: no word", "string", "u16", hex("0001"), {});
        row("as struct: no word", "struct", "u16", hex("0001"), {});
        row("as undef: no word", "undef", "u16", hex("0001"), {});
        row("as an unknown name: no word", "UINT16", "u16", hex("0001"), {});
    }

    void rendering()
    {
        QFETCH(QByteArray, mbType);
        QFETCH(QByteArray, ciType);
        QFETCH(QByteArray, payload);
        LoadedBridge bridge(registerText(10, mbType, ciType), tableText(100, "10"));
        QCOMPARE(bridge.CheckTableToUpdate(
                     {coreItem(0, bridge.GetCiTypeIndex(QString::fromLatin1(ciType)), payload)}),
                 QVector<int>({100}));
        const QVector<MbRawData_s> tables = bridge.ComputeRawData({100});
        QCOMPARE(tables.size(), 1);
        QCOMPARE(tables[0].baseaddr, 100);
        QTEST(tables[0].values, "words");
    }

    void tableLayout_data()
    {
        const Rows<QByteArray, Words> row("ids", "words");
        // 10: u16 0x0A0A, 11: u16 0x0B0B, 12: u32 0x0C0C0D0D, 13: string, 0: u16
        row("gap of two: two zeros", "10, -2, 11", Words{0x0A0A, 0, 0, 0x0B0B});
        row("id 0: an empty gap", "10, 0, 11", Words{0x0A0A, 0x0B0B});
        row("gaps at both ends: zeros", "-1, 10, -1", Words{0, 0x0A0A, 0});
        row("string: the following registers move down", "13, 10, 13, 11", Words{0x0A0A, 0x0B0B});
        row("file order: not sorted", "11, 12, 10", Words{0x0B0B, 0x0C0C, 0x0D0D, 0x0A0A});
        row("same id twice: twice", "10, 10", Words{0x0A0A, 0x0A0A});
        row("id unknown: no word", "10, 99, 11", Words{0x0A0A, 0x0B0B});
        row("empty: no word", {}, Words{});
        row("neighbours from the last one on: all found", "12, 13, 99, 10, 11",
            Words{0x0C0C, 0x0D0D, 0x0A0A, 0x0B0B});
    }

    void tableLayout()
    {
        QFETCH(QByteArray, ids);
        LoadedBridge bridge(registerText(10, "u16", "u16", 0) + "," + registerText(11, "u16", "u16", 1) +
                                "," + registerText(12, "u32", "u32", 2) + "," +
                                registerText(13, "string", "string", 3) + "," +
                                registerText(0, "u16", "u16", 4),
                            tableText(100, ids));
        bridge.SetRegisterValue(10, {7, 3, 0, typeU16}, hex("0a0a"));
        bridge.SetRegisterValue(11, {7, 3, 1, typeU16}, hex("0b0b"));
        bridge.SetRegisterValue(12, {7, 3, 2, 6}, hex("0c0c0d0d"));
        bridge.SetRegisterValue(13, {7, 3, 3, 9}, "text");
        bridge.SetRegisterValue(0, {7, 3, 4, typeU16}, hex("0e0e"));
        QTEST(bridge.ComputeRawData({100}).at(0).values, "words");
    }

    void severalTables()
    {
        LoadedBridge bridge(aRegister, tableText(300, "10, -1") + "," + tableText(100, "-1, 10"));
        bridge.SetRegisterValue(10, {7, 3, 0, typeU16}, hex("0009"));
        const QVector<MbRawData_s> tables = bridge.ComputeRawData({300, 100, 300});
        QCOMPARE(tables.size(), 3); // in the order of the request
        QCOMPARE(tables[0].baseaddr, 300);
        QCOMPARE(tables[0].values, Words({9, 0}));
        QCOMPARE(tables[1].baseaddr, 100);
        QCOMPARE(tables[1].values, Words({0, 9}));
        QCOMPARE(tables[2].values, Words({9, 0}));
    }

    void hugeGapsAreCut_data()
    {
        const Rows<QByteArray, int, bool> row("ids", "words", "reported");
        row("65536 words: whole", "-65536", 65536, false);
        row("65535 and a register: whole", "-65535, 10", 65536, false);
        row("65536 and a register: cut", "-65536, 10", 65536, true);
        row("two billion: cut", "10, -2000000000, 10", 65536, true);
        row("smallest number there is: cut", "-2147483648, -2147483648, 10", 65536, true);
        row("below the smallest number: 0", "-2147483649, 10", 1, false);
    }

    void hugeGapsAreCut()
    {
        QFETCH(QByteArray, ids);
        QFETCH(bool, reported);
        LoadedBridge bridge(aRegister, tableText(100, ids));
        const LogRecorder log;
        QTEST(bridge.ComputeRawData({100}).at(0).values.size(), "words");
        QVERIFY(log.lines().isEmpty());

        LoadedBridge talkative(aRegister, tableText(100, ids));
        const LogRules rules("varnel.modbus.debug=true");
        talkative.ComputeRawData({100});
        talkative.ComputeRawData({100}); // once, not at every update
        QCOMPARE(log.texts("varnel.modbus"_s).join(QLatin1Char(';')),
                 reported ? "Table at address 100 does not fit the Modbus address space, cut"_s : QString());
        QCOMPARE(log.texts(), QStringList());
    }

    void repeatedAddressSpaceIsCut()
    {
        QByteArray tables;
        QVector<int> addresses;
        for (int address = 0; address < 18; ++address) {
            tables += (tables.isEmpty() ? "" : ",") + tableText(address, "-65536");
            addresses << address;
        }
        LoadedBridge bridge("", tables);
        const LogRecorder log;
        const QVector<MbRawData_s> rendered = bridge.ComputeRawData(addresses);
        QCOMPARE(rendered.size(), 18);
        QCOMPARE(rendered.at(15).values.size(), 65536);
        QCOMPARE(rendered.at(16).values.size(), 0);
        QCOMPARE(rendered.at(17).values.size(), 0);
    }
};

QTEST_GUILESS_MAIN(tst_ModbusInterface)
#include "tst_modbusinterface.moc"
