// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

#include "finding.h"

namespace VarnelCheck {

/// The findings of one check.
struct Section
{
    QString title;
    Findings findings;
};

using Report = QVector<Section>;

/// The number of findings of one severity.
int count(const Report& report, Finding::Severity severity);

/// For a person: each finding with reason and remedy. `isColored` adds terminal colours.
QString asText(const Report& report, bool isColored, bool hasNotes);
/// One line for each warning and error, for logs.
QString asShortText(const Report& report);
/// For programs: one JSON object on one line. `version` is that of the panel's package.
QByteArray asJson(const Report& report, const QString& version);

} // namespace VarnelCheck
