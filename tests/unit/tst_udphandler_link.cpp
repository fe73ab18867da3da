// SPDX-License-Identifier: MIT
#include <memory>

#include <QSignalSpy>
#include <QTest>

#include "frame.h"
#include "panellink.h"
#include "webserver.h"

using namespace Varnel;

/// The link to the controller: start-up, datagrams over a real network, the first frame, loss and return.
class tst_UdpHandlerLink : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void constructionDoesNothing();
    void startUp();
    void modbusServerIsRestarted();
    void bindAddresses_data();
    void bindAddresses();
    void failedBindIsNotNoticed();
    void firstFrame();
    void registrationUsesTheFirstFrame_data();
    void registrationUsesTheFirstFrame();
    void missingRegistrationScript_data();
    void missingRegistrationScript();
    void datagramsAreHandledInOrder();
    void oddDatagrams_data();
    void oddDatagrams();
    void strangersAreDropped();
    void droppedFramesLeaveNoTrace_data();
    void droppedFramesLeaveNoTrace();
    void lossAndReturn();
    void everyFrameRestartsTheSupervision();
    void timeoutIsReadWithEachFrame();
    void anotherControllerAfterTheLoss();
    void addWithoutController();
    void stop();

private:
    /// The web servers of the two controllers.
    std::unique_ptr<WebServer> web;
    std::unique_ptr<WebServer> otherWeb;
};

namespace {

const QString controller = QStringLiteral("192.168.7.2");
const QString stranger = QStringLiteral("192.168.7.3");

QStringList firstFrameLines(const QString& address = controller)
{
    const QString url = QStringLiteral("http://%1/index.html").arg(address);
    return {QStringLiteral("First frame, try to connect to the web server at  \"%1\"").arg(address),
            QStringLiteral("Add R7M"), QStringLiteral("MainWindow::openUrlForce  \"%1\"").arg(url),
            QStringLiteral("TIME - Stop buzzer server: %1").arg(url)};
}

using Lines = QList<QByteArray>;

} // namespace

void tst_UdpHandlerLink::init()
{
    web = std::make_unique<WebServer>(QHostAddress(controller), 80);
    otherWeb = std::make_unique<WebServer>(QHostAddress(stranger), 80);
    web->serve(QStringLiteral("/index.html"), QByteArray("<p>controller</p>"));
    otherWeb->serve(QStringLiteral("/index.html"), QByteArray("<p>another controller</p>"));
}

void tst_UdpHandlerLink::cleanup()
{
    web.reset();
    otherWeb.reset();
}

void tst_UdpHandlerLink::constructionDoesNothing()
{
    PanelView panel;
    const ScriptDirectory scripts;
    {
        const UdpHandler handler(QStringLiteral("0.0.0.0"), PanelLink::port, &panel.window, nullptr);
        QVERIFY(handler.children().isEmpty());
    }
    QCOMPARE(panel.log(), QStringList());
    QCOMPARE(scripts.callLines(), Lines());
}

void tst_UdpHandlerLink::startUp()
{
    const ScriptDirectory scripts;
    const ScopedSetting<QString> noMap("ModbusServer", "ModbusMap", QStringLiteral("/tmp/no-such-map"));
    const ScopedSetting<QString> badMode("ModbusServer", "ModbusMode", QStringLiteral("pigeon"));
    PanelView panel;
    UdpHandler handler(QStringLiteral("0.0.0.0"), short(40000), &panel.window, nullptr);
    handler.init();
    const QStringList log = panel.log();
    QCOMPARE(log.count(QStringLiteral("Failed to load modbus map")), 2); // the same words for both failures
    QCOMPARE(log.mid(log.size() - 4),
             (QStringList{QStringLiteral("UDP listen  \"0.0.0.0\" : 40000"), QStringLiteral("UDP bound"),
                          QStringLiteral("Initialize GPIOs"), QStringLiteral("All LEDs on, Buzzer off")}));
    QCOMPARE(log.at(log.size() - 5), QStringLiteral("Failed to load modbus map"));
    QCOMPARE(scripts.callLines(), Lines());

    QMap<int, int> periods;
    const auto timers = handler.findChildren<QTimer*>();
    for (const QTimer* const timer : timers) {
        periods.insert(timer->interval(), timer->isActive() ? (timer->isSingleShot() ? 1 : 2) : 0);
        QCOMPARE(timer->timerType(), Qt::PreciseTimer); // blinking keeps its rhythm, too
    }
    // Two that repeat, and the supervision, which waits for the first frame.
    QCOMPARE(periods, (QMap<int, int>{{0, 0}, {250, 2}, {1000, 2}}));

    // A port beyond 32767 arrives whole.
    PanelLink::send(hex("00"), controller, QStringLiteral("192.168.7.1"), 40000);
    QTRY_COMPARE(panel.log().constLast(), QStringLiteral("Not a RLP magic number. Drop frame"));
}

void tst_UdpHandlerLink::modbusServerIsRestarted()
{
    const ScriptDirectory scripts({"mbserverstop.sh", "mbserverstart.sh"});
    const ScopedSetting<QString> directory("Files", "TmpCfgDir", QStringLiteral("/tmp/modbus configuration"));
    const PanelLink link;
    QCOMPARE(scripts.calls().size(), 2);
    QCOMPARE(scripts.calls().at(0), ScriptDirectory::Call{"mbserverstop.sh"});
    QCOMPARE(scripts.calls().at(1).at(0), QByteArray("mbserverstart.sh"));
    QVERIFY(scripts.calls().at(1).at(1).startsWith("/tmp/modbus configuration/"));
}

void tst_UdpHandlerLink::bindAddresses_data()
{
    QTest::addColumn<QString>("bound");
    QTest::addColumn<QString>("sentTo");
    QTest::addColumn<bool>("arrives");
    const QString own = QStringLiteral("192.168.7.1");
    QTest::newRow("any address: arrives") << QStringLiteral("0.0.0.0") << own << true;
    QTest::newRow("own address: arrives") << own << own << true;
    QTest::newRow("own address, sent to another: does not") << own << stranger << false;
    QTest::newRow("broadcast address of the interface: broadcasts arrive")
        << QStringLiteral("192.168.7.255") << QStringLiteral("192.168.7.255") << true;
    QTest::newRow("broadcast address, sent to the own one: does not")
        << QStringLiteral("192.168.7.255") << own << false;
}

void tst_UdpHandlerLink::bindAddresses()
{
    QFETCH(QString, bound);
    QFETCH(QString, sentTo);
    QFETCH(bool, arrives);
    const ScriptDirectory scripts;
    PanelLink link(bound);
    // A witness on the same port tells when the datagram has been through the network.
    QUdpSocket witness;
    const QString witnessAddress = QStringLiteral("192.168.7.2");
    QVERIFY(witness.bind(QHostAddress(witnessAddress), PanelLink::port + 1));
    PanelLink::send(Frame().add(gpioSection(1, 1, 1, 0)).octets(), controller, sentTo);
    PanelLink::send("done", controller, witnessAddress, PanelLink::port + 1);
    QTRY_VERIFY(witness.hasPendingDatagrams());
    if (arrives) {
        QTRY_COMPARE(scripts.callLines(), Lines{"r7m.sh add 192.168.7.2 0 161 162 0 502 0"});
    } else {
        QCoreApplication::processEvents();
        QCOMPARE(link.log(), QStringList());
    }
}

void tst_UdpHandlerLink::failedBindIsNotNoticed()
{
    const ScriptDirectory scripts;
    PanelLink first;
    PanelLink second; // the port is taken
    PanelLink elsewhere(QStringLiteral("10.99.99.99"));
    PanelLink nonsense(QStringLiteral("no address"));
    PanelLink::send(hex("00"));
    QTRY_COMPARE(first.log(), QStringList()); // the innermost log gets the line
    QTRY_COMPARE(nonsense.log(), QStringList{QStringLiteral("Not a RLP magic number. Drop frame")});
    QVERIFY(second.timerOf(250)->isActive());
    QVERIFY(elsewhere.timerOf(1000)->isActive());
    QCOMPARE(second.log(), QStringList());
}

void tst_UdpHandlerLink::firstFrame()
{
    const ScriptDirectory scripts;
    PanelLink link;
    PanelLink::send(Frame().add(gpioSection(1, 1, 1, 0)).octets());
    QTRY_COMPARE(link.text(), QStringLiteral("controller"));
    QCOMPARE(link.log(), firstFrameLines());
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh add 192.168.7.2 0 161 162 0 502 0"});
    QCOMPARE(web->count(QStringLiteral("/index.html")), 1);
    QVERIFY(link.packetTimer()->isActive());
    QCOMPARE(link.packetTimer()->interval(), 10000);
    QCOMPARE(link.packetTimer()->timerType(), Qt::PreciseTimer); // no loss before the time is over

    // The second frame is no first one.
    link.clear();
    PanelLink::send(Frame(2).add(gpioSection(1, 1, 1, 0)).octets());
    PanelLink::send(hex("00"));
    QTRY_COMPARE(link.log(), QStringList{QStringLiteral("Not a RLP magic number. Drop frame")});
    QCOMPARE(scripts.callLines().size(), 1);
    QCOMPARE(web->count(QStringLiteral("/index.html")), 1);

    // The page is the address that is probed after a failure.
    link.view->tryload(QUrl());
    QTRY_COMPARE(web->count(QStringLiteral("/index.html")), 3);
}

void tst_UdpHandlerLink::registrationUsesTheFirstFrame_data()
{
    QTest::addColumn<QByteArray>("sections");
    QTest::addColumn<int>("count");
    QTest::addColumn<QByteArray>("call");
    const QByteArray snmp = snmpCfgSection();
    QTest::newRow("no section of use: the defaults")
        << gpioSection(0, 0, 0, 0) << 1 << QByteArray("r7m.sh add 192.168.7.2 0 161 162 0 502 0");
    QTest::newRow("DevInfo: type and build") << devInfoSection(0x1234, 65535) << 1
                                             << QByteArray("r7m.sh add 192.168.7.2 4660 161 162 0 502 65535");
    QTest::newRow("SnmpCfg: its ports")
        << snmp << 1 << QByteArray("r7m.sh add 192.168.7.2 0 1161 1162 0 502 0");
    QTest::newRow("ModbusCfg: status and port")
        << modbusCfgSection(true, 1502) << 1 << QByteArray("r7m.sh add 192.168.7.2 0 161 162 1 1502 0");
    QTest::newRow("all of them") << modbusCfgSection(false, 65535) + snmp + devInfoSection(9, 8) << 3
                                 << QByteArray("r7m.sh add 192.168.7.2 9 1161 1162 0 65535 8");
}

void tst_UdpHandlerLink::registrationUsesTheFirstFrame()
{
    QFETCH(QByteArray, sections);
    QFETCH(int, count);
    const ScriptDirectory scripts({"r7m.sh"});
    const PanelLink link;
    link.receive(Frame().add(sections).sectionCount(count).octets());
    QCOMPARE(scripts.callLines().size(), 1);
    QTEST(scripts.callLines().constFirst(), "call");
}

void tst_UdpHandlerLink::missingRegistrationScript_data()
{
    QTest::addColumn<bool>("present");
    QTest::newRow("missing: logged") << false;
    QTest::newRow("not executable: logged") << true;
}

void tst_UdpHandlerLink::missingRegistrationScript()
{
    QFETCH(bool, present);
    const ScriptDirectory scripts(QList<QByteArray>{});
    if (present) {
        scripts.put("r7m.sh", false);
    }
    PanelLink link;
    link.receive(Frame().add(gpioSection(1, 1, 1, 0)).octets());
    QStringList wanted = firstFrameLines();
    wanted.insert(2, QStringLiteral("Script ' \"%1\" ' not found, do nothing").arg(scripts.path("r7m.sh")));
    QCOMPARE(link.log(), wanted);
    QTRY_COMPARE(link.text(), QStringLiteral("controller"));
    QCOMPARE(scripts.callLines(), Lines());

    link.clear();
    link.handler->removeR7M();
    QCOMPARE(link.log(), (QStringList{QStringLiteral("Remove R7M"), wanted.at(2)}));
}

void tst_UdpHandlerLink::datagramsAreHandledInOrder()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.receive(Frame(1).add(gpioSection(1, 1, 1, 0)).octets());
    link.clear();
    // All wait in the socket before the first is read.
    for (const quint32 sequence : {5U, 5U, 6U, 2U, 2U}) {
        PanelLink::send(Frame(sequence).add(gpioSection(1, 1, 1, 0)).octets());
    }
    QTRY_COMPARE(link.log(),
                 (QStringList{QStringLiteral("Repeated packet. Drop frame ( 5  =  5 )"),
                              QStringLiteral("Back in the sequence, probable reboot of the RxM ( 2  <  6 )"),
                              QStringLiteral("Repeated packet. Drop frame ( 2  =  2 )")}));
}

void tst_UdpHandlerLink::oddDatagrams_data()
{
    QTest::addColumn<QByteArray>("datagram");
    QTest::addColumn<QString>("line");
    const QString magic = QStringLiteral("Not a RLP magic number. Drop frame");
    QTest::newRow("empty") << QByteArray() << magic;
    QTest::newRow("one octet: checksum")
        << hex("ce") << QStringLiteral("Invalid checksum (0x \"0\"  != 0x \"2f72\" ). Drop frame");
    QTest::newRow("text: magic") << QByteArray("hello") << magic;
    QTest::newRow("the largest, of zeros: magic") << QByteArray(65507, '\0') << magic;
    QTest::newRow("the largest, unsealed: checksum")
        << QByteArray(65507, '\xce')
        << QStringLiteral("Invalid checksum (0x \"cece\"  != 0x \"%1\" ). Drop frame")
               .arg(QString::number(kermit(QByteArray(65505, '\xce')), 16));
}

void tst_UdpHandlerLink::oddDatagrams()
{
    QFETCH(QByteArray, datagram);
    QFETCH(QString, line);
    const ScriptDirectory scripts;
    PanelLink link;
    PanelLink::send(datagram);
    QTRY_COMPARE(link.log(), QStringList{line});
    // The link goes on.
    PanelLink::send(Frame().add(gpioSection(1, 1, 1, 0)).octets());
    QTRY_COMPARE(link.log().mid(1, 4), firstFrameLines());
}

void tst_UdpHandlerLink::strangersAreDropped()
{
    const ScriptDirectory scripts;
    PanelLink link;
    PanelLink::send(Frame().add(gpioSection(1, 1, 1, 0)).octets());
    QTRY_COMPARE(link.log().mid(0, 4), firstFrameLines());
    link.clear();
    PanelLink::send(Frame(9).add(devInfoSection(1, 1, "fr")).octets(), stranger);
    QTRY_COMPARE(
        link.log(),
        QStringList{QStringLiteral(
            "Packet received from an unknown sender ( \"192.168.7.3\" , attended  \"192.168.7.2\" )")});
    QCOMPARE(link.window.getLanguage(), QStringLiteral("default"));
    // Nor does its sequence number count.
    link.clear();
    link.receive(Frame(9).add(gpioSection(1, 1, 1, 0)).octets());
    QCOMPARE(link.log(), QStringList());
}

void tst_UdpHandlerLink::droppedFramesLeaveNoTrace_data()
{
    QTest::addColumn<QByteArray>("datagram");
    const auto frame = [] {
        return Frame()
            .sequence(50)
            .add(devInfoSection(1, 2, "fr"))
            .add(snmpCfgSection())
            .add(netCfgSection());
    };
    QTest::newRow("magic: changes nothing") << frame().magic(1).octets();
    QTest::newRow("checksum: changes nothing") << frame().unsealed() + hex("00 00");
    QTest::newRow("version: changes nothing") << frame().version(7).octets();
    QTest::newRow("payload length: changes nothing") << frame().payloadLength(7).octets();
    QTest::newRow("section offset: changes nothing") << frame().sectionOffset(7).octets();
    QTest::newRow("section count: changes nothing") << frame().sectionCount(0).octets();
    QTest::newRow("continuity: changes nothing") << frame().continuity(0).octets();
    QTest::newRow("sequence: changes nothing") << frame().sequence(0).octets();
}

void tst_UdpHandlerLink::droppedFramesLeaveNoTrace()
{
    QFETCH(QByteArray, datagram);
    const ScriptDirectory scripts;
    PanelLink link;
    link.receive(datagram);
    QVERIFY(!link.log().isEmpty());
    QVERIFY(!link.packetTimer()); // never armed
    QCOMPARE(scripts.callLines(), Lines());
    QCOMPARE(link.window.getLanguage(), QStringLiteral("default"));
    // The next good one is the first, from whomever, with any sequence number.
    link.clear();
    link.receive(Frame(1).add(gpioSection(1, 1, 1, 0)).octets(), stranger);
    QCOMPARE(link.log(), firstFrameLines(stranger));
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh add 192.168.7.3 0 161 162 0 502 0"});
}

void tst_UdpHandlerLink::lossAndReturn()
{
    const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(1));
    const ScriptDirectory scripts;
    PanelLink link;
    link.window.setLanguage(QStringLiteral("fr"));
    const QByteArray datagram = Frame()
                                    .add(devInfoSection(7, 42))
                                    .add(gpioSection(1, 1, 1, 1))
                                    .add(snmpCfgSection())
                                    .add(netCfgSection())
                                    .add(modbusCfgSection(true, 1502))
                                    .octets();
    link.receive(datagram);
    scripts.clear();
    link.clear();
    QSignalSpy lost(link.packetTimer(), &QTimer::timeout);
    QVERIFY(lost.wait());
    // The controller's page may still be requested, and fail after these lines.
    QCOMPARE(
        link.log().mid(link.log().indexOf(QStringLiteral(
                           "No packet received within the  1 s window, unregister  \"192.168.7.2\"")),
                       4),
        (QStringList{QStringLiteral("No packet received within the  1 s window, unregister  \"192.168.7.2\""),
                     QStringLiteral("Remove R7M"), QStringLiteral("wv: Load error page ( \"fr\" )"),
                     QStringLiteral("\"/usr/local/share/fr\"")}));
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh delete 192.168.7.2 7 1161 1162 42"});
    QTRY_VERIFY(link.showsErrorPage());
    QVERIFY(!link.packetTimer()->isActive()); // reported once

    // The same frame again, its sequence number included, is a first frame; nothing in it has changed.
    scripts.clear();
    link.clear();
    link.receive(datagram);
    QCOMPARE(link.log(), firstFrameLines());
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh add 192.168.7.2 7 1161 1162 1 1502 42"});
    QVERIFY(link.packetTimer()->isActive());
}

void tst_UdpHandlerLink::everyFrameRestartsTheSupervision()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.receiveSections({gpioSection(1, 1, 1, 0)});
    // A start sets the period of the settings again; this shows whether there was one.
    const auto restartedBy = [&link](const QByteArray& datagram, const QString& sender) {
        link.packetTimer()->setInterval(50000);
        link.receive(datagram, sender);
        return link.packetTimer()->interval() == 10000;
    };
    const auto frame = [] { return Frame(1000); };
    QVERIFY(restartedBy(frame().add(gpioSection(1, 1, 1, 0)).octets(), controller));
    // Neither a repetition nor a stranger nor a bad frame does.
    QVERIFY(!restartedBy(frame().add(gpioSection(1, 1, 1, 0)).octets(), controller));
    QVERIFY(!restartedBy(frame().sequence(1001).add(gpioSection(1, 1, 1, 0)).octets(), stranger));
    QVERIFY(!restartedBy(frame().sequence(1002).version(2).octets(), controller));
    // A frame whose sections are all bad does: the controller is there.
    QVERIFY(restartedBy(frame().sequence(1003).add(section(0x10, "bad")).octets(), controller));
    QVERIFY(restartedBy(frame().sequence(3).add(gpioSection(1, 1, 1, 0)).octets(), controller));
}

void tst_UdpHandlerLink::timeoutIsReadWithEachFrame()
{
    const ScriptDirectory scripts;
    PanelLink link;
    {
        const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(65535));
        link.receiveSections({gpioSection(1, 1, 1, 0)});
        QCOMPARE(link.packetTimer()->interval(), 65535000);
    }
    const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(5));
    link.receiveSections({gpioSection(1, 1, 1, 0)});
    QCOMPARE(link.packetTimer()->interval(), 5000);
    link.clear();
    link.handler->packetTimeout();
    QCOMPARE(link.log().constFirst(),
             QStringLiteral("No packet received within the  5 s window, unregister  \"192.168.7.2\""));
}

void tst_UdpHandlerLink::anotherControllerAfterTheLoss()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.receiveSections({gpioSection(1, 1, 1, 0)});
    link.handler->packetTimeout();
    scripts.clear();
    link.clear();
    link.receive(Frame(1).add(gpioSection(1, 1, 1, 0)).octets(), stranger);
    QCOMPARE(link.log(), firstFrameLines(stranger));
    QCOMPARE(scripts.callLines(), Lines{"r7m.sh add 192.168.7.3 0 161 162 0 502 0"});
    link.clear();
    link.receive(Frame(500).add(gpioSection(1, 1, 1, 0)).octets(), controller);
    QCOMPARE(link.log(),
             QStringList{QStringLiteral(
                 "Packet received from an unknown sender ( \"192.168.7.2\" , attended  \"192.168.7.3\" )")});
}

void tst_UdpHandlerLink::addWithoutController()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.handler->addR7M();
    QCOMPARE(link.log(), QStringList());
    QCOMPARE(scripts.callLines(), Lines());
}

void tst_UdpHandlerLink::stop()
{
    const ScriptDirectory scripts;
    PanelLink link;
    link.receiveSections({gpioSection(3, 2, 1, 0)});
    QSignalSpy finished(link.handler, &UdpHandler::finished);
    const QPointer<QTimer> timers[] = {link.packetTimer(), link.timerOf(250), link.timerOf(1000)};
    const QPointer<QUdpSocket> socket = link.handler->findChild<QUdpSocket*>();
    link.clear();
    link.handler->stop();
    // Closing the socket makes it report that it is disconnected, which is a reason to stop.
    QCOMPARE(link.log(), (QStringList{QStringLiteral("UDP stop"), QStringLiteral("UDP stop")}));
    QVERIFY(!finished.isEmpty());
    for (const QPointer<QTimer>& timer : timers) {
        QVERIFY(timer && !timer->isActive());
    }
    QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    PanelLink::send(hex("00"));
    QTRY_VERIFY(link.handler.isNull()); // handler and socket go later, by themselves
    QVERIFY(socket.isNull());
    QCOMPARE(link.log().count(QStringLiteral("Not a RLP magic number. Drop frame")), 0);
}

QTEST_MAIN(tst_UdpHandlerLink)
#include "tst_udphandler_link.moc"
