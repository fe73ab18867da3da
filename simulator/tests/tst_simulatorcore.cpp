// SPDX-License-Identifier: MIT
#include "corefeed.h"
#include "coremap.h"

#include <QtTest>

using namespace Simulator;

Q_DECLARE_METATYPE(Simulator::CoreType)

/// The Core section: which values a mapping file yields, and how each kind of value is written.
class tst_SimulatorCore : public QObject
{
    Q_OBJECT

private slots:
    void value_data();
    void value();
    void refusedValue_data();
    void refusedValue();
    void sampleMapping();
    void mappingRules();
    void unreadableMapping_data();
    void unreadableMapping();
    void section();
    void heldValueStays();

private:
    QString writeFile(const QByteArray& text);

    QTemporaryDir directory;
};

QString tst_SimulatorCore::writeFile(const QByteArray& text)
{
    QFile file(directory.filePath(QStringLiteral("mapping.json")));
    if (file.open(QIODevice::WriteOnly)) {
        file.write(text);
    }
    return file.fileName();
}

void tst_SimulatorCore::value_data()
{
    QTest::addColumn<CoreType>("type");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QByteArray>("octets");

    const auto row = [](const char* name, CoreType type, const QJsonValue& value, const char* octets) {
        QTest::newRow(name) << type << value << QByteArray(octets);
    };
    row("bool true: 01", CoreType::Bool, true, "01");
    row("bool text off: 00", CoreType::Bool, QStringLiteral("off"), "00");
    row("uint8 200: c8", CoreType::Uint8, 200, "c8");
    row("int8 -2: fe", CoreType::Int8, -2, "fe");
    row("uint16 0x1234: low octet first", CoreType::Uint16, 0x1234, "3412");
    row("int16 -2: two's complement", CoreType::Int16, -2, "feff");
    row("uint32 largest", CoreType::Uint32, 4294967295.0, "ffffffff");
    row("uint32 as text", CoreType::Uint32, QStringLiteral("305419896"), "78563412");
    row("int32 -1", CoreType::Int32, -1, "ffffffff");
    row("float 3.5: the text 3.5, last character first", CoreType::Float, 3.5, "352e33");
    row("float -20.25", CoreType::Float, QStringLiteral("-20.25"), "35322e30322d");
    row("string abc: last character first", CoreType::String, QStringLiteral("abc"), "636261");
    row("string from a number", CoreType::String, 42, "3234");
    row("empty string: no octet", CoreType::String, QString(), "");
}

void tst_SimulatorCore::value()
{
    QFETCH(CoreType, type);
    QFETCH(QJsonValue, value);
    QFETCH(QByteArray, octets);
    const std::optional<QByteArray> encoded = encodeCoreValue(type, value);
    QVERIFY(encoded.has_value());
    QCOMPARE(encoded->toHex(), octets);
}

void tst_SimulatorCore::refusedValue_data()
{
    QTest::addColumn<CoreType>("type");
    QTest::addColumn<QJsonValue>("value");

    QTest::newRow("uint8 256") << CoreType::Uint8 << QJsonValue(256);
    QTest::newRow("uint8 -1") << CoreType::Uint8 << QJsonValue(-1);
    QTest::newRow("int8 128") << CoreType::Int8 << QJsonValue(128);
    QTest::newRow("int16 with a fraction") << CoreType::Int16 << QJsonValue(1.5);
    QTest::newRow("uint32 one too large") << CoreType::Uint32 << QJsonValue(4294967296.0);
    QTest::newRow("float from a word") << CoreType::Float << QJsonValue(QStringLiteral("warm"));
    QTest::newRow("bool from a word") << CoreType::Bool << QJsonValue(QStringLiteral("maybe"));
    QTest::newRow("other") << CoreType::Other << QJsonValue(1);
}

void tst_SimulatorCore::refusedValue()
{
    QFETCH(CoreType, type);
    QFETCH(QJsonValue, value);
    QVERIFY(!encodeCoreValue(type, value).has_value());
}

void tst_SimulatorCore::sampleMapping()
{
    const Varnel::Outcome<QList<CorePoint>> read =
        readCoreMap(QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"));
    QVERIFY2(read, qPrintable(read.refusal.text));
    const QList<CorePoint>& points = *read.value;
    QVERIFY(points.size() > 20);
    const CorePoint& first = points.first();
    QCOMPARE(first.name, QStringLiteral("Device state"));
    QCOMPARE(int(first.ciClass), 1);
    QCOMPARE(int(first.ciField), 1);
    QCOMPARE(int(first.instance), 0);
    QCOMPARE(int(first.typeCode), 2);
    QVERIFY(first.type == CoreType::Uint8);
    for (const CorePoint& point : points) {
        QVERIFY2(point.type != CoreType::Other, qPrintable(point.name));
    }
}

void tst_SimulatorCore::mappingRules()
{
    const QString path = writeFile(R"({"ci": {"types": {"U16": 4, "uint32": 6, "float": 8},
        "classes": {"c": {"id": 300, "fields": {"f": 7, "g": 8}}}}, "registers": [
        {"id": 1, "name": "used", "ci_class": "c", "ci_field": "f", "ci_index": 2, "ci_type": "uint16"},
        {"id": 2, "name": "same place", "ci_class": "c", "ci_field": "f", "ci_index": 2, "ci_type": "u16"},
        {"id": 7, "name": "alias", "ci_class": "c", "ci_field": "g", "ci_index": 255, "ci_type": "float32"}]})");
    const Varnel::Outcome<QList<CorePoint>> read = readCoreMap(path);
    QVERIFY2(read, qPrintable(read.refusal.text));
    const QList<CorePoint>& points = *read.value;
    QStringList names;
    for (const CorePoint& point : points) {
        names.append(point.name);
    }
    QCOMPARE(names, (QStringList{QStringLiteral("used"), QStringLiteral("alias")}));
    QCOMPARE(int(points.first().ciClass), 300);
    QCOMPARE(int(points.last().instance), 255);
    QCOMPARE(int(points.last().typeCode), 8);
}

void tst_SimulatorCore::unreadableMapping_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");

    QTest::newRow("empty") << QByteArray() << QStringLiteral("is not a JSON object");
    QTest::newRow("an array") << QByteArray("[]") << QStringLiteral("is not a JSON object");
    QTest::newRow("without registers")
        << QByteArray("{\"ci\": 5}") << QStringLiteral("names no controller value");
    const auto broken = [](const char* row, const char* members) {
        QTest::newRow(row)
            << R"({"ci": {"types": {"U16": 4, "uint32": 6}, "classes": {"c": {"id": 3, "fields": {"f": 7}}}},
                   "registers": [{"id": 3, "name": "r", )" +
                   QByteArray(members) + "}]}"
            << QStringLiteral(
                   ": register 3 \"r\" names no known class, field, index or type (see modbus-map-check)");
    };
    broken("no such class", R"("ci_class": "d", "ci_field": "f", "ci_index": 0, "ci_type": "u16")");
    broken("no such field", R"("ci_class": "c", "ci_field": "h", "ci_index": 0, "ci_type": "u16")");
    broken("long name defines nothing",
           R"("ci_class": "c", "ci_field": "f", "ci_index": 0, "ci_type": "uint32")");
    broken("index too large", R"("ci_class": "c", "ci_field": "f", "ci_index": 256, "ci_type": "u16")");
}

void tst_SimulatorCore::unreadableMapping()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    const QString refused = readCoreMap(writeFile(text)).refusal.text;
    QVERIFY2(refused.contains(reason), qPrintable(refused));
    const QString unread = readCoreMap(directory.filePath(QStringLiteral("none"))).refusal.text;
    QVERIFY2(unread.startsWith(QStringLiteral("cannot read")), qPrintable(unread));
}

void tst_SimulatorCore::section()
{
    CoreFeed feed;
    QVERIFY(!feed.hasItems());
    QCOMPARE(feed.section().toHex(), QByteArray("80000400"));
    feed.setPoints({{100, QStringLiteral("level"), 3, 1, 2, 4, CoreType::Uint16},
                    {200, QStringLiteral("warmth"), 5, 6, 0, 8, CoreType::Float}});
    QCOMPARE(feed.hold(QStringLiteral("100"), 0x1234).refusal.text, QString());
    QCOMPARE(feed.hold(QStringLiteral("warmth"), 3.5).refusal.text, QString());
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

void tst_SimulatorCore::heldValueStays()
{
    CoreFeed feed;
    feed.setPoints({{1, QStringLiteral("a"), 1, 1, 0, 4, CoreType::Uint16},
                    {2, QStringLiteral("b"), 1, 2, 0, 4, CoreType::Uint16}});
    const auto valueOf = [&feed](int position) {
        return feed.toJson().at(position).toObject().value(QLatin1String("value"));
    };
    QCOMPARE(feed.hold(QStringLiteral("1"), 77).refusal.text, QString());
    const QJsonValue moving = valueOf(1);
    feed.advance();
    QCOMPARE(valueOf(0), QJsonValue(77));
    QVERIFY(valueOf(1) != moving);
    QCOMPARE(feed.release(QStringLiteral("1")).refusal.text, QString());
    feed.advance();
    QVERIFY(valueOf(0) != QJsonValue(77));
    QVERIFY(!feed.hold(QStringLiteral("9"), 1));
    QVERIFY(!feed.hold(QStringLiteral("1"), 70000));
    QVERIFY(!feed.release(QStringLiteral("9")));
}

QTEST_GUILESS_MAIN(tst_SimulatorCore)
#include "tst_simulatorcore.moc"
