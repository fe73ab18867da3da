// SPDX-License-Identifier: MIT
#include <functional>

#include <QTest>

#include "configarguments.h"

using namespace Varnel;

using NetChange = std::function<void(netcfg_s&)>;
using SnmpChange = std::function<void(snmpcfg_s&)>;
using ModbusChange = std::function<void(modbuscfg_s&)>;
Q_DECLARE_METATYPE(NetChange)
Q_DECLARE_METATYPE(SnmpChange)
Q_DECLARE_METATYPE(ModbusChange)

/// Argument lists of the scripts and the tests for a changed configuration.
class tst_ConfigArguments : public QObject
{
    Q_OBJECT

private slots:
    void words_data();
    void words();
    void network_data();
    void network();
    void snmpAgent_data();
    void snmpAgent();
    void snmpTrapInit_data();
    void snmpTrapInit();
    void snmpTrapDestinations_data();
    void snmpTrapDestinations();
    void textsStayAsTheyCame_data();
    void textsStayAsTheyCame();
    void modbus_data();
    void modbus();
    void registration();
    void networkDiffers_data();
    void networkDiffers();
    void snmpDiffers_data();
    void snmpDiffers();
    void modbusDiffers_data();
    void modbusDiffers();
};

namespace {

QString text(const char* latin1)
{
    return QString::fromLatin1(latin1);
}

QHostAddress address(const char* dotted)
{
    return QHostAddress(QString::fromLatin1(dotted));
}

/// "a b c" as a list of words.
QStringList list(const char* words)
{
    return QString::fromLatin1(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// A record in which no two fields are alike, so that a swapped field shows.
snmpcfg_s distinctSnmp()
{
    snmpcfg_s cfg;
    cfg.version = 5;
    cfg.options = 9;
    cfg.nopriv_hash = 1;
    cfg.priv_hash = 2;
    cfg.priv_algo = 1;
    cfg.cli_hash = 2;
    cfg.cli_mode = 5;
    cfg.cli_algo = 2;
    cfg.ro_user = text("ro_user");
    cfg.nopriv_user = text("nopriv_user");
    cfg.nopriv_pwd = text("nopriv_pwd");
    cfg.priv_user = text("priv_user");
    cfg.priv_pwd = text("priv_pwd");
    cfg.priv_key = text("priv_key");
    cfg.oid = text("oid");
    cfg.ro_oid = text("ro_oid");
    cfg.nopriv_oid = text("nopriv_oid");
    cfg.priv_oid = text("priv_oid");
    cfg.r7m_context = text("context");
    cfg.r7m_community = text("community");
    cfg.cli_engineid = text("cli_engineid");
    cfg.cli_community = text("cli_community");
    cfg.cli_user = text("cli_user");
    cfg.cli_pwd = text("cli_pwd");
    cfg.cli_key = text("cli_key");
    cfg.port = 1161;
    cfg.port_trap = 1162;
    cfg.trap_addr1 = address("10.0.0.1");
    cfg.trap_addr2 = address("10.0.0.2");
    cfg.trap_addr3 = address("10.0.0.3");
    cfg.trap_addr4 = address("10.0.0.4");
    cfg.trap_addr5 = address("10.0.0.5");
    return cfg;
}

netcfg_s distinctNet()
{
    netcfg_s cfg;
    cfg.varnel = true;
    cfg.ip = address("192.168.1.10");
    cfg.mask = address("255.255.255.0");
    cfg.gateway = address("192.168.1.1");
    cfg.dns1 = address("192.168.1.2");
    cfg.dns2 = address("192.168.1.3");
    return cfg;
}

} // namespace

void tst_ConfigArguments::words_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("hash");
    QTest::addColumn<QString>("algo");
    QTest::newRow("0: undefined") << 0 << text("UNDEF") << text("UNDEF");
    QTest::newRow("1: the first") << 1 << text("MD5") << text("DES");
    QTest::newRow("2: the second") << 2 << text("SHA") << text("AES");
    QTest::newRow("3: undefined") << 3 << text("UNDEF") << text("UNDEF");
    QTest::newRow("255: undefined") << 255 << text("UNDEF") << text("UNDEF");
}

void tst_ConfigArguments::words()
{
    QFETCH(int, code);
    QTEST(decode_hash(static_cast<quint8>(code)), "hash");
    QTEST(decode_algo(static_cast<quint8>(code)), "algo");
}

void tst_ConfigArguments::network_data()
{
    QTest::addColumn<NetChange>("change");
    QTest::addColumn<QStringList>("arguments");
    const auto row = [](const char* name, const NetChange& change, const char* words) {
        QTest::newRow(name) << change << list(words);
    };
    row(
        "static: all addresses", [](netcfg_s&) {},
        "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2 192.168.1.3");
    row(
        "dhcp: that word alone", [](netcfg_s& c) { c.dhcp = true; }, "dhcp");
    row(
        "dns2 null: five arguments", [](netcfg_s& c) { c.dns2 = QHostAddress(); },
        "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2");
    row(
        "dns1 null: dns2 in its place", [](netcfg_s& c) { c.dns1 = QHostAddress(); },
        "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.3");
    row(
        "no dns: four arguments", [](netcfg_s& c) { c.dns1 = c.dns2 = QHostAddress(); },
        "static 192.168.1.10 255.255.255.0 192.168.1.1");
    row(
        "all zero dns2: an address like any other", [](netcfg_s& c) { c.dns2 = address("0.0.0.0"); },
        "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2 0.0.0.0");
    row(
        "all ones: passed on", [](netcfg_s& c) { c.ip = address("255.255.255.255"); },
        "static 255.255.255.255 255.255.255.0 192.168.1.1 192.168.1.2 192.168.1.3");
    row(
        "all zero: passed on", [](netcfg_s& c) { c.ip = c.mask = c.gateway = address("0.0.0.0"); },
        "static 0.0.0.0 0.0.0.0 0.0.0.0 192.168.1.2 192.168.1.3");
}

void tst_ConfigArguments::network()
{
    QFETCH(NetChange, change);
    netcfg_s cfg = distinctNet();
    change(cfg);
    QTEST(netCfgArguments(cfg), "arguments");
}

void tst_ConfigArguments::snmpAgent_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QStringList>("arguments");
    const auto row = [](const char* name, int version, const char* words) {
        QTest::newRow(name) << version << list("192.168.7.2 1161 context community") + list(words);
    };
    row("version 0: no security words", 0, "");
    row("version 1: V1", 1, "oid V1");
    row("version 2: V2", 2, "oid V2");
    row("version 3: V3NOAUTH", 3, "ro_oid V3NOAUTH ro_user");
    row("version 4: V3NOPRIV", 4, "nopriv_oid V3NOPRIV nopriv_user MD5 nopriv_pwd");
    row("version 5: V3PRIV, eleven arguments", 5, "priv_oid V3PRIV priv_user SHA priv_pwd DES priv_key");
    row("version 6: no security words", 6, "");
    row("version 255: no security words", 255, "");
}

void tst_ConfigArguments::snmpAgent()
{
    QFETCH(int, version);
    snmpcfg_s cfg = distinctSnmp();
    cfg.version = static_cast<quint8>(version);
    QTEST(snmpAgentArguments(cfg, address("192.168.7.2")), "arguments");
}

void tst_ConfigArguments::snmpTrapInit_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QStringList>("words");
    const auto row = [](const char* name, int mode, const char* words) {
        QTest::newRow(name) << mode << list(words);
    };
    row("mode 0: no security words", 0, "");
    row("mode 1: V1", 1, "V1 cli_community");
    row("mode 2: V2", 2, "V2 cli_community");
    row("mode 3: V3NOAUTH", 3, "V3NOAUTH cli_engineid cli_user");
    row("mode 4: V3NOPRIV", 4, "V3NOPRIV cli_engineid cli_user SHA cli_pwd");
    row("mode 5: V3PRIV", 5, "V3PRIV cli_engineid cli_user SHA cli_pwd AES cli_key");
    row("mode 6: no security words", 6, "");
    row("mode 255: no security words", 255, "");
}

void tst_ConfigArguments::snmpTrapInit()
{
    QFETCH(int, mode);
    QFETCH(QStringList, words);
    snmpcfg_s cfg = distinctSnmp();
    cfg.cli_mode = static_cast<quint8>(mode);
    QCOMPARE(snmpTrapInitArguments(cfg), list("init 10.0.0.1 1162") + words);

    // Each destination repeats them.
    const QList<QStringList> calls = snmpTrapAddArguments(cfg);
    QCOMPARE(calls.size(), 5);
    for (int i = 0; i < calls.size(); ++i) {
        QCOMPARE(calls.at(i), list("add") + list(qPrintable(QStringLiteral("10.0.0.%1").arg(i + 1))) +
                                  list("1162") + words);
    }
}

void tst_ConfigArguments::snmpTrapDestinations_data()
{
    QTest::addColumn<QStringList>("addresses");
    QTest::addColumn<QStringList>("used");
    // "-" is a null address.
    const auto row = [](const char* name, const char* addresses, const char* used) {
        QTest::newRow(name) << list(addresses) << list(used);
    };
    row("five addresses: all, in order", "9.0.0.9 8.0.0.8 7.0.0.7 6.0.0.6 5.0.0.5",
        "9.0.0.9 8.0.0.8 7.0.0.7 6.0.0.6 5.0.0.5");
    row("one, loopback, rest null: the one", "10.0.0.5 127.0.0.1 - - -", "10.0.0.5");
    row("all null: none", "- - - - -", "");
    row("first null: the others", "- 10.0.0.2 - 10.0.0.4 -", "10.0.0.2 10.0.0.4");
    row("all zero: a destination", "0.0.0.0 - - - -", "0.0.0.0");
    row("all loopback: none", "127.0.0.1 127.0.0.1 127.0.0.1 127.0.0.1 127.0.0.1", "");
    row("127.0.0.2: a destination", "127.0.0.2 - - - -", "127.0.0.2");
    row("all ones: a destination", "255.255.255.255 - - - -", "255.255.255.255");
    row("one address twice: both", "10.0.0.1 10.0.0.1 - - -", "10.0.0.1 10.0.0.1");
}

void tst_ConfigArguments::snmpTrapDestinations()
{
    QFETCH(QStringList, addresses);
    snmpcfg_s cfg = distinctSnmp();
    QHostAddress* const fields[] = {&cfg.trap_addr1, &cfg.trap_addr2, &cfg.trap_addr3, &cfg.trap_addr4,
                                    &cfg.trap_addr5};
    for (int i = 0; i < addresses.size(); ++i) {
        *fields[i] = addresses.at(i) == QLatin1String("-") ? QHostAddress() : QHostAddress(addresses.at(i));
    }
    QStringList destinations;
    const QList<QStringList> calls = snmpTrapAddArguments(cfg);
    for (const QStringList& call : calls) {
        QCOMPARE(call.constFirst(), text("add"));
        destinations << call.at(1);
    }
    QTEST(destinations, "used");
}

void tst_ConfigArguments::textsStayAsTheyCame_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("empty: an empty argument") << QString();
    QTest::newRow("blanks: one argument") << text(" two  words ");
    QTest::newRow("quotes: kept") << text("a\"b'c`d");
    QTest::newRow("line end: kept") << text("a\nb");
    QTest::newRow("dollar: no variable") << text("$HOME $(reboot) `reboot`; reboot");
    QTest::newRow("per cent: nothing is filled in") << text("%1 %2 %s");
    QTest::newRow("leading dash: kept") << text("--help");
    QTest::newRow("32 letters: whole") << QString(32, QLatin1Char('x'));
}

void tst_ConfigArguments::textsStayAsTheyCame()
{
    QFETCH(QString, value);
    snmpcfg_s cfg = distinctSnmp();
    cfg.priv_oid = cfg.priv_user = cfg.priv_pwd = cfg.priv_key = value;
    cfg.r7m_context = cfg.r7m_community = value;
    cfg.cli_engineid = cfg.cli_user = cfg.cli_pwd = cfg.cli_key = value;
    QCOMPARE(snmpAgentArguments(cfg, address("192.168.7.2")),
             (QStringList{text("192.168.7.2"), text("1161"), value, value, value, text("V3PRIV"), value,
                          text("SHA"), value, text("DES"), value}));
    QCOMPARE(snmpTrapInitArguments(cfg),
             (QStringList{text("init"), text("10.0.0.1"), text("1162"), text("V3PRIV"), value, value,
                          text("SHA"), value, text("AES"), value}));
}

void tst_ConfigArguments::modbus_data()
{
    QTest::addColumn<bool>("status");
    QTest::addColumn<int>("port");
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("on: 1") << true << 502 << list("1 502");
    QTest::newRow("off: 0") << false << 502 << list("0 502");
    QTest::newRow("largest port: unsigned") << true << 65535 << list("1 65535");
    QTest::newRow("port 0: passed on") << false << 0 << list("0 0");
}

void tst_ConfigArguments::modbus()
{
    QFETCH(bool, status);
    QFETCH(int, port);
    modbuscfg_s cfg;
    cfg.tcp_status = status;
    cfg.tcp_port = static_cast<quint16>(port);
    QTEST(modbusCfgArguments(cfg), "arguments");
}

void tst_ConfigArguments::registration()
{
    devinfo_s devinfo;
    devinfo.type = 7;
    devinfo.hwmajor = 91;
    devinfo.hwminor = 92;
    devinfo.swmajor = 93;
    devinfo.swminor = 94;
    devinfo.swbuild = 65535;
    devinfo.serial = 95;
    modbuscfg_s modbuscfg;
    modbuscfg.tcp_status = true;
    modbuscfg.tcp_port = 1502;
    const QHostAddress controller = address("192.168.7.2");
    QCOMPARE(registrationArguments(controller, devinfo, distinctSnmp(), modbuscfg),
             list("add 192.168.7.2 7 1161 1162 1 1502 65535"));
    QCOMPARE(removalArguments(controller, devinfo, distinctSnmp()),
             list("delete 192.168.7.2 7 1161 1162 65535"));
    modbuscfg.tcp_status = false;
    QCOMPARE(registrationArguments(controller, devinfo, distinctSnmp(), modbuscfg),
             list("add 192.168.7.2 7 1161 1162 0 1502 65535"));
}

void tst_ConfigArguments::networkDiffers_data()
{
    QTest::addColumn<NetChange>("change");
    const auto row = [](const char* name, const NetChange& change) { QTest::newRow(name) << change; };
    row("varnel", [](netcfg_s& c) { c.varnel = false; });
    row("dhcp", [](netcfg_s& c) { c.dhcp = true; });
    row("ip", [](netcfg_s& c) { c.ip = address("1.1.1.1"); });
    row("mask", [](netcfg_s& c) { c.mask = address("1.1.1.1"); });
    row("gateway", [](netcfg_s& c) { c.gateway = address("1.1.1.1"); });
    row("dns1", [](netcfg_s& c) { c.dns1 = address("1.1.1.1"); });
    row("dns2", [](netcfg_s& c) { c.dns2 = address("1.1.1.1"); });
}

void tst_ConfigArguments::networkDiffers()
{
    QFETCH(NetChange, change);
    netcfg_s one = distinctNet();
    netcfg_s other = one;
    QVERIFY(!configDiffers(one, other));
    other.resetcfg = true;
    QVERIFY(!configDiffers(one, other)); // the flag of the kept record, the first, alone decides
    change(other);
    QVERIFY(configDiffers(one, other));
    QVERIFY(configDiffers(other, one));
    one.resetcfg = true;
    QVERIFY(configDiffers(one, one));
}

void tst_ConfigArguments::snmpDiffers_data()
{
    QTest::addColumn<SnmpChange>("change");
    QTest::addColumn<bool>("differs");
    const auto row = [](const char* name, const SnmpChange& change, bool differs = true) {
        QTest::newRow(name) << change << differs;
    };
    row(
        "options: left out", [](snmpcfg_s& c) { c.options = 1; }, false);
    row("version", [](snmpcfg_s& c) { c.version = 77; });
    row("nopriv_hash", [](snmpcfg_s& c) { c.nopriv_hash = 77; });
    row("priv_hash", [](snmpcfg_s& c) { c.priv_hash = 77; });
    row("priv_algo", [](snmpcfg_s& c) { c.priv_algo = 77; });
    row("cli_hash", [](snmpcfg_s& c) { c.cli_hash = 77; });
    row("cli_mode", [](snmpcfg_s& c) { c.cli_mode = 77; });
    row("cli_algo", [](snmpcfg_s& c) { c.cli_algo = 77; });
    row("port", [](snmpcfg_s& c) { c.port = 77; });
    row("port_trap", [](snmpcfg_s& c) { c.port_trap = 77; });
    const std::pair<const char*, QString snmpcfg_s::*> texts[] = {
        {"ro_user", &snmpcfg_s::ro_user},
        {"nopriv_user", &snmpcfg_s::nopriv_user},
        {"nopriv_pwd", &snmpcfg_s::nopriv_pwd},
        {"priv_user", &snmpcfg_s::priv_user},
        {"priv_pwd", &snmpcfg_s::priv_pwd},
        {"priv_key", &snmpcfg_s::priv_key},
        {"oid", &snmpcfg_s::oid},
        {"ro_oid", &snmpcfg_s::ro_oid},
        {"nopriv_oid", &snmpcfg_s::nopriv_oid},
        {"priv_oid", &snmpcfg_s::priv_oid},
        {"r7m_context", &snmpcfg_s::r7m_context},
        {"r7m_community", &snmpcfg_s::r7m_community},
        {"cli_engineid", &snmpcfg_s::cli_engineid},
        {"cli_community", &snmpcfg_s::cli_community},
        {"cli_user", &snmpcfg_s::cli_user},
        {"cli_pwd", &snmpcfg_s::cli_pwd},
        {"cli_key", &snmpcfg_s::cli_key},
    };
    for (const auto& [name, field] : texts) {
        row(name, [field = field](snmpcfg_s& c) { c.*field = (c.*field).toUpper(); });
    }
    const std::pair<const char*, QHostAddress snmpcfg_s::*> traps[] = {
        {"trap_addr1", &snmpcfg_s::trap_addr1}, {"trap_addr2", &snmpcfg_s::trap_addr2},
        {"trap_addr3", &snmpcfg_s::trap_addr3}, {"trap_addr4", &snmpcfg_s::trap_addr4},
        {"trap_addr5", &snmpcfg_s::trap_addr5},
    };
    for (const auto& [name, field] : traps) {
        row(name, [field = field](snmpcfg_s& c) { c.*field = address("1.1.1.1"); });
    }
}

void tst_ConfigArguments::snmpDiffers()
{
    QFETCH(SnmpChange, change);
    QFETCH(bool, differs);
    snmpcfg_s kept = distinctSnmp();
    snmpcfg_s now = kept;
    QVERIFY(!configDiffers(kept, now));
    now.resetcfg = true;
    QVERIFY(!configDiffers(kept, now));
    change(now);
    QCOMPARE(configDiffers(kept, now), differs);
    QCOMPARE(configDiffers(distinctSnmp(), now), differs);
    kept.resetcfg = true;
    QVERIFY(configDiffers(kept, kept));
}

void tst_ConfigArguments::modbusDiffers_data()
{
    QTest::addColumn<ModbusChange>("change");
    const auto row = [](const char* name, const ModbusChange& change) { QTest::newRow(name) << change; };
    row("tcp_status", [](modbuscfg_s& c) { c.tcp_status = true; });
    row("tcp_port", [](modbuscfg_s& c) { c.tcp_port = 77; });
}

void tst_ConfigArguments::modbusDiffers()
{
    QFETCH(ModbusChange, change);
    modbuscfg_s kept;
    modbuscfg_s now;
    QVERIFY(!configDiffers(kept, now));
    now.resetcfg = true;
    QVERIFY(!configDiffers(kept, now));
    change(now);
    QVERIFY(configDiffers(kept, now));
    kept.resetcfg = true;
    QVERIFY(configDiffers(kept, kept));
}

QTEST_GUILESS_MAIN(tst_ConfigArguments)
#include "tst_configarguments.moc"
