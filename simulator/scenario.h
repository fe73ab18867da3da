// SPDX-License-Identifier: MIT
#pragma once

#include "outcome.h"

#include <QJsonObject>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>

namespace Simulator {

/// One timed action; `atMs` counts from the start of the scenario.
struct ScenarioStep
{
    qint64 atMs = 0;
    QJsonObject action;
};

/// The contents of a scenario file.
struct Scenario
{
    QList<ScenarioStep> steps; ///< in the order of their times
    qint64 repeatMs = 0;       ///< begin again after this time; 0: play once
};

/// Reads a scenario: a JSON object with "steps", an array of actions, each with its time as "at" (seconds
/// since the start) or "after" (seconds since the step before), and optionally "repeat" (seconds). A
/// refusal names the number of the step.
Varnel::Outcome<Scenario> readScenario(const QByteArray& text);

/// Plays a scenario in the event loop.
class ScenarioPlayer : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ScenarioPlayer)

public:
    explicit ScenarioPlayer(QObject* parent = nullptr);
    ~ScenarioPlayer() override = default;

    /// Starts from the beginning; time counts from this call.
    void play(const Scenario& newScenario);

signals:
    /// Emitted when a step is due.
    void due(const QJsonObject& action);

    /// Emitted after the last step of a scenario that does not repeat.
    void ended();

private:
    void next();
    void arm();

    Scenario scenario;
    QTimer timer;
    qint64 elapsedMs = 0; ///< time of the last step, or of the last start over
    int position = 0;
};

} // namespace Simulator
