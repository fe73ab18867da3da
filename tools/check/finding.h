// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

namespace VarnelCheck {

/// One thing that a technician or integrator should know about a panel.
struct Finding
{
    enum class Severity
    {
        Note,    ///< a fact that helps to find causes
        Warning, ///< works, but probably not as intended
        Error,   ///< something does not work
    };

    Severity severity = Severity::Error;
    QString where; ///< a path, with ":LINE" in text files
    QString what;
    QString why; ///< what the user of the panel notices
    QString fix; ///< the command or change that removes the cause
};

using Findings = QVector<Finding>;

} // namespace VarnelCheck
