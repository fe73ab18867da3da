// SPDX-License-Identifier: MIT
#include "log.h"

#include <cstdio>
#include <tuple>

namespace Varnel {

Q_LOGGING_CATEGORY(lcServer, "varnel.modbus", QtInfoMsg)
Q_LOGGING_CATEGORY(lcClients, "varnel.modbus.clients", QtWarningMsg)

namespace {

void writeLine(QtMsgType /*type*/, const QMessageLogContext& /*context*/, const QString& text)
{
    // Nobody could be told of a failure.
    std::ignore = std::fprintf(stderr, "varnel-modbus-server: %s\n", text.toLocal8Bit().constData());
}

} // namespace

void logToStandardError()
{
    qInstallMessageHandler(&writeLine);
}

} // namespace Varnel
