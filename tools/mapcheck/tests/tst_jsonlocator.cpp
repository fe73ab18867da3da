// SPDX-License-Identifier: MIT
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "jsonlocator.h"
#include "literals.h"
#include "rows.h"

Q_DECLARE_METATYPE(JsonPath)

/// The line of every value of a JSON text.
class tst_JsonLocator : public QObject
{
    Q_OBJECT

private slots:
    void lines_data()
    {
        const Rows<QByteArray, JsonPath, int> add("text", "path", "line");
        const QByteArray text = "\n{\n \"a\": 1,\n \"b\": [10,\n  20, {\"c\"\n   :\n   \"x\\\"]}\"}\n ],\n"
                                " \"d\": {}, \"e\\u0066\": [], \"\xC3\xA9\": -1.5e3,\n \"f\":null}\n";
        const auto row = [&](const char* name, const JsonPath& path, int line) {
            add(name, text, path, line);
        };
        const JsonPath top;
        row("top: first line of the object", top, 2);
        row("member of an element: line of its name", top / "b"_s / 2 / "c"_s, 5);
        row("behind a string with quote and brackets", top / "d"_s, 9);
        row("escaped name", top / "ef"_s, 9);
        row("name beyond ASCII", top / "\xC3\xA9"_s, 9);
        row("last member", top / "f"_s, 10);
        row("unknown member: its object", top / "b"_s / 2 / "z"_s, 5);
        row("index behind the end: its array", top / "b"_s / 3, 4);
        row("negative index: its array", top / "b"_s / -1, 4);
        row("index into an object: the object", top / "d"_s / 0, 9);
        row("name in an array: the array", top / "b"_s / "c"_s, 4);
        row("below a number: the number", top / "a"_s / "b"_s / 1, 3);
        add("DOS line ends: counted once", "{\r\n\"a\":\r\n[1,\r\n2]}", top / "a"_s / 1, 4);
        add("name twice: the last one counts", "{\"a\": 1,\n\"a\": 2}", top / "a"_s, 2);
        add("byte order mark: no line", "\xEF\xBB\xBF{\n\"a\": 1}", top / "a"_s, 2);
        add("array on top", "[\n1,\n[2,\n3]]", top / 1 / 1, 4);
    }

    void lines()
    {
        QFETCH(QByteArray, text);
        QFETCH(JsonPath, path);
        QVERIFY(!QJsonDocument::fromJson(text).isNull());
        QTEST(JsonLocator(text).line(path), "line");
    }

    void linesOfOffsets()
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

    void duplicates_data()
    {
        const Rows<QByteArray, QStringList> row("text", "found");
        row("none", R"({"a": {"b": 1}, "b": {"a": 1}})", {});
        row("same object: the second", "{\"a\": 1,\n\"a\": 2}", {"2 a"_s});
        row("three times: two of them", "{\"a\": 1,\n\"a\": 2,\n\"a\": 3}", {"2 a"_s, "3 a"_s});
        row("escaped: the same name", "{\"a\": 1,\n\"\\u0061\": 2}", {"2 a"_s});
        row("inside arrays", "[{\"x\": 1, \"x\": 2},\n{\"x\": 1}]", {"1 x"_s});
        row("other case: another name", R"({"a": 1, "A": 2})", {});
    }

    void duplicates()
    {
        QFETCH(QByteArray, text);
        QStringList found;
        const JsonLocator locator(text);
        for (const JsonLocator::Duplicate& duplicate : locator.duplicates()) {
            found << QString::number(duplicate.line) + QLatin1Char(' ') + duplicate.name;
        }
        QTEST(found, "found");
    }

    void deepNesting()
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
};

QTEST_GUILESS_MAIN(tst_JsonLocator)

#include "tst_jsonlocator.moc"
