// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

namespace Varnel {

/// The options of the command line.
struct CommandLine
{
    bool verbose = false;
    bool hasDevice = false;
    QString device; ///< of -D
    bool hasRelease = false;
    QString release; ///< of -R
    bool help = false;
    QString error; ///< why reading stopped early; empty when all was understood

    /// Reads `arguments` (the program's name left out) up to the first that cannot be understood, or up to a
    /// request for help: what was read until then holds.
    static CommandLine parse(const QStringList& arguments);

    /// The help text, with `executable` in its usage line.
    static QString helpText(const QString& executable);
};

} // namespace Varnel
