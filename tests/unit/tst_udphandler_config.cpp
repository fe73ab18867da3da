// SPDX-License-Identifier: MIT
#include "frame.h"
#include "mappingfile.h"
#include "panellink.h"
#include "rows.h"

using namespace Varnel;

using Lines = QList<QByteArray>;
using Call = ScriptDirectory::Call;
Q_DECLARE_METATYPE(Lines)

namespace {

const QString snmpChanged = "Snmpcfg changed !"_s;
const QString netChanged = "Netcfg changed !"_s;
const QString modbusChanged = "Modbuscfg changed !"_s;

} // namespace

/// The configurations that a controller sends: what is applied, when, by which calls of which scripts.
class tst_UdpHandlerConfig : public QObject
{
    Q_OBJECT

private slots:
    void wholeFrame()
    {
        const ScriptDirectory scripts;
        PanelLink link;
        const QByteArray modbus = modbusCfgSection(true, 1502);
        link.receiveSections({devInfoSection(7, 42, "fr"), netCfgSection(), modbus, snmpCfgSection()});
        // SNMP, network, Modbus, whatever the order in the frame; the registration around the network change
        // knows nothing of the Modbus section yet.
        QCOMPARE(scripts.callLines(),
                 (Lines{"snmpctl.sh init", "snmpcfg.sh 192.168.7.2 1161 context community oid V1",
                        "snmptrap.sh init 10.0.0.1 1162 V1 cli_community",
                        "snmptrap.sh add 10.0.0.1 1162 V1 cli_community",
                        "snmptrap.sh add 10.0.0.2 1162 V1 cli_community",
                        "snmptrap.sh add 10.0.0.3 1162 V1 cli_community",
                        "snmptrap.sh add 10.0.0.4 1162 V1 cli_community",
                        "snmptrap.sh add 10.0.0.5 1162 V1 cli_community", "snmpctl.sh apply",
                        "r7m.sh delete 192.168.7.2 7 1161 1162 42",
                        "netcfg.sh static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2 192.168.1.3",
                        "r7m.sh add 192.168.7.2 7 1161 1162 0 502 42", "modbuscfg.sh 1 1502",
                        "r7m.sh add 192.168.7.2 7 1161 1162 1 1502 42"}));
        const auto quoted = [&scripts](const char* name) { return "\"%1\""_s.arg(scripts.path(name)); };
        QCOMPARE(link.log(),
                 QStringList({"Set language to \"fr\" (was \"default\" )"_s,
                              "wv: Set language to \"fr\" (was \"default\" )"_s,
                              snmpChanged,
                              "Apply new snmp config"_s,
                              quoted("snmpctl.sh"),
                              "\"init\""_s,
                              quoted("snmpcfg.sh"),
                              "[ 0 ] = ' \"192.168.7.2\" '"_s,
                              "[ 1 ] = ' \"1161\" '"_s,
                              "[ 2 ] = ' \"context\" '"_s,
                              "[ 3 ] = ' \"community\" '"_s,
                              "[ 4 ] = ' \"oid\" '"_s,
                              "[ 5 ] = ' \"V1\" '"_s,
                              netChanged,
                              "NetCfg, hasVarnel?  true"_s,
                              "Apply new network config"_s,
                              "Remove R7M"_s,
                              "Add R7M"_s,
                              modbusChanged,
                              "Apply new modbus config"_s,
                              "First frame, try to connect to the web server at  \"192.168.7.2\""_s,
                              "Add R7M"_s,
                              "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s,
                              "TIME - Stop buzzer server: http://192.168.7.2/index.html"_s}));

        // Nothing has changed.
        scripts.clear();
        link.clear();
        link.receiveSections({modbus, snmpCfgSection(), netCfgSection(), devInfoSection(7, 42, "fr")});
        QCOMPARE(scripts.callLines(), Lines());
        QCOMPARE(link.log(), QStringList());
    }

    void languageOfDevInfo()
    {
        const ScriptDirectory scripts;
        RegisteredLink link(scripts);
        link.receiveSections({devInfoSection(1, 1, "fr")});
        QCOMPARE(link.window.getLanguage(), "fr"_s);
        QCOMPARE(link.log().size(), 2);
        link.receiveSections({devInfoSection(1, 1, "fr")});
        link.receiveSections({devInfoSection(1, 1, "")}); // none: the old one stays
        link.receiveSections({gpioSection(1, 1, 1, 0)});
        QCOMPARE(link.window.getLanguage(), "fr"_s);
        QCOMPARE(link.log().size(), 2);
        link.receiveSections({devInfoSection(1, 1, "de")});
        QCOMPARE(link.window.getLanguage(), "de"_s);
        // The record is kept: the removal names the last one's type and build.
        link.receiveSections({devInfoSection(1234, 5678)});
        link.handler->removeR7M();
        QCOMPARE(scripts.callLines(), Lines{"r7m.sh delete 192.168.7.2 1234 161 162 5678"});
    }

    void netCfgRejected()
    {
        const ScriptDirectory scripts;
        RegisteredLink link(scripts);
        link.receiveSections({netCfgSection(false)});
        QCOMPARE(link.log(),
                 QStringList({netChanged, "NetCfg, hasVarnel?  false"_s, "Reject new network config"_s}));
        link.clear();
        link.receiveSections({netCfgSection(false)}); // not even looked at again
        QCOMPARE(link.log(), QStringList());
        QCOMPARE(scripts.callLines(), Lines());
        link.receiveSections({netCfgSection(true)}); // the flag is a field like the others
        QCOMPARE(link.count(netChanged), 1);
        QCOMPARE(scripts.calls().size(), 3);
    }

    void modbusCfg()
    {
        const ScriptDirectory scripts;
        RegisteredLink link(scripts);
        // The first is applied even though it says what holds anyway.
        link.receiveSections({modbusCfgSection(false, 502)});
        link.receiveSections({modbusCfgSection(false, 502)});
        QCOMPARE(scripts.callLines(), Lines{"modbuscfg.sh 0 502"});
        QCOMPARE(link.log(), QStringList({modbusChanged, "Apply new modbus config"_s}));
        link.receiveSections({modbusCfgSection(true, 65535)});
        QCOMPARE(scripts.callLines().mid(1), Lines{"modbuscfg.sh 1 65535"});
    }

    void applyingByItselfKeepsNothing()
    {
        const ScriptDirectory scripts;
        const RegisteredLink link(scripts);
        netcfg_s cfg;
        QVERIFY(!link.handler->applyNetCfg(cfg));
        cfg.varnel = true;
        QVERIFY(link.handler->applyNetCfg(cfg));
        QVERIFY(link.handler->applySnmpCfg(snmpcfg_s()));
        QVERIFY(link.handler->applyModbusCfg(modbuscfg_s()));
        QVERIFY(link.handler->isNetCfgChanged(cfg));
        QVERIFY(link.handler->isSnmpCfgChanged(snmpcfg_s()));
        QVERIFY(link.handler->isModbusCfgChanged(modbuscfg_s()));
        scripts.remove("snmpctl.sh");
        QVERIFY(!link.handler->applySnmpCfg(snmpcfg_s()));
    }

    void withoutScript_data()
    {
        // log: the script's path is filled in
        // calls: of other scripts
        // later: calls for another configuration, once the script is there
        const Rows<QByteArray, QStringList, Lines, int> row("section", "log", "calls", "later");
        const QString missing = "Script ' \"%1\" ' not found, do nothing"_s;
        row("netcfg.sh", netCfgSection(),
            {netChanged, "NetCfg, hasVarnel?  true"_s, "Apply new network config"_s, "Remove R7M"_s, missing,
             "Add R7M"_s},
            Lines{"r7m.sh delete 192.168.7.2 0 161 162 0", "r7m.sh add 192.168.7.2 0 161 162 0 502 0"}, 3);
        row("modbuscfg.sh", modbusCfgSection(), {modbusChanged, "Apply new modbus config"_s, missing},
            Lines(), 1);
        for (const char* const name : {"snmpctl.sh", "snmpcfg.sh", "snmptrap.sh"}) {
            row(name, snmpCfgSection(), {snmpChanged, "Missing script"_s}, Lines(), 9);
        }
    }

    void withoutScript()
    {
        QFETCH(QByteArray, section);
        QFETCH(QStringList, log);
        QFETCH(int, later);
        const QByteArray name = QTest::currentDataTag();
        const ScriptDirectory scripts;
        RegisteredLink link(scripts);
        scripts.put(name, false);
        link.receiveSections({section});
        QCOMPARE(link.log(), log.replaceInStrings("%1"_s, scripts.path(name)));
        QTEST(scripts.callLines(), "calls");
        // It counts as applied, until the controller changes it.
        scripts.put(name);
        scripts.clear();
        link.clear();
        link.receiveSections({section});
        QCOMPARE(link.log(), QStringList());
        section[section.size() - 1] = '\x7f';
        link.receiveSections({section});
        QCOMPARE(scripts.calls().size(), later);
    }

    void textsAreArguments_data()
    {
        const Rows<QByteArray, QByteArray> row("text", "argument");
        const auto same = [&row](const char* name, const QByteArray& text) { row(name, text, text); };
        same("empty", "");
        same("blanks and quotes", " two  words \"b'c`d\\e");
        same("line ends, a tab and a bell", "a\nb\r\n\t\a");
        same("shell text", "$HOME $(reboot);&|<>*?~#!");
        same("places to fill", "%1 %2 %s %n");
        same("a dash", "--help");
        same("32 letters without NUL", QByteArray(32, 'x'));
        // A text is Latin-1 on the wire and UTF-8 as an argument.
        row("e acute in Latin-1: UTF-8", "caf\xe9", "caf\xc3\xa9");
        row("e acute in UTF-8: two letters", "caf\xc3\xa9", "caf\xc3\x83\xc2\xa9");
        row("text after a NUL: cut", QByteArray("a\0b", 3), "a");
    }

    void textsAreArguments()
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

    void coreReachesTheModbusServer()
    {
        const MappingFile map(
            mappingText(registerText(10, "u16", "u16", 0) + "," + registerText(11, "s8", "s8", 1),
                        tableText(300, "10, 11") + "," + tableText(100, "-1, 10")));
        const ScopedSetting<QString> setting("ModbusServer", "ModbusMap", map.path());
        const ScriptDirectory scripts({"mbserverupdate.sh", "modbuscfg.sh", "netcfg.sh", "r7m.sh"});
        RegisteredLink link(scripts);
        // All four steps are taken for every Core section, also one without items; between network and
        // Modbus.
        link.receiveSections({modbusCfgSection(), netCfgSection(), section(0x80, "")});
        const QList<Call> calls = scripts.calls();
        QCOMPARE(calls.size(), 5);
        QCOMPARE(calls.at(2).at(0), QByteArray("r7m.sh"));
        QCOMPARE(calls.at(3), (Call{"mbserverupdate.sh", R"({"cmd":"setconfig","data":[]})"}));
        QCOMPARE(calls.at(4).at(0), QByteArray("modbuscfg.sh"));
        scripts.clear();
        // A Core section that does not decode is not used.
        link.receiveSections({section(0x80, ""), gpioSection(1, 1, 1, 0)});
        QCOMPARE(scripts.calls().size(), 0);
        // A value goes to each of its tables, and stays from frame to frame.
        link.receiveSections({section(0x80, coreItem(7, 3, 0, 4, hex("2c 01")))});
        link.receiveSections({gpioSection(1, 1, 1, 0)});
        link.receiveSections({section(0x80, coreItem(7, 3, 1, 3, hex("fe")))});
        QCOMPARE(
            scripts.callLines(),
            (Lines{R"(mbserverupdate.sh {"cmd":"setconfig","data":[{"address":100,"values":[0,300]},)"
                   R"({"address":300,"values":[300,0]}]})",
                   R"(mbserverupdate.sh {"cmd":"setconfig","data":[{"address":300,"values":[300,254]}]})"}));
    }
};

QTEST_MAIN(tst_UdpHandlerConfig)
#include "tst_udphandler_config.moc"
