// SPDX-License-Identifier: MIT
// LEDs and buzzer as the running panel drives them: what is written to which line, in which order and when.

#include <QDir>
#include <QFile>
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

/// Somebody else writes to the file.
bool spoil(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write("9") == 1;
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
    void steadyOutputsAreRepaired();
    void sameCommandKeepsThePhase();
    void changePreparesTheLineAgain();
    void linkLossLeavesTheBuzzer_data();
    void linkLossLeavesTheBuzzer();
    void lineThatCannotBeExported();
    void filesThatVanishOrRefuse();
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
    // All four take the command; a steady one stands beside blinking ones that show the time passing.
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

void tst_Outputs::steadyOutputsAreRepaired()
{
    Scene scene;
    QVERIFY(scene.start());
    QVERIFY(scene.controller.send(Frame(1).gpioState(1, 0, 4, 1)));
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    for (const int line : allLines) {
        QVERIFY(spoil(StandInSys::valueFile(line)));
    }
    QVERIFY(scene.controller.send(Frame(2).gpioState(1, 0, 4, 1)));
    QTRY_COMPARE_WITH_TIMEOUT(StandInSys::value(StandInSys::buzzer), "1"_s, 20000);
    QCOMPARE(StandInSys::value(StandInSys::green), "1"_s);
    QCOMPARE(StandInSys::value(StandInSys::yellow), "0"_s);
    QCOMPARE(StandInSys::value(StandInSys::red), "9"_s); // 4 is neither off nor on: written on a change alone
}

void tst_Outputs::sameCommandKeepsThePhase()
{
    Scene scene;
    QVERIFY(scene.start());
    // Green blinks slowly already: its line is not prepared again, and its phase goes on.
    const QString direction = lineFile(StandInSys::green, "direction");
    const WriteRecorder recorder({direction, StandInSys::valueFile(StandInSys::green)});
    for (quint32 number = 1; number <= 20; ++number) {
        QVERIFY(scene.controller.send(Frame(number).gpioState(2, 0, 0, static_cast<quint8>(number % 2))));
        QTRY_COMPARE_WITH_TIMEOUT(StandInSys::value(StandInSys::buzzer), QString::number(number % 2), 20000);
    }
    QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::green), 3));
    QCOMPARE(recorder.texts(direction), QStringList());
    QVERIFY(alternates(recorder.texts(StandInSys::valueFile(StandInSys::green))));
}

void tst_Outputs::changePreparesTheLineAgain()
{
    Scene scene;
    QVERIFY(scene.start());
    QVERIFY(scene.controller.send(Frame(1).gpioState(0, 3, 0, 0)));
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    const QString value = StandInSys::valueFile(StandInSys::yellow);
    const WriteRecorder recorder(
        {lineFile(StandInSys::yellow, "direction"), lineFile(StandInSys::yellow, "active_low"), value});
    QVERIFY(recorder.awaitWrites(value, 1));
    QVERIFY(scene.controller.send(Frame(2).gpioState(0, 1, 0, 0)));
    const auto sincePrepared = [&recorder] {
        QStringList words = inWords(recorder.writes());
        // The two writes of the value follow so closely that the first one's text cannot be told.
        words.replaceInStrings(QRegularExpression("=.*"_s), QString());
        return words.mid(qMax(0, words.indexOf("225/direction"_s)));
    };
    const QString prepared = "225/direction 225/active_low 225/value 225/value"_s;
    QTRY_COMPARE_WITH_TIMEOUT(sincePrepared().mid(0, 4).join(QLatin1Char(' ')), prepared, 20000);
    QCOMPARE(StandInSys::value(StandInSys::yellow), "1"_s);
    QVERIFY(scene.isAlive()); // which switches yellow off
    // What follows is that change: nothing toggled it in between.
    QCOMPARE(sincePrepared().value(4), "225/direction"_s);
}

void tst_Outputs::linkLossLeavesTheBuzzer_data()
{
    QTest::addColumn<int>("command");
    QTest::newRow("off: stays off") << 0;
    QTest::newRow("on: goes on") << 1;
    QTest::newRow("slow blink: goes on slowly") << 2;
}

void tst_Outputs::linkLossLeavesTheBuzzer()
{
    QFETCH(int, command);
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    QVERIFY(scene.controller.send(Frame(1).gpioState(0, 1, 2, static_cast<quint8>(command))));
    QVERIFY(scene.panel.log().await("Add R7M"_s));
    const WriteRecorder recorder(valueFiles());
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    QTRY_COMPARE_WITH_TIMEOUT(StandInSys::value(StandInSys::green), "1"_s, 20000);
    const int before = recorder.texts(StandInSys::valueFile(StandInSys::green)).size();
    QVERIFY(recorder.awaitWrites(StandInSys::valueFile(StandInSys::green), before + 9));
    // The first toggle may follow the loss so closely that the texts of both are one; the others do not.
    QVERIFY(alternates(inWords(recorder.writes()).filter("224/"_s).mid(2)));
    const int buzzes = recorder.texts(StandInSys::valueFile(StandInSys::buzzer)).size();
    if (command == 2) {
        QVERIFY(buzzes >= 1 && buzzes <= 5); // 3 s or so, while the LEDs blink four times as fast
    } else {
        QCOMPARE(buzzes, 0);
        QCOMPARE(StandInSys::value(StandInSys::buzzer), QString::number(command));
    }
}

void tst_Outputs::lineThatCannotBeExported()
{
    Scene scene;
    scene.sys.removeLine(StandInSys::red);
    const WriteRecorder recorder({StandInSys::exportFile()});
    QVERIFY(scene.start());
    QVERIFY(recorder.awaitWrites(StandInSys::exportFile(), 1));
    QCOMPARE(StandInSys::read(StandInSys::exportFile()), "228"_s);
    QVERIFY(!QFile::exists(StandInSys::valueFile(StandInSys::red)));
    // A line that comes later is prepared with its next change.
    QVERIFY(scene.controller.send(Frame(1).gpioState(0, 0, 1, 0)));
    QVERIFY(recorder.awaitWrites(StandInSys::exportFile(), 2));
    scene.sys.addLine(StandInSys::red);
    QVERIFY(scene.controller.send(Frame(2).gpioState(0, 0, 3, 0)));
    QTRY_COMPARE_WITH_TIMEOUT(StandInSys::read(lineFile(StandInSys::red, "direction")), "out"_s, 20000);
    QTRY_COMPARE_WITH_TIMEOUT(StandInSys::value(StandInSys::red), "1"_s, 20000);
    scene.sequence = 2;
    QVERIFY(scene.isAlive());
}

void tst_Outputs::filesThatVanishOrRefuse()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.sys.removeLine(StandInSys::yellow); // in the middle of its blinking
    const QString refusing = StandInSys::valueFile(StandInSys::red);
    QVERIFY(QFile::remove(refusing) && QDir().mkdir(refusing));
    QVERIFY(scene.panel.log().await("Error opening file '"_s + refusing + QLatin1Char('\'')));
    QVERIFY(scene.isAlive());
    QVERIFY(QDir().rmdir(refusing));
    QCOMPARE(scene.panel.log().lines().filter("gpio225"_s), QStringList());
}

QTEST_GUILESS_MAIN(tst_Outputs)
#include "tst_outputs.moc"
