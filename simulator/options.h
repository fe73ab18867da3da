// SPDX-License-Identifier: MIT
#pragma once

#include "invocation.h"

#include <QHostAddress>
#include <QString>
#include <QStringList>

namespace Simulator {

/// The options of the command line.
struct SimulatorOptions
{
    QHostAddress httpAddress{QHostAddress::AnyIPv4};
    quint16 httpPort = 80;
    QHostAddress target{QHostAddress::LocalHost};
    quint16 targetPort = 9876;
    QHostAddress source; ///< null: the HTTP address, or the system's choice where that is any
    int intervalMs = 1000;
    qint64 frameLimit = 0;
    QString login = QStringLiteral("admin");
    QString password = QStringLiteral("admin");
    QString scenario;
    QString map;
    QString record;
    QString replay;
    quint16 replayPort = 9876;
    double speed = 1;
    QString uploadDirectory;
    QString page = QStringLiteral("board");
    QStringList sections;
    QStringList actions;
    bool broadcast = false;
    bool startSilent = false;
    bool log = false;
    bool readInput = false;
};

/// Reads the command line; `arguments` begins with the program's name.
Varnel::Invocation<SimulatorOptions> parseOptions(const QStringList& arguments);

/// The names that --sections knows, in the order in which they are sent.
QStringList knownSections();

} // namespace Simulator
