// SPDX-License-Identifier: MIT
#include "simulation.h"

#include "action.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
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

/// The path of a scenario: the file of this name, or else the one that came with the program.
QString scenarioPath(const QString& name)
{
    const QDir installed(QCoreApplication::applicationDirPath() +
                         QLatin1String("/../share/varnel-tools/scenarios"));
    const bool isPlain = !name.contains(QLatin1Char('/'));
    for (const QString& file : {name, name + QLatin1String(".json")}) {
        if (isPlain && !QFileInfo::exists(name) && installed.exists(file)) {
            return installed.filePath(file);
        }
    }
    return name;
}

} // namespace

Simulation::Simulation(SimulatorOptions startOptions, QObject* parent)
    : QObject(parent)
    , options(std::move(startOptions))
    , first([this] { return nextSections(); })
    , site({[this](const QJsonObject& action) { return perform(action); }, [this] { return status(); }})
    , http([this](const HttpRequest& request) { return answer(request); })
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
    connect(&replayer, &Replayer::due, this, &Simulation::sendRecorded);
    connect(&replayer, &Replayer::ended, this, &Simulation::endReplay);
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
    if (options.replay.isEmpty()) {
        first.start(options.intervalMs, options.frameLimit);
    } else {
        replayer.start(options.speed);
    }
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
    if (!options.replay.isEmpty()) {
        if (const Varnel::Outcome<> opened = replayer.open(options.replay, options.replayPort); !opened) {
            return opened;
        }
    }
    if (!options.record.isEmpty()) {
        if (const Varnel::Outcome<> opened = recorder.open(options.record); !opened) {
            return opened;
        }
        first.setRecorder(&recorder);
    }
    return options.scenario.isEmpty() ? Varnel::Outcome<>() : loadScenario(options.scenario);
}

Varnel::Outcome<> Simulation::loadScenario(const QString& path)
{
    QFile file(scenarioPath(path));
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
        route.source = options.httpAddress; // the panel requests the page from the address of the frames
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
    if (const Varnel::Outcome<> opened = openReplay(); !opened) {
        return opened;
    }
    site.setLoginRequired(!options.login.isEmpty());
    http.setLogin(options.login, options.password);
    http.setUploadDirectory(options.uploadDirectory);
    return http.listen(options.httpAddress, options.httpPort);
}

/// Each sender of a recording has an address: the first one the route's source, each further one the next
/// address of the loopback network. On other networks there is only one address, and the frames of the other
/// senders are left out.
Varnel::Outcome<> Simulation::openReplay()
{
    for (int i = 1; i < replayer.senders().size(); ++i) {
        if (!route.source.isLoopback()) {
            qWarning().noquote() << QStringLiteral(
                                        "%1 controllers are recorded; only the frames of %2 are sent")
                                        .arg(replayer.senders().size())
                                        .arg(replayer.senders().first().toString());
            break;
        }
        Varnel::Outcome<std::unique_ptr<Transmitter>> sender =
            openSender(QHostAddress(route.source.toIPv4Address() + quint32(i)));
        if (!sender) {
            return sender.refusal;
        }
        others.push_back(std::move(*sender.value));
    }
    return {};
}

Varnel::Outcome<std::unique_ptr<Transmitter>> Simulation::openSender(const QHostAddress& source)
{
    Route other = route;
    other.source = source;
    auto sender = std::make_unique<Transmitter>([this] { return nextSections(); });
    if (const Varnel::Outcome<> opened = sender->open(other); !opened) {
        return opened.refusal;
    }
    if (!options.record.isEmpty()) {
        sender->setRecorder(&recorder);
    }
    connect(sender.get(), &Transmitter::sent, this, [this](const QJsonObject& frame) { log.event(frame); });
    return sender;
}

void Simulation::sendRecorded(const QByteArray& octets, int sender)
{
    if (sender == 0) {
        first.sendRecorded(octets);
    } else if (sender <= int(others.size())) {
        others[size_t(sender - 1)]->sendRecorded(octets);
    }
}

void Simulation::endReplay(const QString& problem)
{
    if (!problem.isEmpty()) {
        qWarning().noquote() << QStringLiteral("%1: %2").arg(options.replay, problem);
    }
    log.event({{QStringLiteral("event"), QStringLiteral("replay-ended")}});
}

/// The pages of a recording replace the site's own; the control address stays.
HttpReply Simulation::answer(const HttpRequest& request)
{
    return site.handle(request, [this](const HttpRequest& wanted) -> std::optional<HttpReply> {
        if (replayer.site().isEmpty()) {
            return std::nullopt;
        }
        return replayer.site().reply(wanted, replayer.position());
    });
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

/// An address for a second controller: every address of the loopback network is local, so the next one is
/// used; on other networks no address is certain to be local.
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
