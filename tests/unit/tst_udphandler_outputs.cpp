// SPDX-License-Identifier: MIT
#include <algorithm>

#include "frame.h"
#include "outputlines.h"
#include "panellink.h"
#include "rows.h"

using namespace Varnel;

namespace {

/// The writes in short: "224=1" switches a line, "I224" prepares it with its default level, "i224" with the
/// other one.
QStringList writes(const char* words)
{
    QStringList result;
    const QList<QByteArray> all = QByteArray(words).simplified().split(' ');
    for (const QByteArray& word : all) {
        if (word.startsWith("export")) {
            result << QString::fromLatin1(word);
        } else if (word.contains('=')) {
            result << "gpio"_s + QString::fromLatin1(word).replace("="_s, "/value="_s);
        } else if (!word.isEmpty()) {
            const QString line = "gpio"_s + QString::fromLatin1(word.mid(1));
            const bool low = (word.mid(1) != "230") == word.startsWith('I'); // all but the buzzer
            result << line + "/direction=out"_s << line + (low ? "/active_low=1"_s : "/active_low=0"_s);
        }
    }
    return result;
}

/// A link whose blink timers fire by hand alone, with nothing written yet.
class StillLink : public PanelLink
{
public:
    explicit StillLink(OutputLines& lines)
    {
        timerOf(250)->stop();
        timerOf(1000)->stop();
        receive(Frame(1).add(modbusCfgSection()).octets()); // the first frame, over and done
        lines.clear();
        clear();
    }
};

} // namespace

/// LEDs and buzzer: every write to the GPIO lines, in its order.
class tst_UdpHandlerOutputs : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        lines = std::make_unique<OutputLines>();
        scripts = std::make_unique<ScriptDirectory>(QList<QByteArray>{});
    }

    void cleanup()
    {
        scripts.reset();
        lines.reset();
    }

    void startUp()
    {
        PanelLink link;
        // Default settings: LEDs active low, buzzer active high. Lines first, then the outputs.
        QCOMPARE(lines->taken(), writes("I224 I225 I228 I230 224=1 225=1 228=1 230=0"));
        // The three LEDs blink slowly together; nothing blinks fast.
        link.handler->blinkFastTimeout();
        QCOMPARE(lines->taken(), QStringList());
        link.handler->blinkSlowTimeout();
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), writes("224=0 225=0 228=0 224=1 225=1 228=1"));
    }

    void activeLevels_data()
    {
        const Rows<QByteArray> row("prepared");
        row("LedGreenHigh", "i224 I225 I228 I230");
        row("LedYellowHigh", "I224 i225 I228 I230");
        row("LedRedHigh", "I224 I225 i228 I230");
        row("BuzzerHigh", "I224 I225 I228 i230");
    }

    void activeLevels()
    {
        QFETCH(QByteArray, prepared);
        const char* const key = QTest::currentDataTag();
        const ScopedSetting<bool> level("GPIO", key, qstrcmp(key, "BuzzerHigh") != 0);
        const PanelLink link;
        // 1 is lit at either level: the line inverts it.
        QCOMPARE(lines->taken(), writes(prepared + " 224=1 225=1 228=1 230=0"));
    }

    void linesAreExported()
    {
        const ScopedSetting<quint32> yellow("GPIO", "LedYellowPin", 111U);
        lines->remove("gpio228"_s);
        PanelLink link;
        // The lines do not appear here; their files are skipped without a word.
        QCOMPARE(lines->taken(), writes("I224 export=111 export=228 I230 224=1 230=0"));
        QCOMPARE(link.log(), QStringList());
        // Once they are there, the next change of command prepares them.
        lines->add(228);
        link.receiveSections({gpioSection(2, 2, 1, 0)});
        lines->clear();
        link.receiveSections({gpioSection(2, 2, 3, 0)});
        QCOMPARE(lines->taken().mid(0, 3), writes("I228 228=1"));
    }

    void lineThatCannotBeExported()
    {
        lines->remove("gpio224"_s);
        lines->spoil("export"_s);
        PanelView panel;
        UdpHandler handler("0.0.0.0"_s, short(PanelLink::port), &panel.window, nullptr);
        handler.init();
        const QStringList log = panel.log();
        QCOMPARE(log.mid(log.size() - 3),
                 (QStringList{"Initialize GPIOs"_s, "Error opening file '/sys/class/gpio/export'"_s,
                              "All LEDs on, Buzzer off"_s}));
        QCOMPARE(lines->taken(), writes("I225 I228 I230 225=1 228=1 230=0"));
    }

    void pinNumbersHaveEightBits()
    {
        const ScopedSetting<quint32> green("GPIO", "LedGreenPin", 256U + 224U);
        const ScopedSetting<quint32> yellow("GPIO", "LedYellowPin", 65536U + 225U);
        const ScopedSetting<quint32> red("GPIO", "LedRedPin", 0xFFFFFF00U + 228U);
        const PanelLink link;
        QCOMPARE(lines->taken(), writes("I224 I225 I228 I230 224=1 225=1 228=1 230=0"));
    }

    void commands_data()
    {
        // before: the command of the yellow LED
        // once: what the change writes
        // slow: what two ticks of the slow timer write
        const Rows<int, int, QByteArray, QByteArray, QByteArray> row("before", "now", "once", "slow", "fast");
        row("0 to 0: rewritten", 0, 0, "225=0", "", "");
        row("1 to 1: rewritten", 1, 1, "225=1", "", "");
        row("2 to 2: left alone", 2, 2, "", "225=0 225=1", "");
        row("3 to 3: left alone", 3, 3, "", "", "225=0 225=1");
        row("4 to 4: left alone", 4, 4, "", "", "");
        row("0 to 2: prepared, lit", 0, 2, "I225 225=1", "225=0 225=1", "");
        row("0 to 255: prepared, lit, steady", 0, 255, "I225 225=1", "", "");
        row("2 to 3: prepared, lit", 2, 3, "I225 225=1", "", "225=0 225=1");
        row("3 to 2: prepared, lit", 3, 2, "I225 225=1", "225=0 225=1", "");
        row("3 to 1: prepared, written twice, steady", 3, 1, "I225 225=1 225=1", "", "");
        row("3 to 0: prepared, written twice, dark", 3, 0, "I225 225=0 225=0", "", "");
        row("2 to 4: prepared, lit, steady", 2, 4, "I225 225=1", "", "");
        row("4 to 5: prepared, lit", 4, 5, "I225 225=1", "", "");
    }

    void commands()
    {
        QFETCH(int, before);
        QFETCH(int, now);
        QFETCH(QByteArray, once);
        QFETCH(QByteArray, slow);
        QFETCH(QByteArray, fast);
        StillLink link(*lines);
        link.receiveSections({gpioSection(4, quint8(before), 4, 4)});
        lines->clear();
        link.receiveSections({gpioSection(4, quint8(now), 4, 4)});
        QCOMPARE(lines->taken(), writes(once));
        link.handler->blinkSlowTimeout();
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), writes(slow));
        link.handler->blinkFastTimeout();
        link.handler->blinkFastTimeout();
        QCOMPARE(lines->taken(), writes(fast));
    }

    void allOutputsInOrder()
    {
        StillLink link(*lines);
        link.receiveSections({gpioSection(1, 0, 3, 1)});
        QCOMPARE(lines->taken(), writes("I224 224=1 224=1 I225 225=0 225=0 I228 228=1 I230 230=1 230=1"));
        // The steady ones are written with every frame, which repairs what another program has changed.
        link.receiveSections({gpioSection(1, 0, 3, 1)});
        QCOMPARE(lines->taken(), writes("224=1 225=0 230=1"));
        // A frame without the section leaves all outputs alone.
        link.receiveSections({modbusCfgSection()});
        QCOMPARE(lines->taken(), QStringList());
        QCOMPARE(link.count("Decode error"_s), 0);
    }

    void blinkingStartsLit()
    {
        StillLink link(*lines);
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), writes("224=0 225=0 228=0"));
        // Green and red stay in their phase. Yellow and buzzer change and begin lit.
        link.receiveSections({gpioSection(2, 3, 2, 2)});
        QCOMPARE(lines->taken(), writes("I225 225=1 I230 230=1"));
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), writes("224=1 228=1 230=0"));
        link.handler->blinkFastTimeout();
        QCOMPARE(lines->taken(), writes("225=0"));
    }

    void realTimers()
    {
        PanelLink link;
        link.receive(Frame(1).add(gpioSection(3, 2, 1, 0)).octets());
        // The page is not there. While the one in its place is built, no timer fires, and on a slow processor
        // that is long.
        QTRY_VERIFY_WITH_TIMEOUT(link.showsErrorPage(), 30000);
        const auto yellow = [this] { return lines->writes().filter("gpio225/"_s).size(); };
        lines->clear();
        QTRY_COMPARE(yellow(), 1);
        lines->clear();
        QTRY_COMPARE(yellow(), 1);
        const QStringList green = lines->writes().filter("gpio224/"_s);
        QVERIFY2(green.size() >= 3 && green.size() <= 5,
                 qPrintable(green.join(QLatin1Char(' ')))); // four for one
        QVERIFY(green.contains("gpio224/value=0"_s));
        QVERIFY(green.contains("gpio224/value=1"_s));
        QVERIFY(std::adjacent_find(green.begin(), green.end()) == green.end());
        QCOMPARE(lines->writes().filter("gpio228/"_s), QStringList());
        QCOMPARE(lines->writes().filter("gpio230/"_s), QStringList());
    }

    void orderAmongScripts()
    {
        const ScriptDirectory running({"snmpctl.sh", "snmpcfg.sh", "snmptrap.sh", "r7m.sh"});
        for (const char* const name : {"snmpcfg.sh", "r7m.sh"}) {
            QFile file(running.path(name));
            QVERIFY(file.open(QIODevice::Append));
            QVERIFY(file.write("printf run >/sys/class/gpio/export\n") > 0); // seen among the lines' writes
        }
        StillLink link(*lines);
        // Scripts can take long: the lamps of a frame do not wait for those of its configuration.
        link.receiveSections({snmpCfgSection(), gpioSection(2, 2, 3, 0)});
        QCOMPARE(lines->taken(), writes("I228 228=1 230=0 export=run"));
        // A loss is shown once the controller is removed.
        link.handler->packetTimeout();
        QCOMPARE(lines->taken(), writes("export=run 224=1 225=1 228=1"));
    }

    void filesThatVanish_data()
    {
        // wanted: for the change of the yellow LED from 4 to 1
        const Rows<QString, QStringList> row("name", "wanted");
        const QStringList all = writes("I225 225=1 225=1");
        row("no direction: the rest is written", "gpio225/direction"_s, QStringList(all.mid(1)));
        row("no active_low: the rest is written", "gpio225/active_low"_s,
            QStringList(all.mid(0, 1) + all.mid(2)));
        row("no value: the rest is written", "gpio225/value"_s, QStringList(all.mid(0, 2)));
        row("the whole line: exported again", "gpio225"_s, writes("export=225"));
    }

    void filesThatVanish()
    {
        QFETCH(QString, name);
        StillLink link(*lines);
        link.receiveSections({gpioSection(4, 4, 4, 4)});
        lines->remove(name);
        lines->clear();
        link.receiveSections({gpioSection(4, 1, 4, 4)});
        QTEST(lines->taken(), "wanted");
        QCOMPARE(link.log(), QStringList());
    }

    void fileThatRefusesTheWrite()
    {
        StillLink link(*lines);
        lines->spoil("gpio224/value"_s);
        lines->clear();
        link.receiveSections({gpioSection(0, 1, 4, 0)});
        const QString refused = "Error opening file '/sys/class/gpio/gpio224/value'"_s;
        QCOMPARE(link.log(), (QStringList{refused, refused}));
        // The other outputs get their writes.
        QCOMPARE(lines->taken(), writes("I224 I225 225=1 225=1 I228 228=1 230=0"));
    }

    void loss()
    {
        StillLink link(*lines);
        link.receiveSections({gpioSection(0, 1, 2, 0)});
        lines->clear();
        link.handler->packetTimeout();
        QCOMPARE(lines->taken(), writes("224=1 225=1 228=1"));
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), QStringList());
        link.handler->blinkFastTimeout();
        link.handler->blinkFastTimeout();
        QCOMPARE(lines->taken(), writes("224=0 225=0 228=0 224=1 225=1 228=1"));
        // The controller's return: what it commands now differs from fast blinking.
        link.receiveSections({gpioSection(3, 1, 2, 0)});
        QCOMPARE(lines->taken(), writes("I225 225=1 225=1 I228 228=1 230=0"));
    }

    void lossKeepsTheBuzzer_data()
    {
        const Rows<int, QByteArray, QByteArray> row("command", "slow", "fast");
        row("off: silent", 0, {}, {});
        row("on: sounds on", 1, {}, {});
        row("slow: keeps blinking slowly", 2, "230=0", {});
        row("fast: keeps blinking fast", 3, {}, "230=0");
    }

    void lossKeepsTheBuzzer()
    {
        QFETCH(int, command);
        QFETCH(QByteArray, slow);
        QFETCH(QByteArray, fast);
        StillLink link(*lines);
        link.receiveSections({gpioSection(0, 0, 0, quint8(command))});
        lines->clear();
        link.handler->packetTimeout();
        QCOMPARE(lines->taken(), writes("224=1 225=1 228=1"));
        link.handler->blinkSlowTimeout();
        QCOMPARE(lines->taken(), writes(slow));
        link.handler->blinkFastTimeout();
        QCOMPARE(lines->taken(), writes("224=0 225=0 228=0 " + fast));
    }

    void stopLeavesTheOutputs()
    {
        PanelLink link;
        link.receive(Frame(1).add(gpioSection(3, 2, 1, 1)).octets());
        lines->clear();
        link.handler->stop();
        QCOMPARE(lines->taken(), QStringList());
    }

private:
    std::unique_ptr<OutputLines> lines;
    std::unique_ptr<ScriptDirectory> scripts;
};

QTEST_MAIN(tst_UdpHandlerOutputs)
#include "tst_udphandler_outputs.moc"
