// SPDX-License-Identifier: MIT
#include <array>

#include "configarguments.h"
#include "frame.h"
#include "literals.h"
#include "rlpdecoder.h"
#include "rows.h"

using namespace Varnel;

namespace {

const QHostAddress controller("192.168.7.2"_s);
const QHostAddress other("1.1.1.1"_s);
const QHostAddress zero("0.0.0.0"_s);

/// A record in which no two fields are alike, so that a swapped field shows.
snmpcfg_s distinctSnmp(quint8 version = 5, quint8 clientMode = 5)
{
    snmpcfg_s cfg;
    QByteArray octets = snmpCfgSection(version, clientMode);
    int consumed = 0;
    if (!RlpDecoder().handleSectionSnmpCfg(SnmpCfg, quint16(octets.size()), &octets, &cfg, &consumed)) {
        qFatal("the section does not decode");
    }
    return cfg;
}

netcfg_s distinctNet()
{
    netcfg_s cfg;
    QByteArray octets = netCfgSection();
    int consumed = 0;
    if (!RlpDecoder().handleSectionNetCfg(NetCfg, quint16(octets.size()), &octets, &cfg, &consumed)) {
        qFatal("the section does not decode");
    }
    return cfg;
}

} // namespace

/// Argument lists of the scripts and the tests for a changed configuration.
class tst_ConfigArguments : public QObject
{
    Q_OBJECT

private slots:
    void words()
    {
        QCOMPARE(decode_hash(1), "MD5"_s);
        QCOMPARE(decode_hash(2), "SHA"_s);
        QCOMPARE(decode_algo(1), "DES"_s);
        QCOMPARE(decode_algo(2), "AES"_s);
        for (const quint8 code : {0, 3, 255}) {
            QCOMPARE(decode_hash(code), "UNDEF"_s);
            QCOMPARE(decode_algo(code), "UNDEF"_s);
        }
    }

    void arguments_data()
    {
        const Rows<QStringList, QStringList> row("actual", "wanted");
        const auto network = [](const char* name, const netcfg_s& cfg, const QStringList& wanted) {
            QTest::addRow("network, %s", name) << netCfgArguments(cfg) << wanted;
        };
        netcfg_s net = distinctNet();
        network("static: all addresses", net,
                "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2 192.168.1.3"_words);
        net.dns1.clear();
        network("dns1 null: dns2 in its place", net,
                "static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.3"_words);
        net.dns2.clear();
        network("no dns: four arguments", net, "static 192.168.1.10 255.255.255.0 192.168.1.1"_words);
        net.ip = net.mask = net.gateway = net.dns1 = zero;
        network("all zero: addresses like any other", net, "static 0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0"_words);
        net.ip = QHostAddress::Broadcast;
        network("all ones: passed on", net, "static 255.255.255.255 0.0.0.0 0.0.0.0 0.0.0.0"_words);
        net.dhcp = true;
        network("dhcp: that word alone", net, "dhcp"_words);

        const auto agent = [](int version, const QStringList& words) {
            QTest::addRow("agent, version %d", version)
                << snmpAgentArguments(distinctSnmp(quint8(version)), controller)
                << "192.168.7.2 1161 context community"_words + words;
        };
        agent(0, {});
        agent(1, "oid V1"_words);
        agent(2, "oid V2"_words);
        agent(3, "ro_oid V3NOAUTH ro_user"_words);
        agent(4, "nopriv_oid V3NOPRIV nopriv_user MD5 nopriv_pwd"_words);
        agent(5, "priv_oid V3PRIV priv_user SHA priv_pwd DES priv_key"_words);
        agent(6, {});

        // Each destination repeats the words of the initial call.
        const auto trap = [](int mode, const QStringList& words) {
            const snmpcfg_s cfg = distinctSnmp(1, quint8(mode));
            QTest::addRow("trap, mode %d", mode)
                << snmpTrapInitArguments(cfg) << "init 10.0.0.1 1162"_words + words;
            for (int i = 0; i < 5; ++i) {
                QTest::addRow("trap, mode %d, destination %d", mode, i + 1)
                    << snmpTrapAddArguments(cfg).value(i)
                    << QStringList{"add"_s, "10.0.0.%1"_s.arg(i + 1), "1162"_s} + words;
            }
        };
        trap(0, {});
        trap(1, "V1 cli_community"_words);
        trap(2, "V2 cli_community"_words);
        trap(3, "V3NOAUTH cli_engineid cli_user"_words);
        trap(4, "V3NOPRIV cli_engineid cli_user SHA cli_pwd"_words);
        trap(5, "V3PRIV cli_engineid cli_user SHA cli_pwd AES cli_key"_words);
        trap(6, {});

        // "-" is a null address.
        const auto destinations = [](const char* name, const QStringList& addresses,
                                     const QStringList& used) {
            snmpcfg_s cfg;
            QHostAddress* const fields[] = {&cfg.trap_addr1, &cfg.trap_addr2, &cfg.trap_addr3,
                                            &cfg.trap_addr4, &cfg.trap_addr5};
            for (int i = 0; i < addresses.size(); ++i) {
                *fields[i] = QHostAddress(addresses.at(i));
            }
            QStringList actual;
            const QList<QStringList> calls = snmpTrapAddArguments(cfg);
            for (const QStringList& call : calls) {
                actual << call.at(1);
            }
            QTest::addRow("destinations, %s", name) << actual << used;
        };
        destinations("one, loopback, rest null: the one", "10.0.0.5 127.0.0.1 - - -"_words, "10.0.0.5"_words);
        destinations("first null: the others", "- 10.0.0.2 - 10.0.0.4 -"_words, "10.0.0.2 10.0.0.4"_words);
        destinations("zero, ones, 127.0.0.2, one twice: all of them",
                     "0.0.0.0 255.255.255.255 127.0.0.2 10.0.0.1 10.0.0.1"_words,
                     "0.0.0.0 255.255.255.255 127.0.0.2 10.0.0.1 10.0.0.1"_words);

        const devinfo_s device{7, 91, 92, 93, 94, 65530, 95, {}};
        for (const bool status : {false, true}) {
            modbuscfg_s modbus;
            modbus.tcp_status = status;
            modbus.tcp_port = 65535;
            const QString word = status ? "1"_s : "0"_s;
            QTest::addRow("Modbus, status %d", status)
                << modbusCfgArguments(modbus) << QStringList{word, "65535"_s};
            QTest::addRow("registration, status %d", status)
                << registrationArguments(controller, device, distinctSnmp(), modbus)
                << "add 192.168.7.2 7 1161 1162"_words + QStringList{word, "65535"_s, "65530"_s};
        }
        row("removal", removalArguments(controller, device, distinctSnmp()),
            "delete 192.168.7.2 7 1161 1162 65530"_words);
    }

    void arguments()
    {
        QFETCH(QStringList, actual);
        QTEST(actual, "wanted");
    }

    void differs_data()
    {
        const Rows<bool, bool> row("actual", "differs");
        const auto record = [](const char* name, const auto& plain) {
            auto reset = plain;
            reset.resetcfg = true;
            QTest::addRow("%s, the same", name) << configDiffers(plain, plain) << false;
            QTest::addRow("%s, flag of the kept record", name) << configDiffers(reset, plain) << true;
            QTest::addRow("%s, flag of the new record: left out", name)
                << configDiffers(plain, reset) << false;
        };
        record("network", distinctNet());
        record("SNMP", distinctSnmp());
        record("Modbus", modbuscfg_s());

        int number = 0;
        const auto changed = [&number](const auto& kept, const auto& value, auto fields) {
            for (const auto field : fields) {
                auto now = kept;
                now.*field = value;
                QTest::addRow("field %d", ++number) << configDiffers(kept, now) << true;
            }
        };
        const netcfg_s net = distinctNet();
        changed(net, false, std::array{&netcfg_s::varnel});
        changed(net, true, std::array{&netcfg_s::dhcp});
        changed(
            net, other,
            std::array{&netcfg_s::ip, &netcfg_s::mask, &netcfg_s::gateway, &netcfg_s::dns1, &netcfg_s::dns2});
        const snmpcfg_s snmp = distinctSnmp();
        changed(snmp, quint8(77),
                std::array{&snmpcfg_s::version, &snmpcfg_s::nopriv_hash, &snmpcfg_s::priv_hash,
                           &snmpcfg_s::priv_algo, &snmpcfg_s::cli_hash, &snmpcfg_s::cli_mode,
                           &snmpcfg_s::cli_algo});
        changed(snmp, quint16(77), std::array{&snmpcfg_s::port, &snmpcfg_s::port_trap});
        changed(snmp, "new"_s,
                std::array{&snmpcfg_s::ro_user, &snmpcfg_s::nopriv_user, &snmpcfg_s::nopriv_pwd,
                           &snmpcfg_s::priv_user, &snmpcfg_s::priv_pwd, &snmpcfg_s::priv_key, &snmpcfg_s::oid,
                           &snmpcfg_s::ro_oid, &snmpcfg_s::nopriv_oid, &snmpcfg_s::priv_oid,
                           &snmpcfg_s::r7m_context, &snmpcfg_s::r7m_community, &snmpcfg_s::cli_engineid,
                           &snmpcfg_s::cli_community, &snmpcfg_s::cli_user, &snmpcfg_s::cli_pwd,
                           &snmpcfg_s::cli_key});
        changed(snmp, other,
                std::array{&snmpcfg_s::trap_addr1, &snmpcfg_s::trap_addr2, &snmpcfg_s::trap_addr3,
                           &snmpcfg_s::trap_addr4, &snmpcfg_s::trap_addr5});
        changed(modbuscfg_s(), true, std::array{&modbuscfg_s::tcp_status});
        changed(modbuscfg_s(), quint16(77), std::array{&modbuscfg_s::tcp_port});
        snmpcfg_s options = snmp;
        options.options = 77;
        row("options: left out", configDiffers(snmp, options), false);
    }

    void differs()
    {
        QFETCH(bool, actual);
        QTEST(actual, "differs");
    }
};

QTEST_GUILESS_MAIN(tst_ConfigArguments)
#include "tst_configarguments.moc"
