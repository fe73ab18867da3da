// SPDX-License-Identifier: MIT
// The controller's configuration reaches the device's scripts: which are run, in which order, with which
// words.

#include <QTest>

#include "scene.h"

namespace {

constexpr int snmpTextWidth = 32;
constexpr int snmpTextCount = 17;

const QString snmpChanged = "Snmpcfg changed !"_s;
const QString netChanged = "Netcfg changed !"_s;
const QString modbusChanged = "Modbuscfg changed !"_s;

QByteArray netBody()
{
    return hex("01 00 | c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | c0 a8 01 02 | c0 a8 01 03");
}

QByteArray modbusBody()
{
    return hex("01 00 | de 05");
}

/// V3PRIV for the agent, V3NOAUTH for the traps; the texts read t0 to t16, two of the traps are in use.
QByteArray snmpBody()
{
    QByteArray body = hex("05 00 01 02 01 03 02 02");
    for (int i = 0; i < snmpTextCount; ++i) {
        body += ("t" + QByteArray::number(i)).leftJustified(snmpTextWidth, '\0');
    }
    return body + hex("a1 00 | a2 00 | 0a 00 00 05 | 7f 00 00 01 | 00 00 00 00 | ff ff ff ff | 7f 00 00 01");
}

const QStringList snmpRuns{"snmpctl.sh init"_s,
                           "snmpcfg.sh 192.168.7.2 161 t10 t11 t9 V3PRIV t3 SHA t4 DES t5"_s,
                           "snmptrap.sh init 10.0.0.5 162 V3NOAUTH t12 t14"_s,
                           "snmptrap.sh add 10.0.0.5 162 V3NOAUTH t12 t14"_s,
                           "snmptrap.sh add 0.0.0.0 162 V3NOAUTH t12 t14"_s,
                           "snmptrap.sh add 255.255.255.255 162 V3NOAUTH t12 t14"_s,
                           "snmpctl.sh apply"_s};

/// A frame with all sections in an unusual order; Core, which takes the rest of the frame, is the last one.
Frame wholeFrame(quint32 number)
{
    return Frame(number)
        .section(ModbusCfg, modbusBody())
        .section(NetCfg, netBody())
        .section(SnmpCfg, snmpBody())
        .gpioState(1, 0, 0, 0)
        .devInfo("fr")
        .section(Core, QByteArray());
}

} // namespace

class tst_Configuration : public QObject
{
    Q_OBJECT

private slots:
    void frameWithAllSections();
    void lossAndReturnConfigureNothing();
};

void tst_Configuration::frameWithAllSections()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.scripts.clear();
    scene.panel.log().skip();
    QVERIFY(scene.server.listen());
    QVERIFY(scene.controller.send(wholeFrame(++scene.sequence)));
    QVERIFY(scene.server.awaitCount("/index.html", 1));

    QList<QStringList> runs = scene.scripts.runs();
    QCOMPARE(runs.size(), snmpRuns.size() + 6);
    QStringList lines = scene.scripts.runLines();
    // The update names no register: the panel has no mapping file. It comes between network and Modbus.
    QCOMPARE(runs.at(snmpRuns.size() + 3).constFirst(), "mbserverupdate.sh"_s);
    lines.removeAt(snmpRuns.size() + 3);
    QCOMPARE(lines,
             snmpRuns + QStringList({"r7m.sh delete 192.168.7.2 7 161 162 1234"_s,
                                     "netcfg.sh static 192.168.1.10 255.255.255.0 192.168.1.1 "
                                     "192.168.1.2 192.168.1.3"_s,
                                     "r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s, "modbuscfg.sh 1 1502"_s,
                                     "r7m.sh add 192.168.7.2 7 161 162 1 1502 1234"_s}));
    // "Add R7M" of the first frame comes after the modbus line, so the welcome was last.
    QVERIFY(scene.panel.log().await({"Set language to \"fr\" (was \"default\" )"_s,
                                     snmpChanged,
                                     "Apply new snmp config"_s,
                                     "\"/usr/local/bin/snmpctl.sh\""_s,
                                     "\"init\""_s,
                                     "\"/usr/local/bin/snmpcfg.sh\""_s,
                                     "[ 0 ] = ' \"192.168.7.2\" '"_s,
                                     "[ 1 ] = ' \"161\" '"_s,
                                     "[ 5 ] = ' \"V3PRIV\" '"_s,
                                     "[ 10 ] = ' \"t5\" '"_s,
                                     netChanged,
                                     "NetCfg, hasVarnel?  true"_s,
                                     "Apply new network config"_s,
                                     "Remove R7M"_s,
                                     "Add R7M"_s,
                                     modbusChanged,
                                     "Apply new modbus config"_s,
                                     "First frame, try to connect to the web server at  \"192.168.7.2\""_s,
                                     "Add R7M"_s,
                                     "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s}));
    QCOMPARE(scene.panel.log().lines().filter("[ 11 ]"_s), QStringList());
    QCOMPARE(StandInSys::value(StandInSys::green), "1"_s);
}

void tst_Configuration::lossAndReturnConfigureNothing()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    QVERIFY(scene.server.listen());
    QVERIFY(scene.controller.send(wholeFrame(1)));
    QVERIFY(scene.panel.log().await("Remove R7M"_s)); // around the network change
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    QVERIFY(scene.scripts.awaitRuns(snmpRuns.size() + 9));
    QCOMPARE(scene.scripts.runLines().constLast(), "r7m.sh delete 192.168.7.2 7 161 162 1234"_s);
    scene.scripts.clear();
    QVERIFY(scene.controller.send(wholeFrame(1))); // its numbers may start again
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    QVERIFY(scene.scripts.awaitRuns(3));
    const QStringList runs = scene.scripts.runLines();
    QCOMPARE(runs.size(), 3);
    QVERIFY(runs.at(0).startsWith("mbserverupdate.sh "_s));
    QCOMPARE(runs.at(1), "r7m.sh add 192.168.7.2 7 161 162 1 1502 1234"_s);
    QCOMPARE(runs.at(2), "r7m.sh delete 192.168.7.2 7 161 162 1234"_s);
}

QTEST_GUILESS_MAIN(tst_Configuration)
#include "tst_configuration.moc"
