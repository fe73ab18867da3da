// SPDX-License-Identifier: MIT
#include "httpfaults.h"

#include "action.h"

#include <algorithm>

namespace Simulator {

namespace {

constexpr int defaultDelayMs = 3000;
constexpr int defaultPaceMs = 200;
constexpr int trickleChunk = 16;

HttpReply plainReply(int status)
{
    HttpReply reply;
    reply.status = status;
    reply.addHeader("Content-Type", "text/plain");
    if (status == 401) {
        reply.addHeader("WWW-Authenticate", "Basic realm=\"R7M\"");
    }
    reply.body = "status " + QByteArray::number(status) + "\n";
    return reply;
}

void redirectToItself(HttpReply& reply, const HttpRequest& request, const QJsonObject&)
{
    const int round = request.query.value(QStringLiteral("round")).toInt() + 1;
    reply = plainReply(302);
    reply.addHeader("Location", request.path.toUtf8() + "?round=" + QByteArray::number(round));
}

std::vector<HttpFaultKind> buildKinds()
{
    return {
        {"status", "another status: status=N (default 500)",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject& details) {
             reply =
                 plainReply(static_cast<int>(qBound<qint64>(200, wholeNumber(details, "status", 500), 599)));
         }},
        {"slow", "the answer begins late: ms=N (default 3000)",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject& details) {
             reply.delayMs = static_cast<int>(wholeNumber(details, "ms", defaultDelayMs));
         }},
        {"trickle", "16 octets of the body every ms=N (default 200)",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject& details) {
             reply.paceMs = static_cast<int>(wholeNumber(details, "ms", defaultPaceMs));
             reply.chunk = trickleChunk;
         }},
        {"hang", "no answer at all; the connection stays open",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) { reply.neverAnswered = true; }},
        {"stall", "head and half the body; the connection stays open",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) {
             reply.end = BodyEnd::Stall;
             reply.stopAfter = reply.length() / 2;
         }},
        {"break", "head and half the body; then the connection is closed",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) {
             reply.end = BodyEnd::Break;
             reply.stopAfter = reply.length() / 2;
         }},
        {"long", "Content-Length promises 1000 octets more than come",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) {
             reply.claimedLength = reply.length() + 1000;
         }},
        {"short", "Content-Length promises only half the octets that come",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) {
             reply.claimedLength = reply.length() / 2;
         }},
        {"redirect-loop", "a redirection to the same path, without end", redirectToItself},
        {"endless", "a body that never ends",
         [](HttpReply& reply, const HttpRequest&, const QJsonObject&) { reply.endless = true; }},
    };
}

bool matches(const QString& pattern, const QString& path)
{
    return pattern.endsWith(QLatin1Char('*')) ? path.startsWith(pattern.chopped(1)) : path == pattern;
}

} // namespace

const std::vector<HttpFaultKind>& httpFaultKinds()
{
    static const std::vector<HttpFaultKind> kinds = buildKinds();
    return kinds;
}

bool spoil(HttpReply& reply, const QString& kind, const HttpRequest& request, const QJsonObject& details)
{
    for (const HttpFaultKind& known : httpFaultKinds()) {
        if (kind == QLatin1String(known.name)) {
            known.spoil(reply, request, details);
            return true;
        }
    }
    return false;
}

Varnel::Outcome<> HttpFaults::add(const QJsonObject& action)
{
    const QString path = action.value(QLatin1String("path")).toString(QStringLiteral("*"));
    const QString kind = action.value(QLatin1String("fault")).toString();
    if (kind == QLatin1String("none")) {
        const auto drop = [&path](const Waiting& fault) {
            return path == QLatin1String("*") || fault.path == path;
        };
        waiting.erase(std::remove_if(waiting.begin(), waiting.end(), drop), waiting.end());
        return {};
    }
    HttpReply trial;
    if (!spoil(trial, kind, HttpRequest(), action)) {
        return Varnel::Refusal(QStringLiteral("unknown HTTP fault \"%1\"").arg(kind));
    }
    waiting.append({path, action, wholeNumber(action, "count", 0)});
    return {};
}

void HttpFaults::apply(HttpReply& reply, const HttpRequest& request)
{
    for (int i = 0; i < waiting.size(); ++i) {
        Waiting& fault = waiting[i];
        const bool spared = request.path == QLatin1String("/control") && fault.path != request.path;
        if (spared || !matches(fault.path, request.path)) {
            continue;
        }
        spoil(reply, fault.details.value(QLatin1String("fault")).toString(), request, fault.details);
        if (fault.left > 0 && --fault.left == 0) {
            waiting.removeAt(i);
        }
        return;
    }
}

} // namespace Simulator
