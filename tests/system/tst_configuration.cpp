// SPDX-License-Identifier: MIT
// What the controller configures reaches the device's scripts: which are run, in which order, with which
// words.

#include <QTest>

#include "scene.h"

namespace {

// Offsets in the bodies, which begin behind the section header of 4 octets.
constexpr int snmpOptionsAt = 5 - 4;
constexpr int snmpModeAt = 9 - 4;
constexpr int snmpTextsAt = 12 - 4;
constexpr int snmpTextWidth = 32;
constexpr int snmpTextCount = 17;
constexpr int snmpPortAt = 556 - 4;
constexpr int snmpTrapPortAt = 558 - 4;
constexpr int snmpTrapsAt = 560 - 4;

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

/// A frame with all sections in an order of their own; Core, which takes what is left, stands last.
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

QString notFound(const QString& name)
{
    return "Script ' \"/usr/local/bin/"_s + name + "\" ' not found, do nothing"_s;
}

/// A body with another octet at `offset`.
QByteArray changed(QByteArray body, int offset)
{
    body[offset] = static_cast<char>(body.at(offset) ^ 0x01);
    return body;
}

/// A panel with a registered controller, and what its scripts did since.
class Configured : public Scene
{
public:
    [[nodiscard]] bool prepare(const SettingsFile& settings = {})
    {
        const bool connected = start(settings) && connectController();
        scripts.clear();
        panel.log().skip();
        return connected;
    }

    /// The runs that `frame` causes. The frames of isAlive() are handled only once its scripts have ended.
    QStringList runsAfter(Frame frame)
    {
        scripts.clear();
        return controller.send(frame) && isAlive() ? scripts.runLines() : QStringList("no answer"_s);
    }

    Frame next() { return Frame(++sequence); }
};

} // namespace

class tst_Configuration : public QObject
{
    Q_OBJECT

private slots:
    void frameWithAllSections();
    void sameSectionsAgain();
    void everySnmpField_data();
    void everySnmpField();
    void everyNetworkField();
    void everyModbusField();
    void networkByDhcpOrNotAtAll();
    void unusualAddresses();
    void lossAndReturnConfigureNothing();
    void textsAreArguments_data();
    void textsAreArguments();
    void snmpNeedsItsThreeScripts_data();
    void snmpNeedsItsThreeScripts();
    void otherScriptsAreMissedOneByOne();
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
    // "Add R7M" of the first frame stands behind the modbus line, so the welcome was last.
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

void tst_Configuration::sameSectionsAgain()
{
    Configured scene;
    QVERIFY(scene.prepare());
    QVERIFY(scene.runsAfter(wholeFrame(++scene.sequence)).size() > 1);
    const QStringList again = scene.runsAfter(wholeFrame(++scene.sequence));
    // Values are passed on with every frame; a configuration only when it changes.
    QCOMPARE(again.size(), 1);
    QVERIFY(again.constFirst().startsWith("mbserverupdate.sh "_s));
    for (const QString& line : {snmpChanged, netChanged, modbusChanged}) {
        QCOMPARE(scene.panel.log().count(line), 1);
    }
}

void tst_Configuration::everySnmpField_data()
{
    QTest::addColumn<QList<int>>("offsets");
    QTest::addColumn<bool>("applied");
    QTest::newRow("options: not looked at") << QList<int>{snmpOptionsAt} << false;
    QTest::newRow("version, hashes, ciphers, mode") << QList<int>{0, 2, 3, 4, 5, 6, 7} << true;
    QList<int> texts;
    for (int i = 0; i < snmpTextCount; ++i) {
        texts << snmpTextsAt + i * snmpTextWidth;
    }
    QTest::newRow("the texts") << texts << true;
    QTest::newRow("both ports, each octet")
        << QList<int>{snmpPortAt, snmpPortAt + 1, snmpTrapPortAt, snmpTrapPortAt + 1} << true;
    QList<int> traps;
    for (int i = 0; i < 5; ++i) {
        traps << snmpTrapsAt + 4 * i + 3;
    }
    QTest::newRow("the trap addresses") << traps << true;
}

void tst_Configuration::everySnmpField()
{
    QFETCH(QList<int>, offsets);
    QFETCH(bool, applied);
    Configured scene;
    QVERIFY(scene.prepare());
    QByteArray body = snmpBody();
    QCOMPARE(scene.runsAfter(scene.next().section(SnmpCfg, body)), snmpRuns);
    for (const int offset : qAsConst(offsets)) {
        body = changed(body, offset);
        const QStringList runs = scene.runsAfter(scene.next().section(SnmpCfg, body));
        const QByteArray where = "offset " + QByteArray::number(offset + 4);
        if (applied) {
            QVERIFY2(runs.value(0) == "snmpctl.sh init"_s, where.constData());
            QVERIFY2(runs.constLast() == "snmpctl.sh apply"_s, where.constData());
        } else {
            QVERIFY2(runs.isEmpty(), where.constData());
        }
    }
}

void tst_Configuration::everyNetworkField()
{
    Configured scene;
    QVERIFY(scene.prepare());
    QByteArray body = netBody();
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, body)).size(), 3);
    // Last octets of address, mask, gateway and both name servers, then DHCP.
    for (const int offset : {9 - 4, 13 - 4, 17 - 4, 21 - 4, 25 - 4, 5 - 4}) {
        body = changed(body, offset);
        const QStringList runs = scene.runsAfter(scene.next().section(NetCfg, body));
        QCOMPARE(runs.size(), 3);
        QCOMPARE(runs.at(0), "r7m.sh delete 192.168.7.2 7 161 162 1234"_s);
        QVERIFY(runs.at(1).startsWith("netcfg.sh "_s));
        QCOMPARE(runs.at(2), "r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s);
        QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, body)), QStringList());
    }
}

void tst_Configuration::everyModbusField()
{
    Configured scene;
    QVERIFY(scene.prepare());
    QCOMPARE(scene.runsAfter(scene.next().modbusCfg(0, 502)), QStringList("modbuscfg.sh 0 502"_s));
    QCOMPARE(scene.runsAfter(scene.next().modbusCfg(0, 502)), QStringList());
    QCOMPARE(scene.runsAfter(scene.next().modbusCfg(1, 502)), QStringList("modbuscfg.sh 1 502"_s));
    QCOMPARE(scene.runsAfter(scene.next().modbusCfg(0x100, 502)), QStringList()); // as true as 1
    QCOMPARE(scene.runsAfter(scene.next().modbusCfg(1, 65535)), QStringList("modbuscfg.sh 1 65535"_s));
}

void tst_Configuration::networkByDhcpOrNotAtAll()
{
    Configured scene;
    QVERIFY(scene.prepare());
    const QByteArray rest = netBody().mid(2);
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, hex("00 01") + rest)), QStringList());
    QVERIFY(
        scene.panel.log().await({netChanged, "NetCfg, hasVarnel?  false"_s, "Reject new network config"_s}));
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, hex("00 01") + rest)), QStringList());
    QCOMPARE(scene.panel.log().count(netChanged), 1);
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, hex("80 01") + rest)).value(1), "netcfg.sh dhcp"_s);
}

void tst_Configuration::unusualAddresses()
{
    Configured scene;
    QVERIFY(scene.prepare());
    const QByteArray zero(20, '\0');
    const QByteArray ones(20, '\xff');
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, hex("01 00") + zero)).value(1),
             "netcfg.sh static 0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0 0.0.0.0"_s);
    const QString all = " 255.255.255.255"_s;
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, hex("01 00") + ones)).value(1),
             "netcfg.sh static"_s + all + all + all + all + all);
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

void tst_Configuration::textsAreArguments_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QString>("argument");
    const auto row = [](const char* name, const QByteArray& octets) {
        QTest::newRow(name) << octets << QString::fromLatin1(octets);
    };
    row("32 octets without NUL", QByteArray(snmpTextWidth, 'w'));
    row("empty", "");
    row("blanks at both ends", "  two words  ");
    row("quotes", "a\"b'c`d\\");
    row("line ends", "first\nsecond\r\n");
    row("shell text", "$HOME $(reboot);touch /tmp/x&|>y");
    row("an option", "--help");
    row("per cent signs", "%1 %s %n %%");
    // The controller's texts are Latin-1, each octet a letter; the script gets them in the panel's locale.
    row("octets beyond ASCII", "caf\xe9 \xc3\xa9");
    QTest::newRow("hidden behind a NUL: cut") << QByteArray("open\0hidden", 11) << "open"_s;
}

void tst_Configuration::textsAreArguments()
{
    QFETCH(QByteArray, octets);
    QFETCH(QString, argument);
    Configured scene;
    QVERIFY(scene.prepare());
    QByteArray body = hex("05 00 01 02 01 05 02 02");
    for (int i = 0; i < snmpTextCount; ++i) {
        body += octets.leftJustified(snmpTextWidth, '\0');
    }
    body += hex("a1 00 | a2 00 | 0a 00 00 05 | 7f 00 00 01 | 7f 00 00 01 | 7f 00 00 01 | 7f 00 00 01");
    scene.runsAfter(scene.next().section(SnmpCfg, body));
    const QString& t = argument;
    const QStringList trap{"10.0.0.5"_s, "162"_s, "V3PRIV"_s, t, t, "SHA"_s, t, "AES"_s, t};
    QCOMPARE(
        scene.scripts.runsOf("snmpcfg.sh"_s),
        QList<QStringList>({{"192.168.7.2"_s, "161"_s, t, t, t, "V3PRIV"_s, t, "SHA"_s, t, "DES"_s, t}}));
    QCOMPARE(scene.scripts.runsOf("snmptrap.sh"_s),
             QList<QStringList>({QStringList("init"_s) + trap, QStringList("add"_s) + trap}));
}

void tst_Configuration::snmpNeedsItsThreeScripts_data()
{
    QTest::addColumn<QString>("script");
    QTest::addColumn<bool>("there");
    for (const char* const name : {"snmpctl.sh", "snmpcfg.sh", "snmptrap.sh"}) {
        QTest::addRow("%s missing: none is run", name) << QString::fromLatin1(name) << false;
        QTest::addRow("%s not executable: none is run", name) << QString::fromLatin1(name) << true;
    }
}

void tst_Configuration::snmpNeedsItsThreeScripts()
{
    QFETCH(QString, script);
    QFETCH(bool, there);
    Configured scene;
    QVERIFY(scene.prepare());
    there ? scene.scripts.makeNotExecutable(script) : scene.scripts.remove(script);
    QCOMPARE(scene.runsAfter(scene.next().section(SnmpCfg, snmpBody())), QStringList());
    QVERIFY(scene.panel.log().await({snmpChanged, "Missing script"_s}));
    QCOMPARE(scene.panel.log().count("Apply new snmp config"_s), 0);
    // It counts as applied: the script's return alone changes nothing.
    QVERIFY(scene.scripts.install(script));
    QCOMPARE(scene.runsAfter(scene.next().section(SnmpCfg, snmpBody())), QStringList());
    QCOMPARE(scene.runsAfter(scene.next().section(SnmpCfg, changed(snmpBody(), snmpModeAt))).size(),
             snmpRuns.size());
}

void tst_Configuration::otherScriptsAreMissedOneByOne()
{
    Configured scene;
    QVERIFY(scene.prepare());
    for (const char* const name : {"netcfg.sh", "modbuscfg.sh"}) {
        scene.scripts.remove(QString::fromLatin1(name));
    }
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, netBody()).section(ModbusCfg, modbusBody())),
             QStringList({"r7m.sh delete 192.168.7.2 7 161 162 1234"_s,
                          "r7m.sh add 192.168.7.2 7 161 162 0 502 1234"_s}));
    QVERIFY(scene.panel.log().await({"Apply new network config"_s, "Remove R7M"_s, notFound("netcfg.sh"_s),
                                     "Add R7M"_s, "Apply new modbus config"_s, notFound("modbuscfg.sh"_s)}));
    QVERIFY(scene.scripts.installAll());
    QCOMPARE(scene.runsAfter(scene.next().section(NetCfg, netBody()).section(ModbusCfg, modbusBody())),
             QStringList());
}

QTEST_GUILESS_MAIN(tst_Configuration)
#include "tst_configuration.moc"
