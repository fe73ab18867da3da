// SPDX-License-Identifier: MIT
// The arguments and files of the Modbus server's scripts, byte by byte: the start-up description, the order
// of the calls and the update command of every frame.

#include <QFile>
#include <QTest>

#include "scene.h"

namespace {

const QString initFile = "/tmp/etc/mbserver_init.dbus"_s;

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

/// An item of the one class and field, its value as it is on the wire.
QByteArray item(quint8 instance, quint8 type, const QByteArray& value)
{
    return coreItem(4660, 258, instance, type, value);
}

} // namespace

class tst_ModbusCommands : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        QFile::remove(initFile);
        QFile map("/usr/local/etc/modbus.map"_s);
        QVERIFY(map.open(QIODevice::WriteOnly));
        QCOMPARE(map.write(mapping), qint64(mapping.size()));
    }

    void serverIsStoppedAndStarted()
    {
        Scene scene;
        QVERIFY(scene.start());
        QCOMPARE(scene.scripts.runLines(),
                 QStringList({"mbserverstop.sh"_s, "mbserverstart.sh "_s + initFile}));
        QFile file(initFile);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(file.readAll(), QByteArray(R"({
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

    void everyCoreSectionIsSent()
    {
        struct Row
        {
            QByteArray items;
            QString tables;
        };
        // Values stay from frame to frame.
        const Row rows[] = {
            // No items, and items that nothing shows: no tables.
            {{}, {}},
            {item(6, 2, hex("05")) + item(0, 2, hex("05")) + item(200, 4, hex("05 00")), {}},
            // A register without words: its table, unchanged.
            {item(4, 2, hex("07")), R"({"address":100,"values":[0,0,0,0,0,0,0,0,0]})"_s},
            // A value in two tables: both, in the order of their addresses.
            {item(0, 4, hex("2c 01")),
             R"({"address":100,"values":[44,0,0,0,0,0,0,0,0]},{"address":300,"values":[0,0,44]})"_s},
            // The later table is needed first: it comes first.
            {item(5, 6, hex("78 56 34 12")) + item(1, 5, hex("fe ff")),
             R"({"address":300,"values":[4660,22136,44]},)"
             R"({"address":100,"values":[44,0,0,65535,65534,0,0,0,0]})"_s},
            // Two values of one table: once, negative 32 bits as 0.
            {item(2, 7, hex("ff ff ff ff")) + item(3, 8, "5.2-"),
             R"({"address":100,"values":[44,0,0,65535,65534,0,0,49184,0]})"_s},
            // A float of four IEEE 754 octets: 0.
            {item(3, 8, hex("00 00 60 40")), R"({"address":100,"values":[44,0,0,65535,65534,0,0,0,0]})"_s},
            // A value past the section's end: those before it.
            {item(5, 6, hex("01 00 00 00")) + hex("34 12 02 01 00 04 ff 00 2c 01"),
             R"({"address":300,"values":[0,1,44]})"_s},
        };
        Scene scene;
        QVERIFY(scene.start());
        QStringList commands;
        for (const Row& row : rows) {
            QVERIFY(scene.sendFrame()); // without Core section: nothing is sent
            QVERIFY(scene.controller.send(Frame(++scene.sequence).section(Core, row.items)));
            commands += R"({"cmd":"setconfig","data":[%1]})"_s.arg(row.tables);
        }
        const auto sent = [&] { return scene.scripts.argumentsOf("mbserverupdate.sh"_s); };
        QVERIFY(awaitTrue([&] { return sent().size() >= commands.size(); }));
        QCOMPARE(sent(), commands);
    }
};

QTEST_GUILESS_MAIN(tst_ModbusCommands)
#include "tst_modbuscommands.moc"
