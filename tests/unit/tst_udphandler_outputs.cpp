// SPDX-License-Identifier: MIT
#include <algorithm>

#include <QTest>

#include "frame.h"
#include "outputlines.h"
#include "panellink.h"

using namespace Varnel;

/// LEDs and buzzer: every write to the GPIO lines, in its order.
class tst_UdpHandlerOutputs : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void startUp();
    void activeLevels_data();
    void activeLevels();
    void linesAreExported();
    void lineThatCannotBeExported();
    void pinNumbersHaveEightBits();
    void commands_data();
    void commands();
    void allOutputsInOrder();
    void blinkingStartsLit();
    void commandAboveThreeStaysLit();
    void blinkInStep();
    void realTimers();
    void filesThatVanish_data();
    void filesThatVanish();
    void fileThatRefusesTheWrite();
    void loss();
    void lossKeepsTheBuzzer_data();
    void lossKeepsTheBuzzer();
    void badSectionChangesNothing();
    void stopLeavesTheOutputs();

private:
    std::unique_ptr<OutputLines> lines;
    std::unique_ptr<ScriptDirectory> scripts;
};

namespace {

QStringList list(const char* words)
{
    return QString::fromLatin1(words).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

/// The writes that prepare one line.
QStringList prepared(int line, int activeLow)
{
    return {QStringLiteral("gpio%1/direction=out").arg(line),
            QStringLiteral("gpio%1/active_low=%2").arg(line).arg(activeLow)};
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

void tst_UdpHandlerOutputs::init()
{
    lines = std::make_unique<OutputLines>();
    scripts = std::make_unique<ScriptDirectory>(QList<QByteArray>{});
}

void tst_UdpHandlerOutputs::cleanup()
{
    scripts.reset();
    lines.reset();
}

void tst_UdpHandlerOutputs::startUp()
{
    PanelLink link;
    // Default settings: LEDs active low, buzzer active high. Lines first, then the outputs.
    QCOMPARE(lines->writes(), prepared(224, 1) + prepared(225, 1) + prepared(228, 1) + prepared(230, 0) +
                                  list("gpio224/value=1 gpio225/value=1 gpio228/value=1 gpio230/value=0"));
    lines->clear();
    // The three LEDs blink slowly together; nothing blinks fast.
    link.handler->blinkFastTimeout();
    QCOMPARE(lines->writes(), QStringList());
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes(), list("gpio224/value=0 gpio225/value=0 gpio228/value=0"));
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes().mid(3), list("gpio224/value=1 gpio225/value=1 gpio228/value=1"));
}

void tst_UdpHandlerOutputs::activeLevels_data()
{
    QTest::addColumn<int>("high"); ///< bits: green, yellow, red, buzzer
    for (int high = 0; high < 16; ++high) {
        QTest::addRow("green %d, yellow %d, red %d, buzzer %d", high & 1, high >> 1 & 1, high >> 2 & 1,
                      high >> 3 & 1)
            << high;
    }
}

void tst_UdpHandlerOutputs::activeLevels()
{
    QFETCH(int, high);
    const ScopedSetting<bool> green("GPIO", "LedGreenHigh", (high & 1) != 0);
    const ScopedSetting<bool> yellow("GPIO", "LedYellowHigh", (high & 2) != 0);
    const ScopedSetting<bool> red("GPIO", "LedRedHigh", (high & 4) != 0);
    const ScopedSetting<bool> buzzer("GPIO", "BuzzerHigh", (high & 8) != 0);
    const PanelLink link;
    const auto low = [high](int bit) { return (high >> bit & 1) != 0 ? 0 : 1; };
    QCOMPARE(lines->writes().mid(0, 8),
             prepared(224, low(0)) + prepared(225, low(1)) + prepared(228, low(2)) + prepared(230, low(3)));
    // 1 is lit at either level: the line inverts it.
    QCOMPARE(lines->writes().mid(8), list("gpio224/value=1 gpio225/value=1 gpio228/value=1 gpio230/value=0"));
}

void tst_UdpHandlerOutputs::linesAreExported()
{
    const ScopedSetting<quint32> yellow("GPIO", "LedYellowPin", 111U);
    lines->remove(QStringLiteral("gpio228"));
    lines->clear();
    PanelLink link;
    // The lines do not appear here; their files are skipped without a word.
    QCOMPARE(lines->writes(), prepared(224, 1) + list("export=111 export=228") + prepared(230, 0) +
                                  list("gpio224/value=1 gpio230/value=0"));
    QCOMPARE(link.log(), QStringList());

    // Once they are there, the next change of command prepares them.
    lines->add(228);
    link.receiveSections({gpioSection(2, 2, 1, 0)});
    lines->clear();
    link.receiveSections({gpioSection(2, 2, 3, 0)});
    QCOMPARE(lines->writes().mid(0, 3), prepared(228, 1) + list("gpio228/value=1"));
}

void tst_UdpHandlerOutputs::lineThatCannotBeExported()
{
    lines->remove(QStringLiteral("gpio224"));
    lines->spoil(QStringLiteral("export"));
    lines->clear();
    PanelView panel;
    UdpHandler handler(QStringLiteral("0.0.0.0"), short(PanelLink::port), &panel.window, nullptr);
    handler.init();
    const QStringList log = panel.log();
    QCOMPARE(log.mid(log.size() - 3),
             (QStringList{QStringLiteral("Initialize GPIOs"),
                          QStringLiteral("Error opening file '/sys/class/gpio/export'"),
                          QStringLiteral("All LEDs on, Buzzer off")}));
    QCOMPARE(lines->writes(), prepared(225, 1) + prepared(228, 1) + prepared(230, 0) +
                                  list("gpio225/value=1 gpio228/value=1 gpio230/value=0"));
}

void tst_UdpHandlerOutputs::pinNumbersHaveEightBits()
{
    const ScopedSetting<quint32> green("GPIO", "LedGreenPin", 256U + 224U);
    const ScopedSetting<quint32> yellow("GPIO", "LedYellowPin", 65536U + 225U);
    const ScopedSetting<quint32> red("GPIO", "LedRedPin", 0xFFFFFF00U + 228U);
    const PanelLink link;
    QCOMPARE(lines->writes().size(), 12);
    QCOMPARE(lines->writes().mid(8), list("gpio224/value=1 gpio225/value=1 gpio228/value=1 gpio230/value=0"));
}

void tst_UdpHandlerOutputs::commands_data()
{
    QTest::addColumn<int>("before"); ///< the command of the yellow LED
    QTest::addColumn<int>("now");
    QTest::addColumn<QString>("writes"); ///< I the line is prepared, 0 and 1 its value is written
    QTest::addColumn<QString>("slow");   ///< what two ticks of the slow timer write
    QTest::addColumn<QString>("fast");
    const auto row = [](const char* name, int before, int now, const char* writes, const char* slow,
                        const char* fast) {
        QTest::newRow(name) << before << now << QString::fromLatin1(writes) << QString::fromLatin1(slow)
                            << QString::fromLatin1(fast);
    };
    row("0 to 0: rewritten", 0, 0, "0", "", "");
    row("1 to 1: rewritten", 1, 1, "1", "", "");
    row("2 to 2: left alone", 2, 2, "", "01", "");
    row("3 to 3: left alone", 3, 3, "", "", "01");
    row("4 to 4: left alone", 4, 4, "", "", "");
    row("0 to 1: prepared, written twice", 0, 1, "I11", "", "");
    row("1 to 0: prepared, written twice", 1, 0, "I00", "", "");
    row("0 to 2: prepared, lit", 0, 2, "I1", "01", "");
    row("0 to 3: prepared, lit", 0, 3, "I1", "", "01");
    row("0 to 4: prepared, lit, steady", 0, 4, "I1", "", "");
    row("0 to 255: prepared, lit, steady", 0, 255, "I1", "", "");
    row("2 to 3: prepared, lit", 2, 3, "I1", "", "01");
    row("3 to 2: prepared, lit", 3, 2, "I1", "01", "");
    row("3 to 1: prepared, written twice, steady", 3, 1, "I11", "", "");
    row("3 to 0: prepared, written twice, dark", 3, 0, "I00", "", "");
    row("2 to 4: prepared, lit, steady", 2, 4, "I1", "", "");
    row("4 to 5: prepared, lit", 4, 5, "I1", "", "");
    row("4 to 0: prepared, written twice", 4, 0, "I00", "", "");
}

void tst_UdpHandlerOutputs::commands()
{
    QFETCH(int, before);
    QFETCH(int, now);
    QFETCH(QString, writes);
    QFETCH(QString, slow);
    QFETCH(QString, fast);
    StillLink link(*lines);
    link.receiveSections({gpioSection(4, static_cast<quint8>(before), 4, 4)});
    const auto spelled = [](const QString& letters) {
        QStringList result;
        for (const QChar letter : letters) {
            if (letter == QLatin1Char('I')) {
                result << prepared(225, 1);
            } else {
                result << QStringLiteral("gpio225/value=") + letter;
            }
        }
        return result;
    };
    lines->clear();
    link.receiveSections({gpioSection(4, static_cast<quint8>(now), 4, 4)});
    QCOMPARE(lines->writes(), spelled(writes));
    lines->clear();
    link.handler->blinkSlowTimeout();
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes(), spelled(slow));
    lines->clear();
    link.handler->blinkFastTimeout();
    link.handler->blinkFastTimeout();
    QCOMPARE(lines->writes(), spelled(fast));
}

void tst_UdpHandlerOutputs::allOutputsInOrder()
{
    StillLink link(*lines);
    link.receiveSections({gpioSection(1, 0, 3, 1)});
    QCOMPARE(lines->writes(), prepared(224, 1) + list("gpio224/value=1 gpio224/value=1") + prepared(225, 1) +
                                  list("gpio225/value=0 gpio225/value=0") + prepared(228, 1) +
                                  list("gpio228/value=1") + prepared(230, 0) +
                                  list("gpio230/value=1 gpio230/value=1"));
    // The steady ones are written with every frame, which repairs what another program has changed.
    lines->clear();
    link.receiveSections({gpioSection(1, 0, 3, 1)});
    QCOMPARE(lines->writes(), list("gpio224/value=1 gpio225/value=0 gpio230/value=1"));
    // A frame without the section leaves all outputs alone.
    lines->clear();
    link.receiveSections({modbusCfgSection()});
    QCOMPARE(lines->writes(), QStringList());
    QCOMPARE(link.count(QStringLiteral("Decode error")), 0);
}

void tst_UdpHandlerOutputs::blinkingStartsLit()
{
    StillLink link(*lines);
    link.handler->blinkSlowTimeout(); // all dark now
    lines->clear();
    // Green is slow already: it stays in its phase. Yellow changes and begins lit.
    link.receiveSections({gpioSection(2, 3, 2, 0)});
    QCOMPARE(lines->writes(), prepared(225, 1) + list("gpio225/value=1 gpio230/value=0"));
    lines->clear();
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes(), list("gpio224/value=1 gpio228/value=1"));
    lines->clear();
    link.handler->blinkFastTimeout();
    QCOMPARE(lines->writes(), list("gpio225/value=0"));
}

void tst_UdpHandlerOutputs::commandAboveThreeStaysLit()
{
    StillLink link(*lines);
    link.receiveSections({gpioSection(4, 128, 255, 4)});
    for (int i = 0; i < 4; ++i) {
        link.handler->blinkSlowTimeout();
        link.handler->blinkFastTimeout();
    }
    link.receiveSections({gpioSection(4, 128, 255, 4)});
    const QStringList writes = lines->writes();
    for (const char* const value :
         {"gpio224/value=1", "gpio225/value=1", "gpio228/value=1", "gpio230/value=1"}) {
        QCOMPARE(writes.count(QString::fromLatin1(value)), 1);
    }
    QCOMPARE(writes.size(), 12);
}

void tst_UdpHandlerOutputs::blinkInStep()
{
    StillLink link(*lines);
    link.receiveSections({gpioSection(3, 2, 3, 2)});
    link.handler->blinkSlowTimeout();                // yellow and buzzer dark
    link.receiveSections({gpioSection(2, 2, 3, 2)}); // green joins them, lit
    lines->clear();
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes(), list("gpio224/value=0 gpio225/value=1 gpio230/value=1"));
    lines->clear();
    link.handler->blinkFastTimeout();
    QCOMPARE(lines->writes(), list("gpio228/value=0"));
}

void tst_UdpHandlerOutputs::realTimers()
{
    PanelLink link;
    QVERIFY(link.timerOf(250)->isActive() && !link.timerOf(250)->isSingleShot());
    QVERIFY(link.timerOf(1000)->isActive() && !link.timerOf(1000)->isSingleShot());
    link.receive(Frame(1).add(gpioSection(3, 2, 1, 0)).octets());
    // The page is not there. While the one in its place is built, no timer fires, and on a slow processor
    // that is long.
    QTRY_VERIFY_WITH_TIMEOUT(link.showsErrorPage(), 30000);
    const auto yellow = [this] { return lines->writes().filter(QStringLiteral("gpio225/")).size(); };
    lines->clear();
    QTRY_COMPARE(yellow(), 1);
    lines->clear();
    QTRY_COMPARE(yellow(), 1);
    const QStringList green = lines->writes().filter(QStringLiteral("gpio224/"));
    QVERIFY2(green.size() >= 3 && green.size() <= 5,
             qPrintable(green.join(QLatin1Char(' ')))); // four for one
    QVERIFY(green.contains(QStringLiteral("gpio224/value=0")));
    QVERIFY(green.contains(QStringLiteral("gpio224/value=1")));
    QVERIFY(std::adjacent_find(green.begin(), green.end()) == green.end());
    QCOMPARE(lines->writes().filter(QStringLiteral("gpio228/")), QStringList());
    QCOMPARE(lines->writes().filter(QStringLiteral("gpio230/")), QStringList());
}

void tst_UdpHandlerOutputs::filesThatVanish_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("writes"); ///< for the change of the yellow LED from 4 to 1
    const QStringList all = prepared(225, 1) + list("gpio225/value=1 gpio225/value=1");
    QTest::newRow("no direction: the rest is written")
        << QStringLiteral("gpio225/direction") << QStringList(all.mid(1));
    QTest::newRow("no active_low: the rest is written")
        << QStringLiteral("gpio225/active_low") << QStringList(all.mid(0, 1) + all.mid(2));
    QTest::newRow("no value: the rest is written")
        << QStringLiteral("gpio225/value") << QStringList(all.mid(0, 2));
    QTest::newRow("the whole line: exported again") << QStringLiteral("gpio225") << list("export=225");
}

void tst_UdpHandlerOutputs::filesThatVanish()
{
    QFETCH(QString, name);
    StillLink link(*lines);
    link.receiveSections({gpioSection(4, 4, 4, 4)});
    lines->remove(name);
    lines->clear();
    link.receiveSections({gpioSection(4, 1, 4, 4)});
    QTEST(lines->writes(), "writes");
    QCOMPARE(link.log(), QStringList());
}

void tst_UdpHandlerOutputs::fileThatRefusesTheWrite()
{
    StillLink link(*lines);
    lines->spoil(QStringLiteral("gpio224/value"));
    lines->clear();
    link.receiveSections({gpioSection(0, 1, 4, 0)});
    const QString refused = QStringLiteral("Error opening file '/sys/class/gpio/gpio224/value'");
    QCOMPARE(link.log(), (QStringList{refused, refused}));
    // The other outputs get their writes.
    QCOMPARE(lines->writes(), prepared(224, 1) + prepared(225, 1) + list("gpio225/value=1 gpio225/value=1") +
                                  prepared(228, 1) + list("gpio228/value=1 gpio230/value=0"));
}

void tst_UdpHandlerOutputs::loss()
{
    StillLink link(*lines);
    link.receiveSections({gpioSection(0, 1, 2, 0)});
    lines->clear();
    link.handler->packetTimeout();
    QCOMPARE(lines->writes(), list("gpio224/value=1 gpio225/value=1 gpio228/value=1"));
    lines->clear();
    link.handler->blinkSlowTimeout();
    QCOMPARE(lines->writes(), QStringList());
    link.handler->blinkFastTimeout();
    link.handler->blinkFastTimeout();
    QCOMPARE(lines->writes(), list("gpio224/value=0 gpio225/value=0 gpio228/value=0 "
                                   "gpio224/value=1 gpio225/value=1 gpio228/value=1"));
    // The controller's return: what it commands now differs from fast blinking.
    lines->clear();
    link.receiveSections({gpioSection(3, 1, 2, 0)});
    QCOMPARE(lines->writes(), prepared(225, 1) + list("gpio225/value=1 gpio225/value=1") + prepared(228, 1) +
                                  list("gpio228/value=1 gpio230/value=0"));
}

void tst_UdpHandlerOutputs::lossKeepsTheBuzzer_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<QString>("slow");
    QTest::addColumn<QString>("fast");
    QTest::newRow("off: silent") << 0 << QString() << QString();
    QTest::newRow("on: sounds on") << 1 << QString() << QString();
    QTest::newRow("slow: keeps blinking slowly") << 2 << QStringLiteral("gpio230/value=0") << QString();
    QTest::newRow("fast: keeps blinking fast") << 3 << QString() << QStringLiteral("gpio230/value=0");
}

void tst_UdpHandlerOutputs::lossKeepsTheBuzzer()
{
    QFETCH(int, command);
    StillLink link(*lines);
    link.receiveSections({gpioSection(0, 0, 0, static_cast<quint8>(command))});
    lines->clear();
    link.handler->packetTimeout();
    const QString ofBuzzer = QStringLiteral("gpio230/");
    QCOMPARE(lines->writes().filter(ofBuzzer), QStringList());
    link.handler->blinkSlowTimeout();
    QTEST(lines->writes().filter(ofBuzzer).join(QLatin1Char(' ')), "slow");
    lines->clear();
    link.handler->blinkFastTimeout();
    QTEST(lines->writes().filter(ofBuzzer).join(QLatin1Char(' ')), "fast");
}

void tst_UdpHandlerOutputs::badSectionChangesNothing()
{
    StillLink link(*lines);
    link.receiveSections({section(0x20, hex("01 01 01 01 01"))});
    QCOMPARE(lines->writes(), QStringList());
    QCOMPARE(link.log(),
             (QStringList{QStringLiteral("DevInfo section length mismatch ( 8 )"),
                          QStringLiteral("Payload size mismatch"), QStringLiteral("Decode error")}));
}

void tst_UdpHandlerOutputs::stopLeavesTheOutputs()
{
    PanelLink link;
    link.receive(Frame(1).add(gpioSection(3, 2, 1, 1)).octets());
    QTimer* const fast = link.timerOf(250);
    QTimer* const slow = link.timerOf(1000);
    lines->clear();
    link.handler->stop();
    QCOMPARE(lines->writes(), QStringList());
    QVERIFY(!fast->isActive());
    QVERIFY(!slow->isActive());
}

QTEST_MAIN(tst_UdpHandlerOutputs)
#include "tst_udphandler_outputs.moc"
