// SPDX-License-Identifier: MIT
// The controller's configuration reaches the device's scripts: which are run, in which order, with which
// words, and for how long at most.

#include <QElapsedTimer>
#include <QTest>

#include "scene.h"

namespace {

/// A frame with all sections in an unusual order; Core, which takes the rest of the frame, is the last one.
Frame wholeFrame(quint32 number)
{
    return Frame(number)
        .modbusCfg(1, 1502)
        .add(netCfgSection(true, false))
        .add(snmpCfgSection(5, 3))
        .gpioState(1, 0, 0, 0)
        .devInfo("fr")
        .section(Core, QByteArray());
}

const QStringList snmpRuns{"snmpctl.sh init"_s,
                           "snmpcfg.sh 192.168.7.2 1161 context community priv_oid V3PRIV priv_user SHA "
                           "priv_pwd DES priv_key"_s,
                           "snmptrap.sh init 10.0.0.1 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmptrap.sh add 10.0.0.1 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmptrap.sh add 10.0.0.2 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmptrap.sh add 10.0.0.3 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmptrap.sh add 10.0.0.4 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmptrap.sh add 10.0.0.5 1162 V3NOAUTH cli_engineid cli_user"_s,
                           "snmpctl.sh apply"_s};

} // namespace

class tst_Configuration : public QObject
{
    Q_OBJECT

private slots:
    void frameWithAllSections()
    {
        Scene scene;
        QVERIFY(scene.start());
        scene.scripts.clear();
        scene.panel.log().skip();
        QVERIFY(scene.server.listen());
        QVERIFY(scene.controller.send(wholeFrame(++scene.sequence)));
        QVERIFY(scene.server.awaitCount("/index.html", 1));

        QStringList runs = scene.scripts.runLines();
        QCOMPARE(runs.size(), snmpRuns.size() + 6);
        // The update names no register: the panel has no mapping file. It comes between network and Modbus.
        QVERIFY(runs.takeAt(snmpRuns.size() + 3).startsWith("mbserverupdate.sh "_s));
        QCOMPARE(runs, snmpRuns + QStringList({"r7m.sh delete 192.168.7.2 7 1161 1162 1234"_s,
                                               "netcfg.sh static 192.168.1.10 255.255.255.0 192.168.1.1 "
                                               "192.168.1.2 192.168.1.3"_s,
                                               "r7m.sh add 192.168.7.2 7 1161 1162 0 502 1234"_s,
                                               "modbuscfg.sh 1 1502"_s,
                                               "r7m.sh add 192.168.7.2 7 1161 1162 1 1502 1234"_s}));
        // "Add R7M" of the first frame comes after the modbus line, so the welcome was last.
        QVERIFY(
            scene.panel.log().await({"Set language to \"fr\" (was \"default\" )"_s,
                                     "Snmpcfg changed !"_s,
                                     "Apply new snmp config"_s,
                                     "\"/usr/local/bin/snmpctl.sh\""_s,
                                     "\"init\""_s,
                                     "\"/usr/local/bin/snmpcfg.sh\""_s,
                                     "[ 0 ] = ' \"192.168.7.2\" '"_s,
                                     "[ 1 ] = ' \"1161\" '"_s,
                                     "[ 5 ] = ' \"V3PRIV\" '"_s,
                                     "[ 10 ] = ' \"priv_key\" '"_s,
                                     "Netcfg changed !"_s,
                                     "NetCfg, hasVarnel?  true"_s,
                                     "Apply new network config"_s,
                                     "Remove R7M"_s,
                                     "Add R7M"_s,
                                     "Modbuscfg changed !"_s,
                                     "Apply new modbus config"_s,
                                     "First frame, try to connect to the web server at  \"192.168.7.2\""_s,
                                     "Add R7M"_s,
                                     "MainWindow::openUrlForce  \"http://192.168.7.2/index.html\""_s}));
        QCOMPARE(scene.panel.log().lines().filter("[ 11 ]"_s), QStringList());
        QCOMPARE(StandInSys::value(StandInSys::green), "1"_s);
    }

    void lossAndReturnConfigureNothing()
    {
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
        QVERIFY(scene.server.listen());
        QVERIFY(scene.controller.send(wholeFrame(1)));
        QVERIFY(scene.panel.log().await({"Remove R7M"_s, "Remove R7M"_s})); // the first for the new network
        QVERIFY(scene.scripts.awaitRuns(snmpRuns.size() + 9));
        QCOMPARE(scene.scripts.runLines().constLast(), "r7m.sh delete 192.168.7.2 7 1161 1162 1234"_s);
        scene.scripts.clear();
        QVERIFY(scene.controller.send(wholeFrame(1))); // its numbers may start again
        QVERIFY(scene.panel.log().await("Remove R7M"_s));
        QVERIFY(scene.scripts.awaitRuns(3));
        const QStringList runs = scene.scripts.runLines();
        QCOMPARE(runs.size(), 3);
        QVERIFY(runs.at(0).startsWith("mbserverupdate.sh "_s));
        QCOMPARE(runs.at(1), "r7m.sh add 192.168.7.2 7 1161 1162 1 1502 1234"_s);
        QCOMPARE(runs.at(2), "r7m.sh delete 192.168.7.2 7 1161 1162 1234"_s);
    }

    void hangingScriptIsKilledAfterThirtySeconds()
    {
        const auto isRunning = [](const char* text) {
            return Program::runTool({"pgrep"_s, "--full"_s, QString::fromLatin1(text)});
        };
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "600")));
        QVERIFY(scene.scripts.install("r7m.sh"_s, "sleep infinity"));
        QVERIFY(scene.server.listen());
        QElapsedTimer timer;
        timer.start();
        QVERIFY(scene.sendFrame());
        QVERIFY(scene.panel.log().await("Add R7M"_s));
        QTRY_VERIFY(isRunning("^sleep infinity"));
        QVERIFY(scene.server.awaitCount("/index.html", 1, std::chrono::seconds(45)));
        QVERIFY2(timer.elapsed() >= 30000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!isRunning("^sleep infinity"));
        QVERIFY(!isRunning("r7m\\.sh"));
        QVERIFY(scene.isAlive());
    }
};

QTEST_GUILESS_MAIN(tst_Configuration)
#include "tst_configuration.moc"
