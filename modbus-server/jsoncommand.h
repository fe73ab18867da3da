// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QStringList>

#include "outcome.h"

namespace Varnel {

/// Highest number of words that a client can address: Modbus addresses have 16 bits.
constexpr int addressSpace = 65536;

/// `text` with everything unprintable replaced and at most 60 characters long, in single quotes: text from
/// outside must not break the line or flood the log.
[[nodiscard]] QString quoted(const QString& text);

/// Reads the members of one JSON object and keeps the first error, so that the caller can read all members
/// and check once. After an error the value returned is 0, empty or null.
class JsonMembers
{
public:
    /// `path` names the object in messages ("tables[3]"; empty for the top level), `kind` the refusal's kind.
    JsonMembers(QJsonObject object, QString path, QString kind)
        : object(std::move(object))
        , path(std::move(path))
        , kind(std::move(kind))
    {
    }

    /// A member that must be a whole number from `low` to `high`.
    int integer(const QString& name, int low, int high);
    /// The same for one that may be missing, and is `fallback` then.
    int integerOr(const QString& name, int low, int high, int fallback);
    QString string(const QString& name);
    QJsonArray array(const QString& name);
    QJsonObject subobject(const QString& name);

    /// Records an error that the caller found in the member `name`.
    void complain(const QString& name, const QString& what);

    [[nodiscard]] bool ok() const { return complaints.isEmpty(); }
    /// The first error; only when not ok().
    [[nodiscard]] Refusal refusal() const { return {kind, complaints.value(0)}; }

private:
    [[nodiscard]] QJsonValue member(const QString& name) const { return object.value(name); }

    QJsonObject object;
    QString path;
    QString kind;
    QStringList complaints;
};

/// Parses `text` as one JSON object of at most `limit` bytes whose "cmd" is `command`. A broken text is
/// refused as `kind`, another command as "UnknownCommand".
[[nodiscard]] Outcome<QJsonObject> parseCommand(const QByteArray& text, const QString& command,
                                                const QString& kind, int limit);

} // namespace Varnel
