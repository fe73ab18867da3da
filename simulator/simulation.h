// SPDX-License-Identifier: MIT
#pragma once

#include "controllerstate.h"
#include "corefeed.h"
#include "eventlog.h"
#include "httpserver.h"
#include "options.h"
#include "scenario.h"
#include "site.h"
#include "transmitter.h"

#include <QObject>

#include <memory>
#include <vector>

namespace Simulator {

/// One line pair of the list of actions in --help.
struct ActionHelp
{
    const char* usage;
    const char* meaning;
};

/// All actions, for --help.
std::vector<ActionHelp> actionHelp();

/// The simulated controller: state, frames, web site and scenario put together; does the actions.
class Simulation : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Simulation)

public:
    explicit Simulation(Options startOptions, QObject* parent = nullptr);
    ~Simulation() override = default;

    /// Opens sockets, reads files, does the first actions and starts sending. Returns an empty text, or why
    /// it cannot run.
    [[nodiscard]] QString start();

    /// Does one action. Returns an empty text, or what is wrong with it; a wrong action changes nothing.
    QString perform(const QJsonObject& action);

    /// What the controller says and does at present.
    [[nodiscard]] QJsonObject status() const;

signals:
    /// When the action "quit" was done.
    void quitWanted();

private:
    struct Action
    {
        ActionHelp help;
        const char* name;
        QString (Simulation::*run)(const QJsonObject& action);
    };
    friend std::vector<ActionHelp> actionHelp();
    static const std::vector<Action>& actions();

    QString doSet(const QJsonObject& action);
    QString doRelease(const QJsonObject& action);
    QString doCoreItem(const QJsonObject& action);
    QString doSections(const QJsonObject& action);
    QString doInterval(const QJsonObject& action);
    QString doSilence(const QJsonObject& action);
    QString doResume(const QJsonObject& action);
    QString doWell(const QJsonObject& action);
    QString doReboot(const QJsonObject& action);
    QString doSequence(const QJsonObject& action);
    QString doFault(const QJsonObject& action);
    QString doDuplicate(const QJsonObject& action);
    QString doBurst(const QJsonObject& action);
    QString doRaw(const QJsonObject& action);
    QString doSecond(const QJsonObject& action);
    QString doHttp(const QJsonObject& action);
    QString doHttpDown(const QJsonObject& action);
    QString doHttpUp(const QJsonObject& action);
    QString doLog(const QJsonObject& action);
    QString doQuit(const QJsonObject& action);

    QString openRoutes();
    QString loadFiles();
    [[nodiscard]] QString readyLine() const;
    [[nodiscard]] QHostAddress neighbour() const;
    QList<QByteArray> nextSections();
    void stopHttpFor(int milliseconds);

    Options options;
    EventLog log;
    ControllerState state;
    CoreFeed core;
    QStringList sections;
    Route route;
    Transmitter first;
    std::unique_ptr<Transmitter> second;
    Site site;
    HttpServer http;
    QTimer httpReturn;
    Scenario scenario;
    ScenarioPlayer player;
};

} // namespace Simulator
