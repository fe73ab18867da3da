// SPDX-License-Identifier: MIT
#include "simulation.h"

#include "action.h"

#include <QFile>
#include <QNetworkInterface>
#include <tuple>
#include <utility>

namespace Simulator {

namespace {

/// The broadcast address of the network that the local address belongs to; null when there is none.
QHostAddress broadcastOf(const QHostAddress& local)
{
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : interfaces) {
        const QList<QNetworkAddressEntry> entries = interface.addressEntries();
        for (const QNetworkAddressEntry& entry : entries) {
            if (entry.ip() == local) {
                return entry.broadcast();
            }
        }
    }
    return {};
}

} // namespace

Simulation::Simulation(SimulatorOptions startOptions, QObject* parent)
    : QObject(parent)
    , options(std::move(startOptions))
    , first([this] { return nextSections(); })
    , site({[this](const QJsonObject& action) { return perform(action); }, [this] { return status(); }})
    , http([this](const HttpRequest& request) { return site.handle(request); })
{
    httpReturn.setSingleShot(true);
    log.setEnabled(options.log);
    sections = options.sections.isEmpty() ? knownSections() : options.sections;
    if (options.startSilent) {
        first.silence(0);
    }
    connect(&first, &Transmitter::sent, this, [this](const QJsonObject& frame) { log.event(frame); });
    connect(&http, &HttpServer::answered, this, [this](const QJsonObject& request) { log.event(request); });
    connect(&httpReturn, &QTimer::timeout, this, [this] {
        std::ignore = perform({{QStringLiteral("do"), QStringLiteral("http-up")}});
    });
    connect(&player, &ScenarioPlayer::due, this, qOverload<const QJsonObject&>(&Simulation::perform));
    connect(&player, &ScenarioPlayer::ended, this, [this] {
        log.event({{QStringLiteral("event"), QStringLiteral("scenario-ended")}});
    });
}

Varnel::Outcome<> Simulation::start()
{
    if (const Varnel::Outcome<> loaded = loadFiles(); !loaded) {
        return loaded;
    }
    if (const Varnel::Outcome<> opened = openRoutes(); !opened) {
        return opened;
    }
    for (const QString& line : qAsConst(options.actions)) {
        if (const Varnel::Outcome<> performed = perform(line); !performed) {
            return performed;
        }
    }
    log.line(readyLine());
    first.start(options.intervalMs, options.frameLimit);
    player.play(scenario);
    return {};
}

Varnel::Outcome<> Simulation::perform(const QString& line)
{
    const Varnel::Outcome<QJsonObject> action = readAction(line);
    return action ? perform(*action.value) : action.refusal;
}

Varnel::Outcome<> Simulation::loadFiles()
{
    if (!options.map.isEmpty()) {
        const Varnel::Outcome<QList<CorePoint>> points = readCoreMap(options.map);
        if (!points) {
            return points.refusal;
        }
        core.setPoints(*points.value);
    }
    return options.scenario.isEmpty() ? Varnel::Outcome<>() : loadScenario(options.scenario);
}

Varnel::Outcome<> Simulation::loadScenario(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return Varnel::Refusal(
            QStringLiteral("cannot read scenario \"%1\": %2").arg(path, file.errorString()));
    }
    const Varnel::Outcome<Scenario> read = readScenario(file.readAll());
    if (!read) {
        return Varnel::Refusal(QStringLiteral("scenario \"%1\": %2").arg(path, read.refusal.text));
    }
    scenario = *read.value;
    return {};
}

Varnel::Outcome<> Simulation::openRoutes()
{
    if (!site.setFrontPage(options.page)) {
        return Varnel::Refusal(QStringLiteral("--page: \"%1\" is neither board nor plain").arg(options.page));
    }
    route.source = options.source;
    if (route.source.isNull() && options.httpAddress != QHostAddress(QHostAddress::AnyIPv4)) {
        route.source = options.httpAddress; // the panel asks for the page where its frames come from
    }
    route.target = options.broadcast ? broadcastOf(route.source) : options.target;
    route.port = options.targetPort;
    if (route.target.isNull()) {
        return Varnel::Refusal(
            QStringLiteral("--broadcast: no network with a broadcast address has the local address \"%1\"")
                .arg(route.source.toString()));
    }
    if (const Varnel::Outcome<> opened = first.open(route); !opened) {
        return opened;
    }
    site.setLoginRequired(!options.login.isEmpty());
    http.setLogin(options.login, options.password);
    http.setUploadDirectory(options.uploadDirectory);
    return http.listen(options.httpAddress, options.httpPort);
}

QString Simulation::readyLine() const
{
    const QString source = route.source.isNull() ? QStringLiteral("any") : route.source.toString();
    return QStringLiteral("listening http=%1:%2 target=%3:%4 source=%5")
        .arg(http.address().toString(), QString::number(http.port()), route.target.toString(),
             QString::number(route.port), source);
}

QList<QByteArray> Simulation::nextSections()
{
    core.advance();
    QList<QByteArray> list;
    for (const QString& name : knownSections()) {
        if (!sections.contains(name)) {
            continue;
        }
        if (name != QLatin1String("core")) {
            list.append(state.section(name));
        } else if (core.hasItems() || options.sections.contains(name)) {
            list.append(core.section());
        }
    }
    return list;
}

/// An address for a second controller: every address of the loopback network is local, so the next one will
/// do; elsewhere there is none to be sure of.
QHostAddress Simulation::neighbour() const
{
    if (!route.source.isLoopback()) {
        return {};
    }
    return QHostAddress(route.source.toIPv4Address() + 1);
}

QJsonObject Simulation::status() const
{
    QJsonObject whole = state.toJson();
    whole.insert(QStringLiteral("core"), core.toJson());
    whole.insert(QStringLiteral("sequence"), static_cast<double>(first.sequence()));
    whole.insert(QStringLiteral("silent"), first.isSilent());
    whole.insert(QStringLiteral("second"), second != nullptr);
    whole.insert(QStringLiteral("neighbour"), neighbour().toString());
    whole.insert(QStringLiteral("sections"), QJsonArray::fromStringList(sections));
    return whole;
}

} // namespace Simulator
