// SPDX-License-Identifier: MIT
#include "simulation.h"

#include "action.h"

namespace Simulator {

namespace {

constexpr int largestBurst = 100000;

QString text(const QJsonObject& action, const char* member)
{
    return action.value(QLatin1String(member)).toVariant().toString();
}

bool isTrue(const QString& word)
{
    return word == QLatin1String("true") || word == QLatin1String("on") || word == QLatin1String("yes") ||
           word == QLatin1String("1");
}

int frameCount(const QJsonObject& action)
{
    return static_cast<int>(qBound<qint64>(0, wholeNumber(action, "count", 1), largestBurst));
}

/// Nested objects as paths: {"gpiostate": {"good": 1}} is "gpiostate.good" = 1.
void flatten(const QJsonObject& object, const QString& prefix, QMap<QString, QJsonValue>& paths)
{
    for (auto member = object.begin(); member != object.end(); ++member) {
        const QString path = prefix + member.key();
        if (member->isObject()) {
            flatten(member->toObject(), path + QLatin1Char('.'), paths);
        } else if (path != QLatin1String("do")) {
            paths.insert(path, member.value());
        }
    }
}

} // namespace

const std::vector<Simulation::Action>& Simulation::actions()
{
    static const std::vector<Action> list = {
        {{"set PATH=VALUE ...",
          "change fields of the sections; core.ID=VALUE fixes the value of register ID"},
         "set",
         &Simulation::doSet},
        {{"release id=ID", "let a fixed Core value change again (default: all)"},
         "release",
         &Simulation::doRelease},
        {{"core-item class=N field=N index=N type=N hex=OCTETS",
          "add this item to every Core section, octets as on the wire; without members: remove all such "
          "items"},
         "core-item",
         &Simulation::doCoreItem},
        {{"sections list=LIST", "send only these sections from now on (or all)"},
         "sections",
         &Simulation::doSections},
        {{"interval ms=N", "time between frames"}, "interval", &Simulation::doInterval},
        {{"silence seconds=N", "send no frames for N seconds (0 or none: until resume)"},
         "silence",
         &Simulation::doSilence},
        {{"resume", "end a silence"}, "resume", &Simulation::doResume},
        {{"well", "end silence, frame and HTTP faults and the second controller, open the HTTP port"},
         "well",
         &Simulation::doWell},
        {{"reboot seconds=N", "sequence numbers begin at 1 again, after N seconds without frames and HTTP"},
         "reboot",
         &Simulation::doReboot},
        {{"sequence next=N", "the number of the next frame"}, "sequence", &Simulation::doSequence},
        {{"fault kind=KIND count=N", "spoil the next N frames (default 1; 0: all; kind none: stop that)"},
         "fault",
         &Simulation::doFault},
        {{"duplicate count=N", "send the last datagram N times more"}, "duplicate", &Simulation::doDuplicate},
        {{"burst count=N", "send N correct frames at once"}, "burst", &Simulation::doBurst},
        {{"raw hex=OCTETS", "send a datagram unchanged"}, "raw", &Simulation::doRaw},
        {{"second source=ADDR interval=MS count=N",
          "a second controller sends frames too, from this local address (default: the one after the own, in "
          "the loopback network); "
          "stop=yes: it ends"},
         "second",
         &Simulation::doSecond},
        {{"http path=PATH fault=KIND count=N",
          "spoil answers for PATH (a final * matches anything; count 0: all; fault none: stop that)"},
         "http",
         &Simulation::doHttp},
        {{"http-down seconds=N", "close the HTTP port for N seconds (0 or none: until http-up)"},
         "http-down",
         &Simulation::doHttpDown},
        {{"http-up", "open the HTTP port again"}, "http-up", &Simulation::doHttpUp},
        {{"log enabled=yes", "write events to standard output, or not (no)"}, "log", &Simulation::doLog},
        {{"quit", "end the program"}, "quit", &Simulation::doQuit},
    };
    return list;
}

std::vector<ActionHelp> actionHelp()
{
    std::vector<ActionHelp> list;
    for (const Simulation::Action& action : Simulation::actions()) {
        list.push_back(action.help);
    }
    return list;
}

Varnel::Outcome<> Simulation::perform(const QJsonObject& action)
{
    const QString name = text(action, "do");
    Varnel::Outcome<> outcome = Varnel::Refusal(QStringLiteral("unknown action \"%1\"").arg(name));
    for (const Action& known : actions()) {
        if (name == QLatin1String(known.name)) {
            outcome = (this->*known.run)(action);
            break;
        }
    }
    QJsonObject description{{QStringLiteral("event"), QStringLiteral("action")},
                            {QStringLiteral("action"), action}};
    if (!outcome) {
        description.insert(QStringLiteral("error"), outcome.refusal.text);
    }
    log.event(description);
    return outcome;
}

Varnel::Outcome<> Simulation::doSet(const QJsonObject& action)
{
    QMap<QString, QJsonValue> paths;
    flatten(action, QString(), paths);
    ControllerState newState = state;
    CoreFeed newCore = core;
    for (auto item = paths.begin(); item != paths.end(); ++item) {
        const bool isCore = item.key().startsWith(QLatin1String("core."));
        const Varnel::Outcome<> outcome =
            isCore ? newCore.hold(item.key().mid(5), item.value()) : newState.set(item.key(), item.value());
        if (!outcome) {
            return outcome;
        }
    }
    state = newState;
    core = newCore;
    return {};
}

Varnel::Outcome<> Simulation::doRelease(const QJsonObject& action)
{
    const QString id = text(action, "id");
    return core.release(id.isEmpty() ? QStringLiteral("*") : id);
}

Varnel::Outcome<> Simulation::doCoreItem(const QJsonObject& action)
{
    if (action.size() == 1) {
        core.clearRawItems();
        return {};
    }
    CorePoint point;
    point.ciClass = static_cast<quint16>(wholeNumber(action, "class", 0));
    point.ciField = static_cast<quint16>(wholeNumber(action, "field", 0));
    point.instance = static_cast<quint8>(wholeNumber(action, "index", 0));
    point.typeCode = static_cast<quint8>(wholeNumber(action, "type", 0));
    core.addRawItem(point, QByteArray::fromHex(text(action, "hex").toLatin1()));
    return {};
}

Varnel::Outcome<> Simulation::doSections(const QJsonObject& action)
{
    const QString list = text(action, "list");
    const QStringList names =
        list == QLatin1String("all") ? knownSections() : list.split(QLatin1Char(','), Qt::SkipEmptyParts);
    for (const QString& name : names) {
        if (!knownSections().contains(name)) {
            return Varnel::Refusal(QStringLiteral("\"%1\" is no section").arg(name));
        }
    }
    sections = names;
    return {};
}

Varnel::Outcome<> Simulation::doInterval(const QJsonObject& action)
{
    const qint64 milliseconds = wholeNumber(action, "ms", 0);
    if (milliseconds < 1 || milliseconds > 3600000) {
        return Varnel::Refusal(QStringLiteral("interval needs ms=1 to 3600000"));
    }
    first.setInterval(static_cast<int>(milliseconds));
    return {};
}

Varnel::Outcome<> Simulation::doSilence(const QJsonObject& action)
{
    first.silence(millisecondsFromSeconds(action, "seconds", 0));
    return {};
}

Varnel::Outcome<> Simulation::doResume(const QJsonObject&)
{
    first.resume();
    return {};
}

Varnel::Outcome<> Simulation::doWell(const QJsonObject&)
{
    second.reset();
    first.resume();
    first.setFault(nullptr, 0);
    site.faults().clear();
    return http.isListening() ? Varnel::Outcome<>() : doHttpUp({});
}

Varnel::Outcome<> Simulation::doReboot(const QJsonObject& action)
{
    const int milliseconds = millisecondsFromSeconds(action, "seconds", 0);
    first.setSequence(1);
    if (milliseconds > 0) {
        first.silence(milliseconds);
        stopHttpFor(milliseconds);
    }
    return {};
}

Varnel::Outcome<> Simulation::doSequence(const QJsonObject& action)
{
    const qint64 next = wholeNumber(action, "next", -1);
    if (next < 0 || next > 0xFFFFFFFFLL) {
        return Varnel::Refusal(QStringLiteral("sequence needs next=0 to 4294967295"));
    }
    first.setSequence(static_cast<quint32>(next));
    return {};
}

Varnel::Outcome<> Simulation::doFault(const QJsonObject& action)
{
    const QString kind = text(action, "kind");
    const FrameFault* fault = findFrameFault(kind);
    if (fault == nullptr && kind != QLatin1String("none")) {
        return Varnel::Refusal(QStringLiteral("unknown frame fault \"%1\"").arg(kind));
    }
    first.setFault(fault, wholeNumber(action, "count", 1));
    return {};
}

Varnel::Outcome<> Simulation::doDuplicate(const QJsonObject& action)
{
    first.repeatLast(frameCount(action));
    return {};
}

Varnel::Outcome<> Simulation::doBurst(const QJsonObject& action)
{
    first.burst(frameCount(action));
    return {};
}

Varnel::Outcome<> Simulation::doRaw(const QJsonObject& action)
{
    first.sendRaw(QByteArray::fromHex(text(action, "hex").toLatin1()), QStringLiteral("raw"));
    return {};
}

Varnel::Outcome<> Simulation::doSecond(const QJsonObject& action)
{
    if (isTrue(text(action, "stop"))) {
        second.reset();
        return {};
    }
    QHostAddress source = neighbour();
    if (action.contains(QLatin1String("source"))) {
        source.setAddress(text(action, "source"));
    }
    if (source.isNull()) {
        return Varnel::Refusal(QStringLiteral("second needs source=ADDR"));
    }
    Varnel::Outcome<std::unique_ptr<Transmitter>> sender = openSender(source);
    if (!sender) {
        return sender.refusal;
    }
    second = std::move(*sender.value);
    second->start(
        static_cast<int>(qBound<qint64>(1, wholeNumber(action, "interval", options.intervalMs), 3600000)),
        qMax<qint64>(0, wholeNumber(action, "count", 0)));
    return {};
}

Varnel::Outcome<> Simulation::doHttp(const QJsonObject& action)
{
    return site.faults().add(action);
}

Varnel::Outcome<> Simulation::doHttpDown(const QJsonObject& action)
{
    stopHttpFor(millisecondsFromSeconds(action, "seconds", 0));
    return {};
}

Varnel::Outcome<> Simulation::doHttpUp(const QJsonObject&)
{
    httpReturn.stop();
    return http.listen(options.httpAddress, http.port());
}

void Simulation::stopHttpFor(int milliseconds)
{
    http.closeWhenIdle(); // this action may itself have come by HTTP
    httpReturn.stop();
    if (milliseconds > 0) {
        httpReturn.start(milliseconds);
    }
}

Varnel::Outcome<> Simulation::doLog(const QJsonObject& action)
{
    log.setEnabled(isTrue(text(action, "enabled")));
    return {};
}

Varnel::Outcome<> Simulation::doQuit(const QJsonObject&)
{
    emit quitWanted();
    return {};
}

} // namespace Simulator
