// SPDX-License-Identifier: MIT
#include <memory>

#include <QSignalSpy>

#include "panellink.h"
#include "rows.h"
#include "webserver.h"

using namespace Varnel;

namespace {

const QString controller = "192.168.7.2"_s;
const QString stranger = "192.168.7.3"_s;

QStringList firstFrameLines(const QString& address = controller)
{
    const QString url = "http://%1/index.html"_s.arg(address);
    return {"First frame, try to connect to the web server at  \"%1\""_s.arg(address), "Add R7M"_s,
            "MainWindow::openUrlForce  \"%1\""_s.arg(url), "TIME - Stop buzzer server: %1"_s.arg(url)};
}

using Lines = QList<QByteArray>;

const QString badMagic = "Not a RLP magic number. Drop frame"_s;

QByteArray anyFrame(quint32 sequence = 1)
{
    return Frame(sequence).add(gpioSection(1, 1, 1, 0)).octets();
}

} // namespace

/// The link to the controller: start-up, datagrams over a real network, the first frame, loss and return.
class tst_UdpHandlerLink : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        web = std::make_unique<WebServer>(QHostAddress(controller), 80);
        otherWeb = std::make_unique<WebServer>(QHostAddress(stranger), 80);
        web->serve("/index.html"_s, QByteArray("<p>controller</p>"));
        otherWeb->serve("/index.html"_s, QByteArray("<p>another controller</p>"));
        scripts = std::make_unique<ScriptDirectory>();
    }

    void cleanup()
    {
        scripts.reset();
        web.reset();
        otherWeb.reset();
    }

    void constructionDoesNothing()
    {
        PanelView panel;
        {
            UdpHandler handler("0.0.0.0"_s, PanelLink::port, &panel.window, nullptr);
            QVERIFY(handler.children().isEmpty());
            handler.addR7M(); // there is no controller yet
        }
        QCOMPARE(panel.log(), QStringList());
        QCOMPARE(scripts->callLines(), Lines());
    }

    void startUp()
    {
        const ScriptDirectory server({"mbserverstop.sh", "mbserverstart.sh"});
        const ScopedSetting<QString> noMap("ModbusServer", "ModbusMap", "/tmp/no-such-map"_s);
        const ScopedSetting<QString> badMode("ModbusServer", "ModbusMode", "pigeon"_s);
        PanelView panel;
        UdpHandler handler("0.0.0.0"_s, short(40000), &panel.window, nullptr);
        handler.init();
        const QStringList log = panel.log();
        QCOMPARE(log.count("Failed to load modbus map"_s), 2); // the same words for both failures
        QCOMPARE(log.mid(log.size() - 4), (QStringList{"UDP listen  \"0.0.0.0\" : 40000"_s, "UDP bound"_s,
                                                       "Initialize GPIOs"_s, "All LEDs on, Buzzer off"_s}));
        QCOMPARE(log.at(log.size() - 5), "Failed to load modbus map"_s);
        QCOMPARE(server.callLines(), Lines());

        QMap<int, int> periods;
        const auto timers = handler.findChildren<QTimer*>();
        for (const QTimer* const timer : timers) {
            periods.insert(timer->interval(), timer->isActive() ? (timer->isSingleShot() ? 1 : 2) : 0);
            QCOMPARE(timer->timerType(), Qt::PreciseTimer); // blinking keeps its rhythm, too
        }
        // Two that repeat, and the supervision, which waits for the first frame.
        QCOMPARE(periods, (QMap<int, int>{{0, 0}, {250, 2}, {1000, 2}}));

        // A port beyond 32767 arrives whole.
        PanelLink::send(hex("00"), controller, "192.168.7.1"_s, 40000);
        QTRY_COMPARE(panel.log().constLast(), badMagic);
    }

    void modbusServerIsRestarted()
    {
        const ScriptDirectory server({"mbserverstop.sh", "mbserverstart.sh"});
        const ScopedSetting<QString> directory("Files", "TmpCfgDir", "/tmp/modbus"_s);
        const PanelLink link;
        QCOMPARE(server.callLines(),
                 (Lines{"mbserverstop.sh", "mbserverstart.sh /tmp/modbus/mbserver_init.dbus"}));
    }

    void bindAddresses_data()
    {
        const Rows<QString, QString, bool> row("bound", "sentTo", "arrives");
        const QString own = "192.168.7.1"_s;
        row("any address: arrives", "0.0.0.0"_s, own, true);
        row("own address: arrives", own, own, true);
        row("own address, sent to another: does not", own, stranger, false);
        row("broadcast address of the interface: broadcasts arrive", "192.168.7.255"_s, "192.168.7.255"_s,
            true);
        row("broadcast address, sent to the own one: does not", "192.168.7.255"_s, own, false);
    }

    void bindAddresses()
    {
        QFETCH(QString, bound);
        QFETCH(QString, sentTo);
        QFETCH(bool, arrives);
        PanelLink link(bound);
        // A witness on the same port tells when the datagram has been through the network.
        QUdpSocket witness;
        QVERIFY(witness.bind(QHostAddress(controller), PanelLink::port + 1));
        PanelLink::send(anyFrame(), controller, sentTo);
        PanelLink::send("done", controller, controller, PanelLink::port + 1);
        QTRY_VERIFY(witness.hasPendingDatagrams());
        if (arrives) {
            QTRY_COMPARE(scripts->callLines(), Lines{"r7m.sh add 192.168.7.2 0 161 162 0 502 0"});
        } else {
            QCoreApplication::processEvents();
            QCOMPARE(link.log(), QStringList());
        }
    }

    void failedBindIsNotNoticed()
    {
        PanelLink first;
        PanelLink second; // the port is taken
        PanelLink elsewhere("10.99.99.99"_s);
        PanelLink nonsense("no address"_s);
        PanelLink::send(hex("00"));
        QTRY_COMPARE(first.log(), QStringList()); // the innermost log gets the line
        QTRY_COMPARE(nonsense.log(), QStringList{badMagic});
        QVERIFY(second.timerOf(250)->isActive());
        QVERIFY(elsewhere.timerOf(1000)->isActive());
        QCOMPARE(second.log(), QStringList());
    }

    void firstFrame()
    {
        PanelLink link;
        PanelLink::send(anyFrame());
        QTRY_COMPARE(link.text(), "controller"_s);
        QCOMPARE(link.log(), firstFrameLines());
        QCOMPARE(scripts->callLines(), Lines{"r7m.sh add 192.168.7.2 0 161 162 0 502 0"});
        QCOMPARE(web->count("/index.html"_s), 1);
        QVERIFY(link.packetTimer()->isActive());
        QCOMPARE(link.packetTimer()->interval(), 10000);
        QCOMPARE(link.packetTimer()->timerType(), Qt::PreciseTimer); // no loss before the time is over

        // The second frame is no first one.
        link.clear();
        PanelLink::send(anyFrame(2));
        PanelLink::send(hex("00"));
        QTRY_COMPARE(link.log(), QStringList{badMagic});
        QCOMPARE(scripts->callLines().size(), 1);
        QCOMPARE(web->count("/index.html"_s), 1);

        // The page is the address that is probed after a failure.
        link.view->tryload(QUrl());
        QTRY_COMPARE(web->count("/index.html"_s), 3);
    }

    void missingRegistrationScript()
    {
        scripts->remove("r7m.sh");
        PanelLink link;
        link.receive(anyFrame());
        QStringList wanted = firstFrameLines();
        wanted.insert(2, "Script ' \"%1\" ' not found, do nothing"_s.arg(scripts->path("r7m.sh")));
        QCOMPARE(link.log(), wanted);
        QTRY_COMPARE(link.text(), "controller"_s);
        link.clear();
        link.handler->removeR7M();
        QCOMPARE(link.log(), QStringList({"Remove R7M"_s, wanted.at(2)}));
    }

    void datagramsAreHandledInOrder()
    {
        RegisteredLink link(*scripts);
        // All wait in the socket before the first is read.
        for (const quint32 sequence : {500U, 500U, 600U, 2U, 2U}) {
            PanelLink::send(anyFrame(sequence));
        }
        QTRY_COMPARE(link.log(),
                     (QStringList{"Repeated packet. Drop frame ( 500  =  500 )"_s,
                                  "Back in the sequence, probable reboot of the RxM ( 2  <  600 )"_s,
                                  "Repeated packet. Drop frame ( 2  =  2 )"_s}));
    }

    void oddDatagrams_data()
    {
        const Rows<QByteArray> row("datagram");
        row("empty", {});
        row("the largest", QByteArray(65507, '\0'));
    }

    void oddDatagrams()
    {
        QFETCH(QByteArray, datagram);
        PanelLink link;
        PanelLink::send(datagram);
        QTRY_COMPARE(link.log(), QStringList{badMagic});
        // The link goes on.
        PanelLink::send(anyFrame());
        QTRY_COMPARE(link.log().mid(1, 4), firstFrameLines());
    }

    void droppedFrameLeavesNoTrace()
    {
        PanelLink link;
        // Dropped by the last check.
        link.receive(
            Frame(0).add(devInfoSection(1, 2, "fr")).add(snmpCfgSection()).add(netCfgSection()).octets());
        QCOMPARE(link.log(), QStringList{"Repeated packet. Drop frame ( 0  =  0 )"_s});
        QVERIFY(!link.packetTimer()); // never armed
        QCOMPARE(scripts->callLines(), Lines());
        QCOMPARE(link.window.getLanguage(), "default"_s);
        // The next good one is the first, from whomever, with any sequence number.
        link.clear();
        link.receive(anyFrame(), stranger);
        QCOMPARE(link.log(), firstFrameLines(stranger));
        QCOMPARE(scripts->callLines(), Lines{"r7m.sh add 192.168.7.3 0 161 162 0 502 0"});
    }

    void lossAndReturn()
    {
        const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(1));
        PanelLink link;
        link.window.setLanguage("fr"_s);
        const QByteArray datagram = Frame()
                                        .add(devInfoSection(7, 42))
                                        .add(gpioSection(1, 1, 1, 1))
                                        .add(snmpCfgSection())
                                        .add(netCfgSection())
                                        .add(modbusCfgSection(true, 1502))
                                        .octets();
        link.receive(datagram);
        scripts->clear();
        link.clear();
        QSignalSpy lost(link.packetTimer(), &QTimer::timeout);
        QVERIFY(lost.wait());
        // The controller's page may still be requested, and fail after these lines.
        const QString loss = "No packet received within the  1 s window, unregister  \"192.168.7.2\""_s;
        QCOMPARE(link.log().mid(link.log().indexOf(loss), 4),
                 QStringList({loss, "Remove R7M"_s, "wv: Load error page ( \"fr\" )"_s,
                              "\"/usr/local/share/fr\""_s}));
        QCOMPARE(scripts->callLines(), Lines{"r7m.sh delete 192.168.7.2 7 1161 1162 42"});
        QTRY_VERIFY(link.showsErrorPage());
        QVERIFY(!link.packetTimer()->isActive()); // reported once

        // The same frame again, its sequence number included, is a first frame; nothing in it has changed.
        scripts->clear();
        link.clear();
        link.receive(datagram);
        QCOMPARE(link.log(), firstFrameLines());
        QCOMPARE(scripts->callLines(), Lines{"r7m.sh add 192.168.7.2 7 1161 1162 1 1502 42"});
        QVERIFY(link.packetTimer()->isActive());
    }

    void everyFrameRestartsTheSupervision()
    {
        RegisteredLink link(*scripts);
        // A start sets the period of the settings again; this shows whether there was one.
        const auto restartedBy = [&link](const QByteArray& datagram, const QString& sender) {
            link.packetTimer()->setInterval(50000);
            link.receive(datagram, sender);
            return link.packetTimer()->interval() == 10000;
        };
        QVERIFY(restartedBy(anyFrame(1000), controller));
        // Neither a repetition nor a stranger nor a bad frame does.
        QVERIFY(!restartedBy(anyFrame(1000), controller));
        QVERIFY(!restartedBy(anyFrame(1001), stranger));
        QVERIFY(!restartedBy(Frame(1002).version(2).octets(), controller));
        // A frame whose sections are all bad does: the controller is there.
        QVERIFY(restartedBy(Frame(1003).add(section(0x10, "bad")).octets(), controller));
        QVERIFY(!restartedBy(anyFrame(1003), controller)); // and its sequence number counts
        QVERIFY(restartedBy(anyFrame(3), controller));
    }

    void timeoutIsReadWithEachFrame()
    {
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
                 "No packet received within the  5 s window, unregister  \"192.168.7.2\""_s);
    }

    void anotherControllerAfterTheLoss()
    {
        RegisteredLink link(*scripts);
        link.handler->packetTimeout();
        scripts->clear();
        link.clear();
        link.receive(anyFrame(), stranger);
        QCOMPARE(link.log(), firstFrameLines(stranger));
        QCOMPARE(scripts->callLines(), Lines{"r7m.sh add 192.168.7.3 0 161 162 0 502 0"});
        link.clear();
        link.receive(anyFrame(500), controller);
        QCOMPARE(
            link.log(),
            QStringList{
                "Packet received from an unknown sender ( \"192.168.7.2\" , attended  \"192.168.7.3\" )"_s});
        // Nor does its sequence number count.
        link.clear();
        link.receive(anyFrame(500), stranger);
        QCOMPARE(link.log(), QStringList());
    }

    void stop()
    {
        RegisteredLink link(*scripts);
        QSignalSpy finished(link.handler, &UdpHandler::finished);
        const QPointer<QTimer> timers[] = {link.packetTimer(), link.timerOf(250), link.timerOf(1000)};
        const QPointer<QUdpSocket> socket = link.handler->findChild<QUdpSocket*>();
        link.clear();
        link.handler->stop();
        // Closing the socket makes it report that it is disconnected, which is a reason to stop.
        QCOMPARE(link.log(), (QStringList{"UDP stop"_s, "UDP stop"_s}));
        QVERIFY(!finished.isEmpty());
        for (const QPointer<QTimer>& timer : timers) {
            QVERIFY(timer && !timer->isActive());
        }
        QCOMPARE(socket->state(), QAbstractSocket::UnconnectedState);
        PanelLink::send(hex("00"));
        QTRY_VERIFY(link.handler.isNull()); // handler and socket go later, by themselves
        QVERIFY(socket.isNull());
        QCOMPARE(link.log().count(badMagic), 0);
    }

private:
    std::unique_ptr<ScriptDirectory> scripts;
    /// The web servers of the two controllers.
    std::unique_ptr<WebServer> web;
    std::unique_ptr<WebServer> otherWeb;
};

QTEST_MAIN(tst_UdpHandlerLink)
#include "tst_udphandler_link.moc"
