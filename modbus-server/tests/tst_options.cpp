// SPDX-License-Identifier: MIT
#include "options.h"

#include <QFile>
#include <QRegularExpression>
#include <QTest>

using namespace Varnel;

class tst_Options : public QObject
{
    Q_OBJECT

private slots:
    void defaults();
    void all();
    void wrong_data();
    void wrong();
    void helpAndVersion();
    void manPageNamesEveryOption();

private:
    static Invocation<ServerOptions> parse(const QStringList& arguments)
    {
        return parseCommandLine(QStringList(QStringLiteral("varnel-modbus-server")) + arguments);
    }
};

void tst_Options::defaults()
{
    const Invocation<ServerOptions> line = parse({});
    QVERIFY(line.options);
    QCOMPARE(line.options->bus, QStringLiteral("system"));
    QVERIFY(!line.options->verbose);
    QCOMPARE(line.options->service.staleAfter.count(), 0);
    QCOMPARE(line.options->service.idleLimit.count(), 60000);
    QCOMPARE(line.options->service.stateFile, QString());
    QCOMPARE(line.options->service.statusBlock, -1);
}

void tst_Options::all()
{
    const Invocation<ServerOptions> line =
        parse({QStringLiteral("-b"), QStringLiteral("unix:path=/x"), QStringLiteral("--stale-after=30"),
               QStringLiteral("--idle-limit"), QStringLiteral("0"), QStringLiteral("--state=/run/s"),
               QStringLiteral("--status-block=65532"), QStringLiteral("--verbose")});
    QVERIFY(line.options);
    QCOMPARE(line.options->bus, QStringLiteral("unix:path=/x"));
    QVERIFY(line.options->verbose);
    QCOMPARE(line.options->service.statusBlock, 65532);
    QCOMPARE(line.options->service.staleAfter.count(), 30000);
    QCOMPARE(line.options->service.idleLimit.count(), 0);
    QCOMPARE(line.options->service.stateFile, QStringLiteral("/run/s"));
}

void tst_Options::wrong_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("message");
    const QString seconds = QStringLiteral("--stale-after: must be a whole number from 0 to 1000000");
    QTest::newRow("unknown") << QStringLiteral("--nonsense") << QStringLiteral("Unknown option 'nonsense'.");
    QTest::newRow("positional") << QStringLiteral("file") << QStringLiteral("Unexpected argument 'file'.");
    QTest::newRow("no number") << QStringLiteral("--stale-after=x") << seconds;
    QTest::newRow("negative") << QStringLiteral("--stale-after=-1") << seconds;
    QTest::newRow("huge") << QStringLiteral("--stale-after=99999999999") << seconds;
    const QString block = QStringLiteral("--status-block: must be a whole number from 0 to 65532");
    QTest::newRow("block at no number") << QStringLiteral("--status-block=x") << block;
    QTest::newRow("block beyond the end") << QStringLiteral("--status-block=65533") << block;
    QTest::newRow("block before the start") << QStringLiteral("--status-block=-1") << block;
    QTest::newRow("value missing") << QStringLiteral("--state")
                                   << QStringLiteral("Missing value after '--state'.");
}

void tst_Options::wrong()
{
    QFETCH(QString, argument);
    QFETCH(QString, message);
    const Invocation<ServerOptions> line = parse({argument});
    QVERIFY(!line.options);
    QCOMPARE(line.status, 2);
    QCOMPARE(line.output, message + QStringLiteral("\nTry 'varnel-modbus-server --help'.\n"));
}

void tst_Options::helpAndVersion()
{
    const Invocation<ServerOptions> help = parse({QStringLiteral("--help")});
    QVERIFY(!help.options);
    QCOMPARE(help.status, 0);
    QVERIFY(help.output.contains(QStringLiteral("--stale-after <seconds>")));
    const Invocation<ServerOptions> version = parse({QStringLiteral("--version")});
    QCOMPARE(version.status, 0);
    QCOMPARE(version.output, QStringLiteral("varnel-modbus-server " VARNEL_VERSION "\n"));
}

void tst_Options::manPageNamesEveryOption()
{
    QFile page(QStringLiteral(VARNEL_MAN_PAGE));
    QVERIFY(page.open(QIODevice::ReadOnly));
    const QString text = QString::fromUtf8(page.readAll()).remove(QLatin1Char('\\'));
    const QRegularExpression option(QStringLiteral("--[a-z-]+"));
    const auto named = [&option](const QString& source) {
        QStringList names;
        for (auto match = option.globalMatch(source); match.hasNext();) {
            names += match.next().captured();
        }
        names.removeDuplicates();
        names.sort();
        return names;
    };
    QCOMPARE(named(text), named(parse({QStringLiteral("--help")}).output));
}

QTEST_GUILESS_MAIN(tst_Options)
#include "tst_options.moc"
