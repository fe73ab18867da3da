// SPDX-License-Identifier: MIT
#pragma once

#include <QAuthenticator>
#include <QNetworkAccessManager>
#include <QUrl>

class QNetworkReply;

namespace Varnel {

/// All HTTP traffic of the page: adds the configured credentials to every request, keeps cookies in memory,
/// logs each request, and reports once after each reset() how the first request ended.
class NetworkAccessManager : public QNetworkAccessManager
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(NetworkAccessManager)

public:
    explicit NetworkAccessManager(QObject* parent);
    ~NetworkAccessManager() override;

    /// Makes the next request that finishes count as the first again.
    void reset();

    /// Takes the next request for `url` as the page's own, which fails unless its answer begins within
    /// `Settings::getNetPageTimeout()` seconds. An empty address takes no request.
    void expectPage(const QUrl& url) { expectedPage = url; }

signals:
    /// The first request that was not cancelled has finished; `error` is true when it failed.
    void firstRequestStatus(bool error);

protected:
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request,
                                 QIODevice* outgoingData = nullptr) override;

private slots:
    void requestFinished(QNetworkReply* reply);
    /// Does nothing: only the header carries credentials, so a refused login is an error at once.
    void authenticationRequired(QNetworkReply* reply, QAuthenticator* auth);

private:
    void limitAnswer(QNetworkReply* reply);
    void reportFirst(bool error);
    void logFinished(QNetworkReply* reply) const;
    void count(QNetworkReply* reply);

    // Kept, never read.
    qint64 requestFinishedCount = 0;
    qint64 requestFinishedFromCacheCount = 0;
    qint64 requestFinishedPipelinedCount = 0;
    qint64 requestFinishedSecureCount = 0;

    bool isFirstRequest = true;
    QUrl expectedPage;
};

} // namespace Varnel
