// SPDX-License-Identifier: MIT
#include "literals.h"
#include "registerupdate.h"
#include "rows.h"
#include "serverconfig.h"

#include <QTest>

using namespace Varnel;

Q_DECLARE_METATYPE(RegisterUpdate)

namespace {

/// An init file as the panel writes it: indented, keys in alphabetical order.
const QByteArray tcpInit = R"({
    "cmd": "init",
    "delay": 500,
    "protocol": "tcp",
    "tables": [
        {
            "address": 100,
            "length": 8,
            "mode": "r"
        },
        {
            "address": 200,
            "length": 0,
            "mode": "r"
        }
    ],
    "tcp": {
        "clients": 10,
        "listen": "0.0.0.0",
        "port": 502
    }
}
)";

const QByteArray rtuInit = R"({"cmd":"init","delay":500,"protocol":"rtu",
    "rtu":{"baud":19200,"devid":1,"mode":"8E2","port":"/dev/ttyS1"},
    "tables":[{"address":65535,"length":1,"mode":"r"}]})";

} // namespace

/// Both texts that the panel sends to the server: the init file and the update command.
class tst_Commands : public QObject
{
    Q_OBJECT

private slots:
    void readsTcp()
    {
        const Outcome<ServerConfig> parsed = parseInit(tcpInit);
        QVERIFY2(parsed, qPrintable(parsed.refusal.text));
        const auto* tcp = std::get_if<TcpEndpoint>(&parsed.value->endpoint);
        QVERIFY(tcp);
        QCOMPARE(tcp->clients, 10);
        QCOMPARE(parsed.value->retryInterval.count(), 500);
        QCOMPARE(parsed.value->tables.size(), size_t(2));
        QCOMPARE(parsed.value->tables.at(0).address, quint16(100));
        QCOMPARE(parsed.value->tables.at(0).length, 8);
        QCOMPARE(parsed.value->tables.at(1).address, quint16(200));
        QCOMPARE(parsed.value->tables.at(1).length, 0);
        QCOMPARE(describe(*parsed.value), "tcp 0.0.0.0:502"_s);
    }

    void readsRtu()
    {
        const Outcome<ServerConfig> parsed = parseInit(rtuInit);
        QVERIFY2(parsed, qPrintable(parsed.refusal.text));
        QCOMPARE(describe(*parsed.value), "rtu /dev/ttyS1 19200 8E2 id 1"_s);
    }

    void refuses_data()
    {
        const Rows<bool, QByteArray, QString, QString> add("isInit", "text", "kind", "message");
        const auto row = [&add](const char* name, const QByteArray& text, const char* message,
                                const char* kind = "BadInit") {
            add(name, true, text, QString::fromLatin1(kind), QString::fromLatin1(message));
        };
        // One of the good files with a piece of its text replaced.
        const auto with = [&row](QByteArray text, const char* name, const char* piece, const char* other,
                                 const char* message) {
            QVERIFY2(text.contains(piece), name);
            row(name, text.replace(piece, other), message);
        };
        // A number in the place of another one: out of its limits.
        const auto number = [&with](const QByteArray& text, const char* member, const char* limits,
                                    const char* piece, const char* other) {
            const QByteArray message = QByteArray(member) + ": must be a whole number from " + limits;
            with(text, QByteArray(member + QByteArray(": ") + other).constData(), piece, other,
                 message.constData());
        };

        row("empty: not JSON", "", "not JSON: illegal value at octet 0");
        row("binary: not JSON", QByteArray("\x00\xff\xfe{", 4), "not JSON: illegal value at octet 1");
        row("cut: not JSON", tcpInit.left(40), "not JSON: unterminated object at octet 40");
        row("10000 deep: not JSON", QByteArray(10000, '['),
            "not JSON: too deeply nested document at octet 1025");
        row("array: no object", "[1]", "not a JSON object");
        row("too long", QByteArray(maxInitSize + 1, ' '), "4194305 octets are too long, 4194304 are allowed");
        row("cmd missing", "{}", "cmd: must be a string");
        row("cmd a number", R"({"cmd":1})", "cmd: must be a string");
        row("cmd unknown", R"({"cmd":"setconfig"})", "unknown command 'setconfig', expected 'init'",
            "UnknownCommand");
        row("cmd with line end: shown as one line", R"({"cmd":"a\nb"})",
            "unknown command 'a?b', expected 'init'", "UnknownCommand");
        row("cmd endless: shown cut", R"({"cmd":")" + QByteArray(500, 'x') + R"("})",
            "unknown command 'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...', expected "
            "'init'",
            "UnknownCommand");
        with(tcpInit, "protocol unknown", "\"protocol\": \"tcp\"", "\"protocol\": \"ascii\"",
             "protocol: 'ascii' is neither 'tcp' nor 'rtu'");
        with(tcpInit, "protocol in capitals", "\"protocol\": \"tcp\"", "\"protocol\": \"TCP\"",
             "protocol: 'TCP' is neither 'tcp' nor 'rtu'");
        row("protocol missing", R"({"cmd":"init"})", "protocol: must be a string");
        row("interface missing", R"({"cmd":"init","protocol":"tcp","tables":[]})", "tcp: must be an object");
        row("tables missing", R"({"cmd":"init","protocol":"tcp","tcp":{}})", "tables: must be an array");
        number(tcpInit, "delay", "0 to 3600000", "500", "\"500\"");
        with(tcpInit, "listen no address", "0.0.0.0", "panel", "tcp.listen: 'panel' is not an IP address");
        with(tcpInit, "listen empty", "0.0.0.0", "", "tcp.listen: '' is not an IP address");
        // 0 is what the panel makes of a setting that is no number.
        number(tcpInit, "tcp.port", "1 to 65535", "502", "0");
        number(tcpInit, "tcp.port", "1 to 65535", "502", "65536");
        number(tcpInit, "tcp.clients", "1 to 1000", "10,", "0,");
        number(tcpInit, "tcp.clients", "1 to 1000", "10,", "-1,");
        number(rtuInit, "rtu.devid", "1 to 247", "\"devid\":1", "\"devid\":0");
        number(rtuInit, "rtu.devid", "1 to 247", "\"devid\":1", "\"devid\":248");
        number(rtuInit, "rtu.baud", "1 to 4000000", "19200", "0");
        number(rtuInit, "tables[0].address", "0 to 65535", "65535", "65536");
        number(tcpInit, "tables[1].address", "0 to 65535", "200", "-200");
        number(tcpInit, "tables[1].address", "0 to 65535", "200", "200.5");
        number(tcpInit, "tables[0].length", "0 to 65536", "8", "1e300");
        number(tcpInit, "tables[0].length", "0 to 65536", "8", "-8");
        with(rtuInit, "serial port without path", "/dev/ttyS1", "ttyS1",
             "rtu.port: 'ttyS1' is not a device path");
        with(rtuInit, "serial port with NUL", "/dev/ttyS1", "/dev/\\u0000",
             "rtu.port: '/dev/?' is not a device path");
        with(rtuInit, "seven data bits: cannot carry RTU", "8E2", "7E1",
             "rtu.mode: '7E1' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");
        with(rtuInit, "parity unknown", "8E2", "8X2",
             "rtu.mode: '8X2' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");
        with(rtuInit, "stop bits unknown", "8E2", "8E3",
             "rtu.mode: '8E3' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");
        with(rtuInit, "table no object", R"({"address":65535,"length":1,"mode":"r"})", "7",
             "tables[0]: must be an object");
        with(rtuInit, "table past the address space", "\"length\":1", "\"length\":2",
             "tables[0].length: 2 registers from address 65535 pass 65535");
        with(rtuInit, "table mode rw", "\"mode\":\"r\"", "\"mode\":\"rw\"",
             "tables[0].mode: only 'r' is served");

        // Both texts have the same reader: an update's rows begin where the members differ.
        const auto update = [&add](const char* name, const QByteArray& data, const QString& message,
                                   const QString& kind = "BadUpdate"_s) {
            add(name, false, R"({"cmd":"setconfig","data":)" + data + '}', kind, message);
        };
        const QString address = "data[0].address: must be a whole number from 0 to 65535"_s;
        const QString word = "data[0].values[0]: must be a whole number from 0 to 65535"_s;
        add("update too long", false, QByteArray(maxUpdateSize + 1, '{'), "BadUpdate"_s,
            "1048577 octets are too long, 1048576 are allowed"_s);
        add("no update", false, R"({"cmd":"reboot"})", "UnknownCommand"_s,
            "unknown command 'reboot', expected 'setconfig'"_s);
        update("data an object", "{}", "data: must be an array"_s);
        update("run no object", "[[]]", "data[0]: must be an object"_s);
        update("address missing", R"([{"values":[]}])", address);
        update("address 65536", R"([{"address":65536,"values":[]}])", address);
        update("address negative", R"([{"address":-1,"values":[]}])", address);
        update("values missing", R"([{"address":1}])", "data[0].values: must be an array"_s);
        update("values past the address space", R"([{"address":65535,"values":[1,2]}])",
               "data[0].values: 2 words from address 65535 pass 65535"_s);
        update("second run bad", R"([{"address":1,"values":[1]},{"address":1,"values":[1,-1]}])",
               "data[1].values[1]: must be a whole number from 0 to 65535"_s);
        update("word 65536", R"([{"address":1,"values":[65536]}])", word);
        update("word with fraction", R"([{"address":1,"values":[1.5]}])", word);
        update("word huge", R"([{"address":1,"values":[1e99]}])", word);
        update("word a string", R"([{"address":1,"values":["1"]}])", word);
    }

    void refuses()
    {
        QFETCH(bool, isInit);
        QFETCH(QByteArray, text);
        const Refusal refusal = isInit ? parseInit(text).refusal : parseUpdate(text).refusal;
        QTEST(refusal.text, "message");
        QTEST(refusal.kind, "kind");
    }

    void readsUpdates_data()
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

    void readsUpdates()
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

    void delay_data()
    {
        const Rows<QByteArray, int> row("member", "milliseconds");
        row("missing: 500", {}, 500);
        row("0: not faster than 100", "\"delay\":0,", 100);
        row("2000: kept", "\"delay\":2000,", 2000);
    }

    void delay()
    {
        QFETCH(QByteArray, member);
        QFETCH(int, milliseconds);
        QByteArray text = rtuInit;
        const Outcome<ServerConfig> parsed = parseInit(text.replace("\"delay\":500,", member));
        QVERIFY2(parsed, qPrintable(parsed.refusal.text));
        QCOMPARE(parsed.value->retryInterval.count(), std::chrono::milliseconds::rep(milliseconds));
    }

    void cutAndFlippedTextsNeverCrash()
    {
        const QByteArray whole = tcpInit.trimmed();
        for (int size = 0; size < whole.size(); ++size) {
            QVERIFY2(!parseInit(whole.left(size)), qPrintable(QString::number(size)));
        }
        for (int at = 0; at < whole.size(); ++at) {
            QByteArray text = whole;
            text[at] = static_cast<char>(text.at(at) ^ 0x55);
            const Outcome<ServerConfig> parsed = parseInit(text);
            if (parsed) { // a changed digit, or a changed blank between members
                for (const RegisterRange& table : parsed.value->tables) {
                    QVERIFY(table.address + table.length <= 65536);
                }
            } else {
                QVERIFY(!parsed.refusal.text.isEmpty());
            }
        }
    }
};

QTEST_GUILESS_MAIN(tst_Commands)
#include "tst_commands.moc"
