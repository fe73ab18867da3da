// SPDX-License-Identifier: MIT
#include "action.h"
#include "files.h"
#include "literals.h"
#include "rows.h"
#include "scenario.h"
#include "simulation.h"

#include <QSignalSpy>
#include <QtTest>

using namespace Simulator;

namespace {

SimulatorOptions silentOptions()
{
    SimulatorOptions options;
    options.httpAddress = QHostAddress(QHostAddress::LocalHost);
    options.httpPort = 0;
    options.map = VARNEL_SOURCE_DIR "/device/modbus.map"_s;
    options.targetPort = 9; // discard
    options.startSilent = true;
    return options;
}

} // namespace

/// Scenario files and the lines of actions.
class tst_SimulatorScenario : public QObject
{
    Q_OBJECT

private slots:
    void times()
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
        QCOMPARE(scenario.steps.at(1).action, (QJsonObject{{"do"_s, "fault"_s}, {"kind"_s, "crc"_s}}));
    }

    void refused_data()
    {
        const Rows<QByteArray, QString> row("text", "reason");
        row("empty", "", "not JSON"_s);
        row("cut off", R"({"steps": [)", "not JSON"_s);
        row("without steps", "{}", "\"steps\" is not an array"_s);
        row("steps of another kind", R"({"steps": {}})", "\"steps\" is not an array"_s);
        row("no time", R"({"steps": [{"do": "quit"}]})", "step 1 needs either"_s);
        row("two times", R"({"steps": [{"at": 1, "after": 1, "do": "quit"}]})", "step 1 needs either"_s);
        row("time as text", R"({"steps": [{"at": "1", "do": "quit"}]})", "step 1 its time"_s);
        row("time below zero", R"({"steps": [{"at": -1, "do": "quit"}]})", "step 1 its time"_s);
        row("backwards", R"({"steps": [{"at": 2, "do": "resume"}, {"at": 1, "do": "quit"}]})",
            "step 2 comes before"_s);
        row("nothing to do", R"({"steps": [{"at": 1}]})", "step 1 needs a member"_s);
        row("not an object", R"({"steps": [5]})", "step 1 needs"_s);
        row("repeats too early", R"({"repeat": 1, "steps": [{"at": 2, "do": "quit"}]})", "\"repeat\""_s);
        row("repeats at once", R"({"repeat": 0, "steps": []})", "\"repeat\""_s);
    }

    void refused()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, reason);
        const QString refused = readScenario(text).refusal.text;
        QVERIFY2(refused.contains(reason), qPrintable(refused));
    }

    void playsInOrder()
    {
        ScenarioPlayer player;
        QSignalSpy due(&player, &ScenarioPlayer::due);
        QSignalSpy ended(&player, &ScenarioPlayer::ended);
        const char* const steps =
            R"({"steps": [{"at": 0, "do": "a"}, {"after": 0.05, "do": "b"}, {"after": 0, "do": "c"}]})";
        player.play(*readScenario(steps).value);
        QVERIFY(ended.wait());
        QString order;
        for (const QList<QVariant>& arguments : qAsConst(due)) {
            order += arguments.first().toJsonObject().value(QLatin1String("do")).toString();
        }
        QCOMPARE(order, "abc"_s);
        QCOMPARE(ended.count(), 1);
    }

    void repeats()
    {
        ScenarioPlayer player;
        QSignalSpy due(&player, &ScenarioPlayer::due);
        player.play(*readScenario(R"({"repeat": 0.05, "steps": [{"at": 0.02, "do": "a"}]})").value);
        QTRY_VERIFY(due.count() >= 3);
    }

    /// Every action of the scenarios that are handed out is one that the simulator accepts.
    void samplesDoWhatTheySay()
    {
        const QDir samples(VARNEL_SOURCE_DIR "/simulator/scenarios"_s, "*.json"_s);
        for (const QFileInfo& info : samples.entryInfoList()) {
            const Varnel::Outcome<Scenario> read = readScenario(contentOf(info.filePath()));
            QVERIFY2(read && !read.value->steps.isEmpty(), qPrintable(info.fileName() + read.refusal.text));
            Simulation simulation(silentOptions());
            QCOMPARE(simulation.start().refusal.text, QString());
            for (const ScenarioStep& step : read.value->steps) {
                QCOMPARE(simulation.perform(step.action).refusal.text, QString());
            }
        }
    }

    void action_data()
    {
        const Rows<QString, QByteArray> row("line", "expected");
        row("word", "resume"_s, R"({"do":"resume"})");
        row("members", "fault kind=crc count=3"_s, R"({"count":"3","do":"fault","kind":"crc"})");
        row("quotes keep blanks", R"(set "snmpcfg.oid=a b")"_s, R"({"do":"set","snmpcfg.oid":"a b"})");
        row("empty value", "set devinfo.lang="_s, R"({"devinfo.lang":"","do":"set"})");
        row("equals sign in a value", "http path=/a?b=c"_s, R"({"do":"http","path":"/a?b=c"})");
        row("JSON", R"( {"do": "silence", "seconds": 0.5})"_s, R"({"do":"silence","seconds":0.5})");
        row("empty", ""_s, "refused");
        row("two words", "silence 5"_s, "refused");
        row("value without a name", "silence =5"_s, "refused");
        row("broken JSON", "{\"do\": "_s, "refused");
        row("JSON without do", "{\"seconds\": 5}"_s, "refused");
    }

    void action()
    {
        QFETCH(QString, line);
        const Varnel::Outcome<QJsonObject> action = readAction(line);
        QCOMPARE(bool(action), action.refusal.text.isEmpty());
        QTEST(action ? QJsonDocument(*action.value).toJson(QJsonDocument::Compact) : "refused", "expected");
    }

    void wrongActionChangesNothing()
    {
        Simulation simulation(silentOptions());
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
};

QTEST_GUILESS_MAIN(tst_SimulatorScenario)
#include "tst_simulatorscenario.moc"
