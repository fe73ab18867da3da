// SPDX-License-Identifier: MIT
// LEDs and buzzer as the running panel drives them: what is written to which line, in which order and when.

#include <QTest>

#include "scene.h"

namespace {

using std::chrono::milliseconds;

constexpr int allLines[] = {StandInSys::green, StandInSys::yellow, StandInSys::red, StandInSys::buzzer};

QString lineFile(int line, const char* file)
{
    return "/sys/class/gpio/gpio%1/%2"_s.arg(line).arg(QLatin1String(file));
}

QStringList valueFiles()
{
    QStringList files;
    for (const int line : allLines) {
        files << StandInSys::valueFile(line);
    }
    return files;
}

/// The writes as "224/value=1", in order.
QStringList inWords(const QList<WriteRecorder::Write>& writes)
{
    QStringList words;
    for (const WriteRecorder::Write& write : writes) {
        words << write.path.section("/gpio"_s, -1) + QLatin1Char('=') + write.text;
    }
    return words;
}

bool alternates(const QStringList& texts)
{
    for (int i = 1; i < texts.size(); ++i) {
        if (texts.at(i) == texts.at(i - 1)) {
            return false;
        }
    }
    return true;
}

/// The mean time between the writes to `line`.
milliseconds meanPeriod(const WriteRecorder& recorder, int line)
{
    QList<WriteRecorder::Write> writes;
    const auto all = recorder.writes();
    for (const WriteRecorder::Write& write : all) {
        if (write.path == StandInSys::valueFile(line)) {
            writes << write;
        }
    }
    const auto span = writes.constLast().time - writes.constFirst().time;
    return std::chrono::duration_cast<milliseconds>(span) / (writes.size() - 1);
}

} // namespace

class tst_Outputs : public QObject
{
    Q_OBJECT

private slots:
    void startUp();
    void slowBlinkUntilTheFirstFrame();
    void phases_data();
    void phases();
};

void tst_Outputs::startUp()
{
    Scene scene;
    QStringList files = valueFiles();
    for (const int line : allLines) {
        files << lineFile(line, "direction") << lineFile(line, "active_low");
    }
    const WriteRecorder recorder(files);
    QVERIFY(scene.start(SettingsFile().set("GPIO/LedYellowHigh", "true").set("GPIO/BuzzerHigh", "false")));
    QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::buzzer), 1));
    QCOMPARE(inWords(recorder.writes()).mid(0, 12).join(QLatin1Char(' ')),
             "224/direction=out 224/active_low=1 225/direction=out 225/active_low=0 "
             "228/direction=out 228/active_low=1 230/direction=out 230/active_low=1 "
             "224/value=1 225/value=1 228/value=1 230/value=0"_s);
    QCOMPARE(StandInSys::read(StandInSys::exportFile()), ""_s); // the lines were there
    QVERIFY(scene.panel.log().count("Initialize GPIOs"_s) == 1);
    scene.panel.log().rewind();
    QVERIFY(scene.panel.log().await({"UDP bound"_s, "Initialize GPIOs"_s, "All LEDs on, Buzzer off"_s}));
}

void tst_Outputs::slowBlinkUntilTheFirstFrame()
{
    Scene scene;
    QVERIFY(scene.start());
    const WriteRecorder recorder(valueFiles());
    QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::red), 4));
    QStringList words = inWords(recorder.writes()).mid(0, 12);
    // The three together, and the buzzer not at all. Which phase comes first depends on the watch's start.
    if (words.constFirst().endsWith("=1"_s)) {
        words = words.mid(3) + words.mid(0, 3);
    }
    QCOMPARE(words.mid(0, 6).join(QLatin1Char(' ')),
             "224/value=0 225/value=0 228/value=0 224/value=1 225/value=1 228/value=1"_s);
    QCOMPARE(words.filter("230/"_s), QStringList());
    const milliseconds period = meanPeriod(recorder, StandInSys::red);
    QVERIFY2(period > milliseconds(850) && period < milliseconds(2000),
             qPrintable(QString::number(period.count())));
}

void tst_Outputs::phases_data()
{
    QTest::addColumn<int>("command");
    QTest::addColumn<int>("period"); ///< of a blinking output, in milliseconds; 0 for a steady one
    QTest::addColumn<QString>("lit");
    QTest::newRow("0: dark") << 0 << 0 << "0"_s;
    QTest::newRow("1: lit") << 1 << 0 << "1"_s;
    QTest::newRow("2: slow blink") << 2 << 1000 << QString();
    QTest::newRow("3: fast blink") << 3 << 250 << QString();
    QTest::newRow("4: lit, like all above 3") << 4 << 0 << "1"_s;
    QTest::newRow("255: lit, like all above 3") << 255 << 0 << "1"_s;
}

void tst_Outputs::phases()
{
    QFETCH(int, command);
    QFETCH(int, period);
    QFETCH(QString, lit);
    Scene scene;
    QVERIFY(scene.start());
    // All four apply the command; blinking outputs next to a steady one show that time passes.
    const auto value = static_cast<quint8>(command);
    QVERIFY(scene.controller.send(Frame(1).gpioState(value, value, 3, value)));
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    const WriteRecorder recorder(valueFiles());
    QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::red), 5));
    for (const int line : {StandInSys::green, StandInSys::yellow, StandInSys::buzzer}) {
        if (period == 0) {
            QCOMPARE(recorder.texts(StandInSys::valueFile(line)), QStringList());
            QCOMPARE(StandInSys::value(line), lit);
            continue;
        }
        QVERIFY(recorder.awaitWrites(StandInSys::valueFile(line), 4));
        QVERIFY(alternates(recorder.texts(StandInSys::valueFile(line))));
        const milliseconds mean = meanPeriod(recorder, line);
        QVERIFY2(mean > milliseconds(period) * 85 / 100 && mean < milliseconds(period) * 2,
                 qPrintable(QString::number(mean.count())));
    }
    if (period != 0) {
        // Outputs of one command change together, whenever it came.
        const QStringList words = inWords(recorder.writes()).filter(QRegularExpression("^22[45]|^230"_s));
        for (int i = 0; i + 2 < words.size() && i < 9; i += 3) {
            QVERIFY(words.at(i).startsWith("224/"_s));
            QCOMPARE(words.at(i + 1), "225"_s + words.at(i).mid(3));
            QCOMPARE(words.at(i + 2), "230"_s + words.at(i).mid(3));
        }
    }
}

QTEST_GUILESS_MAIN(tst_Outputs)
#include "tst_outputs.moc"
