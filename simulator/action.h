// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"

#include <QJsonObject>
#include <QString>

namespace Simulator {

/// Reads one action from a line of text: either a JSON object with a member "do", or words as in
/// `set gpiostate.good=slow devinfo.lang=fr`, where the first word is the value of "do" and every further
/// one a member; quotes keep blanks together.
Varnel::Outcome<QJsonObject> readAction(const QString& line);

/// A whole number from a member that may also be text; `fallback` when the member is absent or no number.
qint64 wholeNumber(const QJsonObject& action, const char* member, qint64 fallback);

/// A time in milliseconds from a member in seconds (fractions allowed), `fallback` when absent or wrong.
int millisecondsFromSeconds(const QJsonObject& action, const char* member, int fallback);

} // namespace Simulator
