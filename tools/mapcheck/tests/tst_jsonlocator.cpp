// SPDX-License-Identifier: MIT
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "jsonlocator.h"

/// The line of every value of a JSON text.
class tst_JsonLocator : public QObject
{
    Q_OBJECT

private slots:
    void lines_data();
    void lines();
    void linesOfOffsets();
    void duplicates_data();
    void duplicates();
    void lastDuplicateCounts();
    void oddTexts_data();
    void oddTexts();
    void deepNesting();
    void everyValueOfTheSample();
};

Q_DECLARE_METATYPE(JsonPath)

namespace {

QString s(const char* text)
{
    return QString::fromUtf8(text);
}

} // namespace

void tst_JsonLocator::lines_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<JsonPath>("path");
    QTest::addColumn<int>("line");

    const QByteArray text = "\n{\n \"a\": 1,\n \"b\": [10,\n  20, {\"c\"\n   :\n   \"x\\\"]}\"}\n ],\n"
                            " \"d\": {}, \"e\\u0066\": [], \"\xC3\xA9\": -1.5e3,\n \"f\":null}\n";
    const JsonPath top;
    QTest::newRow("top: first line of the object") << text << top << 2;
    QTest::newRow("member: line of its name") << text << top / s("a") << 3;
    QTest::newRow("array: line of its name") << text << top / s("b") << 4;
    QTest::newRow("first element") << text << top / s("b") / 0 << 4;
    QTest::newRow("second element") << text << top / s("b") / 1 << 5;
    QTest::newRow("member of an element: line of its name") << text << top / s("b") / 2 / s("c") << 5;
    QTest::newRow("behind a string with quote and brackets") << text << top / s("d") << 9;
    QTest::newRow("escaped name") << text << top / s("ef") << 9;
    QTest::newRow("name beyond ASCII") << text << top / s("\xC3\xA9") << 9;
    QTest::newRow("last member") << text << top / s("f") << 10;
    QTest::newRow("unknown member: its object") << text << top / s("b") / 2 / s("z") << 5;
    QTest::newRow("index behind the end: its array") << text << top / s("b") / 3 << 4;
    QTest::newRow("negative index: its array") << text << top / s("b") / -1 << 4;
    QTest::newRow("index into an object: the object") << text << top / s("d") / 0 << 9;
    QTest::newRow("name in an array: the array") << text << top / s("b") / s("c") << 4;
    QTest::newRow("below a number: the number") << text << top / s("a") / s("b") / 1 << 3;
    QTest::newRow("DOS line ends: counted once")
        << QByteArray("{\r\n\"a\":\r\n[1,\r\n2]}") << top / s("a") / 1 << 4;
    QTest::newRow("byte order mark: no line") << QByteArray("\xEF\xBB\xBF{\n\"a\": 1}") << top / s("a") << 2;
    QTest::newRow("array on top") << QByteArray("[\n1,\n[2,\n3]]") << top / 1 / 1 << 4;
}

void tst_JsonLocator::lines()
{
    QFETCH(QByteArray, text);
    QFETCH(JsonPath, path);
    QVERIFY(!QJsonDocument::fromJson(text).isNull());
    QTEST(JsonLocator(text).line(path), "line");
}

void tst_JsonLocator::linesOfOffsets()
{
    const QByteArray text("a\nbc\n\nd");
    const int lines[] = {1, 1, 2, 2, 2, 3, 4, 4};
    for (int offset = 0; offset < 8; ++offset) {
        QCOMPARE(JsonLocator::lineAt(text, offset), lines[offset]);
    }
    QCOMPARE(JsonLocator::lineAt(text, -1), 1);
    QCOMPARE(JsonLocator::lineAt(text, 1000), 4);
    QCOMPARE(JsonLocator::lineAt({}, 0), 1);
}

void tst_JsonLocator::duplicates_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QStringList>("found");
    QTest::newRow("none") << QByteArray(R"({"a": {"b": 1}, "b": {"a": 1}})") << QStringList();
    QTest::newRow("same object: the second") << QByteArray("{\"a\": 1,\n\"a\": 2}") << QStringList(s("2 a"));
    QTest::newRow("three times: two of them")
        << QByteArray("{\"a\": 1,\n\"a\": 2,\n\"a\": 3}") << QStringList({s("2 a"), s("3 a")});
    QTest::newRow("escaped: the same name")
        << QByteArray("{\"a\": 1,\n\"\\u0061\": 2}") << QStringList(s("2 a"));
    QTest::newRow("inside arrays") << QByteArray("[{\"x\": 1, \"x\": 2},\n{\"x\": 1}]")
                                   << QStringList(s("1 x"));
    QTest::newRow("other case: another name") << QByteArray(R"({"a": 1, "A": 2})") << QStringList();
}

void tst_JsonLocator::duplicates()
{
    QFETCH(QByteArray, text);
    QStringList found;
    const JsonLocator locator(text);
    for (const JsonLocator::Duplicate& duplicate : locator.duplicates()) {
        found << QString::number(duplicate.line) + QLatin1Char(' ') + duplicate.name;
    }
    QTEST(found, "found");
}

void tst_JsonLocator::lastDuplicateCounts()
{
    const QByteArray text("{\"a\": 1,\n\"a\": 2}");
    const JsonLocator locator(text);
    QCOMPARE(QJsonDocument::fromJson(text).object().value(s("a")).toInt(), 2);
    QCOMPARE(locator.line(JsonPath() / s("a")), 2);
}

void tst_JsonLocator::oddTexts_data()
{
    QTest::addColumn<QByteArray>("text");
    for (const char* text : {"",          " ",       "{",        "[",   "\"",    "\"\\",  "{\"a\"",
                             "{\"a\":",   "[1,",     "}",        "]",   ",",     "{]",    "[}",
                             "{,}",       "[,]",     "{\"a\":}", "nul", "{1:2}", "[1 2]", "\xEF\xBB\xBF",
                             "{\"a\" 1}", "\xFF\xFE"}) {
        QTest::addRow("%s: read to its end", text) << QByteArray(text);
    }
}

void tst_JsonLocator::oddTexts()
{
    QFETCH(QByteArray, text);
    const JsonLocator locator(text); // texts that the parser refuses are not its business, but no harm either
    QVERIFY(locator.line({}) >= 1);
}

void tst_JsonLocator::deepNesting()
{
    const QByteArray text = QByteArray(100000, '[') + "\n" + QByteArray(100000, ']');
    QCOMPARE(JsonLocator(text).line({}), 1);
    JsonPath path;
    QByteArray nested("1");
    for (int i = 0; i < 500; ++i) {
        nested = "[\n" + nested + "]";
        path = path / 0;
    }
    QCOMPARE(JsonLocator(nested).line(path), 501);
}

namespace {

/// Compares the line of every value below `value` with the line of its name or text.
void compareAll(const JsonLocator& locator, const QList<QByteArray>& lines, const QJsonValue& value,
                const JsonPath& path, int* compared)
{
    const QJsonObject object = value.toObject();
    for (auto member = object.constBegin(); member != object.constEnd(); ++member) {
        const int line = locator.line(path / member.key());
        QVERIFY(lines.at(line - 1).contains('"' + member.key().toUtf8() + "\":"));
        compareAll(locator, lines, member.value(), path / member.key(), compared);
        ++*compared;
    }
    const QJsonArray array = value.toArray();
    for (int i = 0; i < array.size(); ++i) {
        if (array[i].isDouble()) {
            QVERIFY(lines.at(locator.line(path / i) - 1).contains(QByteArray::number(array[i].toInt())));
            ++*compared;
        }
        compareAll(locator, lines, array[i], path / i, compared);
    }
}

} // namespace

void tst_JsonLocator::everyValueOfTheSample()
{
    QFile file(QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray text = file.readAll();
    int compared = 0;
    compareAll(JsonLocator(text), text.split('\n'), QJsonDocument::fromJson(text).object(), {}, &compared);
    QVERIFY(compared > 250);
}

QTEST_GUILESS_MAIN(tst_JsonLocator)

#include "tst_jsonlocator.moc"
