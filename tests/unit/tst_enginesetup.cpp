// SPDX-License-Identifier: MIT
#include "enginesetup.h"

#include <QTest>

using namespace Varnel;

/// The environment that the engine and its libraries find.
class tst_EngineSetup : public QObject
{
    Q_OBJECT

private slots:
    void valuesOfTheUnitFileAreKept()
    {
        QVERIFY(engineVariables().size() > 1);
        const char* const kept = engineVariables().front().name;
        for (const EngineVariable& variable : engineVariables()) {
            qunsetenv(variable.name);
        }
        qputenv(kept, "own");
        prepareEngine();
        for (const EngineVariable& variable : engineVariables()) {
            QCOMPARE(qgetenv(variable.name), QByteArray(variable.name == kept ? "own" : variable.value));
        }
    }
};

QTEST_GUILESS_MAIN(tst_EngineSetup)
#include "tst_enginesetup.moc"
