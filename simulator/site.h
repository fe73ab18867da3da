// SPDX-License-Identifier: MIT
#pragma once

#include "httpfaults.h"
#include "outcome.h"

#include <QJsonArray>

#include <functional>
#include <optional>

namespace Simulator {

/// The web site of the simulated controller: pages, pictures, downloads, uploads and the control address.
class Site
{
public:
    /// Operations behind the control address: perform() does an action; status() returns the controller's
    /// present state.
    struct Control
    {
        std::function<Varnel::Outcome<>(const QJsonObject& action)> perform;
        std::function<QJsonObject()> status;
    };

    /// The recorded answer for an address; nothing when there is no recording, or none for this address.
    using Recording = std::function<std::optional<HttpReply>(const HttpRequest& request)>;

    explicit Site(Control controlSurface);

    /// Which page is /index.html: "board" (the control board) or "plain" (still, without script timers).
    /// Returns false for another name.
    [[nodiscard]] bool setFrontPage(const QString& name);

    /// If the server has no login, this requires none either.
    void setLoginRequired(bool required) { loginRequired = required; }

    /// Faults that spoil answers; they apply to the control address only if they name it.
    HttpFaults& faults() { return httpFaults; }

    /// Answers one request, from the recording if it has an answer.
    HttpReply handle(const HttpRequest& request, const Recording& recording);

private:
    HttpReply route(const HttpRequest& request);
    [[nodiscard]] HttpReply control(const HttpRequest& request) const;
    HttpReply upload(const HttpRequest& request);
    [[nodiscard]] HttpReply odd(const QString& kind, const HttpRequest& request) const;

    Control surface;
    HttpFaults httpFaults;
    QString frontPage;
    QJsonArray received;
    bool loginRequired = false;
};

} // namespace Simulator
