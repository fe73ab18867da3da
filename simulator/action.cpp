// SPDX-License-Identifier: MIT
#include "action.h"

#include <QJsonDocument>
#include <QProcess>
#include <QStringList>

namespace Simulator {

namespace {

Varnel::Outcome<QJsonObject> readJsonAction(const QString& line)
{
    QJsonParseError problem{};
    const QJsonDocument document = QJsonDocument::fromJson(line.toUtf8(), &problem);
    QJsonObject action = document.object();
    if (problem.error != QJsonParseError::NoError) {
        return Varnel::Refusal(QStringLiteral("not JSON: %1").arg(problem.errorString()));
    }
    if (!action.value(QLatin1String("do")).isString()) {
        return Varnel::Refusal(QStringLiteral("an action needs a member \"do\""));
    }
    return action;
}

} // namespace

Varnel::Outcome<QJsonObject> readAction(const QString& line)
{
    if (line.trimmed().startsWith(QLatin1Char('{'))) {
        return readJsonAction(line);
    }
    QStringList words = QProcess::splitCommand(line);
    if (words.isEmpty()) {
        return Varnel::Refusal(QStringLiteral("empty action"));
    }
    QJsonObject action{{QStringLiteral("do"), words.takeFirst()}};
    for (const QString& word : qAsConst(words)) {
        const int sign = word.indexOf(QLatin1Char('='));
        if (sign < 1) {
            return Varnel::Refusal(QStringLiteral("\"%1\" is not of the form name=value").arg(word));
        }
        action.insert(word.left(sign), word.mid(sign + 1));
    }
    return action;
}

qint64 wholeNumber(const QJsonObject& action, const char* member, qint64 fallback)
{
    bool ok = false;
    const qint64 number = action.value(QLatin1String(member)).toVariant().toString().toLongLong(&ok, 0);
    return ok ? number : fallback;
}

int millisecondsFromSeconds(const QJsonObject& action, const char* member, int fallback)
{
    bool ok = false;
    const double seconds = action.value(QLatin1String(member)).toVariant().toString().toDouble(&ok);
    constexpr double longest = 1e6; // keeps the product within an int
    return ok && seconds >= 0 && seconds <= longest ? static_cast<int>(seconds * 1000) : fallback;
}

} // namespace Simulator
