// SPDX-License-Identifier: MIT
#include "toolcommandline.h"

#include <QCoreApplication>

namespace Varnel {

QString readCommandLine(QCommandLineParser& parser)
{
    const QCommandLineOption help = parser.addHelpOption();
    const QCommandLineOption version = parser.addVersionOption();
    if (!parser.parse(QCoreApplication::arguments())) {
        return parser.errorText();
    }
    if (parser.isSet(version)) {
        parser.showVersion();
    }
    if (parser.isSet(help)) {
        parser.showHelp();
    }
    return {};
}

} // namespace Varnel
