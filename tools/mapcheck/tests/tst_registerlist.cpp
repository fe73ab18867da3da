// SPDX-License-Identifier: MIT
#include <QtTest>

#include "logrecorder.h"
#include "mappingfile.h"
#include "registerlist.h"

Q_DECLARE_METATYPE(RegisterRow)

using Varnel::ModbusInterface;

/// The addresses of the registers, and the lists of them.
class tst_RegisterList : public QObject
{
    Q_OBJECT

private slots:
    void rows_data();
    void rows();
    void rowsAreWhereThePanelRendersThem();
    void table();
    void csv();
    void mbpoll_data();
    void mbpoll();
    void mbpollOptions();
    void manyWordsTakeSeveralRequests();
};

namespace {

void load(ModbusInterface* bridge, const QByteArray& registers, const QByteArray& tables)
{
    const LogRecorder log;
    if (!loadMapping(bridge, mappingText(registers, tables))) {
        qFatal("the mapping of the test does not load");
    }
}

/// 10: u16, 11: u32, 12: string, 13: float, 14: s8
QByteArray someRegisters()
{
    return registerText(10, "u16", "u16", 0) + "," + registerText(11, "u32", "u32", 1) + "," +
           registerText(12, "string", "string", 2) + "," + registerText(13, "float", "float", 3) + "," +
           registerText(14, "s8", "s8", 4);
}

QStringList summaries(const QVector<RegisterRow>& rows)
{
    QStringList result;
    for (const RegisterRow& row : rows) {
        result << QStringLiteral("%1/%2@%3+%4%5")
                      .arg(row.table)
                      .arg(row.id)
                      .arg(row.address)
                      .arg(row.words)
                      .arg(row.isDefined ? QString() : QStringLiteral("?"));
    }
    return result;
}

RegisterRow row(int address, int words, const char* type, const char* name, int table = 1)
{
    RegisterRow result;
    result.table = table;
    result.address = address;
    result.words = words;
    result.type = QLatin1String(type);
    result.tableName = QStringLiteral("t");
    result.name = QString::fromUtf8(name);
    return result;
}

} // namespace

void tst_RegisterList::rows_data()
{
    QTest::addColumn<QByteArray>("tables");
    QTest::addColumn<QStringList>("found");
    const auto list = [](const char* text) { return QString::fromLatin1(text).split(QLatin1Char(' ')); };
    QTest::newRow("one after the other")
        << tableText(100, "10, 11, 13, 14") << list("100/10@100+1 100/11@101+2 100/13@103+2 100/14@105+1");
    QTest::newRow("gaps and zeros") << tableText(100, "-3, 10, 0, -1, 11")
                                    << list("100/10@103+1 100/11@105+2");
    QTest::newRow("a string takes no room") << tableText(100, "12, 10") << list("100/12@100+0 100/10@100+1");
    QTest::newRow("unknown id") << tableText(100, "99, 10") << list("100/99@100+0? 100/10@100+1");
    QTest::newRow("tables in ascending order")
        << tableText(200, "10") + "," + tableText(5, "10") << list("5/10@5+1 200/10@200+1");
    QTest::newRow("endless gaps") << tableText(100, "-2000000000, -2147483648, 10") << list("100/10@65636+1");
}

void tst_RegisterList::rows()
{
    QFETCH(QByteArray, tables);
    ModbusInterface bridge;
    load(&bridge, someRegisters(), tables);
    QTEST(summaries(registerRows(bridge)), "found");
}

void tst_RegisterList::rowsAreWhereThePanelRendersThem()
{
    // Every register gets a value of its own, and has to be found in the rendered words at its row's address.
    ModbusInterface bridge;
    {
        const LogRecorder log;
        QVERIFY(bridge.LoadConfig(QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map")));
    }
    int number = 1;
    int compared = 0;
    for (const RegisterRow& one : registerRows(bridge)) {
        QVERIFY(one.words == 1 || one.words == 2);
        const auto type = one.type == QLatin1String("float") ? QLatin1String("float") : QLatin1String("u8");
        const int code = bridge.GetCiTypeIndex(type);
        const QByteArray text = QByteArray::number(++number);
        const bool isBool = one.type == QLatin1String("bool");
        bridge.SetRegisterValue(one.id, {0, 0, 0, code},
                                code == 8 ? text : QByteArray(1, char(isBool ? 1 : number)));
        const QVector<quint16> words = bridge.ComputeRawData({one.table}).first().values;
        const auto value = float(number);
        auto bits = quint32(isBool ? 1 : number);
        if (code == 8) {
            memcpy(&bits, &value, sizeof bits);
        }
        const int at = one.address - one.table;
        QCOMPARE(quint32(words.at(at + one.words - 1)), bits & 0xFFFF);
        if (one.words == 2) {
            QCOMPARE(quint32(words.at(at)), bits >> 16);
        }
        ++compared;
    }
    QCOMPARE(compared, 30);
}

void tst_RegisterList::table()
{
    ModbusInterface bridge;
    load(&bridge, someRegisters(), tableText(100, "10, 12, 11"));
    QCOMPARE(asTable(registerRows(bridge)),
             QStringLiteral("Address  Words  Type    Table  Name  Value   Sent as\n"
                            "    100      1  uint16  t100   r10   c.f[0]  uint16\n"
                            "    101      2  uint32  t100   r11   c.f[1]  uint32\n"));
}

void tst_RegisterList::csv()
{
    const QVector<RegisterRow> rows{row(5, 1, "bool", "plain"), row(6, 2, "uint32", "comma, \"quote\" (Wh)"),
                                    row(8, 0, "string", "left out"), row(8, 1, "bool", "line\nend")};
    QCOMPARE(asCsv(rows, QStringLiteral("7")),
             QStringLiteral(
                 "Address,Words,Type,Table,Name,Value,Sent as,Function,Word order,Access,Unit id,Unit\r\n"
                 "5,1,bool,t,plain,,,3,,read-only,7,\r\n"
                 "6,2,uint32,t,\"comma, \"\"quote\"\" (Wh)\",,,3,high word first,read-only,7,Wh\r\n"
                 "8,1,bool,t,\"line\nend\",,,3,,read-only,7,\r\n"));
}

void tst_RegisterList::mbpoll_data()
{
    QTest::addColumn<QVector<RegisterRow>>("rows");
    QTest::addColumn<QStringList>("lines");
    const auto command = [](const char* type, int first, int count) {
        return QStringLiteral("mbpoll -0 -1 -B -t %1 -r %2 -c %3 panel")
            .arg(QLatin1String(type))
            .arg(first)
            .arg(count);
    };
    QTest::newRow("nothing: nothing") << QVector<RegisterRow>() << QStringList();
    QTest::newRow("neighbours: one request")
        << QVector<RegisterRow>{row(5, 1, "bool", "a"), row(6, 1, "int8", "b"), row(7, 1, "uint16", "c")}
        << QStringList{QStringLiteral("# t: a, b, c"), command("4", 5, 3)};
    QTest::newRow("two words each: counted as values")
        << QVector<RegisterRow>{row(5, 2, "uint32", "a"), row(7, 2, "int32", "b")}
        << QStringList{QStringLiteral("# t: a, b"), command("4:int", 5, 2)};
    QTest::newRow("other display: another request")
        << QVector<RegisterRow>{row(5, 2, "uint32", "a"), row(7, 2, "float", "b"), row(9, 1, "uint8", "c")}
        << QStringList{QStringLiteral("# t: a"), command("4:int", 5, 1),   QStringLiteral("# t: b"),
                       command("4:float", 7, 1), QStringLiteral("# t: c"), command("4", 9, 1)};
    QTest::newRow("gap: another request")
        << QVector<RegisterRow>{row(5, 1, "bool", "a"), row(7, 1, "bool", "b")}
        << QStringList{QStringLiteral("# t: a"), command("4", 5, 1), QStringLiteral("# t: b"),
                       command("4", 7, 1)};
    QTest::newRow("other table: another request")
        << QVector<RegisterRow>{row(5, 1, "bool", "a"), row(6, 1, "bool", "b", 2)}
        << QStringList{QStringLiteral("# t: a"), command("4", 5, 1), QStringLiteral("# t: b"),
                       command("4", 6, 1)};
    QTest::newRow("string between: skipped")
        << QVector<RegisterRow>{row(5, 0, "string", "x"), row(5, 1, "bool", "a"), row(6, 0, "string", "y"),
                                row(6, 1, "bool", "b"), row(7, 0, "struct", "z")}
        << QStringList{QStringLiteral("# t: a, b"), command("4", 5, 2)};
    QTest::newRow("line end in a name: stays on the line")
        << QVector<RegisterRow>{row(5, 1, "bool", "a\nrm -r x")}
        << QStringList{QStringLiteral("# t: a rm -r x"), command("4", 5, 1)};
}

void tst_RegisterList::mbpoll()
{
    QFETCH(QVector<RegisterRow>, rows);
    QTEST(asMbpoll(rows, {QStringLiteral("panel"), {}}), "lines");
}

void tst_RegisterList::mbpollOptions()
{
    const QStringList lines =
        asMbpoll({row(5, 1, "bool", "a")},
                 {QStringLiteral("it's; x"),
                  {QStringLiteral("-m"), QStringLiteral("rtu"), QStringLiteral("-b"), QString()}});
    QCOMPARE(lines.last(), QStringLiteral("mbpoll -m rtu -b '' -0 -1 -B -t 4 -r 5 -c 1 'it'\\''s; x'"));
}

void tst_RegisterList::manyWordsTakeSeveralRequests()
{
    QVector<RegisterRow> rows;
    for (int i = 0; i < 130; ++i) {
        rows.append(row(i, 1, "bool", "n"));
    }
    for (int i = 0; i < 70; ++i) {
        rows.append(row(130 + 2 * i, 2, "float", "n"));
    }
    QStringList ranges;
    for (const QString& line : asMbpoll(rows, {QStringLiteral("panel"), {}})) {
        if (!line.startsWith(QLatin1Char('#'))) {
            ranges << line.section(QStringLiteral("-t "), 1);
        }
    }
    QCOMPARE(ranges,
             QStringList({QStringLiteral("4 -r 0 -c 125 panel"), QStringLiteral("4 -r 125 -c 5 panel"),
                          QStringLiteral("4:float -r 130 -c 62 panel"),
                          QStringLiteral("4:float -r 254 -c 8 panel")}));
}

QTEST_GUILESS_MAIN(tst_RegisterList)

#include "tst_registerlist.moc"
