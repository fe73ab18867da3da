// SPDX-License-Identifier: MIT
#include <QListWidget>
#include <QTemporaryDir>
#include <QTest>

#include "boardwindow.h"
#include "files.h"
#include "literals.h"
#include "rows.h"

using namespace Board;

namespace {

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
    void init()
    {
        root = std::make_unique<QTemporaryDir>();
        record = root->filePath("runs"_s);
    }

    void readsLine_data()
    {
        const Rows<QByteArray, QByteArray, QByteArray, BoardLine> row("direction", "activeLow", "value",
                                                                      "expected");
        row("kernel's line ends: ignored", "out\n", "0\n", "1\n", BoardLine{true, true, true, false});
        row("bare values, active low: on", "out", "1", "1", BoardLine{true, true, true, true});
        row("value 0: off", "out", "1", "0", BoardLine{true, true, false, true});
        row("direction in: not driven", "in", "0", "1", BoardLine{true, false, true, false});
    }

    void readsLine()
    {
        QFETCH(QByteArray, direction);
        QFETCH(QByteArray, activeLow);
        QFETCH(QByteArray, value);
        writeFile(root->filePath("gpio7/direction"_s), direction);
        writeFile(root->filePath("gpio7/active_low"_s), activeLow);
        writeFile(root->filePath("gpio7/value"_s), value);
        BoardLines outputs(root->path(), {7, 8});
        outputs.refresh();
        QTEST(outputs.current().at(0), "expected");
        QCOMPARE(outputs.current().at(1), BoardLine());
    }

    void tellsChanges()
    {
        const QString value = root->filePath("gpio7/value"_s);
        BoardLines outputs(root->path(), {7});
        QVERIFY(!outputs.refresh());
        writeFile(value, "1");
        QVERIFY(outputs.refresh());
        writeFile(value, ""); // being written: the last one counts
        QVERIFY(!outputs.refresh());
        QVERIFY(outputs.current().at(0).on);
        writeFile(value, "0");
        QVERIFY(outputs.refresh());
        QVERIFY(!outputs.current().at(0).on);
    }

    void listsRuns_data()
    {
        const Rows<QByteArray, QStringList> row("octets", "expected");
        row("plain words: as they are", run({"r7m.sh", "add", "192.168.7.2"}), {"r7m.sh add 192.168.7.2"_s});
        row("empty word, blank, quote, newline: quoted", run({"x.sh", "", "a b", "\"", "1\n2"}),
            {"x.sh \"\" \"a b\" \"\\\"\" \"1\\n2\""_s});
        row("two runs: two lines", run({"a.sh"}) + run({"b.sh", "1"}), QStringList({"a.sh"_s, "b.sh 1"_s}));
        row("run cut short: left for later", run({"a.sh"}) + run({"b.sh", "1"}).chopped(1), {"a.sh"_s});
        row("garbage: nothing", QByteArray("what") + '\0', {});
        row("empty record: nothing", {}, {});
    }

    void listsRuns()
    {
        QFETCH(QByteArray, octets);
        writeFile(record, octets);
        ScriptRuns runs(record);
        QTEST(runs.added(), "expected");
    }

    void readsOnlyWhatWasAdded()
    {
        ScriptRuns runs(record);
        QCOMPARE(runs.added(), QStringList()); // not there yet
        const QByteArray second = run({"b.sh", "2"});
        writeFile(record, run({"a.sh"}) + second.left(5));
        QCOMPARE(runs.added(), QStringList("a.sh"_s));
        writeFile(record, second.mid(5), QIODevice::Append);
        QCOMPARE(runs.added(), QStringList("b.sh 2"_s));
        QCOMPARE(runs.added(), QStringList());
        writeFile(record, run({"c.sh"})); // a new record, shorter than the old one
        QCOMPARE(runs.added(), QStringList("c.sh"_s));
    }

    void windowShowsLampsAndRuns()
    {
        for (const int line : {1, 2, 3, 4}) {
            writeFile(root->filePath("gpio%1/direction"_s.arg(line)), "out");
            writeFile(root->filePath("gpio%1/value"_s.arg(line)), "0");
        }
        BoardWindow window(BoardLines(root->path(), {1, 2, 3, 4}), ScriptRuns(record));
        window.show();
        auto* const painter = window.findChild<OutputPainter*>();
        const auto lamp = [painter](int index) {
            return painter->grab().toImage().pixelColor(110 * index + 55, 36);
        };
        const QColor dark = lamp(0);
        writeFile(root->filePath("gpio1/value"_s), "1");
        QTRY_VERIFY(lamp(0) != dark);
        QVERIFY(lamp(0).green() > 2 * dark.green());
        QVERIFY(lamp(2).red() < 100); // the red one stays dark

        writeFile(record, run({"r7m.sh", "add"}));
        const auto* const list = window.findChild<QListWidget*>();
        QTRY_COMPARE(list->count(), 1);
        QCOMPARE(list->item(0)->text(), "r7m.sh add"_s);
    }

private:
    std::unique_ptr<QTemporaryDir> root;
    QString record;
};

QTEST_MAIN(tst_Board)
#include "tst_board.moc"
