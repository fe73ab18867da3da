// SPDX-License-Identifier: MIT
#include <random>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "plainjson.h"

using namespace Varnel;

/// What is read as plain JSON is what Qt's parser reads, and its log line is what qDebug() prints of the JSON
/// writer's text.
class TestPlainJson : public QObject
{
    Q_OBJECT

private slots:
    void texts_data();
    void texts();
    void membersByName_data();
    void membersByName();
    void randomDocuments_data();
    void randomDocuments();
    void damagedDocuments_data();
    void damagedDocuments();
    void sample();
};

namespace {

QString written(const QByteArray& source)
{
    QString line;
    QDebug(&line).nospace() << QString::fromUtf8(
        QJsonDocument::fromJson(source).toJson(QJsonDocument::Compact));
    return line;
}

bool isSame(const PlainJson::Value& plain, const QJsonValue& value);

bool isSame(const PlainJson::Object& plain, const QJsonObject& object)
{
    auto member = object.constBegin();
    for (auto one = plain.constBegin(); one != plain.constEnd(); ++one, ++member) {
        if (member == object.constEnd() || one.key() != member.key() ||
            !isSame(plain.value(one.key()), member.value())) {
            return false;
        }
    }
    return member == object.constEnd();
}

bool isSame(const PlainJson::Array& plain, const QJsonArray& array)
{
    auto element = array.constBegin();
    for (const PlainJson::Value& one : plain) {
        if (element == array.constEnd() || !isSame(one, *element)) {
            return false;
        }
        ++element;
    }
    return plain.size() == array.size();
}

/// All that can be asked of a value gives the same answer.
bool isSame(const PlainJson::Value& plain, const QJsonValue& value)
{
    if (plain.isArray() || plain.isObject()) {
        return plain.isArray() == value.isArray() && plain.isObject() == value.isObject() &&
               isSame(plain.toArray(), value.toArray()) && isSame(plain.toObject(), value.toObject());
    }
    return plain.isDouble() == value.isDouble() && plain.isString() == value.isString() && !value.isArray() &&
           !value.isObject() && plain.toInt() == value.toInt() && plain.toString() == value.toString();
}

/// Reads `source` as plain JSON and compares it with what Qt's parser reads.
enum class Result
{
    NotPlain,
    Same,
    Different,
};

Result compare(const QByteArray& source)
{
    const auto plain = PlainJson::read(source);
    if (!plain) {
        return Result::NotPlain;
    }
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(source, &error);
    const bool same = error.error == QJsonParseError::NoError && document.isObject() &&
                      isSame(plain->object(), document.object()) && plain->quoted() == written(source);
    return same ? Result::Same : Result::Different;
}

/// A JSON text of random values, blanks and member names, some of them twice.
class RandomText
{
public:
    explicit RandomText(quint32 seed)
        : engine(seed)
    {
    }

    QByteArray next()
    {
        text.clear();
        blanks();
        below(10) == 0 ? array(0) : object(0);
        blanks();
        return text;
    }

private:
    int below(int limit) { return int(engine() % unsigned(limit)); }

    void blanks()
    {
        for (int count = below(3); count > 0; --count) {
            text += " \n\t\r"[below(4)];
        }
    }

    void string()
    {
        static const char* const parts[] = {"a", "b", "id", "name", " ", "/", "%", "'", "~", "Z", ""};
        static const char* const odd[] = {"\\\"",     "\\\\", "\\u0041", "\\n",
                                          "\xC3\xA9", "\x7F", "\\u0000", "\\/"};
        text += '"';
        for (int count = below(4); count > 0; --count) {
            text += below(40) == 0 ? odd[below(8)] : parts[below(11)];
        }
        text += '"';
    }

    void scalar()
    {
        static const char* const plain[] = {"0",         "1",    "-1",    "65535", "-32768",
                                            "999999999", "true", "false", "null"};
        static const char* const odd[] = {"-0",          "1.0",  "2.50", "1e3",
                                          "12345678901", "-0.0", "1E-2", "9999999999999999999"};
        text += below(60) == 0 ? odd[below(8)] : plain[below(9)];
    }

    void value(int depth)
    {
        switch (below(depth < 5 ? 4 : 2)) {
        case 0:
            scalar();
            break;
        case 1:
            string();
            break;
        default:
            container(depth + 1);
        }
    }

    void member(const QByteArray& name)
    {
        text += name;
        blanks();
        text += ':';
        blanks();
    }

    /// A name that stands nowhere else, quotes included.
    QByteArray newName()
    {
        const int start = text.size();
        string();
        QByteArray name =
            text.mid(start).replace(text.size() - start - 1, 1, QByteArray::number(++names) + '"');
        text.truncate(start);
        return name;
    }

    void container(int depth) { below(2) == 0 ? object(depth) : array(depth); }

    void object(int depth)
    {
        text += '{';
        blanks();
        QByteArray repeated;
        const int count = below(5);
        for (int i = 0; i < count; ++i) {
            text += i > 0 ? "," : "";
            blanks();
            // Qt's parser loses the memory of an array or object whose name comes once more: only a plain
            // value's name may.
            if (!repeated.isEmpty() && below(8) == 0) {
                member(repeated);
                scalar();
            } else if (below(3) == 0) {
                member(repeated = newName());
                scalar();
            } else {
                member(newName());
                value(depth);
            }
            blanks();
        }
        text += '}';
    }

    void array(int depth)
    {
        text += '[';
        blanks();
        const int count = below(5);
        for (int i = 0; i < count; ++i) {
            text += i > 0 ? "," : "";
            blanks();
            value(depth);
            blanks();
        }
        text += ']';
    }

    int names = 0;
    std::mt19937 engine;
    QByteArray text;
};

} // namespace

void TestPlainJson::texts_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QString>("line"); // null: not plain

    const auto row = [](const char* name, const QByteArray& source, const char* line = nullptr) {
        QTest::newRow(name) << source << QString::fromLatin1(line);
    };
    row("empty object", " { } ", R"("{}")");
    row("blanks of all kinds", "\r\n{\t\"a\" :\r[ ] } \n", R"("{\"a\":[]}")");
    row("words", R"({"a": [true, false, null]})", R"("{\"a\":[true,false,null]}")");
    row("whole numbers", R"({"a": [0, 7, -7, 999999999, -999999999]})",
        R"("{\"a\":[0,7,-7,999999999,-999999999]}")");
    row("sorted already: order kept", R"({"a": 1, "b": 2})", R"("{\"a\":1,\"b\":2}")");
    row("unsorted: sorted", R"({"b": 2, "a": 1})", R"("{\"a\":1,\"b\":2}")");
    row("prefix: shorter first", R"({"ab": 1, "a": 2, "": 3})", R"("{\"\":3,\"a\":2,\"ab\":1}")");
    row("long names", R"({"longname2": 1, "longname10": 2, "longname": 3, "longname1": 4})",
        R"("{\"longname\":3,\"longname1\":4,\"longname10\":2,\"longname2\":1}")");
    row("upper case before lower", R"({"a": 1, "B": 2})", R"("{\"B\":2,\"a\":1}")");
    row("space before letters", R"({"a": 1, "a b": 2, "a!": 3})", R"("{\"a\":1,\"a b\":2,\"a!\":3}")");
    row("all levels sorted", R"({"x": [{"b": {"d": [], "c": {}}, "a": null}]})",
        R"("{\"x\":[{\"a\":null,\"b\":{\"c\":{},\"d\":[]}}]}")");
    row("long text", R"({"a": "more than sixteen octets", "b": "sixteen octets!!"})",
        R"("{\"a\":\"more than sixteen octets\",\"b\":\"sixteen octets!!\"}")");
    row("16 deep", R"({"a":)" + QByteArray(16, '[') + QByteArray(16, ']') + "}",
        R"("{\"a\":[[[[[[[[[[[[[[[[]]]]]]]]]]]]]]]]}")");

    row("no text: not plain", "");
    row("array: not plain", "[]");
    row("number: not plain", "1");
    row("name twice: not plain", R"({"a": 1, "b": 2, "a": 3})");
    row("long name twice: not plain", R"({"long name": 1, "long name": 3})");
    row("escape: not plain", R"({"a": "x\"y"})");
    row("beyond ASCII: not plain", "{\"a\": \"\xC3\xA9\"}");
    row("delete character: not plain", "{\"a\": \"\x7F\"}");
    row("fraction: not plain", R"({"a": 1.0})");
    row("exponent: not plain", R"({"a": 1e2})");
    row("-0: not plain", R"({"a": -0})");
    row("ten digits: not plain", R"({"a": 1234567890})");
    row("byte order mark: not plain", "\xEF\xBB\xBF{\"a\": 1}");
    row("20 deep: not plain", R"({"a":)" + QByteArray(20, '[') + QByteArray(20, ']') + "}");

    row("zero in front: refused", R"({"a": 01})");
    row("minus alone: refused", R"({"a": -})");
    row("plus: refused", R"({"a": +1})");
    row("unknown word: refused", R"({"a": nul})");
    row("word in upper case: refused", R"({"a": TRUE})");
    row("word runs on: refused", R"({"a": nullx})");
    row("no value: refused", R"({"a": })");
    row("no colon: refused", R"({"a" 1})");
    row("name without quotes: refused", R"({a: 1})");
    row("comma at the end of an object: refused", R"({"a": 1,})");
    row("comma at the end of an array: refused", R"({"a": [1,]})");
    row("two commas: refused", R"({"a": [1,,2]})");
    row("no comma: refused", R"({"a": [1 2]})");
    row("wrong bracket: refused", R"({"a": [1}})");
    row("text not ended: refused", R"({"a": "x)");
    row("object not ended: refused", R"({"a": 1)");
    row("something behind it: refused", R"({"a": 1} x)");
    row("NUL behind it: refused", QByteArray("{}\0", 3));
    row("control character in a text: refused", "{\"a\": \"\n\"}");
}

void TestPlainJson::texts()
{
    QFETCH(QByteArray, source);
    QFETCH(QString, line);
    const auto plain = PlainJson::read(source);
    QCOMPARE(plain.has_value(), !line.isNull());
    if (plain) {
        QCOMPARE(plain->quoted(), line);
        QVERIFY(compare(source) == Result::Same);
    }
}

void TestPlainJson::membersByName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<int>("value");

    QTest::newRow("short: found") << QByteArray("id") << 1;
    QTest::newRow("shorter: found") << QByteArray("i") << 2;
    QTest::newRow("eight octets: found") << QByteArray("ci_field") << 3;
    QTest::newRow("nine octets: found") << QByteArray("ci_fields") << 4;
    QTest::newRow("empty name: found") << QByteArray("") << 5;
    QTest::newRow("last: found") << QByteArray("zero") << 6;
    QTest::newRow("longer than any: not there") << QByteArray("ci_fieldsx") << 0;
    QTest::newRow("before all: not there") << QByteArray("!") << 0;
    QTest::newRow("behind all: not there") << QByteArray("zz") << 0;
    QTest::newRow("other case: not there") << QByteArray("ID") << 0;
}

void TestPlainJson::membersByName()
{
    QFETCH(QByteArray, name);
    QFETCH(int, value);
    const auto plain =
        PlainJson::read(R"({"zero": 6, "ci_fields": 4, "ci_field": 3, "": 5, "i": 2, "id": 1})");
    QVERIFY(plain);
    const PlainJson::Value found = plain->object().value(QLatin1String(name));
    QCOMPARE(found.toInt(), value);
    QCOMPARE(found.isDouble(), value != 0);
    QVERIFY(!plain->object().value(QLatin1String("id")).toObject().value(QLatin1String(name)).isDouble());
}

void TestPlainJson::randomDocuments_data()
{
    QTest::addColumn<quint32>("seed");
    for (const quint32 seed : {7U, 99U, 123456U}) {
        QTest::addRow("seed %u: same", seed) << seed;
    }
}

void TestPlainJson::randomDocuments()
{
    QFETCH(quint32, seed);
    RandomText random(seed);
    int read = 0;
    for (int round = 0; round < 2500; ++round) {
        const QByteArray source = random.next();
        const Result result = compare(source);
        QVERIFY2(result != Result::Different, source.constData());
        read += result == Result::Same ? 1 : 0;
    }
    QVERIFY2(read > 1000, QByteArray::number(read));
}

void TestPlainJson::damagedDocuments_data()
{
    randomDocuments_data();
}

/// An octet changed, removed or put in: most of them are mistakes then, which Qt's parser is to explain.
void TestPlainJson::damagedDocuments()
{
    QFETCH(quint32, seed);
    RandomText random(seed);
    std::mt19937 engine(seed);
    const auto below = [&engine](int limit) { return int(engine() % unsigned(limit)); };
    static const char octets[] = "{}[]:,\"0-. \\etn\n\x7F\xC3";
    int refused = 0;
    for (int round = 0; round < 1000; ++round) {
        QByteArray source = random.next();
        const QByteArray octet(1, octets[below(int(sizeof octets))]);
        source.replace(below(source.size()), below(2), below(3) == 0 ? QByteArray() : octet);
        const Result result = compare(source);
        QVERIFY2(result != Result::Different, source.constData());
        refused += result == Result::NotPlain ? 1 : 0;
    }
    QVERIFY2(refused > 500, QByteArray::number(refused));
}

void TestPlainJson::sample()
{
    QFile file(QFINDTESTDATA("../../device/modbus.map"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QVERIFY(compare(file.readAll()) == Result::Same);
}

QTEST_GUILESS_MAIN(TestPlainJson)

#include "tst_plainjson.moc"
