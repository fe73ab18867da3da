// SPDX-License-Identifier: MIT
#include <QDir>
#include <QFile>
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>

#include "boardwindow.h"

using namespace Board;

namespace {

void write(const QString& path, const QByteArray& octets, QIODevice::OpenMode mode = QIODevice::WriteOnly)
{
    QDir().mkpath(path.section(QLatin1Char('/'), 0, -2));
    QFile file(path);
    QVERIFY2(file.open(mode), qPrintable(path));
    QCOMPARE(file.write(octets), qint64(octets.size()));
}

QByteArray run(const QList<QByteArray>& words)
{
    QByteArray octets = QByteArray::number(words.size()) + '\0';
    for (const QByteArray& word : words) {
        octets += word + '\0';
    }
    return octets;
}

} // namespace

Q_DECLARE_METATYPE(Board::BoardLine)

class tst_Board : public QObject
{
    Q_OBJECT

private slots:
    void readsLine_data();
    void readsLine();
    void valueBeingWrittenKeepsTheLastOne();
    void tellsChanges();
    void listsRuns_data();
    void listsRuns();
    void readsOnlyWhatWasAdded();
    void windowShowsLampsAndRuns();
};

void tst_Board::readsLine_data()
{
    QTest::addColumn<QByteArray>("direction");
    QTest::addColumn<QByteArray>("activeLow");
    QTest::addColumn<QByteArray>("value");
    QTest::addColumn<BoardLine>("expected");
    QTest::newRow("kernel's line ends: ignored") << QByteArray("out\n") << QByteArray("0\n")
                                                 << QByteArray("1\n") << BoardLine{true, true, true, false};
    QTest::newRow("bare values, active low: on")
        << QByteArray("out") << QByteArray("1") << QByteArray("1") << BoardLine{true, true, true, true};
    QTest::newRow("value 0: off") << QByteArray("out") << QByteArray("1") << QByteArray("0")
                                  << BoardLine{true, true, false, true};
    QTest::newRow("direction in: not driven")
        << QByteArray("in") << QByteArray("0") << QByteArray("1") << BoardLine{true, false, true, false};
}

void tst_Board::readsLine()
{
    QFETCH(QByteArray, direction);
    QFETCH(QByteArray, activeLow);
    QFETCH(QByteArray, value);
    const QTemporaryDir root;
    write(root.filePath(QStringLiteral("gpio7/direction")), direction);
    write(root.filePath(QStringLiteral("gpio7/active_low")), activeLow);
    write(root.filePath(QStringLiteral("gpio7/value")), value);
    BoardLines outputs(root.path(), {7, 8});
    outputs.refresh();
    QTEST(outputs.current().at(0), "expected");
    QCOMPARE(outputs.current().at(1), BoardLine());
}

void tst_Board::valueBeingWrittenKeepsTheLastOne()
{
    const QTemporaryDir root;
    const QString value = root.filePath(QStringLiteral("gpio7/value"));
    write(value, "1");
    BoardLines outputs(root.path(), {7});
    outputs.refresh();
    write(value, "");
    outputs.refresh();
    QVERIFY(outputs.current().at(0).on);
    write(value, "0");
    outputs.refresh();
    QVERIFY(!outputs.current().at(0).on);
}

void tst_Board::tellsChanges()
{
    const QTemporaryDir root;
    BoardLines outputs(root.path(), {7});
    QVERIFY(!outputs.refresh());
    write(root.filePath(QStringLiteral("gpio7/value")), "1");
    QVERIFY(outputs.refresh());
    QVERIFY(!outputs.refresh());
}

void tst_Board::listsRuns_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("plain words: as they are")
        << run({"r7m.sh", "add", "192.168.7.2"}) << QStringList(QStringLiteral("r7m.sh add 192.168.7.2"));
    QTest::newRow("empty word, blank, quote, newline: quoted")
        << run({"x.sh", "", "a b", "\"", "1\n2"})
        << QStringList(QStringLiteral("x.sh \"\" \"a b\" \"\\\"\" \"1\\n2\""));
    QTest::newRow("two runs: two lines") << run({"a.sh"}) + run({"b.sh", "1"})
                                         << QStringList({QStringLiteral("a.sh"), QStringLiteral("b.sh 1")});
    QTest::newRow("run cut short: left for later")
        << run({"a.sh"}) + run({"b.sh", "1"}).chopped(1) << QStringList(QStringLiteral("a.sh"));
    QTest::newRow("garbage: nothing") << QByteArray("what") + '\0' << QStringList();
    QTest::newRow("empty record: nothing") << QByteArray() << QStringList();
}

void tst_Board::listsRuns()
{
    QFETCH(QByteArray, octets);
    const QTemporaryDir root;
    const QString record = root.filePath(QStringLiteral("runs"));
    write(record, octets);
    ScriptRuns runs(record);
    QTEST(runs.added(), "expected");
}

void tst_Board::readsOnlyWhatWasAdded()
{
    const QTemporaryDir root;
    const QString record = root.filePath(QStringLiteral("runs"));
    ScriptRuns runs(record);
    QCOMPARE(runs.added(), QStringList()); // not there yet
    const QByteArray second = run({"b.sh", "2"});
    write(record, run({"a.sh"}) + second.left(5));
    QCOMPARE(runs.added(), QStringList(QStringLiteral("a.sh")));
    write(record, second.mid(5), QIODevice::Append);
    QCOMPARE(runs.added(), QStringList(QStringLiteral("b.sh 2")));
    QCOMPARE(runs.added(), QStringList());
    write(record, run({"c.sh"})); // a new record, shorter than the old one
    QCOMPARE(runs.added(), QStringList(QStringLiteral("c.sh")));
}

void tst_Board::windowShowsLampsAndRuns()
{
    const QTemporaryDir root;
    const QString record = root.filePath(QStringLiteral("runs"));
    for (const int line : {1, 2, 3, 4}) {
        write(root.filePath(QStringLiteral("gpio%1/direction").arg(line)), "out");
        write(root.filePath(QStringLiteral("gpio%1/value").arg(line)), "0");
    }
    BoardWindow window(BoardLines(root.path(), {1, 2, 3, 4}), ScriptRuns(record));
    window.show();
    auto* const painter = window.findChild<OutputPainter*>();
    const auto lamp = [painter](int index) {
        return painter->grab().toImage().pixelColor(110 * index + 55, 36);
    };
    const QColor dark = lamp(0);
    write(root.filePath(QStringLiteral("gpio1/value")), "1");
    QTRY_VERIFY(lamp(0) != dark);
    QVERIFY(lamp(0).green() > 2 * dark.green());
    QVERIFY(lamp(2).red() < 100); // the red one stays dark

    write(record, run({"r7m.sh", "add"}));
    const auto* const list = window.findChild<QListWidget*>();
    QTRY_COMPARE(list->count(), 1);
    QCOMPARE(list->item(0)->text(), QStringLiteral("r7m.sh add"));
}

QTEST_MAIN(tst_Board)
#include "tst_board.moc"
