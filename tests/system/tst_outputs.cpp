// SPDX-License-Identifier: MIT
// LEDs and buzzer as the running panel drives them: what is written to which line, in which order and when.

#include <QTest>

#include "scene.h"

namespace {

using std::chrono::milliseconds;

constexpr int allLines[] = {StandInSys::green, StandInSys::yellow, StandInSys::red, StandInSys::buzzer};

QStringList files(std::initializer_list<const char*> names)
{
    QStringList result;
    for (const int line : allLines) {
        for (const char* const name : names) {
            result << StandInSys::lineFile(line, name);
        }
    }
    return result;
}

/// The first `count` writes as "224/value=1", in order.
QStringList inWords(const WriteRecorder& recorder, int count)
{
    QStringList words;
    const QList<WriteRecorder::Write> writes = recorder.writes();
    for (const WriteRecorder::Write& write : writes) {
        words << write.path.section("/gpio"_s, -1) + QLatin1Char('=') + write.text;
    }
    return words.mid(0, count);
}

/// The mean time between the writes to `line`, if their texts alternate; 0 otherwise.
milliseconds blinkPeriod(const WriteRecorder& recorder, int line)
{
    const auto writes = recorder.writes(StandInSys::valueFile(line));
    const auto same = [](const auto& one, const auto& other) { return one.text == other.text; };
    if (writes.size() < 2 || std::adjacent_find(writes.cbegin(), writes.cend(), same) != writes.cend()) {
        return milliseconds(0);
    }
    const auto span = writes.constLast().time - writes.constFirst().time;
    return std::chrono::duration_cast<milliseconds>(span) / (writes.size() - 1);
}

} // namespace

class tst_Outputs : public QObject
{
    Q_OBJECT

private slots:
    void startUp()
    {
        Scene scene;
        const WriteRecorder recorder(files({"direction", "active_low", "value"}));
        QVERIFY(
            scene.start(SettingsFile().set("GPIO/LedYellowHigh", "true").set("GPIO/BuzzerHigh", "false")));
        QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::buzzer), 1));
        QCOMPARE(inWords(recorder, 12).join(QLatin1Char(' ')),
                 "224/direction=out 224/active_low=1 225/direction=out 225/active_low=0 "
                 "228/direction=out 228/active_low=1 230/direction=out 230/active_low=1 "
                 "224/value=1 225/value=1 228/value=1 230/value=0"_s);
        QCOMPARE(StandInSys::read(StandInSys::exportFile()), ""_s); // the lines were there
        QVERIFY(scene.panel.log().count("Initialize GPIOs"_s) == 1);
        scene.panel.log().rewind();
        QVERIFY(scene.panel.log().await({"UDP bound"_s, "Initialize GPIOs"_s, "All LEDs on, Buzzer off"_s}));
    }

    void slowBlinkUntilTheFirstFrame()
    {
        Scene scene;
        QVERIFY(scene.start());
        const WriteRecorder recorder(files({"value"}));
        QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::red), 4));
        QStringList words = inWords(recorder, 12);
        // The three together, and the buzzer not at all. Which phase comes first depends on the watch's
        // start.
        if (words.constFirst().endsWith("=1"_s)) {
            words = words.mid(3) + words.mid(0, 3);
        }
        QCOMPARE(words.mid(0, 6).join(QLatin1Char(' ')),
                 "224/value=0 225/value=0 228/value=0 224/value=1 225/value=1 228/value=1"_s);
        QCOMPARE(words.filter("230/"_s), QStringList());
        const milliseconds period = blinkPeriod(recorder, StandInSys::red);
        QVERIFY2(period > milliseconds(850) && period < milliseconds(2000),
                 qPrintable(QString::number(period.count())));
    }

    void commands()
    {
        Scene scene;
        QVERIFY(scene.start());
        QVERIFY(scene.connectController());
        QVERIFY(scene.controller.send(Frame(50).gpioState(0, 2, 3, 255))); // dark, slow, fast, and lit
        QVERIFY(awaitTrue([] { return StandInSys::value(StandInSys::buzzer) == "1"_s; }));
        const WriteRecorder recorder(files({"value"}));
        QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::yellow), 4));
        const std::pair<int, int> blinking[] = {{StandInSys::yellow, 1000}, {StandInSys::red, 250}};
        for (const auto& [line, period] : blinking) {
            const milliseconds mean = blinkPeriod(recorder, line);
            QVERIFY2(mean > milliseconds(period) * 85 / 100 && mean < milliseconds(period) * 2,
                     qPrintable(QString::number(mean.count())));
        }
        const std::pair<int, QString> steady[] = {{StandInSys::green, "0"_s}, {StandInSys::buzzer, "1"_s}};
        for (const auto& [line, value] : steady) {
            QCOMPARE(recorder.texts(StandInSys::valueFile(line)), QStringList());
            QCOMPARE(StandInSys::value(line), value);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Outputs)
#include "tst_outputs.moc"
