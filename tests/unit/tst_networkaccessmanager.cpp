// SPDX-License-Identifier: MIT
#include <memory>

#include <QNetworkCookieJar>
#include <QNetworkReply>
#include <QPointer>
#include <QSignalSpy>

#include "logrecorder.h"
#include "networkaccessmanager.h"
#include "rows.h"
#include "scopedsetting.h"
#include "webserver.h"

using Varnel::NetworkAccessManager;
using Varnel::Settings;

namespace {

QString startedLine(const QUrl& url)
{
    return "TIME - [REQUEST] Request '"_s + url.toString() + "' started"_s;
}

QString finishedLine(const QUrl& url)
{
    return "TIME - [REQUEST] Request '"_s + url.toString() + "' finished (took Nms)"_s;
}

QString failedLine(const QUrl& url, const QString& reason)
{
    return "TIME - Request '"_s + url.toString() + "' failed: "_s + reason;
}

} // namespace

/// Credentials, request log and the report of the first request, against a real server.
class tst_NetworkAccessManager : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server = std::make_unique<WebServer>();
        server->serve("/page", "<p>page</p>");
        server->hold("/slow");
        page = server->url("/page");
        slow = server->url("/slow");
        manager = std::make_unique<NetworkAccessManager>(nullptr);
        first = std::make_unique<QSignalSpy>(manager.get(), &NetworkAccessManager::firstRequestStatus);
    }

    void cleanup()
    {
        manager.reset();
        Settings::setLogVerbose(false);
    }

    void credentials_data()
    {
        const Rows<QString, QString, QByteArray, QByteArray> row("login", "password", "ofThePage", "sent");
        row("no login: no header", ""_s, ""_s, "", "");
        row("no login, but a password: no header", ""_s, "pass"_s, "", "");
        row("no login: the page's own header stays", ""_s, ""_s, "Bearer x", "Bearer x");
        row("login: its header", "user"_s, "pass"_s, "", "Basic dXNlcjpwYXNz");
        row("login: replaces the page's own header", "user"_s, "pass"_s, "Bearer x", "Basic dXNlcjpwYXNz");
        row("login without password: its header", "user"_s, ""_s, "", "Basic dXNlcjo=");
    }

    void credentials()
    {
        QFETCH(QString, login);
        QFETCH(QString, password);
        QFETCH(QByteArray, ofThePage);
        const ScopedSetting<QString> loginSetting("WebSite", "Login", login);
        const ScopedSetting<QString> passwordSetting("WebSite", "Password", password);
        QNetworkRequest request(page);
        if (!ofThePage.isEmpty()) {
            request.setRawHeader("Authorization", ofThePage);
        }
        await(manager->get(request));
        QTEST(server->last("/page").headers.value("authorization"), "sent");
    }

    void addsNoOtherHeader()
    {
        QCOMPARE(get(page)->request().rawHeaderList(), QList<QByteArray>());
        const ScopedSetting<QString> login("WebSite", "Login", "user"_s);
        QCOMPARE(get(page)->request().rawHeaderList(), QList<QByteArray>{"Authorization"});
    }

    void keepsOperationHeadersAndBody()
    {
        const ScopedSetting<QString> login("WebSite", "Login", "user"_s);
        QNetworkRequest request(page);
        request.setRawHeader("X-Of-The-Page", "kept");
        request.setHeader(QNetworkRequest::ContentTypeHeader, "text/plain"_s);
        await(manager->post(request, QByteArray("a body")));
        QCOMPARE(server->last("/page").method, QByteArray("POST"));
        QCOMPARE(server->last("/page").body, QByteArray("a body"));
        QCOMPARE(server->last("/page").headers.value("x-of-the-page"), QByteArray("kept"));
        await(manager->head(request));
        QCOMPARE(server->last("/page").method, QByteArray("HEAD"));
    }

    void isSilentUnlessVerbose()
    {
        const LogRecorder log;
        QCOMPARE(get(page)->error(), QNetworkReply::NoError);
        QCOMPARE(log.texts(), QStringList());

        Settings::setLogVerbose(true);
        QNetworkReply* const reply = manager->get(QNetworkRequest(page));
        QCOMPARE(withoutStamps(log.texts()), QStringList{startedLine(page)});
        await(reply);
        QCOMPARE(withoutStamps(log.texts()), QStringList({startedLine(page), finishedLine(page)}));
    }

    void failureLinesAreAlwaysWritten()
    {
        LogRecorder log;
        for (const char* const status : {"401 Unauthorized", "403 Forbidden", "404 Not Found",
                                         "500 Internal Server Error", "503 Service Unavailable"}) {
            server->refuse("/page", status);
            log.clear();
            const QNetworkReply* const reply = get(page);
            QVERIFY(reply->error() != QNetworkReply::NoError);
            QVERIFY(!reply->errorString().isEmpty());
            QCOMPARE(withoutStamps(log.texts()), QStringList{failedLine(page, reply->errorString())});
        }
        server->close();
        log.clear();
        QCOMPARE(get(page)->error(), QNetworkReply::ConnectionRefusedError);
        QCOMPARE(withoutStamps(log.texts()), QStringList{failedLine(page, "Connection refused"_s)});
    }

    void durationOnlyWhenStartedVerbosely()
    {
        const LogRecorder log;
        QNetworkReply* const reply = manager->get(QNetworkRequest(page));
        Settings::setLogVerbose(true);
        await(reply);
        const QString finished = "TIME - [REQUEST] Request '%1' finished"_s.arg(page.toString());
        QCOMPARE(withoutStamps(log.texts()), QStringList{finished});

        QNetworkReply* const next = manager->get(QNetworkRequest(page));
        Settings::setLogVerbose(false);
        await(next);
        QCOMPARE(withoutStamps(log.texts()), QStringList({finished, startedLine(page)}));
    }

    void urlsStandInTheLogAsTheyAre_data()
    {
        const Rows<QString> row("path");
        row("an escaped slash", "/a%2Fb"_s);
        row("what looks like a place to fill", "/a%251%252%253"_s);
        row("what looks like a format", "/a%25s%25n"_s);
        row("a query", "/a?b=%2F&c=%251"_s);
    }

    void urlsStandInTheLogAsTheyAre()
    {
        QFETCH(QString, path);
        Settings::setLogVerbose(true);
        const LogRecorder log;
        const QUrl url = server->url(path);
        const QNetworkReply* const reply = get(url);
        QVERIFY(url.toString().contains(QLatin1Char('%')));
        QCOMPARE(withoutStamps(log.texts()),
                 QStringList({startedLine(url), finishedLine(url), failedLine(url, reply->errorString())}));
    }

    void firstRequestIsReportedOnce()
    {
        manager->reset(); // nothing to report yet
        get(page);
        QCOMPARE(reports(), QList<bool>{false});
        get(server->url("/missing"));
        QCOMPARE(first->count(), 1);
        manager->reset();
        QCOMPARE(first->count(), 1);
        get(server->url("/missing"));
        QCOMPARE(reports(), QList<bool>({false, true}));
        get(page);
        QCOMPARE(first->count(), 2);
        manager->reset();
        manager->reset();
        get(page);
        QCOMPARE(reports(), QList<bool>({false, true, false}));
    }

    void cancelledRequestsDoNotCount()
    {
        Settings::setLogVerbose(true);
        const LogRecorder log;
        QNetworkReply* const reply = manager->get(QNetworkRequest(slow));
        QTRY_COMPARE(server->count("/slow"), 1);
        reply->abort();
        QCOMPARE(reply->error(), QNetworkReply::OperationCanceledError);
        QCOMPARE(withoutStamps(log.texts()), QStringList({startedLine(slow), finishedLine(slow),
                                                          failedLine(slow, "Operation canceled"_s)}));
        QCOMPARE(first->count(), 0);
        get(server->url("/missing"));
        QCOMPARE(reports(), QList<bool>{true});
    }

    void unansweredPageFails_data()
    {
        const Rows<quint16, QString, bool> row("limit", "expected", "fails");
        row("page: fails", 1, "/slow"_s, true);
        row("page with a place in it: fails", 1, "/slow#here"_s, true);
        row("part of a page: waits", 1, "/page"_s, false);
        row("no limit: waits", 0, "/slow"_s, false);
    }

    void unansweredPageFails()
    {
        QFETCH(quint16, limit);
        QFETCH(QString, expected);
        QFETCH(bool, fails);
        const ScopedSetting<quint16> setting("Network", "PageTimeout", limit);
        const LogRecorder log;
        manager->expectPage(server->url(expected));
        QNetworkReply* const reply = manager->get(QNetworkRequest(slow));
        const QNetworkReply* const second = manager->get(QNetworkRequest(slow)); // of a script
        QSignalSpy finished(reply, &QNetworkReply::finished);
        QCOMPARE(finished.wait(1500), fails);
        QVERIFY(!second->isFinished());
        QCOMPARE(reports(), fails ? QList<bool>{true} : QList<bool>());
        if (fails) {
            QCOMPARE(withoutStamps(log.texts()),
                     QStringList({"TIME - Request '%1' has no answer after 1 s"_s.arg(slow.toString()),
                                  failedLine(slow, "Operation canceled"_s)}));
        }
    }

    void beginningOfAnAnswerIsEnough()
    {
        const ScopedSetting<quint16> setting("Network", "PageTimeout", quint16(1));
        server->serve("/slow", {{}, "half and half", 4});
        manager->expectPage(slow);
        QNetworkReply* const reply = manager->get(QNetworkRequest(slow));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        QVERIFY(!finished.wait(1500)); // there is nothing to await when nothing is to happen
        server->release("/slow");
        await(reply);
        QCOMPARE(reply->error(), QNetworkReply::NoError);
    }

    void asksNobodyForCredentials()
    {
        server->refuse("/page", "401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"controller\"");
        QCOMPARE(get(page)->error(), QNetworkReply::AuthenticationRequiredError);
        QCOMPARE(server->count("/page"), 1);
        const ScopedSetting<QString> login("WebSite", "Login", "user"_s);
        QCOMPARE(get(page)->error(), QNetworkReply::AuthenticationRequiredError);
        QCOMPARE(server->count("/page"), 2);
    }

    void cookiesLiveAsLongAsTheManager()
    {
        QVERIFY(manager->cookieJar() != nullptr);
        server->serve("/login", WebServer::Answer{"Set-Cookie: session=42; Path=/; Max-Age=100000\r\n", ""});
        get(page);
        QVERIFY(!server->last("/page").headers.contains("cookie"));
        get(server->url("/login"));
        get(page);
        QCOMPARE(server->last("/page").headers.value("cookie"), QByteArray("session=42"));

        manager = std::make_unique<NetworkAccessManager>(nullptr);
        get(page);
        QVERIFY(!server->last("/page").headers.contains("cookie"));
    }

    void nothingIsCached()
    {
        QCOMPARE(manager->cache(), nullptr);
        server->serve("/page", WebServer::Answer{"Cache-Control: max-age=100000\r\n", "x"});
        get(page);
        get(page);
        QCOMPARE(server->count("/page"), 2);
    }

    void brokenAnswers_data()
    {
        const Rows<QByteArray, QByteArray, bool> row("status", "headers", "error");
        row("more announced than sent", "200 OK", "Content-Length: 1000\r\n", true);
        row("a redirect: not followed here", "302 Found", "Location: /page\r\n", false);
        row("no such status", "799 Odd", "", true);
    }

    void brokenAnswers()
    {
        QFETCH(QByteArray, status);
        QFETCH(QByteArray, headers);
        QFETCH(bool, error);
        server->serve("/odd", {headers, "short", -1, !headers.contains("Content-Length"), status});
        const LogRecorder log;
        QCOMPARE(get(server->url("/odd"))->error() != QNetworkReply::NoError, error);
        QCOMPARE(server->requests().size(), 1);
        QCOMPARE(reports(), QList<bool>{error});
        QCOMPARE(log.texts().size(), error ? 1 : 0);
    }

    void leavesTheReplyAlone()
    {
        const QPointer<QNetworkReply> reply = get(page);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(reply);
        QCOMPARE(reply->readAll(), QByteArray("<p>page</p>"));
    }

private:
    QNetworkReply* get(const QUrl& url) { return await(manager->get(QNetworkRequest(url))); }
    static QNetworkReply* await(QNetworkReply* reply)
    {
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished() && !finished.wait()) {
            qFatal("the request does not end");
        }
        return reply;
    }

    /// The reports of first requests so far.
    QList<bool> reports() const
    {
        QList<bool> errors;
        for (const QVariantList& report : qAsConst(*first)) {
            errors << report.constFirst().toBool();
        }
        return errors;
    }

    std::unique_ptr<WebServer> server;
    std::unique_ptr<NetworkAccessManager> manager;
    std::unique_ptr<QSignalSpy> first;
    QUrl page;
    QUrl slow;
};

QTEST_GUILESS_MAIN(tst_NetworkAccessManager)
#include "tst_networkaccessmanager.moc"
