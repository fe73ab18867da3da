// SPDX-License-Identifier: MIT
// The arguments and files of the Modbus server's scripts, byte by byte: the start-up description, the order
// of the calls and the update command of every frame.

#include <QFile>
#include <QTest>

#include "scene.h"

namespace {

const QString initFile = "/tmp/etc/mbserver_init.dbus"_s;
const QString nothing = R"({"cmd":"setconfig","data":[]})"_s;

/// Every numeric type, one value shown in two tables, a gap, a register without words and one in no table.
const QByteArray mapping = R"({
    "info": {"mapping": "Test", "date": "today", "target": "R7M"},
    "ci": {
        "types": {"bool": 1, "u8": 2, "s8": 3, "u16": 4, "s16": 5, "u32": 6, "s32": 7, "Float": 8, "string": 9},
        "classes": {"c": {"id": 4660, "fields": {"f": 258}}}
    },
    "registers": [
        {"id": 10, "name": "a", "mb_type": "u8", "ci_class": "c", "ci_field": "f", "ci_index": 0, "ci_type": "u16"},
        {"id": 11, "name": "b", "mb_type": "s32", "ci_class": "c", "ci_field": "f", "ci_index": 1, "ci_type": "s16"},
        {"id": 12, "name": "c", "mb_type": "s32", "ci_class": "c", "ci_field": "f", "ci_index": 2, "ci_type": "s32"},
        {"id": 13, "name": "d", "mb_type": "float32", "ci_class": "c", "ci_field": "f", "ci_index": 3,
         "ci_type": "float"},
        {"id": 14, "name": "e", "mb_type": "str", "ci_class": "c", "ci_field": "f", "ci_index": 4, "ci_type": "u8"},
        {"id": 15, "name": "f", "mb_type": "u32", "ci_class": "c", "ci_field": "f", "ci_index": 5, "ci_type": "u32"},
        {"id": 16, "name": "g", "mb_type": "u8", "ci_class": "c", "ci_field": "f", "ci_index": 6, "ci_type": "u8"}
    ],
    "tables": [
        {"name": "late", "mode": "rw", "address": 300, "registers": [15, 10]},
        {"name": "early", "mode": "w", "address": 100, "registers": [10, -2, 14, 11, 12, 13]}
    ]
})";

bool writeFile(const QByteArray& text)
{
    QFile file("/usr/local/etc/modbus.map"_s);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

QByteArray readInitFile()
{
    QFile file(initFile);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// An item of the one class and field, its value as it is on the wire.
QByteArray item(quint8 instance, quint8 type, const QByteArray& value)
{
    QByteArray octets = hex("34 12 02 01");
    octets.append(char(instance)).append(char(type)).append(char(value.size())).append('\0');
    return octets + value;
}

} // namespace

class tst_ModbusCommands : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void serverIsStoppedAndStarted();
    void everyCoreSectionIsSent_data();
    void everyCoreSectionIsSent();
    void valuesStayFromFrameToFrame();

private:
    /// Waits for the next run of the update script and returns its argument.
    static QString nextCommand(Scene* scene, int* count);
};

void tst_ModbusCommands::init()
{
    QFile::remove(initFile);
    QVERIFY(writeFile(mapping));
}

QString tst_ModbusCommands::nextCommand(Scene* scene, int* count)
{
    const bool came = QTest::qWaitFor(
        [&] { return scene->scripts.runsOf("mbserverupdate.sh"_s).size() > *count; }, int(patience.count()));
    return came ? scene->scripts.runsOf("mbserverupdate.sh"_s).at((*count)++).join(QLatin1Char('|'))
                : QString();
}

void tst_ModbusCommands::serverIsStoppedAndStarted()
{
    Scene scene;
    QVERIFY(scene.start());
    QCOMPARE(scene.scripts.runs(),
             (QList<QStringList>{{"mbserverstop.sh"_s}, {"mbserverstart.sh"_s, initFile}}));
    QCOMPARE(readInitFile(), QByteArray(R"({
    "cmd": "init",
    "delay": 500,
    "protocol": "tcp",
    "tables": [
        {
            "address": 100,
            "length": 9,
            "mode": "r"
        },
        {
            "address": 300,
            "length": 3,
            "mode": "r"
        }
    ],
    "tcp": {
        "clients": 10,
        "listen": "0.0.0.0",
        "port": 502
    }
}
)"));
    QVERIFY(!scene.panel.log().lines().contains("Failed to load modbus map"_s));
}

void tst_ModbusCommands::everyCoreSectionIsSent_data()
{
    QTest::addColumn<QByteArray>("items");
    QTest::addColumn<QString>("command");
    const auto row = [](const char* name, const QByteArray& items, const QString& tables) {
        QTest::newRow(name) << items << R"({"cmd":"setconfig","data":[%1]})"_s.arg(tables);
    };
    row("no items: no tables", {}, {});
    row("items that nothing shows: no tables",
        item(6, 2, hex("05")) + item(0, 2, hex("05")) + item(200, 4, hex("05 00")), {});
    row("value in two tables: both, in the order of their addresses", item(0, 4, hex("2c 01")),
        R"({"address":100,"values":[44,0,0,0,0,0,0,0,0]},{"address":300,"values":[0,0,44]})"_s);
    row("later table first needed: first", item(5, 6, hex("78 56 34 12")) + item(1, 5, hex("fe ff")),
        R"({"address":300,"values":[4660,22136,0]},{"address":100,"values":[0,0,0,65535,65534,0,0,0,0]})"_s);
    row("two values of one table: once, negative 32 bits as 0",
        item(2, 7, hex("ff ff ff ff")) + item(3, 8, "5.2-"),
        R"({"address":100,"values":[0,0,0,0,0,0,0,49184,0]})"_s);
    row("float of four IEEE 754 octets: 0", item(3, 8, hex("00 00 60 40")),
        R"({"address":100,"values":[0,0,0,0,0,0,0,0,0]})"_s);
    row("register without words: its table, unchanged", item(4, 2, hex("07")),
        R"({"address":100,"values":[0,0,0,0,0,0,0,0,0]})"_s);
    row("value past the section's end: those before it",
        item(5, 6, hex("01 00 00 00")) + hex("34 12 02 01 00 04 ff 00 2c 01"),
        R"({"address":300,"values":[0,1,0]})"_s);
}

void tst_ModbusCommands::everyCoreSectionIsSent()
{
    QFETCH(QByteArray, items);
    Scene scene;
    QVERIFY(scene.start());
    int count = 0;
    QVERIFY(scene.controller.send(Frame(1).section(Core, items)));
    QTEST(nextCommand(&scene, &count), "command");
}

void tst_ModbusCommands::valuesStayFromFrameToFrame()
{
    Scene scene;
    QVERIFY(scene.start());
    int count = 0;
    QVERIFY(scene.controller.send(Frame(1).section(Core, item(5, 6, hex("02 00 01 00")))));
    QCOMPARE(nextCommand(&scene, &count),
             R"({"cmd":"setconfig","data":[{"address":300,"values":[1,2,0]}]})"_s);
    QVERIFY(scene.controller.send(Frame(2).devInfo("en"))); // no Core section: nothing is sent
    QVERIFY(scene.controller.send(Frame(3).section(Core, {})));
    QCOMPARE(nextCommand(&scene, &count), nothing);
    QVERIFY(scene.controller.send(Frame(4).section(Core, item(0, 4, hex("ff 00")))));
    QCOMPARE(nextCommand(&scene, &count),
             R"({"cmd":"setconfig","data":[{"address":100,"values":[255,0,0,0,0,0,0,0,0]},)"
             R"({"address":300,"values":[1,2,255]}]})"_s);
}

QTEST_GUILESS_MAIN(tst_ModbusCommands)
#include "tst_modbuscommands.moc"
