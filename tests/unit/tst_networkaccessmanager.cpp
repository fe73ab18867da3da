// SPDX-License-Identifier: MIT
#include <memory>

#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QPointer>
#include <QSignalSpy>
#include <QTest>

#include "logrecorder.h"
#include "logstamps.h"
#include "networkaccessmanager.h"
#include "scopedsetting.h"
#include "webserver.h"

using Varnel::NetworkAccessManager;
using Varnel::Settings;

/// Credentials, request log and the report of the first request, against a real server.
class tst_NetworkAccessManager : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void credentials_data();
    void credentials();
    void addsNoOtherHeader();
    void keepsOperationHeadersAndBody();
    void isSilentUnlessVerbose();
    void verboseLines();
    void verboseLinesOfAFailure();
    void failureLinesAreAlwaysWritten_data();
    void failureLinesAreAlwaysWritten();
    void durationOnlyWhenStartedVerbosely();
    void urlsStandInTheLogAsTheyAre_data();
    void urlsStandInTheLogAsTheyAre();
    void firstRequestIsReportedOnce_data();
    void firstRequestIsReportedOnce();
    void cancelledRequestsDoNotCount();
    void resetReportsAgain();
    void unansweredPageFails_data();
    void unansweredPageFails();
    void beginningOfAnAnswerIsEnough();
    void asksNobodyForCredentials();
    void cookiesLiveAsLongAsTheManager();
    void nothingIsCached();
    void brokenAnswers_data();
    void brokenAnswers();
    void leavesTheReplyAlone();

private:
    /// Gets `path` and waits until it has finished.
    QNetworkReply* get(const QString& path)
    {
        return await(manager->get(QNetworkRequest(server->url(path))));
    }
    static QNetworkReply* await(QNetworkReply* reply)
    {
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished() && !finished.wait()) {
            qFatal("the request does not end");
        }
        return reply;
    }
    QString quoted(const QString& path) const
    {
        return QLatin1Char('\'') + server->url(path).toString() + QLatin1Char('\'');
    }

    std::unique_ptr<WebServer> server;
    std::unique_ptr<NetworkAccessManager> manager;
    std::unique_ptr<QSignalSpy> first;
};

namespace {

const QString page = QStringLiteral("/index.html");
const QString missing = QStringLiteral("/missing");
const QString slow = QStringLiteral("/slow");

} // namespace

void tst_NetworkAccessManager::init()
{
    server = std::make_unique<WebServer>();
    server->serve(page, QByteArray("<p>page</p>"));
    WebServer::Answer silent;
    silent.silent = true;
    server->serve(slow, silent);
    manager = std::make_unique<NetworkAccessManager>(nullptr);
    first = std::make_unique<QSignalSpy>(manager.get(), &NetworkAccessManager::firstRequestStatus);
}

void tst_NetworkAccessManager::cleanup()
{
    first.reset();
    manager.reset();
    server.reset();
    Settings::setLogVerbose(false);
}

void tst_NetworkAccessManager::credentials_data()
{
    QTest::addColumn<QString>("login");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QByteArray>("ofThePage");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("no login: no header") << QString() << QString() << QByteArray() << QByteArray();
    QTest::newRow("no login, but a password: no header")
        << QString() << QStringLiteral("pass") << QByteArray() << QByteArray();
    QTest::newRow("no login: the page's own header stays")
        << QString() << QString() << QByteArray("Bearer x") << QByteArray("Bearer x");
    QTest::newRow("login: its header") << QStringLiteral("user") << QStringLiteral("pass") << QByteArray()
                                       << QByteArray("Basic dXNlcjpwYXNz");
    QTest::newRow("login: replaces the page's own header")
        << QStringLiteral("user") << QStringLiteral("pass") << QByteArray("Bearer x")
        << QByteArray("Basic dXNlcjpwYXNz");
    QTest::newRow("login without password: its header")
        << QStringLiteral("user") << QString() << QByteArray() << QByteArray("Basic dXNlcjo=");
}

void tst_NetworkAccessManager::credentials()
{
    QFETCH(QString, login);
    QFETCH(QString, password);
    QFETCH(QByteArray, ofThePage);
    const ScopedSetting<QString> loginSetting("WebSite", "Login", login);
    const ScopedSetting<QString> passwordSetting("WebSite", "Password", password);
    QNetworkRequest request(server->url(page));
    if (!ofThePage.isEmpty()) {
        request.setRawHeader("Authorization", ofThePage);
    }
    await(manager->get(request));
    QTEST(server->last(page).headers.value("authorization"), "sent");
}

void tst_NetworkAccessManager::addsNoOtherHeader()
{
    QCOMPARE(get(page)->request().rawHeaderList(), QList<QByteArray>());
    const ScopedSetting<QString> login("WebSite", "Login", QStringLiteral("user"));
    QCOMPARE(get(page)->request().rawHeaderList(), QList<QByteArray>{"Authorization"});
}

void tst_NetworkAccessManager::keepsOperationHeadersAndBody()
{
    const ScopedSetting<QString> login("WebSite", "Login", QStringLiteral("user"));
    QNetworkRequest request(server->url(page));
    request.setRawHeader("X-Of-The-Page", "kept");
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    await(manager->post(request, QByteArray("a body")));
    QCOMPARE(server->last(page).method, QByteArray("POST"));
    QCOMPARE(server->last(page).body, QByteArray("a body"));
    QCOMPARE(server->last(page).headers.value("x-of-the-page"), QByteArray("kept"));
    await(manager->head(request));
    QCOMPARE(server->last(page).method, QByteArray("HEAD"));
}

void tst_NetworkAccessManager::isSilentUnlessVerbose()
{
    const LogRecorder log;
    QCOMPARE(get(page)->error(), QNetworkReply::NoError);
    QCOMPARE(log.texts(), QStringList());
}

void tst_NetworkAccessManager::verboseLines()
{
    Settings::setLogVerbose(true);
    const LogRecorder log;
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(page)));
    QCOMPARE(withoutStamps(log.texts()),
             QStringList{QStringLiteral("TIME - [REQUEST] Request %1 started").arg(quoted(page))});
    await(reply);
    QCOMPARE(
        withoutStamps(log.texts()),
        (QStringList{QStringLiteral("TIME - [REQUEST] Request %1 started").arg(quoted(page)),
                     QStringLiteral("TIME - [REQUEST] Request %1 finished (took Nms)").arg(quoted(page))}));
}

void tst_NetworkAccessManager::verboseLinesOfAFailure()
{
    Settings::setLogVerbose(true);
    const LogRecorder log;
    const QNetworkReply* const reply = get(missing);
    QCOMPARE(withoutStamps(log.texts()),
             (QStringList{
                 QStringLiteral("TIME - [REQUEST] Request %1 started").arg(quoted(missing)),
                 QStringLiteral("TIME - [REQUEST] Request %1 finished (took Nms)").arg(quoted(missing)),
                 QStringLiteral("TIME - Request %1 failed: %2").arg(quoted(missing), reply->errorString())}));
}

void tst_NetworkAccessManager::failureLinesAreAlwaysWritten_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::newRow("401") << QByteArray("401 Unauthorized");
    QTest::newRow("403") << QByteArray("403 Forbidden");
    QTest::newRow("404") << QByteArray("404 Not Found");
    QTest::newRow("500") << QByteArray("500 Internal Server Error");
    QTest::newRow("503") << QByteArray("503 Service Unavailable");
}

void tst_NetworkAccessManager::failureLinesAreAlwaysWritten()
{
    QFETCH(QByteArray, status);
    server->refuse(page, status);
    const LogRecorder log;
    const QNetworkReply* const reply = get(page);
    QVERIFY(reply->error() != QNetworkReply::NoError);
    QVERIFY(!reply->errorString().isEmpty());
    QCOMPARE(
        withoutStamps(log.texts()),
        QStringList{QStringLiteral("TIME - Request %1 failed: %2").arg(quoted(page), reply->errorString())});
}

void tst_NetworkAccessManager::durationOnlyWhenStartedVerbosely()
{
    const LogRecorder log;
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(page)));
    Settings::setLogVerbose(true);
    await(reply);
    QCOMPARE(withoutStamps(log.texts()),
             QStringList{QStringLiteral("TIME - [REQUEST] Request %1 finished").arg(quoted(page))});

    QNetworkReply* const next = manager->get(QNetworkRequest(server->url(page)));
    Settings::setLogVerbose(false);
    await(next);
    QCOMPARE(withoutStamps(log.texts()).mid(1),
             QStringList{QStringLiteral("TIME - [REQUEST] Request %1 started").arg(quoted(page))});
}

void tst_NetworkAccessManager::urlsStandInTheLogAsTheyAre_data()
{
    QTest::addColumn<QString>("path");
    QTest::newRow("an escaped slash") << QStringLiteral("/a%2Fb");
    QTest::newRow("what looks like a place to fill") << QStringLiteral("/a%251%252%253");
    QTest::newRow("what looks like a format") << QStringLiteral("/a%25s%25n");
    QTest::newRow("a query") << QStringLiteral("/a?b=%2F&c=%251");
}

void tst_NetworkAccessManager::urlsStandInTheLogAsTheyAre()
{
    QFETCH(QString, path);
    Settings::setLogVerbose(true);
    const LogRecorder log;
    const QNetworkReply* const reply = get(path);
    const QString url = reply->request().url().toString();
    QVERIFY(url.contains(QLatin1Char('%')));
    QCOMPARE(
        withoutStamps(log.texts()),
        (QStringList{
            QStringLiteral("TIME - [REQUEST] Request '") + url + QStringLiteral("' started"),
            QStringLiteral("TIME - [REQUEST] Request '") + url + QStringLiteral("' finished (took Nms)"),
            QStringLiteral("TIME - Request '") + url + QStringLiteral("' failed: ") + reply->errorString()}));
}

void tst_NetworkAccessManager::firstRequestIsReportedOnce_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("error");
    QTest::newRow("good: no error") << page << false;
    QTest::newRow("404: an error") << missing << true;
}

void tst_NetworkAccessManager::firstRequestIsReportedOnce()
{
    QFETCH(QString, path);
    QFETCH(bool, error);
    get(path);
    QCOMPARE(first->count(), 1);
    QCOMPARE(first->at(0).at(0).toBool(), error);
    get(page);
    get(missing);
    QCOMPARE(first->count(), 1);
}

void tst_NetworkAccessManager::cancelledRequestsDoNotCount()
{
    Settings::setLogVerbose(true);
    const LogRecorder log;
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(slow)));
    QTRY_COMPARE(server->count(slow), 1);
    reply->abort();
    QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
    QCOMPARE(withoutStamps(log.texts()),
             (QStringList{QStringLiteral("TIME - [REQUEST] Request %1 started").arg(quoted(slow)),
                          QStringLiteral("TIME - [REQUEST] Request %1 finished (took Nms)").arg(quoted(slow)),
                          QStringLiteral("TIME - Request %1 failed: Operation canceled").arg(quoted(slow))}));
    QCOMPARE(first->count(), 0);
    get(missing);
    QCOMPARE(first->count(), 1);
    QVERIFY(first->at(0).at(0).toBool());
}

void tst_NetworkAccessManager::resetReportsAgain()
{
    manager->reset(); // nothing to report yet
    get(page);
    QCOMPARE(first->count(), 1);
    manager->reset();
    QCOMPARE(first->count(), 1);
    get(missing);
    QCOMPARE(first->count(), 2);
    QVERIFY(first->at(1).at(0).toBool());
    get(page);
    QCOMPARE(first->count(), 2);
    manager->reset();
    manager->reset();
    get(page);
    QCOMPARE(first->count(), 3);
    QVERIFY(!first->at(2).at(0).toBool());
}

void tst_NetworkAccessManager::unansweredPageFails_data()
{
    QTest::addColumn<quint16>("limit");
    QTest::addColumn<QString>("expected");
    QTest::addColumn<bool>("fails");
    QTest::newRow("page: fails") << quint16(1) << slow << true;
    QTest::newRow("page with a place in it: fails") << quint16(1) << slow + QStringLiteral("#here") << true;
    QTest::newRow("part of a page: waits") << quint16(1) << page << false;
    QTest::newRow("no limit: waits") << quint16(0) << slow << false;
}

void tst_NetworkAccessManager::unansweredPageFails()
{
    QFETCH(quint16, limit);
    QFETCH(QString, expected);
    QFETCH(bool, fails);
    const ScopedSetting<quint16> setting("Network", "PageTimeout", limit);
    const LogRecorder log;
    manager->expectPage(QUrl(server->url(QString()).toString() + expected));
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(slow)));
    const QNetworkReply* const second = manager->get(QNetworkRequest(server->url(slow))); // of a script
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QCOMPARE(finished.wait(1500), fails);
    QVERIFY(!second->isFinished());
    QCOMPARE(first->count(), fails ? 1 : 0);
    if (fails) {
        QCOMPARE(first->at(0).at(0).toBool(), true);
        QCOMPARE(
            withoutStamps(log.texts()),
            (QStringList{QStringLiteral("TIME - Request %1 has no answer after 1 s").arg(quoted(slow)),
                         QStringLiteral("TIME - Request %1 failed: Operation canceled").arg(quoted(slow))}));
    }
}

void tst_NetworkAccessManager::beginningOfAnAnswerIsEnough()
{
    const ScopedSetting<quint16> setting("Network", "PageTimeout", quint16(1));
    WebServer::Answer half;
    half.body = "half and half";
    half.firstPart = 4;
    server->serve(slow, half);
    manager->expectPage(server->url(slow));
    QNetworkReply* const reply = manager->get(QNetworkRequest(server->url(slow)));
    QSignalSpy finished(reply, &QNetworkReply::finished);
    QVERIFY(!finished.wait(1500)); // there is nothing to await when nothing is to happen
    server->release(slow);
    await(reply);
    QCOMPARE(reply->error(), QNetworkReply::NoError);
}

void tst_NetworkAccessManager::asksNobodyForCredentials()
{
    WebServer::Answer refusal;
    refusal.status = "401 Unauthorized";
    refusal.headers = "WWW-Authenticate: Basic realm=\"controller\"\r\n";
    refusal.body = "no";
    server->serve(page, refusal);
    QCOMPARE(get(page)->error(), QNetworkReply::AuthenticationRequiredError);
    QCOMPARE(server->count(page), 1);
    const ScopedSetting<QString> login("WebSite", "Login", QStringLiteral("user"));
    QCOMPARE(get(page)->error(), QNetworkReply::AuthenticationRequiredError);
    QCOMPARE(server->count(page), 2);
}

void tst_NetworkAccessManager::cookiesLiveAsLongAsTheManager()
{
    QVERIFY(manager->cookieJar() != nullptr);
    WebServer::Answer answer;
    answer.headers = "Set-Cookie: session=42; Path=/; Max-Age=100000\r\n";
    server->serve(QStringLiteral("/login"), answer);
    get(page);
    QVERIFY(!server->last(page).headers.contains("cookie"));
    get(QStringLiteral("/login"));
    get(page);
    QCOMPARE(server->last(page).headers.value("cookie"), QByteArray("session=42"));

    manager = std::make_unique<NetworkAccessManager>(nullptr);
    get(page);
    QVERIFY(!server->last(page).headers.contains("cookie"));
}

void tst_NetworkAccessManager::nothingIsCached()
{
    QCOMPARE(manager->cache(), nullptr);
    WebServer::Answer answer;
    answer.headers = "Cache-Control: max-age=100000\r\n";
    answer.body = "x";
    server->serve(page, answer);
    get(page);
    get(page);
    QCOMPARE(server->count(page), 2);
}

void tst_NetworkAccessManager::brokenAnswers_data()
{
    QTest::addColumn<QByteArray>("status");
    QTest::addColumn<QByteArray>("headers");
    QTest::addColumn<bool>("error");
    QTest::newRow("more announced than sent")
        << QByteArray("200 OK") << QByteArray("Content-Length: 1000\r\n") << true;
    QTest::newRow("a redirect: not followed here")
        << QByteArray("302 Found") << QByteArray("Location: /index.html\r\n") << false;
    QTest::newRow("a redirect to itself")
        << QByteArray("302 Found") << QByteArray("Location: /odd\r\n") << false;
    QTest::newRow("no such status") << QByteArray("799 Odd") << QByteArray() << true;
}

void tst_NetworkAccessManager::brokenAnswers()
{
    QFETCH(QByteArray, status);
    QFETCH(QByteArray, headers);
    QFETCH(bool, error);
    WebServer::Answer answer;
    answer.status = status;
    answer.headers = headers;
    answer.withLength = !headers.contains("Content-Length");
    answer.body = "short";
    server->serve(QStringLiteral("/odd"), answer);
    const LogRecorder log;
    QCOMPARE(get(QStringLiteral("/odd"))->error() != QNetworkReply::NoError, error);
    QCOMPARE(server->requests().size(), 1);
    QCOMPARE(first->count(), 1);
    QCOMPARE(first->at(0).at(0).toBool(), error);
    QCOMPARE(log.texts().size(), error ? 1 : 0);

    // The server no longer listens.
    const QUrl url = server->url(page);
    server->close();
    const QNetworkReply* const refused = await(manager->get(QNetworkRequest(url)));
    QCOMPARE(refused->error(), QNetworkReply::ConnectionRefusedError);
    QCOMPARE(withoutStamps(log.texts()).constLast(),
             QStringLiteral("TIME - Request '%1' failed: Connection refused").arg(url.toString()));
}

void tst_NetworkAccessManager::leavesTheReplyAlone()
{
    const QPointer<QNetworkReply> reply = get(page);
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    QVERIFY(reply);
    QCOMPARE(reply->readAll(), QByteArray("<p>page</p>"));
}

QTEST_GUILESS_MAIN(tst_NetworkAccessManager)
#include "tst_networkaccessmanager.moc"
