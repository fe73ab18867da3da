// SPDX-License-Identifier: MIT
#include "action.h"
#include "scenario.h"
#include "simulation.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Simulator;

/// Scenario files and the lines of actions.
class tst_SimulatorScenario : public QObject
{
    Q_OBJECT

private slots:
    void times();
    void refused_data();
    void refused();
    void playsInOrder();
    void repeats();
    void samplesDoWhatTheySay_data();
    void samplesDoWhatTheySay();
    void action_data();
    void action();
    void refusedAction_data();
    void refusedAction();
    void wrongActionChangesNothing();
};

void tst_SimulatorScenario::times()
{
    const Varnel::Outcome<Scenario> read =
        readScenario(R"({"repeat": 60, "steps": [{"at": 0.5, "do": "resume"},
        {"after": 2, "do": "fault", "kind": "crc"}, {"at": 10, "do": "quit"}]})");
    QVERIFY2(read, qPrintable(read.refusal.text));
    const Scenario& scenario = *read.value;
    QCOMPARE(scenario.repeatMs, qint64(60000));
    QCOMPARE(scenario.steps.size(), 3);
    QCOMPARE(scenario.steps.at(0).atMs, qint64(500));
    QCOMPARE(scenario.steps.at(1).atMs, qint64(2500));
    QCOMPARE(scenario.steps.at(2).atMs, qint64(10000));
    QCOMPARE(scenario.steps.at(1).action, (QJsonObject{{QStringLiteral("do"), QStringLiteral("fault")},
                                                       {QStringLiteral("kind"), QStringLiteral("crc")}}));
}

void tst_SimulatorScenario::refused_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QString>("reason");

    const auto row = [](const char* name, const char* text, const char* reason) {
        QTest::newRow(name) << QByteArray(text) << QString(QLatin1String(reason));
    };
    row("empty", "", "not JSON");
    row("cut off", R"({"steps": [)", "not JSON");
    row("without steps", "{}", "\"steps\" is not an array");
    row("steps of another kind", R"({"steps": {}})", "\"steps\" is not an array");
    row("no time", R"({"steps": [{"do": "quit"}]})", "step 1 needs either");
    row("two times", R"({"steps": [{"at": 1, "after": 1, "do": "quit"}]})", "step 1 needs either");
    row("time as text", R"({"steps": [{"at": "1", "do": "quit"}]})", "step 1 its time");
    row("time below zero", R"({"steps": [{"at": -1, "do": "quit"}]})", "step 1 its time");
    row("backwards", R"({"steps": [{"at": 2, "do": "resume"}, {"at": 1, "do": "quit"}]})",
        "step 2 comes before");
    row("nothing to do", R"({"steps": [{"at": 1}]})", "step 1 needs a member");
    row("not an object", R"({"steps": [5]})", "step 1 needs");
    row("repeats too early", R"({"repeat": 1, "steps": [{"at": 2, "do": "quit"}]})", "\"repeat\"");
    row("repeats at once", R"({"repeat": 0, "steps": []})", "\"repeat\"");
}

void tst_SimulatorScenario::refused()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, reason);
    const QString refused = readScenario(text).refusal.text;
    QVERIFY2(refused.contains(reason), qPrintable(refused));
}

void tst_SimulatorScenario::playsInOrder()
{
    ScenarioPlayer player;
    QSignalSpy due(&player, &ScenarioPlayer::due);
    QSignalSpy ended(&player, &ScenarioPlayer::ended);
    player.play(
        *readScenario(
             R"({"steps": [{"at": 0, "do": "a"}, {"after": 0.05, "do": "b"}, {"after": 0, "do": "c"}]})")
             .value);
    QVERIFY(ended.wait());
    QString order;
    for (const QList<QVariant>& arguments : qAsConst(due)) {
        order += arguments.first().toJsonObject().value(QLatin1String("do")).toString();
    }
    QCOMPARE(order, QStringLiteral("abc"));
    QCOMPARE(ended.count(), 1);
}

void tst_SimulatorScenario::repeats()
{
    ScenarioPlayer player;
    QSignalSpy due(&player, &ScenarioPlayer::due);
    player.play(*readScenario(R"({"repeat": 0.05, "steps": [{"at": 0.02, "do": "a"}]})").value);
    QTRY_VERIFY(due.count() >= 3);
}

void tst_SimulatorScenario::samplesDoWhatTheySay_data()
{
    QTest::addColumn<QString>("path");
    const QFileInfoList files = QDir(QStringLiteral(VARNEL_SOURCE_DIR "/simulator/scenarios"))
                                    .entryInfoList({QStringLiteral("*.json")});
    QVERIFY(!files.isEmpty());
    for (const QFileInfo& file : files) {
        QTest::newRow(qPrintable(file.fileName())) << file.filePath();
    }
}

/// Every action of the scenarios that are handed out is one that the simulator accepts.
void tst_SimulatorScenario::samplesDoWhatTheySay()
{
    QFETCH(QString, path);
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const Varnel::Outcome<Scenario> read = readScenario(file.readAll());
    QVERIFY2(read, qPrintable(read.refusal.text));
    const Scenario& scenario = *read.value;
    QVERIFY(!scenario.steps.isEmpty());

    SimulatorOptions options;
    options.httpAddress = QHostAddress(QHostAddress::LocalHost);
    options.httpPort = 0;
    options.map = QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map");
    options.targetPort = 9; // discard
    options.startSilent = true;
    Simulation simulation(options);
    QCOMPARE(simulation.start().refusal.text, QString());
    for (const ScenarioStep& step : scenario.steps) {
        QCOMPARE(simulation.perform(step.action).refusal.text, QString());
    }
}

void tst_SimulatorScenario::action_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("expected");

    const auto row = [](const char* name, const char* line, const char* expected) {
        QTest::newRow(name) << QString(QLatin1String(line)) << QByteArray(expected);
    };
    row("word", "resume", R"({"do":"resume"})");
    row("members", "fault kind=crc count=3", R"({"count":"3","do":"fault","kind":"crc"})");
    row("quotes keep blanks", R"(set "snmpcfg.oid=a b")", R"({"do":"set","snmpcfg.oid":"a b"})");
    row("empty value", "set devinfo.lang=", R"({"devinfo.lang":"","do":"set"})");
    row("equals sign in a value", "http path=/a?b=c", R"({"do":"http","path":"/a?b=c"})");
    row("JSON", R"( {"do": "silence", "seconds": 0.5})", R"({"do":"silence","seconds":0.5})");
}

void tst_SimulatorScenario::action()
{
    QFETCH(QString, line);
    QFETCH(QByteArray, expected);
    const Varnel::Outcome<QJsonObject> action = readAction(line);
    QVERIFY2(action, qPrintable(action.refusal.text));
    QCOMPARE(QJsonDocument(*action.value).toJson(QJsonDocument::Compact), expected);
}

void tst_SimulatorScenario::refusedAction_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("empty") << QString();
    QTest::newRow("two words") << QStringLiteral("silence 5");
    QTest::newRow("value without a name") << QStringLiteral("silence =5");
    QTest::newRow("broken JSON") << QStringLiteral("{\"do\": ");
    QTest::newRow("JSON without do") << QStringLiteral("{\"seconds\": 5}");
}

void tst_SimulatorScenario::refusedAction()
{
    QFETCH(QString, line);
    QVERIFY(!readAction(line).refusal.text.isEmpty());
}

void tst_SimulatorScenario::wrongActionChangesNothing()
{
    SimulatorOptions options;
    options.httpAddress = QHostAddress(QHostAddress::LocalHost);
    options.httpPort = 0;
    options.startSilent = true;
    Simulation simulation(options);
    QCOMPARE(simulation.start().refusal.text, QString());
    const QJsonObject before = simulation.status();
    const char* const wrong[] = {"fly",
                                 "set gpiostate.good=on gpiostate.critical=purple",
                                 "set core.5=1",
                                 "release id=5",
                                 "sections list=devinfo,everything",
                                 "interval ms=0",
                                 "sequence next=4294967296",
                                 "fault kind=strange",
                                 "http path=/ fault=strange",
                                 "second source=nowhere"};
    for (const char* line : wrong) {
        QVERIFY2(!simulation.perform(QString::fromLatin1(line)), line);
        QCOMPARE(simulation.status(), before);
    }
}

QTEST_GUILESS_MAIN(tst_SimulatorScenario)
#include "tst_simulatorscenario.moc"
