// SPDX-License-Identifier: MIT
#include "scenario.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <optional>

namespace Simulator {

namespace {

constexpr double longestSeconds = 1e6;

std::optional<qint64> milliseconds(const QJsonValue& seconds)
{
    if (!seconds.isDouble() || seconds.toDouble() < 0 || seconds.toDouble() > longestSeconds) {
        return std::nullopt;
    }
    return qRound64(seconds.toDouble() * 1000);
}

/// The step in `entry`, given the time of the step before.
Varnel::Outcome<ScenarioStep> readStep(const QJsonObject& entry, qint64 previousMs)
{
    const QJsonValue at = entry.value(QLatin1String("at"));
    const QJsonValue after = entry.value(QLatin1String("after"));
    if (at.isUndefined() == after.isUndefined()) {
        return Varnel::Refusal(QStringLiteral("needs either \"at\" or \"after\""));
    }
    const std::optional<qint64> time = milliseconds(at.isUndefined() ? after : at);
    if (!time) {
        return Varnel::Refusal(QStringLiteral("its time is no number of seconds"));
    }
    ScenarioStep step;
    step.atMs = at.isUndefined() ? previousMs + *time : *time;
    if (step.atMs < previousMs) {
        return Varnel::Refusal(QStringLiteral("comes before the step that precedes it"));
    }
    if (!entry.value(QLatin1String("do")).isString()) {
        return Varnel::Refusal(QStringLiteral("needs a member \"do\""));
    }
    step.action = entry;
    step.action.remove(QStringLiteral("at"));
    step.action.remove(QStringLiteral("after"));
    return step;
}

} // namespace

Varnel::Outcome<Scenario> readScenario(const QByteArray& text)
{
    QJsonParseError problem{};
    const QJsonObject whole = QJsonDocument::fromJson(text, &problem).object();
    if (problem.error != QJsonParseError::NoError) {
        return Varnel::Refusal(
            QStringLiteral("not JSON: %1 at octet %2").arg(problem.errorString()).arg(problem.offset));
    }
    if (!whole.value(QLatin1String("steps")).isArray()) {
        return Varnel::Refusal(QStringLiteral("\"steps\" is not an array"));
    }
    Scenario scenario;
    const QJsonArray steps = whole.value(QLatin1String("steps")).toArray();
    for (int i = 0; i < steps.size(); ++i) {
        const qint64 previousMs = scenario.steps.isEmpty() ? 0 : scenario.steps.last().atMs;
        const Varnel::Outcome<ScenarioStep> step = readStep(steps.at(i).toObject(), previousMs);
        if (!step) {
            return Varnel::Refusal(QStringLiteral("step %1 %2").arg(i + 1).arg(step.refusal.text));
        }
        scenario.steps.append(*step.value);
    }
    const QJsonValue repeat = whole.value(QLatin1String("repeat"));
    const std::optional<qint64> repeatMs = milliseconds(repeat);
    const qint64 lastMs = scenario.steps.isEmpty() ? 0 : scenario.steps.last().atMs;
    if (!repeat.isUndefined() && (!repeatMs || *repeatMs == 0 || *repeatMs < lastMs)) {
        return Varnel::Refusal(QStringLiteral("\"repeat\" is not a time after the last step"));
    }
    scenario.repeatMs = repeatMs.value_or(0);
    return scenario;
}

ScenarioPlayer::ScenarioPlayer(QObject* parent)
    : QObject(parent)
{
    timer.setSingleShot(true);
    timer.setTimerType(Qt::PreciseTimer);
    connect(&timer, &QTimer::timeout, this, &ScenarioPlayer::next);
}

void ScenarioPlayer::play(const Scenario& newScenario)
{
    scenario = newScenario;
    position = 0;
    elapsedMs = 0;
    if (!scenario.steps.isEmpty()) {
        arm();
    }
}

void ScenarioPlayer::arm()
{
    const bool over = position == scenario.steps.size();
    const qint64 nextMs = over ? scenario.repeatMs : scenario.steps.at(position).atMs;
    timer.start(static_cast<int>(qMin<qint64>(nextMs - elapsedMs, std::numeric_limits<int>::max())));
    elapsedMs = nextMs;
}

void ScenarioPlayer::next()
{
    if (position == scenario.steps.size()) {
        play(scenario);
        return;
    }
    const QJsonObject action = scenario.steps.at(position++).action;
    if (position < scenario.steps.size() || scenario.repeatMs > 0) {
        arm();
    }
    emit due(action);
    if (!timer.isActive()) {
        emit ended();
    }
}

} // namespace Simulator
