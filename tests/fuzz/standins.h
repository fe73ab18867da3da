// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

/// Records the link's effects on the rest of the panel instead of carrying them out. Linked in the place of
/// the real script runner and the real window, which are thereby out of reach of any input.
namespace standins {

/// A script (its file name) or a call of the window, with the arguments.
struct Call
{
    QString name;
    QStringList arguments;
};

extern QVector<Call> scripts;
extern QVector<Call> windowCalls;

/// Whether the scripts exist.
extern bool scriptsThere;

} // namespace standins
