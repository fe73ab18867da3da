// SPDX-License-Identifier: MIT
#pragma once

#include <QLoggingCategory>
#include <QRegularExpression>
#include <QStringList>
#include <QVector>
#include <QtGlobal>

#include "literals.h"

/// Records every line written to Qt's log while it lives, in order and with its type, and keeps them off the
/// terminal. Recorders nest: the innermost one gets the lines. Main thread only.
class LogRecorder
{
public:
    /// One line as it would appear on standard error.
    struct Line
    {
        QtMsgType type = QtDebugMsg;
        QString category;
        QString text;
    };

    LogRecorder()
        : outer(current())
        , previous(qInstallMessageHandler(&LogRecorder::record))
    {
        current() = this;
    }

    ~LogRecorder()
    {
        qInstallMessageHandler(previous);
        current() = outer;
    }

    Q_DISABLE_COPY_MOVE(LogRecorder)

    /// All lines so far.
    const QVector<Line>& lines() const { return recorded; }

    /// The texts of the uncategorised lines (the documented ones), any type.
    QStringList texts() const
    {
        QStringList result;
        for (const Line& line : recorded) {
            if (line.category == QLatin1String("default")) {
                result << line.text;
            }
        }
        return result;
    }

    /// The texts of the lines of one logging category (the extra diagnostics).
    QStringList texts(const QString& category) const
    {
        QStringList result;
        for (const Line& line : recorded) {
            if (line.category == category) {
                result << line.text;
            }
        }
        return result;
    }

    void clear() { recorded.clear(); }

private:
    static LogRecorder*& current()
    {
        static LogRecorder* recorder = nullptr;
        return recorder;
    }

    static void record(QtMsgType type, const QMessageLogContext& context, const QString& text)
    {
        current()->recorded.append({type, QString::fromLatin1(context.category), text});
    }

    LogRecorder* outer = nullptr;
    QtMessageHandler previous = nullptr;
    QVector<Line> recorded;
};

/// Switches diagnostics on that are silent by default, as QT_LOGGING_RULES does, while it lives.
class LogRules
{
public:
    explicit LogRules(const char* rules) { QLoggingCategory::setFilterRules(QString::fromLatin1(rules)); }
    ~LogRules() { QLoggingCategory::setFilterRules(QString()); }

    Q_DISABLE_COPY_MOVE(LogRules)
};

/// Log lines with what differs from run to run replaced: the time stamp in front by "TIME", the duration of a
/// request by "N".
inline QStringList withoutStamps(QStringList lines)
{
    static const QRegularExpression stamp(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} - "));
    static const QRegularExpression duration(QStringLiteral(" \\(took \\d+ms\\)$"));
    for (QString& line : lines) {
        line.replace(stamp, QStringLiteral("TIME - ")).replace(duration, QStringLiteral(" (took Nms)"));
    }
    return lines;
}
