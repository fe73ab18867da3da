// SPDX-License-Identifier: MIT
// Shows the LEDs and the buzzer of a panel on a desk, and the scripts that it runs.

#include <QApplication>
#include <QCommandLineParser>
#include <QtDebug>

#include "boardwindow.h"
#include "log.h"

namespace {

/// Four line numbers from "224,225,228,230"; empty for any other text.
QVector<int> lineNumbers(const QString& text)
{
    QVector<int> lines;
    const QStringList words = text.split(QLatin1Char(','));
    for (const QString& word : words) {
        bool ok = false;
        lines += word.toInt(&ok);
        if (!ok) {
            return {};
        }
    }
    return lines.size() == 4 ? lines : QVector<int>();
}

} // namespace

int main(int argc, char* argv[])
{
    Varnel::logToStandardError("panel-board");
    QApplication application(argc, argv);
    QApplication::setApplicationName(QStringLiteral("panel-board"));
    QApplication::setApplicationVersion(QStringLiteral(VARNEL_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Draws the panel's LEDs and buzzer from GPIO files and lists its script runs."));
    const QCommandLineOption gpio(QStringLiteral("gpio"), QStringLiteral("Directory of the GPIO lines."),
                                  QStringLiteral("directory"), QStringLiteral("/sys/class/gpio"));
    const QCommandLineOption lines(QStringLiteral("lines"),
                                   QStringLiteral("Lines of green, yellow, red LED and buzzer."),
                                   QStringLiteral("numbers"), QStringLiteral("224,225,228,230"));
    const QCommandLineOption runs(QStringLiteral("runs"),
                                  QStringLiteral("Record that the recording scripts write."),
                                  QStringLiteral("file"), QStringLiteral("/run/script-runs"));
    parser.addOptions({gpio, lines, runs});
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(application);

    const QVector<int> numbers = lineNumbers(parser.value(lines));
    if (numbers.isEmpty()) {
        qCritical().noquote() << "--lines needs four numbers, separated by commas";
        return 2;
    }
    Board::BoardWindow window(Board::BoardLines(parser.value(gpio), numbers),
                              Board::ScriptRuns(parser.value(runs)));
    window.show();
    return QApplication::exec();
}
