// SPDX-License-Identifier: MIT
// The soak: runs the panel through everything that happens to one, again and again. See scripts/soak.

#include <QCommandLineParser>
#include <QCoreApplication>

#include "soak.h"

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("DIRECTORY"), QStringLiteral("takes soak.csv"));
    parser.addPositionalArgument(QStringLiteral("SECONDS"), QStringLiteral("how long to run"));
    parser.addPositionalArgument(QStringLiteral("COMMAND"), QStringLiteral("prefix of the panel's command"),
                                 QStringLiteral("[COMMAND...]"));
    parser.process(application);
    bool isNumber = false;
    const int seconds = parser.positionalArguments().value(1).toInt(&isNumber);
    if (!isNumber || seconds < 0) {
        parser.showHelp(2);
    }
    VirtualScreen screen;
    if (!screen.start()) {
        return 1;
    }
    Soak soak(parser.positionalArguments().constFirst(), screen);
    soak.setLauncher(parser.positionalArguments().mid(2));
    return soak.run(std::chrono::seconds(seconds)) ? 0 : 1;
}
