// SPDX-License-Identifier: MIT
#include "registerupdate.h"

#include "jsoncommand.h"

namespace Varnel {

namespace {

const QString badUpdate = QStringLiteral("BadUpdate");
constexpr int highestWord = 0xFFFF;

/// A word of the array "values", or -1.
int toWord(const QJsonValue& value)
{
    // toInt() gives the default for a fraction and for anything that is no number.
    const int number = value.toInt(-1);
    return number <= highestWord ? number : -1;
}

Outcome<RegisterRun> parseRun(const QJsonValue& value, int index)
{
    const QString path = QStringLiteral("data[%1]").arg(index);
    if (!value.isObject()) {
        return Refusal{badUpdate, path + QLatin1String(": must be an object")};
    }
    JsonMembers members(value.toObject(), path, badUpdate);
    RegisterRun run;
    run.address = static_cast<quint16>(members.integer(QStringLiteral("address"), 0, addressSpace - 1));
    const QJsonArray values = members.array(QStringLiteral("values"));
    if (run.address + values.size() > addressSpace) {
        members.complain(
            QStringLiteral("values"),
            QStringLiteral("%1 words from address %2 pass 65535").arg(values.size()).arg(run.address));
    }
    if (!members.ok()) {
        return members.refusal();
    }
    run.words.reserve(static_cast<size_t>(values.size()));
    for (int at = 0; at < values.size(); ++at) {
        const int word = toWord(values.at(at));
        if (word < 0) {
            members.complain(QStringLiteral("values[%1]").arg(at),
                             QStringLiteral("must be a whole number from 0 to 65535"));
            return members.refusal();
        }
        run.words.push_back(static_cast<quint16>(word));
    }
    return run;
}

} // namespace

Outcome<RegisterUpdate> parseUpdate(const QByteArray& text)
{
    const Outcome<QJsonObject> object =
        parseCommand(text, QStringLiteral("setconfig"), badUpdate, maxUpdateSize);
    if (!object) {
        return object.refusal;
    }
    JsonMembers members(*object.value, QString(), badUpdate);
    const QJsonArray data = members.array(QStringLiteral("data"));
    if (!members.ok()) {
        return members.refusal();
    }
    RegisterUpdate update;
    update.reserve(static_cast<size_t>(data.size()));
    for (int index = 0; index < data.size(); ++index) {
        const Outcome<RegisterRun> run = parseRun(data.at(index), index);
        if (!run) {
            return run.refusal;
        }
        update.push_back(*run.value);
    }
    return update;
}

} // namespace Varnel
