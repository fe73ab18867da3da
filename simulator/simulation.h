// SPDX-License-Identifier: MIT
#pragma once

#include "controllerstate.h"
#include "corefeed.h"
#include "eventlog.h"
#include "framerecorder.h"
#include "httpserver.h"
#include "options.h"
#include "outcome.h"
#include "replayer.h"
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
    explicit Simulation(SimulatorOptions startOptions, QObject* parent = nullptr);
    ~Simulation() override = default;

    /// Opens sockets, reads files, does the first actions and starts sending.
    Varnel::Outcome<> start();

    /// Does one action; a wrong action changes nothing.
    Varnel::Outcome<> perform(const QJsonObject& action);

    /// The same for an action in words, or as the text of a JSON object.
    Varnel::Outcome<> perform(const QString& line);

    /// The present state of the controller.
    [[nodiscard]] QJsonObject status() const;

signals:
    /// Emitted after the action "quit".
    void quitWanted();

private:
    struct Action
    {
        ActionHelp help;
        const char* name;
        Varnel::Outcome<> (Simulation::*run)(const QJsonObject& action);
    };
    friend std::vector<ActionHelp> actionHelp();
    static const std::vector<Action>& actions();

    Varnel::Outcome<> doSet(const QJsonObject& action);
    Varnel::Outcome<> doRelease(const QJsonObject& action);
    Varnel::Outcome<> doCoreItem(const QJsonObject& action);
    Varnel::Outcome<> doSections(const QJsonObject& action);
    Varnel::Outcome<> doInterval(const QJsonObject& action);
    Varnel::Outcome<> doSilence(const QJsonObject& action);
    Varnel::Outcome<> doResume(const QJsonObject& action);
    Varnel::Outcome<> doWell(const QJsonObject& action);
    Varnel::Outcome<> doReboot(const QJsonObject& action);
    Varnel::Outcome<> doSequence(const QJsonObject& action);
    Varnel::Outcome<> doFault(const QJsonObject& action);
    Varnel::Outcome<> doDuplicate(const QJsonObject& action);
    Varnel::Outcome<> doBurst(const QJsonObject& action);
    Varnel::Outcome<> doRaw(const QJsonObject& action);
    Varnel::Outcome<> doSecond(const QJsonObject& action);
    Varnel::Outcome<> doHttp(const QJsonObject& action);
    Varnel::Outcome<> doHttpDown(const QJsonObject& action);
    Varnel::Outcome<> doHttpUp(const QJsonObject& action);
    Varnel::Outcome<> doLog(const QJsonObject& action);
    Varnel::Outcome<> doQuit(const QJsonObject& action);

    Varnel::Outcome<> openRoutes();
    Varnel::Outcome<> loadFiles();
    Varnel::Outcome<> loadScenario(const QString& path);
    [[nodiscard]] QString readyLine() const;
    [[nodiscard]] QHostAddress neighbour() const;
    QList<QByteArray> nextSections();
    void stopHttpFor(int milliseconds);
    [[nodiscard]] Varnel::Outcome<> openReplay();
    [[nodiscard]] Varnel::Outcome<std::unique_ptr<Transmitter>> openSender(const QHostAddress& source);
    void sendRecorded(const QByteArray& octets, int sender);
    void endReplay(const QString& problem);
    [[nodiscard]] HttpReply answer(const HttpRequest& request);

    SimulatorOptions options;
    EventLog log;
    ControllerState state;
    CoreFeed core;
    QStringList sections;
    Route route;
    Transmitter first;
    std::unique_ptr<Transmitter> second;
    FrameRecorder recorder;
    Replayer replayer;
    std::vector<std::unique_ptr<Transmitter>> others; ///< play the further senders of a recording
    Site site;
    HttpServer http;
    QTimer httpReturn;
    Scenario scenario;
    ScenarioPlayer player;
};

} // namespace Simulator
