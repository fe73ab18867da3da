// SPDX-License-Identifier: MIT
#include "literals.h"
#include "options.h"
#include "rows.h"

#include <QTest>

using namespace Varnel;

class tst_Options : public QObject
{
    Q_OBJECT

private slots:
    void defaults()
    {
        const Invocation<ServerOptions> line = parse({});
        QVERIFY(line.options);
        QCOMPARE(line.options->bus, "system"_s);
        QVERIFY(!line.options->verbose);
        QCOMPARE(line.options->service.staleAfter.count(), 0);
        QCOMPARE(line.options->service.idleLimit.count(), 60000);
        QCOMPARE(line.options->service.stateFile, QString());
        QCOMPARE(line.options->service.statusBlock, -1);
    }

    void all()
    {
        const Invocation<ServerOptions> line =
            parse("-b unix:path=/x --stale-after=30 --idle-limit 0 --state=/run/s"
                  " --status-block=65532 --verbose"_words);
        QVERIFY(line.options);
        QCOMPARE(line.options->bus, "unix:path=/x"_s);
        QVERIFY(line.options->verbose);
        QCOMPARE(line.options->service.statusBlock, 65532);
        QCOMPARE(line.options->service.staleAfter.count(), 30000);
        QCOMPARE(line.options->service.idleLimit.count(), 0);
        QCOMPARE(line.options->service.stateFile, "/run/s"_s);
    }

    void wrong_data()
    {
        const Rows<QString, QString> row("argument", "message");
        const QString seconds = "--stale-after: must be a whole number from 0 to 1000000"_s;
        const QString block = "--status-block: must be a whole number from 0 to 65532"_s;
        row("unknown", "--nonsense"_s, "Unknown option 'nonsense'."_s);
        row("positional", "file"_s, "Unexpected argument 'file'."_s);
        row("no number", "--stale-after=x"_s, seconds);
        row("negative", "--stale-after=-1"_s, seconds);
        row("huge", "--stale-after=99999999999"_s, seconds);
        row("block beyond the end", "--status-block=65533"_s, block);
        row("value missing", "--state"_s, "Missing value after '--state'."_s);
    }

    void wrong()
    {
        QFETCH(QString, argument);
        QFETCH(QString, message);
        const Invocation<ServerOptions> line = parse({argument});
        QVERIFY(!line.options);
        QCOMPARE(line.status, 2);
        QCOMPARE(line.output, message + "\nTry 'varnel-modbus-server --help'.\n"_s);
    }

private:
    static Invocation<ServerOptions> parse(const QStringList& arguments)
    {
        return parseCommandLine(QStringList("varnel-modbus-server"_s) + arguments);
    }
};

QTEST_GUILESS_MAIN(tst_Options)
#include "tst_options.moc"
