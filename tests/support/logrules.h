// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>

/// Switches diagnostics on that are silent by default, as QT_LOGGING_RULES does, while it lives.
class LogRules
{
public:
    explicit LogRules(const char* rules) { QLoggingCategory::setFilterRules(QString::fromLatin1(rules)); }
    ~LogRules() { QLoggingCategory::setFilterRules(QString()); }

    Q_DISABLE_COPY_MOVE(LogRules)
};
