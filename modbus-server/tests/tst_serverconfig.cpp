// SPDX-License-Identifier: MIT
#include "serverconfig.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Varnel;

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

class tst_ServerConfig : public QObject
{
    Q_OBJECT

private slots:
    void readsTcp();
    void readsRtu();
    void refuses_data();
    void refuses();
    void delay_data();
    void delay();
    void cutAndFlippedTextsNeverCrash();
};

void tst_ServerConfig::readsTcp()
{
    const Outcome<ServerConfig> parsed = parseInit(tcpInit);
    QVERIFY2(parsed, qPrintable(parsed.refusal.text));
    const auto* tcp = std::get_if<TcpEndpoint>(&parsed.value->endpoint);
    QVERIFY(tcp);
    QCOMPARE(tcp->listen, QHostAddress(QStringLiteral("0.0.0.0")));
    QCOMPARE(tcp->port, quint16(502));
    QCOMPARE(tcp->clients, 10);
    QCOMPARE(parsed.value->retryInterval.count(), 500);
    QCOMPARE(parsed.value->tables.size(), size_t(2));
    QCOMPARE(parsed.value->tables.at(0).address, quint16(100));
    QCOMPARE(parsed.value->tables.at(0).length, 8);
    QCOMPARE(parsed.value->tables.at(1).address, quint16(200));
    QCOMPARE(parsed.value->tables.at(1).length, 0);
    QCOMPARE(describe(*parsed.value), QStringLiteral("tcp 0.0.0.0:502"));
}

void tst_ServerConfig::readsRtu()
{
    const Outcome<ServerConfig> parsed = parseInit(rtuInit);
    QVERIFY2(parsed, qPrintable(parsed.refusal.text));
    const auto* rtu = std::get_if<RtuEndpoint>(&parsed.value->endpoint);
    QVERIFY(rtu);
    QCOMPARE(rtu->deviceId, quint8(1));
    QCOMPARE(rtu->port, QStringLiteral("/dev/ttyS1"));
    QCOMPARE(rtu->baud, 19200);
    QCOMPARE(rtu->parity, QSerialPort::EvenParity);
    QCOMPARE(rtu->stopBits, QSerialPort::TwoStop);
    QCOMPARE(describe(*parsed.value), QStringLiteral("rtu /dev/ttyS1 19200 8E2 id 1"));
}

void tst_ServerConfig::refuses_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("message");
    const QString bad = QStringLiteral("BadInit");

    const auto row = [](const char* name, const QByteArray& text, const QString& kind, const char* message) {
        QTest::newRow(name) << text << kind << QString::fromLatin1(message);
    };
    /// The good file with one piece of its text replaced.
    const auto with = [](const QByteArray& init, const char* piece, const char* other) {
        QByteArray text = init;
        Q_ASSERT(text.contains(piece));
        return text.replace(piece, other);
    };

    row("empty: not JSON", "", bad, "not JSON: illegal value at octet 0");
    row("text: not JSON", "hello", bad, "not JSON: illegal value at octet 1");
    row("binary: not JSON", QByteArray("\x00\xff\xfe{", 4), bad, "not JSON: illegal value at octet 1");
    row("cut: not JSON", tcpInit.left(40), bad, "not JSON: unterminated object at octet 40");
    row("10000 deep: not JSON", QByteArray(10000, '['), bad,
        "not JSON: too deeply nested document at octet 1025");
    row("array: no object", "[1]", bad, "not a JSON object");
    row("too long", QByteArray(maxInitSize + 1, ' '), bad,
        "4194305 octets are too long, 4194304 are allowed");
    row("cmd missing", "{}", bad, "cmd: must be a string");
    row("cmd a number", R"({"cmd":1})", bad, "cmd: must be a string");
    row("cmd unknown", R"({"cmd":"setconfig"})", QStringLiteral("UnknownCommand"),
        "unknown command 'setconfig', expected 'init'");
    row("cmd with line end: shown as one line", R"({"cmd":"a\nb"})", QStringLiteral("UnknownCommand"),
        "unknown command 'a?b', expected 'init'");
    row("cmd endless: shown cut", R"({"cmd":")" + QByteArray(500, 'x') + R"("})",
        QStringLiteral("UnknownCommand"),
        "unknown command 'xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx...', expected 'init'");
    row("protocol unknown", with(tcpInit, "\"protocol\": \"tcp\"", "\"protocol\": \"ascii\""), bad,
        "protocol: 'ascii' is neither 'tcp' nor 'rtu'");
    row("protocol in capitals", with(tcpInit, "\"protocol\": \"tcp\"", "\"protocol\": \"TCP\""), bad,
        "protocol: 'TCP' is neither 'tcp' nor 'rtu'");
    row("protocol missing", R"({"cmd":"init"})", bad, "protocol: must be a string");
    row("interface missing", R"({"cmd":"init","protocol":"tcp","tables":[]})", bad, "tcp: must be an object");
    row("tables missing", R"({"cmd":"init","protocol":"tcp","tcp":{}})", bad, "tables: must be an array");
    row("delay a string", with(tcpInit, "500", "\"500\""), bad,
        "delay: must be a whole number from 0 to 3600000");

    row("listen no address", with(tcpInit, "0.0.0.0", "panel"), bad,
        "tcp.listen: 'panel' is not an IP address");
    row("listen empty", with(tcpInit, "0.0.0.0", ""), bad, "tcp.listen: '' is not an IP address");
    row("port 0, from a setting that is no number", with(tcpInit, "502", "0"), bad,
        "tcp.port: must be a whole number from 1 to 65535");
    row("port 65536", with(tcpInit, "502", "65536"), bad, "tcp.port: must be a whole number from 1 to 65535");
    row("clients 0, from a setting that is no number", with(tcpInit, "10,", "0,"), bad,
        "tcp.clients: must be a whole number from 1 to 1000");
    row("clients negative", with(tcpInit, "10,", "-1,"), bad,
        "tcp.clients: must be a whole number from 1 to 1000");

    row("device id 0", with(rtuInit, "\"devid\":1", "\"devid\":0"), bad,
        "rtu.devid: must be a whole number from 1 to 247");
    row("device id 248", with(rtuInit, "\"devid\":1", "\"devid\":248"), bad,
        "rtu.devid: must be a whole number from 1 to 247");
    row("serial port without path", with(rtuInit, "/dev/ttyS1", "ttyS1"), bad,
        "rtu.port: 'ttyS1' is not a device path");
    row("serial port with NUL", with(rtuInit, "/dev/ttyS1", "/dev/\\u0000"), bad,
        "rtu.port: '/dev/?' is not a device path");
    row("baud 0", with(rtuInit, "19200", "0"), bad, "rtu.baud: must be a whole number from 1 to 4000000");
    row("seven data bits: cannot carry RTU", with(rtuInit, "8E2", "7E1"), bad,
        "rtu.mode: '7E1' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");
    row("parity unknown", with(rtuInit, "8E2", "8X2"), bad,
        "rtu.mode: '8X2' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");
    row("stop bits unknown", with(rtuInit, "8E2", "8E3"), bad,
        "rtu.mode: '8E3' is none of 8N1, 8E1, 8O1, 8N2, 8E2, 8O2");

    row("table no object", with(rtuInit, R"({"address":65535,"length":1,"mode":"r"})", "7"), bad,
        "tables[0]: must be an object");
    row("table past the address space", with(rtuInit, "\"length\":1", "\"length\":2"), bad,
        "tables[0].length: 2 registers from address 65535 pass 65535");
    row("table address 65536", with(rtuInit, "65535", "65536"), bad,
        "tables[0].address: must be a whole number from 0 to 65535");
    row("table address negative", with(tcpInit, "200", "-200"), bad,
        "tables[1].address: must be a whole number from 0 to 65535");
    row("table address with fraction", with(tcpInit, "200", "200.5"), bad,
        "tables[1].address: must be a whole number from 0 to 65535");
    row("table length huge", with(tcpInit, "\"length\": 8", "\"length\": 1e300"), bad,
        "tables[0].length: must be a whole number from 0 to 65536");
    row("table length negative", with(tcpInit, "\"length\": 8", "\"length\": -8"), bad,
        "tables[0].length: must be a whole number from 0 to 65536");
    row("table mode rw", with(rtuInit, "\"mode\":\"r\"", "\"mode\":\"rw\""), bad,
        "tables[0].mode: only 'r' is served");
}

void tst_ServerConfig::refuses()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, kind);
    QFETCH(QString, message);
    const Outcome<ServerConfig> parsed = parseInit(text);
    QVERIFY(!parsed);
    QCOMPARE(parsed.refusal.text, message);
    QCOMPARE(parsed.refusal.kind, kind);
}

void tst_ServerConfig::delay_data()
{
    QTest::addColumn<QByteArray>("member");
    QTest::addColumn<int>("milliseconds");
    QTest::newRow("missing: 500") << QByteArray() << 500;
    QTest::newRow("0: not faster than 100") << QByteArray("\"delay\":0,") << 100;
    QTest::newRow("2000: kept") << QByteArray("\"delay\":2000,") << 2000;
}

void tst_ServerConfig::delay()
{
    QFETCH(QByteArray, member);
    QFETCH(int, milliseconds);
    QByteArray text = rtuInit;
    const Outcome<ServerConfig> parsed = parseInit(text.replace("\"delay\":500,", member));
    QVERIFY2(parsed, qPrintable(parsed.refusal.text));
    QCOMPARE(parsed.value->retryInterval.count(), std::chrono::milliseconds::rep(milliseconds));
}

void tst_ServerConfig::cutAndFlippedTextsNeverCrash()
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

QTEST_GUILESS_MAIN(tst_ServerConfig)
#include "tst_serverconfig.moc"
