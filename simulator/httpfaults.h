// SPDX-License-Identifier: MIT
#pragma once

#include "httpmessages.h"
#include "outcome.h"

#include <QJsonObject>

#include <vector>

namespace Simulator {

/// One way to spoil an answer.
struct HttpFaultKind
{
    const char* name;
    const char* meaning; ///< for --help
    void (*spoil)(HttpReply& reply, const HttpRequest& request, const QJsonObject& details);
};

/// All known ways, in the order in which --help lists them.
const std::vector<HttpFaultKind>& httpFaultKinds();

/// Spoils `reply` as `kind` says, with the details of an action ("status", "ms"); false for an unknown kind.
bool spoil(HttpReply& reply, const QString& kind, const HttpRequest& request, const QJsonObject& details);

/// The faults that wait for requests.
class HttpFaults
{
public:
    /// Adds the fault of an action: "path" (a trailing * matches anything; * alone is the default), "fault",
    /// "count" (0: for ever) and the details of its kind; fault "none" drops all faults of the path.
    Varnel::Outcome<> add(const QJsonObject& action);

    /// Drops all faults.
    void clear() { waiting.clear(); }

    /// Spoils `reply` with the first fault that waits for the request's path, and counts it.
    void apply(HttpReply& reply, const HttpRequest& request);

private:
    struct Waiting
    {
        QString path;
        QJsonObject details;
        qint64 left;
    };

    QList<Waiting> waiting;
};

} // namespace Simulator
