// SPDX-License-Identifier: MIT
#include <QTest>

#include "registeredlink.h"

using namespace Varnel;

using Lines = QList<QByteArray>;

/// The SNMP configuration that a controller sends: agent, traps, and what is passed to their scripts.
class tst_UdpHandlerSnmp : public QObject
{
    Q_OBJECT

private slots:
    void trapDestinations();
    void fieldByField_data();
    void fieldByField();
    void missingScript_data();
    void missingScript();
    void lines();
    void textsAreArguments_data();
    void textsAreArguments();
};

namespace {

const Lines agentV1 = {"snmpctl.sh init",
                       "snmpcfg.sh 192.168.7.2 1161 context community oid V1",
                       "snmptrap.sh init 10.0.0.1 1162 V1 cli_community",
                       "snmptrap.sh add 10.0.0.1 1162 V1 cli_community",
                       "snmptrap.sh add 10.0.0.2 1162 V1 cli_community",
                       "snmptrap.sh add 10.0.0.3 1162 V1 cli_community",
                       "snmptrap.sh add 10.0.0.4 1162 V1 cli_community",
                       "snmptrap.sh add 10.0.0.5 1162 V1 cli_community",
                       "snmpctl.sh apply"};
const QString snmpChanged = QStringLiteral("Snmpcfg changed !");

} // namespace

void tst_UdpHandlerSnmp::trapDestinations()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    // Version 5, client mode 3; 10.0.0.5, the loopback and three times zero, which are destinations.
    QByteArray octets = snmpCfgSection(5, 3);
    octets.replace(560, 20, hex("0a 00 00 05 | 7f 00 00 01 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00"));
    link.receiveSections({octets});
    const QByteArray zero("snmptrap.sh add 0.0.0.0 1162 V3NOAUTH cli_engineid cli_user");
    const QByteArray configuration("snmpcfg.sh 192.168.7.2 1161 context community priv_oid V3PRIV "
                                   "priv_user SHA priv_pwd DES priv_key");
    QCOMPARE(scripts.callLines(), (Lines{"snmpctl.sh init", configuration,
                                         "snmptrap.sh init 10.0.0.5 1162 V3NOAUTH cli_engineid cli_user",
                                         "snmptrap.sh add 10.0.0.5 1162 V3NOAUTH cli_engineid cli_user", zero,
                                         zero, zero, "snmpctl.sh apply"}));
    QCOMPARE(scripts.calls().at(1).size(), 12); // the script's name and eleven arguments

    // Null addresses are none: a record that no frame can carry.
    snmpcfg_s cfg;
    cfg.cli_mode = 1;
    cfg.trap_addr1 = QHostAddress(QStringLiteral("10.0.0.5"));
    cfg.trap_addr2 = QHostAddress(QHostAddress::LocalHost);
    scripts.clear();
    link.handler->applySnmpCfg(cfg);
    QCOMPARE(scripts.calls().size(), 5);
    QCOMPARE(scripts.calls().at(3), (ScriptDirectory::Call{"snmptrap.sh", "add", "10.0.0.5", "0", "V1", ""}));
}

void tst_UdpHandlerSnmp::fieldByField_data()
{
    QTest::addColumn<int>("offset");
    QTest::addColumn<bool>("applied");
    const std::pair<int, const char*> octets[] = {{4, "version"},
                                                  {6, "nopriv_hash"},
                                                  {7, "priv_hash"},
                                                  {8, "priv_algo"},
                                                  {9, "cli_mode"},
                                                  {10, "cli_hash"},
                                                  {11, "cli_algo"},
                                                  {556, "port"},
                                                  {557, "port, high octet"},
                                                  {558, "port_trap"},
                                                  {559, "port_trap, high octet"}};
    QTest::newRow("options: left out") << 5 << false;
    for (const auto& [offset, name] : octets) {
        QTest::newRow(name) << offset << true;
    }
    for (int text = 0; text < 17; ++text) {
        QTest::addRow("text %d", text + 1) << 12 + 32 * text << true;
    }
    for (int trap = 0; trap < 5; ++trap) {
        QTest::addRow("trap_addr%d, first octet", trap + 1) << 560 + 4 * trap << true;
        QTest::addRow("trap_addr%d, last octet", trap + 1) << 563 + 4 * trap << true;
    }
    QTest::newRow("after the NUL of a text: no change") << 12 + 31 << false;
}

void tst_UdpHandlerSnmp::fieldByField()
{
    QFETCH(int, offset);
    QFETCH(bool, applied);
    // Without scripts the test for a change is all that happens.
    const ScriptDirectory scripts(QList<QByteArray>{});
    RegisteredLink link(scripts);
    QByteArray octets = snmpCfgSection();
    link.receiveSections({octets});
    link.clear();
    octets[offset] = static_cast<char>(octets.at(offset) ^ 0x10);
    link.receiveSections({octets});
    QCOMPARE(link.count(snmpChanged), applied ? 1 : 0);
    link.receiveSections({octets});
    QCOMPARE(link.count(snmpChanged), applied ? 1 : 0);
}

void tst_UdpHandlerSnmp::missingScript_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<bool>("present");
    for (const char* const name : {"snmpctl.sh", "snmpcfg.sh", "snmptrap.sh"}) {
        QTest::addRow("%s missing", name) << QByteArray(name) << false;
        QTest::addRow("%s not executable", name) << QByteArray(name) << true;
    }
}

void tst_UdpHandlerSnmp::missingScript()
{
    QFETCH(QByteArray, name);
    QFETCH(bool, present);
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    scripts.remove(name);
    if (present) {
        scripts.put(name, false);
    }
    link.receiveSections({snmpCfgSection()});
    QCOMPARE(link.log(), (QStringList{snmpChanged, QStringLiteral("Missing script")}));
    QCOMPARE(scripts.callLines(), Lines());
    // It counts as applied, until the controller changes it.
    scripts.put(name);
    link.clear();
    link.receiveSections({snmpCfgSection()});
    QCOMPARE(link.log(), QStringList());
    link.receiveSections({snmpCfgSection(2)});
    QCOMPARE(scripts.calls().size(), 9);
}

void tst_UdpHandlerSnmp::lines()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    link.receiveSections({snmpCfgSection(3)});
    const auto quoted = [&scripts](const char* name) {
        return QStringLiteral("\"%1\"").arg(scripts.path(name));
    };
    const auto line = [](const char* text) { return QString::fromLatin1(text); };
    QCOMPARE(link.log(),
             (QStringList{snmpChanged, line("Apply new snmp config"), quoted("snmpctl.sh"), line("\"init\""),
                          quoted("snmpcfg.sh"), line("[ 0 ] = ' \"192.168.7.2\" '"),
                          line("[ 1 ] = ' \"1161\" '"), line("[ 2 ] = ' \"context\" '"),
                          line("[ 3 ] = ' \"community\" '"), line("[ 4 ] = ' \"ro_oid\" '"),
                          line("[ 5 ] = ' \"V3NOAUTH\" '"), line("[ 6 ] = ' \"ro_user\" '")}));
}

void tst_UdpHandlerSnmp::textsAreArguments_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QByteArray>("argument");
    const auto same = [](const char* name, const QByteArray& text) { QTest::newRow(name) << text << text; };
    same("empty", "");
    same("blanks", " two  words ");
    same("quotes", "a\"b'c`d\\e");
    same("line ends", "a\nb\r\n");
    same("shell text", "$HOME $(reboot);&|<>*?~#!");
    same("places to fill", "%1 %2 %s %n");
    same("a dash", "--help");
    same("a tab and a bell", "\t\a");
    same("32 letters without NUL", QByteArray(32, 'x'));
    // A text is Latin-1 on the wire and UTF-8 as an argument.
    QTest::newRow("e acute in Latin-1: UTF-8") << QByteArray("caf\xe9") << QByteArray("caf\xc3\xa9");
    QTest::newRow("e acute in UTF-8: two letters")
        << QByteArray("caf\xc3\xa9") << QByteArray("caf\xc3\x83\xc2\xa9");
    QTest::newRow("text after a NUL: cut") << QByteArray("a\0b", 3) << QByteArray("a");
}

void tst_UdpHandlerSnmp::textsAreArguments()
{
    QFETCH(QByteArray, text);
    QFETCH(QByteArray, argument);
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    QByteArray octets = snmpCfgSection(5, 5);
    for (int field = 0; field < 17; ++field) {
        octets.replace(12 + 32 * field, 32, textField(text, 32));
    }
    link.receiveSections({octets});
    const QByteArray& a = argument;
    using Call = ScriptDirectory::Call;
    const QList<Call> calls = scripts.calls();
    QCOMPARE(calls.size(), 9);
    QCOMPARE(calls.at(1),
             (Call{"snmpcfg.sh", "192.168.7.2", "1161", a, a, a, "V3PRIV", a, "SHA", a, "DES", a}));
    QCOMPARE(calls.at(2),
             (Call{"snmptrap.sh", "init", "10.0.0.1", "1162", "V3PRIV", a, a, "SHA", a, "AES", a}));
    QCOMPARE(calls.at(7),
             (Call{"snmptrap.sh", "add", "10.0.0.5", "1162", "V3PRIV", a, a, "SHA", a, "AES", a}));
    QCOMPARE(calls.at(8), (Call{"snmpctl.sh", "apply"}));
}

QTEST_MAIN(tst_UdpHandlerSnmp)
#include "tst_udphandler_snmp.moc"
