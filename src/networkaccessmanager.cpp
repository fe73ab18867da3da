// SPDX-License-Identifier: MIT
#include "networkaccessmanager.h"

#include <QDateTime>
#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QNetworkRequest>

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
    return QNetworkAccessManager::createRequest(op, ours, outgoingData);
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
    if (isFirstRequest) {
        isFirstRequest = false;
        emit firstRequestStatus(error != QNetworkReply::NoError);
    }
    count(reply);
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
