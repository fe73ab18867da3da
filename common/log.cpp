// SPDX-License-Identifier: MIT
#include "log.h"

#include <cstdio>
#include <tuple>

#include <QString>
#include <QtGlobal>

namespace Varnel {

namespace {

const char* programName = "";

void writeLine(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& text)
{
    // Ignore a failure: there is nowhere to report it.
    std::ignore = std::fprintf(stderr, "%s: %s\n", programName, text.toLocal8Bit().constData());
}

} // namespace

void logToStandardError(const char* program)
{
    programName = program;
    qInstallMessageHandler(&writeLine);
}

} // namespace Varnel
