// SPDX-License-Identifier: MIT
#include <QtTest>

#include "logrecorder.h"
#include "mappingfile.h"
#include "registerlist.h"
#include "rows.h"

Q_DECLARE_METATYPE(RegisterRow)

using Varnel::ModbusInterface;

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
        result << "%1/%2@%3+%4%5"_s.arg(row.table)
                      .arg(row.id)
                      .arg(row.address)
                      .arg(row.words)
                      .arg(row.isDefined ? QString() : "?"_s);
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
    result.tableName = "t"_s;
    result.name = QString::fromUtf8(name);
    return result;
}

} // namespace

/// The addresses of the registers, and the lists of them.
class tst_RegisterList : public QObject
{
    Q_OBJECT

private slots:
    void rows_data()
    {
        const Rows<QByteArray, QStringList> add("tables", "found");
        const auto row = [&add](const char* name, const QByteArray& tables, const char* found) {
            add(name, tables, QString::fromLatin1(found).split(QLatin1Char(' ')));
        };
        row("one after the other", tableText(100, "10, 11, 13, 14"),
            "100/10@100+1 100/11@101+2 100/13@103+2 100/14@105+1");
        row("gaps and zeros", tableText(100, "-3, 10, 0, -1, 11"), "100/10@103+1 100/11@105+2");
        row("a string takes no room", tableText(100, "12, 10"), "100/12@100+0 100/10@100+1");
        row("unknown id", tableText(100, "99, 10"), "100/99@100+0? 100/10@100+1");
        row("tables in ascending order", tableText(200, "10") + "," + tableText(5, "10"),
            "5/10@5+1 200/10@200+1");
        row("endless gaps", tableText(100, "-2000000000, -2147483648, 10"), "100/10@65636+1");
    }

    void rows()
    {
        QFETCH(QByteArray, tables);
        ModbusInterface bridge;
        load(&bridge, someRegisters(), tables);
        QTEST(summaries(registerRows(bridge)), "found");
    }

    void table()
    {
        ModbusInterface bridge;
        load(&bridge, someRegisters(), tableText(100, "10, 12, 11"));
        QCOMPARE(asTable(registerRows(bridge)), "Address  Words  Type    Table  Name  Value   Sent as\n"
                                                "    100      1  uint16  t100   r10   c.f[0]  uint16\n"
                                                "    101      2  uint32  t100   r11   c.f[1]  uint32\n"_s);
    }

    void csv()
    {
        const QVector<RegisterRow> rows{row(5, 1, "bool", "plain"),
                                        row(6, 2, "uint32", "comma, \"quote\" (Wh)"),
                                        row(8, 0, "string", "left out"), row(8, 1, "bool", "line\nend")};
        QCOMPARE(asCsv(rows, "7"_s),
                 "Address,Words,Type,Table,Name,Value,Sent as,Function,Word order,Access,Unit id,Unit\r\n"
                 "5,1,bool,t,plain,,,3,,read-only,7,\r\n"
                 "6,2,uint32,t,\"comma, \"\"quote\"\" (Wh)\",,,3,high word first,read-only,7,Wh\r\n"
                 "8,1,bool,t,\"line\nend\",,,3,,read-only,7,\r\n"_s);
    }

    void mbpoll_data()
    {
        // lines: without what all commands have
        const Rows<QVector<RegisterRow>, QStringList> list("rows", "lines");
        list("nothing: nothing", {}, {});
        list("neighbours: one request",
             {row(5, 1, "bool", "a"), row(6, 1, "int8", "b"), row(7, 1, "uint16", "c")},
             {"# t: a, b, c"_s, "4 -r 5 -c 3"_s});
        list("two words each: counted as values", {row(5, 2, "uint32", "a"), row(7, 2, "int32", "b")},
             {"# t: a, b"_s, "4:int -r 5 -c 2"_s});
        list("other display: another request",
             {row(5, 2, "uint32", "a"), row(7, 2, "float", "b"), row(9, 1, "uint8", "c")},
             {"# t: a"_s, "4:int -r 5 -c 1"_s, "# t: b"_s, "4:float -r 7 -c 1"_s, "# t: c"_s,
              "4 -r 9 -c 1"_s});
        list("gap: another request", {row(5, 1, "bool", "a"), row(7, 1, "bool", "b")},
             {"# t: a"_s, "4 -r 5 -c 1"_s, "# t: b"_s, "4 -r 7 -c 1"_s});
        list("other table: another request", {row(5, 1, "bool", "a"), row(6, 1, "bool", "b", 2)},
             {"# t: a"_s, "4 -r 5 -c 1"_s, "# t: b"_s, "4 -r 6 -c 1"_s});
        list("string between: skipped",
             {row(5, 0, "string", "x"), row(5, 1, "bool", "a"), row(6, 0, "string", "y"),
              row(6, 1, "bool", "b"), row(7, 0, "struct", "z")},
             {"# t: a, b"_s, "4 -r 5 -c 2"_s});
        list("line end in a name: stays on the line", {row(5, 1, "bool", "a\nrm -r x")},
             {"# t: a rm -r x"_s, "4 -r 5 -c 1"_s});
        QVector<RegisterRow> many;
        for (int i = 0; i < 130; ++i) {
            many.append(row(i, 1, "bool", "n"));
        }
        for (int i = 0; i < 70; ++i) {
            many.append(row(130 + 2 * i, 2, "float", "n"));
        }
        const auto names = [](int count) { return "# t: n"_s + ", n"_s.repeated(count - 1); };
        list("many words: several requests", many,
             {names(125), "4 -r 0 -c 125"_s, names(5), "4 -r 125 -c 5"_s, names(62), "4:float -r 130 -c 62"_s,
              names(8), "4:float -r 254 -c 8"_s});
    }

    void mbpoll()
    {
        QFETCH(QVector<RegisterRow>, rows);
        QStringList lines = asMbpoll(rows, {"panel"_s, {}});
        lines.replaceInStrings(QRegularExpression("^mbpoll -0 -1 -B -t (.*) panel$"_s), "\\1"_s);
        QTEST(lines, "lines");
    }

    void mbpollOptions()
    {
        const QStringList lines =
            asMbpoll({row(5, 1, "bool", "a")}, {"it's; x"_s, {"-m"_s, "rtu"_s, "-b"_s, QString()}});
        QCOMPARE(lines.last(), "mbpoll -m rtu -b '' -0 -1 -B -t 4 -r 5 -c 1 'it'\\''s; x'"_s);
    }
};

QTEST_GUILESS_MAIN(tst_RegisterList)

#include "tst_registerlist.moc"
