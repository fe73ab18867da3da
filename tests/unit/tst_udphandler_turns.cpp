// SPDX-License-Identifier: MIT
#include <QSignalSpy>
#include <QTest>

#include "frame.h"
#include "panellink.h"
#include "signalwatcher.h"

using Varnel::SignalWatcher;

namespace {

const QString changed = "Netcfg changed !"_s;
const QString back = "Back in the sequence, probable reboot of the RxM ( 5  <  9 )"_s;

QStringList losses(const PanelLink& link)
{
    return link.log().filter("No packet received within"_s);
}

} // namespace

/// Datagrams that come quicker than they are handled: others have their turn, and nothing is taken for lost.
class tst_UdpHandlerTurns : public QObject
{
    Q_OBJECT

private slots:
    void timersRunBesideDatagrams()
    {
        const ScriptDirectory scripts;
        putScript(scripts, "sleep 0.05");
        PanelLink link;
        constexpr int count = 40;
        for (int i = 1; i <= count; ++i) {
            PanelLink::send(frameThatRunsTheScript(static_cast<quint32>(i)));
        }
        int handled = -1;
        QTimer::singleShot(100, &link.window, [&] { handled = link.log().count(changed); });
        QTRY_COMPARE(link.log().count(changed), count);
        QVERIFY2(handled >= 0 && handled < count, qPrintable(QString::number(handled)));
    }

    void frameThatWaitedIsNoLoss()
    {
        const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(1));
        const ScriptDirectory scripts;
        putScript(scripts, "sleep 1.5");
        PanelLink link;
        PanelLink::send(frameThatRunsTheScript(9));
        PanelLink::send(Frame(5).add(gpioSection(1, 1, 1, 0)).octets());
        QTRY_VERIFY(link.log().contains(back));
        QCOMPARE(losses(link), QStringList());
        QTRY_COMPARE(losses(link).size(), 1); // and then there was silence
    }

    void strangersFrameThatWaitedDoesNotCount()
    {
        const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(1));
        const ScriptDirectory scripts;
        putScript(scripts, "sleep 1.5");
        PanelLink link;
        link.receive(Frame(1).add(gpioSection(1, 1, 1, 0)).octets());
        PanelLink::send(frameThatRunsTheScript(9));
        PanelLink::send(Frame(5).add(gpioSection(1, 1, 1, 0)).octets(), "192.168.7.3"_s);
        QTRY_COMPARE(losses(link).size(), 1);
        const QStringList log = link.log();
        const int dropped = log.indexOf(
            "Packet received from an unknown sender ( \"192.168.7.3\" , attended  \"192.168.7.2\" )"_s);
        QVERIFY2(dropped >= 0 && dropped < log.indexOf(losses(link).constFirst()),
                 qPrintable(log.join(QLatin1Char('\n'))));
    }

    void noFurtherScriptOnceTheEndIsAskedFor()
    {
        const ScopedSetting<quint16> timeout("Network", "UdpTimeout", quint16(1));
        const ScriptDirectory scripts;
        putScript(scripts, "kill -TERM $PPID; sleep 1.5");
        PanelLink link;
        link.receive(Frame(100).add(gpioSection(1, 1, 1, 0)).octets());
        const SignalWatcher watcher;
        for (const quint32 sequence : {1U, 2U, 3U}) {
            PanelLink::send(frameThatRunsTheScript(sequence));
        }
        QSignalSpy lost(link.packetTimer(), &QTimer::timeout);
        QTRY_COMPARE(lost.size(), 1);
        QCOMPARE(link.log().count(changed), 1);
        QCOMPARE(losses(link), QStringList());
    }

private:
    /// Lets "netcfg.sh" run this command.
    static void putScript(const ScriptDirectory& scripts, const QByteArray& command)
    {
        scripts.put("netcfg.sh");
        QFile file(scripts.path("netcfg.sh"));
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Append));
        QVERIFY(file.write(command + '\n') > 0);
    }

    /// Two such frames with successive numbers differ in their configuration.
    static QByteArray frameThatRunsTheScript(quint32 sequence)
    {
        return Frame(sequence).add(netCfgSection(true, sequence % 2 == 1)).octets();
    }
};

QTEST_MAIN(tst_UdpHandlerTurns)
#include "tst_udphandler_turns.moc"
