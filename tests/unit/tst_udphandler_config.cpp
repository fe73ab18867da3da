// SPDX-License-Identifier: MIT
#include <QTest>

#include "frame.h"
#include "registeredlink.h"

using namespace Varnel;

using Lines = QList<QByteArray>;
Q_DECLARE_METATYPE(Lines)

/// The configurations that a controller sends: what is applied, when, by which calls of which scripts.
class tst_UdpHandlerConfig : public QObject
{
    Q_OBJECT

private slots:
    void wholeFrame();
    void sameFrameAgain();
    void languageOfDevInfo();
    void netCfg_data();
    void netCfg();
    void netCfgFieldByField_data();
    void netCfgFieldByField();
    void netCfgRejected();
    void netCfgWithoutScript();
    void netCfgReturnValue();
    void modbusCfg_data();
    void modbusCfg();
    void modbusCfgWithoutScript();
    void coreReachesTheModbusServer();
    void badSectionLeavesTheOthers();
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
const QString netChanged = QStringLiteral("Netcfg changed !");
const QString modbusChanged = QStringLiteral("Modbuscfg changed !");

QString notFound(const ScriptDirectory& scripts, const char* name)
{
    return QStringLiteral("Script ' \"%1\" ' not found, do nothing").arg(scripts.path(name));
}

} // namespace

void tst_UdpHandlerConfig::wholeFrame()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.receiveSections({devInfoSection(7, 42, "fr"), netCfgSection(), modbusCfgSection(true, 1502),
                          snmpCfgSection(), gpioSection(1, 1, 1, 0)});
    // SNMP, network, Modbus, whatever the order in the frame; the registration around the network change
    // knows nothing of the Modbus section yet.
    const Lines wanted = {"r7m.sh delete 192.168.7.2 7 1161 1162 42",
                          "netcfg.sh static 192.168.1.10 255.255.255.0 192.168.1.1 192.168.1.2 192.168.1.3",
                          "r7m.sh add 192.168.7.2 7 1161 1162 0 502 42", "modbuscfg.sh 1 1502",
                          "r7m.sh add 192.168.7.2 7 1161 1162 1 1502 42"};
    QCOMPARE(scripts.callLines(), agentV1 + wanted);
    QStringList log = link.log();
    QStringList scriptLines; // of the SNMP scripts; they have a test of their own
    for (const QString& line : qAsConst(log)) {
        if (line.startsWith(QLatin1String("[ ")) || line.contains(QLatin1String("snmpc")) ||
            line == QLatin1String("\"init\"")) {
            scriptLines << line;
        }
    }
    for (const QString& line : qAsConst(scriptLines)) {
        log.removeAll(line);
    }
    QCOMPARE(scriptLines.size(), 9);
    const auto line = [](const char* text) { return QString::fromLatin1(text); };
    QCOMPARE(log, (QStringList{line("Set language to \"fr\" (was \"default\" )"),
                               line("wv: Set language to \"fr\" (was \"default\" )"), snmpChanged,
                               line("Apply new snmp config"), netChanged, line("NetCfg, hasVarnel?  true"),
                               line("Apply new network config"), line("Remove R7M"), line("Add R7M"),
                               modbusChanged, line("Apply new modbus config"),
                               line("First frame, try to connect to the web server at  \"192.168.7.2\""),
                               line("Add R7M"),
                               line("MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""),
                               line("TIME - Stop buzzer server: http://192.168.7.2/index.html")}));
}

void tst_UdpHandlerConfig::sameFrameAgain()
{
    const ScriptDirectory scripts;
    PanelLink link;
    for (int i = 0; i < 3; ++i) {
        scripts.clear();
        link.clear();
        link.receiveSections(
            {devInfoSection(7, 42, "fr"), netCfgSection(), modbusCfgSection(), snmpCfgSection()});
    }
    QCOMPARE(scripts.callLines(), Lines());
    QCOMPARE(link.log(), QStringList());
}

void tst_UdpHandlerConfig::languageOfDevInfo()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    link.receiveSections({devInfoSection(1, 1, "fr")});
    QCOMPARE(link.window.getLanguage(), QStringLiteral("fr"));
    QCOMPARE(link.log().size(), 2);
    link.receiveSections({devInfoSection(1, 1, "fr")});
    link.receiveSections({devInfoSection(1, 1, "")}); // none: the old one stays
    link.receiveSections({gpioSection(1, 1, 1, 0)});
    QCOMPARE(link.window.getLanguage(), QStringLiteral("fr"));
    QCOMPARE(link.log().size(), 2);
    link.receiveSections({devInfoSection(1, 1, "de")});
    QCOMPARE(link.window.getLanguage(), QStringLiteral("de"));
    // The record is kept: the removal names the last one's type and build.
    link.receiveSections({devInfoSection(1234, 5678)});
    link.handler->removeR7M();
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh delete 192.168.7.2 1234 161 162 5678"});
}

void tst_UdpHandlerConfig::netCfg_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("call");
    QTest::newRow("static: all addresses")
        << hex("01 00 | c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | 08 08 08 08 | 08 08 04 04")
        << QByteArray("netcfg.sh static 192.168.1.10 255.255.255.0 192.168.1.1 8.8.8.8 8.8.4.4");
    QTest::newRow("dhcp: that word alone")
        << hex("01 01 | c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | 08 08 08 08 | 08 08 04 04")
        << QByteArray("netcfg.sh dhcp");
    QTest::newRow("four zero octets: an address")
        << hex("01 00 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00 | 00 00 00 00")
        << QByteArray("netcfg.sh static 0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0");
    QTest::newRow("all ones: passed on")
        << hex("ff 00 | ff ff ff ff | ff ff ff ff | ff ff ff ff | ff ff ff ff | ff ff ff ff")
        << QByteArray("netcfg.sh static 255.255.255.255 255.255.255.255 255.255.255.255 255.255.255.255 "
                      "255.255.255.255");
}

void tst_UdpHandlerConfig::netCfg()
{
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, call);
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    link.receiveSections({section(0x30, body)});
    QCOMPARE(scripts.callLines(), (Lines{"r7m.sh delete 192.168.7.2 0 161 162 0", call,
                                         "r7m.sh add 192.168.7.2 0 161 162 0 502 0"}));
    QCOMPARE(link.log(), (QStringList{netChanged, QStringLiteral("NetCfg, hasVarnel?  true"),
                                      QStringLiteral("Apply new network config"),
                                      QStringLiteral("Remove R7M"), QStringLiteral("Add R7M")}));
}

void tst_UdpHandlerConfig::netCfgFieldByField_data()
{
    QTest::addColumn<int>("offset"); ///< of the octet that changes, from the start of the section
    QTest::newRow("dhcp: applied") << 5;
    const std::pair<const char*, int> addresses[] = {
        {"ip", 6}, {"mask", 10}, {"gateway", 14}, {"dns1", 18}, {"dns2", 22}};
    for (const auto& [field, offset] : addresses) {
        QTest::addRow("%s, first octet", field) << offset;
        QTest::addRow("%s, last octet", field) << offset + 3;
    }
}

void tst_UdpHandlerConfig::netCfgFieldByField()
{
    QFETCH(int, offset);
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    QByteArray octets = netCfgSection();
    link.receiveSections({octets});
    scripts.clear();
    link.clear();
    octets[offset] = static_cast<char>(octets.at(offset) ^ 0x01);
    link.receiveSections({octets});
    QCOMPARE(link.count(netChanged), 1);
    QCOMPARE(scripts.calls().size(), 3);
    link.receiveSections({octets});
    QCOMPARE(link.count(netChanged), 1);
}

void tst_UdpHandlerConfig::netCfgRejected()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    link.receiveSections({netCfgSection(false)});
    QCOMPARE(link.log(), (QStringList{netChanged, QStringLiteral("NetCfg, hasVarnel?  false"),
                                      QStringLiteral("Reject new network config")}));
    link.clear();
    link.receiveSections({netCfgSection(false)}); // not even looked at again
    QCOMPARE(link.log(), QStringList());
    QCOMPARE(scripts.callLines(), Lines());
    link.receiveSections({netCfgSection(true)}); // the flag is a field like the others
    QCOMPARE(link.count(netChanged), 1);
    QCOMPARE(scripts.calls().size(), 3);
}

void tst_UdpHandlerConfig::netCfgWithoutScript()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    scripts.put("netcfg.sh", false);
    link.receiveSections({netCfgSection()});
    QCOMPARE(link.log().mid(3), (QStringList{QStringLiteral("Remove R7M"), notFound(scripts, "netcfg.sh"),
                                             QStringLiteral("Add R7M")}));
    QCOMPARE(scripts.callLines(),
             (Lines{"r7m.sh delete 192.168.7.2 0 161 162 0", "r7m.sh add 192.168.7.2 0 161 162 0 502 0"}));
    // It counts as applied.
    scripts.put("netcfg.sh");
    scripts.clear();
    link.receiveSections({netCfgSection()});
    QCOMPARE(scripts.callLines(), Lines());
}

void tst_UdpHandlerConfig::netCfgReturnValue()
{
    const ScriptDirectory scripts;
    const RegisteredLink link(scripts);
    netcfg_s cfg;
    QVERIFY(!link.handler->applyNetCfg(cfg));
    cfg.varnel = true;
    QVERIFY(link.handler->applyNetCfg(cfg));
    QVERIFY(link.handler->isNetCfgChanged(cfg)); // applying by itself keeps nothing
    QVERIFY(link.handler->applySnmpCfg(snmpcfg_s()));
    QVERIFY(link.handler->applyModbusCfg(modbuscfg_s()));
    QVERIFY(link.handler->isSnmpCfgChanged(snmpcfg_s()));
    QVERIFY(link.handler->isModbusCfgChanged(modbuscfg_s()));
    scripts.remove("snmpctl.sh");
    QVERIFY(!link.handler->applySnmpCfg(snmpcfg_s()));
}

void tst_UdpHandlerConfig::modbusCfg_data()
{
    QTest::addColumn<bool>("status");
    QTest::addColumn<int>("port");
    QTest::addColumn<Lines>("calls");
    // After a section of status on and port 502.
    QTest::newRow("the same: nothing") << true << 502 << Lines();
    QTest::newRow("switched off: applied") << false << 502 << Lines{"modbuscfg.sh 0 502"};
    QTest::newRow("another port: applied") << true << 65535 << Lines{"modbuscfg.sh 1 65535"};
    QTest::newRow("both: applied") << false << 0 << Lines{"modbuscfg.sh 0 0"};
}

void tst_UdpHandlerConfig::modbusCfg()
{
    QFETCH(bool, status);
    QFETCH(int, port);
    QFETCH(Lines, calls);
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    link.receiveSections({modbusCfgSection(true, 502)});
    // The first is applied even though it says what holds anyway.
    QCOMPARE(scripts.callLines(), Lines{"modbuscfg.sh 1 502"});
    QCOMPARE(link.log(), (QStringList{modbusChanged, QStringLiteral("Apply new modbus config")}));
    scripts.clear();
    link.receiveSections({modbusCfgSection(status, static_cast<quint16>(port))});
    QCOMPARE(scripts.callLines(), calls);
    link.receiveSections({modbusCfgSection(status, static_cast<quint16>(port))});
    QCOMPARE(scripts.callLines(), calls);
}

void tst_UdpHandlerConfig::modbusCfgWithoutScript()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    scripts.remove("modbuscfg.sh");
    link.receiveSections({modbusCfgSection()});
    QCOMPARE(link.log(), (QStringList{modbusChanged, QStringLiteral("Apply new modbus config"),
                                      notFound(scripts, "modbuscfg.sh")}));
    link.clear();
    link.receiveSections({modbusCfgSection()});
    QCOMPARE(link.log(), QStringList());
}

void tst_UdpHandlerConfig::coreReachesTheModbusServer()
{
    const ScriptDirectory scripts({"mbserverupdate.sh", "modbuscfg.sh", "netcfg.sh", "r7m.sh"});
    RegisteredLink link(scripts);
    // All four steps are taken for every Core section, also one without items; between network and Modbus.
    link.receiveSections({modbusCfgSection(), netCfgSection(), section(0x80, "")});
    QList<QByteArray> names;
    const auto calls = scripts.calls();
    for (const ScriptDirectory::Call& call : calls) {
        names << call.constFirst();
    }
    QCOMPARE(names, (Lines{"r7m.sh", "netcfg.sh", "r7m.sh", "mbserverupdate.sh", "modbuscfg.sh"}));
    QCOMPARE(calls.at(3).size(), 2);
    scripts.clear();
    // A Core section that does not decode is not used.
    link.receiveSections({section(0x80, ""), gpioSection(1, 1, 1, 0)});
    QCOMPARE(scripts.calls().size(), 0);
}

void tst_UdpHandlerConfig::badSectionLeavesTheOthers()
{
    const ScriptDirectory scripts;
    RegisteredLink link(scripts);
    // The Modbus section starts four octets after the end that the bad one claims.
    link.receiveSections({section(0x30, QByteArray(18, 'x')) + hex("00 00 00 00"), modbusCfgSection()});
    QCOMPARE(link.log(), (QStringList{QStringLiteral("NetCfg section length mismatch ( 26 )"),
                                      QStringLiteral("Too short"), QStringLiteral("Decode error"),
                                      modbusChanged, QStringLiteral("Apply new modbus config")}));
    QCOMPARE(scripts.callLines(), Lines{"modbuscfg.sh 1 502"});
    // A configuration that was not applied is still pending.
    link.receiveSections({netCfgSection()});
    QCOMPARE(link.count(netChanged), 1);
}

QTEST_MAIN(tst_UdpHandlerConfig)
#include "tst_udphandler_config.moc"
