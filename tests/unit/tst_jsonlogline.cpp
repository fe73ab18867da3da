// SPDX-License-Identifier: MIT
#include <random>

#include <QJsonDocument>
#include <QtTest>

#include "jsonlogline.h"

using namespace Varnel;

/// The log's form of a JSON document is what qDebug() prints of the JSON writer's text, whichever way it is
/// made.
class TestJsonLogLine : public QObject
{
    Q_OBJECT

private slots:
    void sameAsTheWriter_data();
    void sameAsTheWriter();
    void randomDocuments_data();
    void randomDocuments();
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
        container(0);
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
        const QByteArray name =
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

void TestJsonLogLine::sameAsTheWriter_data()
{
    QTest::addColumn<QByteArray>("source");
    QTest::addColumn<QString>("line");

    const auto row = [](const char* name, const QByteArray& source, const char* line) {
        QTest::newRow(name) << source << QString::fromUtf8(line);
    };
    row("no document: empty string", "", R"("")");
    row("empty object", " { } ", R"("{}")");
    row("empty array", "\r\n[\t]\n", R"("[]")");
    row("sorted already: order kept", R"({"a": 1, "b": 2})", R"("{\"a\":1,\"b\":2}")");
    row("unsorted: sorted", R"({"b": 2, "a": 1})", R"("{\"a\":1,\"b\":2}")");
    row("prefix: shorter first", R"({"ab": 1, "a": 2, "": 3})", R"("{\"\":3,\"a\":2,\"ab\":1}")");
    row("upper case before lower", R"({"a": 1, "B": 2})", R"("{\"B\":2,\"a\":1}")");
    row("space before letters", R"({"a": 1, "a b": 2, "a!": 3})", R"("{\"a\":1,\"a b\":2,\"a!\":3}")");
    row("all levels sorted", R"([{"b": {"d": [], "c": {}}, "a": null}])",
        R"("[{\"a\":null,\"b\":{\"c\":{},\"d\":[]}}]")");
    row("name twice: the last one stays", R"({"a": 1, "b": 2, "a": 3})", R"("{\"a\":3,\"b\":2}")");
    row("quote in a text: escaped twice", R"(["x\"y"])", R"x("[\"x\\\"y\"]")x");
    row("beyond ASCII: as it is", "[\"\xC3\xA9\"]", "\"[\\\"\xC3\xA9\\\"]\"");
    row("delete character: escaped by the log", "[\"\x7F\"]", "\"[\\\"\\u007F\\\"]\"");
    row("1.0: a whole number", "[1.0]", R"("[1]")");
    row("-0: as the writer has it", "[-0]", nullptr);
    row("big number", "[12345678901234567890]", nullptr);
    row("small fraction", "[0.1, 1e-7]", nullptr);
    row("byte order mark: dropped", "\xEF\xBB\xBF{\"a\": 1}", R"("{\"a\":1}")");
    row("20 deep", QByteArray(20, '[') + QByteArray(20, ']'), nullptr);
}

void TestJsonLogLine::sameAsTheWriter()
{
    QFETCH(QByteArray, source);
    QFETCH(QString, line);
    const QString actual = quotedJson(source, QJsonDocument::fromJson(source));
    QCOMPARE(actual, written(source));
    if (!line.isNull()) {
        QCOMPARE(actual, line);
    }
}

void TestJsonLogLine::randomDocuments_data()
{
    QTest::addColumn<quint32>("seed");
    for (const quint32 seed : {7U, 99U, 123456U}) {
        QTest::addRow("seed %u: same", seed) << seed;
    }
}

void TestJsonLogLine::randomDocuments()
{
    QFETCH(quint32, seed);
    RandomText random(seed);
    for (int round = 0; round < 5000; ++round) {
        const QByteArray source = random.next();
        const QJsonDocument document = QJsonDocument::fromJson(source);
        QVERIFY2(!document.isNull(), source.constData());
        if (quotedJson(source, document) != written(source)) {
            QFAIL("round " + QByteArray::number(round) + ": " + source);
        }
    }
}

void TestJsonLogLine::sample()
{
    QFile file(QFINDTESTDATA("../../device/modbus.map"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray source = file.readAll();
    QCOMPARE(quotedJson(source, QJsonDocument::fromJson(source)), written(source));
}

QTEST_GUILESS_MAIN(TestJsonLogLine)

#include "tst_jsonlogline.moc"
