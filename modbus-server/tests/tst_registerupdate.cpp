// SPDX-License-Identifier: MIT
#include "registerupdate.h"
#include "rows.h"

#include <QTest>

using namespace Varnel;

Q_DECLARE_METATYPE(RegisterUpdate)

class tst_RegisterUpdate : public QObject
{
    Q_OBJECT

private slots:
    void reads_data()
    {
        const Rows<QByteArray, RegisterUpdate> row("text", "expected");
        row("the panel's example",
            R"({"cmd":"setconfig","data":[{"address":100,"values":[0,1,4660,22136]}]})",
            RegisterUpdate{{100, {0, 1, 0x1234, 0x5678}}});
        row("no table touched: nothing to write", R"({"cmd":"setconfig","data":[]})", RegisterUpdate{});
        row("two tables, one without words, in the order of the text",
            R"({"cmd":"setconfig","data":[{"address":65535,"values":[65535]},{"address":0,"values":[]}]})",
            RegisterUpdate{{65535, {65535}}, {0, {}}});
    }

    void reads()
    {
        QFETCH(QByteArray, text);
        QFETCH(RegisterUpdate, expected);
        const Outcome<RegisterUpdate> parsed = parseUpdate(text);
        QVERIFY2(parsed, qPrintable(parsed.refusal.text));
        QVERIFY(*parsed.value == expected);
        for (int size = 0; size < text.size(); ++size) {
            QVERIFY2(!parseUpdate(text.left(size)), qPrintable(QString::number(size)));
        }
    }

    void refuses_data()
    {
        const Rows<QByteArray, QString, QString> add("text", "kind", "message");
        const auto row = [&add](const char* name, const QByteArray& text, const char* message,
                                const char* kind = "BadUpdate") {
            add(name, text, QString::fromLatin1(kind), QString::fromLatin1(message));
        };
        const auto data = [](const char* text) {
            return QByteArray(R"({"cmd":"setconfig","data":)") + text + '}';
        };

        const char* const address = "data[0].address: must be a whole number from 0 to 65535";
        const char* const word = "data[0].values[0]: must be a whole number from 0 to 65535";
        row("empty", "", "not JSON: illegal value at octet 0");
        row("not JSON", "setconfig", "not JSON: illegal value at octet 1");
        row("binary", QByteArray(64, '\xff'), "not JSON: illegal value at octet 1");
        row("number", "5", "not JSON: illegal value at octet 1");
        row("deep", data(QByteArray(5000, '[').constData()),
            "not JSON: too deeply nested document at octet 1050");
        row("too long", QByteArray(maxUpdateSize + 1, '{'),
            "1048577 octets are too long, 1048576 are allowed");
        row("cmd missing", R"({"data":[]})", "cmd: must be a string");
        row("cmd unknown", R"({"cmd":"reboot"})", "unknown command 'reboot', expected 'setconfig'",
            "UnknownCommand");
        row("data missing", R"({"cmd":"setconfig"})", "data: must be an array");
        row("data an object", data("{}"), "data: must be an array");
        row("run no object", data("[[]]"), "data[0]: must be an object");
        row("address missing", data(R"([{"values":[]}])"), address);
        row("address 65536", data(R"([{"address":65536,"values":[]}])"), address);
        row("address negative", data(R"([{"address":-1,"values":[]}])"), address);
        row("values missing", data(R"([{"address":1}])"), "data[0].values: must be an array");
        row("values past the address space", data(R"([{"address":65535,"values":[1,2]}])"),
            "data[0].values: 2 words from address 65535 pass 65535");
        row("second run bad", data(R"([{"address":1,"values":[1]},{"address":1,"values":[1,-1]}])"),
            "data[1].values[1]: must be a whole number from 0 to 65535");
        row("word 65536", data(R"([{"address":1,"values":[65536]}])"), word);
        row("word with fraction", data(R"([{"address":1,"values":[1.5]}])"), word);
        row("word huge", data(R"([{"address":1,"values":[1e99]}])"), word);
        row("word a string", data(R"([{"address":1,"values":["1"]}])"), word);
    }

    void refuses()
    {
        QFETCH(QByteArray, text);
        const Outcome<RegisterUpdate> parsed = parseUpdate(text);
        QVERIFY(!parsed);
        QTEST(parsed.refusal.text, "message");
        QTEST(parsed.refusal.kind, "kind");
    }
};

QTEST_GUILESS_MAIN(tst_RegisterUpdate)
#include "tst_registerupdate.moc"
