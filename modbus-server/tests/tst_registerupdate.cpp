// SPDX-License-Identifier: MIT
#include "registerupdate.h"

#include <QTest>

using namespace Varnel;

class tst_RegisterUpdate : public QObject
{
    Q_OBJECT

private slots:
    void reads_data();
    void reads();
    void refuses_data();
    void refuses();
    void cutTextsAreRefused();
};

Q_DECLARE_METATYPE(RegisterUpdate)

void tst_RegisterUpdate::reads_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<RegisterUpdate>("expected");
    QTest::newRow("the panel's example")
        << QByteArray(R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]})")
        << RegisterUpdate{{100, {0, 1, 0x1234, 0x5678}}};
    QTest::newRow("no table touched: nothing to write")
        << QByteArray(R"({"cmd":"setconfig","data":[]})") << RegisterUpdate{};
    QTest::newRow("two tables, one without words, in the order of the text")
        << QByteArray(
               R"({"cmd":"setconfig","data":[{"address":65535,"values":[65535]},{"address":0,"values":[]}]})")
        << RegisterUpdate{{65535, {65535}}, {0, {}}};
}

void tst_RegisterUpdate::reads()
{
    QFETCH(QByteArray, text);
    QFETCH(RegisterUpdate, expected);
    const Outcome<RegisterUpdate> parsed = parseUpdate(text);
    QVERIFY2(parsed, qPrintable(parsed.refusal.text));
    QVERIFY(*parsed.value == expected);
}

void tst_RegisterUpdate::refuses_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("message");
    const auto row = [](const char* name, const QByteArray& text, const char* message,
                        const char* kind = "BadUpdate") {
        QTest::newRow(name) << text << QString::fromLatin1(kind) << QString::fromLatin1(message);
    };
    const auto data = [](const char* text) {
        return QByteArray(R"({"cmd":"setconfig","data":)") + text + '}';
    };

    row("empty", "", "not JSON: illegal value at octet 0");
    row("not JSON", "setconfig", "not JSON: illegal value at octet 1");
    row("binary", QByteArray(64, '\xff'), "not JSON: illegal value at octet 1");
    row("number", "5", "not JSON: illegal value at octet 1");
    row("deep", data(QByteArray(5000, '[').constData()),
        "not JSON: too deeply nested document at octet 1050");
    row("too long", QByteArray(maxUpdateSize + 1, '{'), "1048577 octets are too long, 1048576 are allowed");
    row("cmd missing", R"({"data":[]})", "cmd: must be a string");
    row("cmd unknown", R"({"cmd":"reboot"})", "unknown command 'reboot', expected 'setconfig'",
        "UnknownCommand");
    row("data missing", R"({"cmd":"setconfig"})", "data: must be an array");
    row("data an object", data("{}"), "data: must be an array");
    row("run no object", data("[[]]"), "data[0]: must be an object");
    row("address missing", data(R"([{"values":[]}])"),
        "data[0].address: must be a whole number from 0 to 65535");
    row("address 65536", data(R"([{"address":65536,"values":[]}])"),
        "data[0].address: must be a whole number from 0 to 65535");
    row("address negative", data(R"([{"address":-1,"values":[]}])"),
        "data[0].address: must be a whole number from 0 to 65535");
    row("values missing", data(R"([{"address":1}])"), "data[0].values: must be an array");
    row("values past the address space", data(R"([{"address":65535,"values":[1,2]}])"),
        "data[0].values: 2 words from address 65535 pass 65535");
    row("second run bad", data(R"([{"address":1,"values":[1]},{"address":1,"values":[1,-1]}])"),
        "data[1].values[1]: must be a whole number from 0 to 65535");
    row("word 65536", data(R"([{"address":1,"values":[65536]}])"),
        "data[0].values[0]: must be a whole number from 0 to 65535");
    row("word with fraction", data(R"([{"address":1,"values":[1.5]}])"),
        "data[0].values[0]: must be a whole number from 0 to 65535");
    row("word huge", data(R"([{"address":1,"values":[1e99]}])"),
        "data[0].values[0]: must be a whole number from 0 to 65535");
    row("word a string", data(R"([{"address":1,"values":["1"]}])"),
        "data[0].values[0]: must be a whole number from 0 to 65535");
}

void tst_RegisterUpdate::refuses()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, kind);
    QFETCH(QString, message);
    const Outcome<RegisterUpdate> parsed = parseUpdate(text);
    QVERIFY(!parsed);
    QCOMPARE(parsed.refusal.text, message);
    QCOMPARE(parsed.refusal.kind, kind);
}

void tst_RegisterUpdate::cutTextsAreRefused()
{
    const QByteArray whole = R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]})";
    for (int size = 0; size < whole.size(); ++size) {
        QVERIFY2(!parseUpdate(whole.left(size)), qPrintable(QString::number(size)));
    }
}

QTEST_GUILESS_MAIN(tst_RegisterUpdate)
#include "tst_registerupdate.moc"
