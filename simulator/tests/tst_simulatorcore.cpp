// SPDX-License-Identifier: MIT
#include "corefeed.h"
#include "coremap.h"
#include "files.h"
#include "literals.h"
#include "rows.h"

#include <QtTest>

using namespace Simulator;

Q_DECLARE_METATYPE(Simulator::CoreType)

/// The Core section: which values a mapping file yields, and how each kind of value is written.
class tst_SimulatorCore : public QObject
{
    Q_OBJECT

private slots:
    void value_data()
    {
        const Rows<CoreType, QJsonValue, QByteArray> row("type", "value", "octets");
        row("bool true: 01", CoreType::Bool, true, "01");
        row("bool text off: 00", CoreType::Bool, "off"_s, "00");
        row("uint8 200: c8", CoreType::Uint8, 200, "c8");
        row("int8 -2: fe", CoreType::Int8, -2, "fe");
        row("uint16 0x1234: low octet first", CoreType::Uint16, 0x1234, "3412");
        row("int16 -2: two's complement", CoreType::Int16, -2, "feff");
        row("uint32 largest", CoreType::Uint32, 4294967295.0, "ffffffff");
        row("uint32 as text", CoreType::Uint32, "305419896"_s, "78563412");
        row("int32 -1", CoreType::Int32, -1, "ffffffff");
        row("float 3.5: the text 3.5, last character first", CoreType::Float, 3.5, "352e33");
        row("float -20.25", CoreType::Float, "-20.25"_s, "35322e30322d");
        row("string abc: last character first", CoreType::String, "abc"_s, "636261");
        row("string from a number", CoreType::String, 42, "3234");
        row("empty string: no octet", CoreType::String, QString(), "");
        row("uint8 256", CoreType::Uint8, 256, "refused");
        row("uint8 -1", CoreType::Uint8, -1, "refused");
        row("int8 128", CoreType::Int8, 128, "refused");
        row("int16 with a fraction", CoreType::Int16, 1.5, "refused");
        row("uint32 one too large", CoreType::Uint32, 4294967296.0, "refused");
        row("float from a word", CoreType::Float, "warm"_s, "refused");
        row("bool from a word", CoreType::Bool, "maybe"_s, "refused");
        row("other", CoreType::Other, 1, "refused");
    }

    void value()
    {
        QFETCH(CoreType, type);
        QFETCH(QJsonValue, value);
        const std::optional<QByteArray> octets = encodeCoreValue(type, value);
        QTEST(octets ? octets->toHex() : "refused", "octets");
    }

    void mappingRules()
    {
        const QList<CorePoint> points = readText(R"({"ci": {"types": {"U16": 4, "uint32": 6, "float": 8},
            "classes": {"c": {"id": 300, "fields": {"f": 7, "g": 8}}}}, "registers": [
            {"id": 1, "name": "used", "ci_class": "c", "ci_field": "f", "ci_index": 2, "ci_type": "uint16"},
            {"id": 2, "name": "same place", "ci_class": "c", "ci_field": "f", "ci_index": 2, "ci_type": "u16"},
            {"id": 7, "name": "alias", "ci_class": "c", "ci_field": "g", "ci_index": 255, "ci_type": "float32"}]})")
                                            .value.value_or(QList<CorePoint>());
        QCOMPARE(points.size(), 2);
        QCOMPARE(points.first().name, "used"_s);
        QCOMPARE(int(points.first().ciClass), 300);
        QCOMPARE(points.last().name, "alias"_s);
        QCOMPARE(int(points.last().instance), 255);
        QCOMPARE(int(points.last().typeCode), 8);
    }

    void unreadableMapping_data()
    {
        const Rows<QByteArray, QString> row("text", "reason");
        const auto broken = [&row](const char* name, const char* members) {
            row(name,
                R"({"ci": {"types": {"U16": 4, "uint32": 6}, "classes": {"c": {"id": 3, "fields": {"f": 7}}}},
                       "registers": [{"id": 3, "name": "r", )" +
                    QByteArray(members) + "}]}",
                ": register 3 \"r\" names no known class, field, index or type (see modbus-map-check)"_s);
        };
        row("empty", {}, "is not a JSON object"_s);
        row("an array", "[]", "is not a JSON object"_s);
        row("without registers", "{\"ci\": 5}", "names no controller value"_s);
        broken("no such class", R"("ci_class": "d", "ci_field": "f", "ci_index": 0, "ci_type": "u16")");
        broken("no such field", R"("ci_class": "c", "ci_field": "h", "ci_index": 0, "ci_type": "u16")");
        broken("long name defines nothing",
               R"("ci_class": "c", "ci_field": "f", "ci_index": 0, "ci_type": "uint32")");
        broken("index too large", R"("ci_class": "c", "ci_field": "f", "ci_index": 256, "ci_type": "u16")");
    }

    void unreadableMapping()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, reason);
        const QString refused = readText(text).refusal.text;
        QVERIFY2(refused.contains(reason), qPrintable(refused));
    }

    void section()
    {
        CoreFeed feed;
        QVERIFY(!feed.hasItems());
        QCOMPARE(feed.section().toHex(), QByteArray("80000400"));
        feed.setPoints(
            {{100, "level"_s, 3, 1, 2, 4, CoreType::Uint16}, {200, "warmth"_s, 5, 6, 0, 8, CoreType::Float}});
        QCOMPARE(feed.hold("100"_s, 0x1234).refusal.text, QString());
        QCOMPARE(feed.hold("warmth"_s, 3.5).refusal.text, QString());
        // class, field, index, type, length, value
        QCOMPARE(feed.section().toHex(), QByteArray("80001900"
                                                    "030001000204"
                                                    "0200"
                                                    "3412"
                                                    "050006000008"
                                                    "0300"
                                                    "352e33"));
        feed.addRawItem({0, {}, 0xFFFF, 0, 0, 9, CoreType::Other}, QByteArray("\x01\x02\x03\x04\x05"));
        QVERIFY(feed.section().toHex().endsWith("ffff00000009"
                                                "0500"
                                                "0102030405"));
    }

    void heldValueStays()
    {
        CoreFeed feed;
        feed.setPoints({{1, "a"_s, 1, 1, 0, 4, CoreType::Uint16}, {2, "b"_s, 1, 2, 0, 4, CoreType::Uint16}});
        const auto valueOf = [&feed](int position) {
            return feed.toJson().at(position).toObject().value(QLatin1String("value"));
        };
        QCOMPARE(feed.hold("1"_s, 77).refusal.text, QString());
        const QJsonValue moving = valueOf(1);
        feed.advance();
        QCOMPARE(valueOf(0), QJsonValue(77));
        QVERIFY(valueOf(1) != moving);
        QCOMPARE(feed.release("1"_s).refusal.text, QString());
        feed.advance();
        QVERIFY(valueOf(0) != QJsonValue(77));
        QVERIFY(!feed.hold("9"_s, 1));
        QVERIFY(!feed.hold("1"_s, 70000));
        QVERIFY(!feed.release("9"_s));
    }

private:
    static Varnel::Outcome<QList<CorePoint>> readText(const QByteArray& text)
    {
        const QTemporaryDir directory;
        writeFile(directory.filePath("a.map"_s), text);
        return readCoreMap(directory.filePath("a.map"_s));
    }
};

QTEST_GUILESS_MAIN(tst_SimulatorCore)
#include "tst_simulatorcore.moc"
