// SPDX-License-Identifier: MIT
#include "networkaccessmanager.h"

#include <chrono>

#include <QDateTime>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include "logline.h"
#include "settings.h"

namespace Varnel {

namespace {

/// The request attribute that carries the time at which a request was started.
constexpr QNetworkRequest::Attribute startTime = QNetworkRequest::User;

} // namespace

NetworkAccessManager::NetworkAccessManager(QObject* parent)
    : QNetworkAccessManager(parent)
{
    connect(this, &QNetworkAccessManager::authenticationRequired, this,
            &NetworkAccessManager::authenticationRequired);
    connect(this, &QNetworkAccessManager::finished, this, &NetworkAccessManager::requestFinished);
    setCookieJar(new QNetworkCookieJar(this));
}

NetworkAccessManager::~NetworkAccessManager() = default;

void NetworkAccessManager::reset()
{
    isFirstRequest = true;
}

QNetworkReply* NetworkAccessManager::createRequest(Operation op, const QNetworkRequest& request,
                                                   QIODevice* outgoingData)
{
    if (Settings::isLogVerbose()) {
        logStamped(QStringLiteral("[REQUEST] Request '%1' started").arg(request.url().toString()));
    }
    QNetworkRequest ours(request);
    if (!Settings::getLogin().isEmpty()) {
        ours.setRawHeader("Authorization", Settings::getHttpAuthorizationBytes());
    }
    if (Settings::isLogVerbose()) {
        ours.setAttribute(startTime, QDateTime::currentDateTime());
    }
    QNetworkReply* const reply = QNetworkAccessManager::createRequest(op, ours, outgoingData);
    if (!expectedPage.isEmpty() && request.url().matches(expectedPage, QUrl::RemoveFragment)) {
        expectedPage.clear();
        limitAnswer(reply);
    }
    return reply;
}

/// Lets the reply fail unless its answer begins in time.
void NetworkAccessManager::limitAnswer(QNetworkReply* reply)
{
    const std::chrono::seconds limit(Settings::getNetPageTimeout());
    if (limit.count() == 0) {
        return;
    }
    auto* const timer = new QTimer(reply);
    timer->setSingleShot(true);
    connect(reply, &QNetworkReply::metaDataChanged, timer, &QTimer::stop);
    connect(reply, &QNetworkReply::finished, timer, &QTimer::stop);
    connect(timer, &QTimer::timeout, this, [this, reply, limit] {
        logStamped(QStringLiteral("Request '%1' has no answer after %2 s")
                       .arg(reply->url().toString(), QString::number(limit.count())));
        reportFirst(true); // a cancelled request is not reported
        reply->abort();
    });
    timer->start(limit);
}

void NetworkAccessManager::requestFinished(QNetworkReply* reply)
{
    if (Settings::isLogVerbose()) {
        logFinished(reply);
    }
    const QNetworkReply::NetworkError error = reply->error();
    if (error != QNetworkReply::NoError) {
        logStamped(
            QStringLiteral("Request '%1' failed: %2").arg(reply->url().toString(), reply->errorString()));
    }
    if (error == QNetworkReply::OperationCanceledError) {
        return;
    }
    reportFirst(error != QNetworkReply::NoError);
    count(reply);
}

void NetworkAccessManager::reportFirst(bool error)
{
    if (isFirstRequest) {
        isFirstRequest = false;
        emit firstRequestStatus(error);
    }
}

void NetworkAccessManager::logFinished(QNetworkReply* reply) const
{
    QString suffix;
    const QDateTime started = reply->request().attribute(startTime).toDateTime();
    if (started.isValid()) {
        suffix = QStringLiteral(" (took %1ms)").arg(started.msecsTo(QDateTime::currentDateTime()));
    }
    logStamped(QStringLiteral("[REQUEST] Request '%1' finished%2").arg(reply->url().toString(), suffix));
}

void NetworkAccessManager::count(QNetworkReply* reply)
{
    ++requestFinishedCount;
    if (reply->attribute(QNetworkRequest::SourceIsFromCacheAttribute).toBool()) {
        ++requestFinishedFromCacheCount;
    }
    if (reply->attribute(QNetworkRequest::HttpPipeliningWasUsedAttribute).toBool()) {
        ++requestFinishedPipelinedCount;
    }
    if (reply->attribute(QNetworkRequest::ConnectionEncryptedAttribute).toBool()) {
        ++requestFinishedSecureCount;
    }
}

void NetworkAccessManager::authenticationRequired(QNetworkReply* /*reply*/, QAuthenticator* /*auth*/) {}

} // namespace Varnel
