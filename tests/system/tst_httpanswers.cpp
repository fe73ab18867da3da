// SPDX-License-Identifier: MIT
// A web server that answers wrongly never stops the panel, and the panel shows that something is wrong.

#include <QTest>

#include "scene.h"

namespace {

const QByteArray page = "/index.html";
const QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n";

enum class Outcome
{
    ErrorPage, ///< the panel says so and retries
    Harmless,  ///< what has come is shown, or nothing
};

} // namespace

Q_DECLARE_METATYPE(AfterAnswer)
Q_DECLARE_METATYPE(Outcome)

class tst_HttpAnswers : public QObject
{
    Q_OBJECT

private slots:
    void badAnswer_data();
    void badAnswer();
    void reasonKeepsToItsLine();
    void bodyWithoutEnd();
    void circleOfRedirectsEnds();
    void slowStylesheetDoesNotHoldUpTheLink();
};

void tst_HttpAnswers::badAnswer_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<AfterAnswer>("after");
    QTest::addColumn<Outcome>("outcome");
    const auto row = [](const char* name, const QByteArray& octets, AfterAnswer after, Outcome outcome) {
        QTest::newRow(name) << octets << after << outcome;
    };
    row("closed without a word: error page", {}, AfterAnswer::Close, Outcome::ErrorPage);
    row("reset without a word: error page", {}, AfterAnswer::Reset, Outcome::ErrorPage);
    row("open without a word: waits", {}, AfterAnswer::KeepOpen, Outcome::Harmless);
    row("half a status line: error page", "HTTP/1.1 20", AfterAnswer::Close, Outcome::ErrorPage);
    row("head breaks off: error page", "HTTP/1.1 200 OK\r\nContent-Ty", AfterAnswer::Close,
        Outcome::ErrorPage);
    row("body breaks off: error page", head + "Content-Length: 1000\r\n\r\n<html>half", AfterAnswer::Close,
        Outcome::ErrorPage);
    row("body is reset: error page", head + "Content-Length: 1000\r\n\r\n<html>half", AfterAnswer::Reset,
        Outcome::ErrorPage);
    row("body stalls: waits", head + "Content-Length: 1000\r\n\r\n<html>half", AfterAnswer::KeepOpen,
        Outcome::Harmless);
    row("length too small: shows what it says", head + "Content-Length: 6\r\n\r\n<html>and more",
        AfterAnswer::Close, Outcome::Harmless);
    row("length is no number: shows what comes", head + "Content-Length: many\r\n\r\n<html>",
        AfterAnswer::Close, Outcome::Harmless);
    row("another protocol: error page", "SSH-2.0-server\r\n", AfterAnswer::Close, Outcome::ErrorPage);
    row("chunk of no size: taken as the end", head + "Transfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n",
        AfterAnswer::Close, Outcome::Harmless);
    row("401: error page",
        "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"x\"\r\n"
        "Content-Length: 0\r\n\r\n",
        AfterAnswer::Close, Outcome::ErrorPage);
    row("500: error page", "HTTP/1.1 500 Oops\r\nContent-Length: 4\r\n\r\noops", AfterAnswer::Close,
        Outcome::ErrorPage);
    row("a header of a megabyte: no harm", head + "X-Long: " + QByteArray(1 << 20, 'x') + "\r\n\r\n<html>",
        AfterAnswer::Close, Outcome::Harmless);
    row("markup of nothing but depth: no harm", head + "\r\n" + QByteArray("<div>").repeated(20000),
        AfterAnswer::Close, Outcome::Harmless);
}

void tst_HttpAnswers::badAnswer()
{
    QFETCH(QByteArray, octets);
    QFETCH(AfterAnswer, after);
    QFETCH(Outcome, outcome);
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("WebSite/Login", "user")));
    scene.server.answer(page, octets, after);
    QVERIFY(scene.connectController());
    if (outcome == Outcome::ErrorPage) {
        QVERIFY(scene.panel.log().await(
            {"HTTP ERROR"_s, "WebView::handleLoadFinished() -> fail"_s, "wv: Load error page ( \"en\" )"_s}));
    }
    QVERIFY(scene.isAlive());
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_HttpAnswers::reasonKeepsToItsLine()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.server.refuse(page, "404 Gone\x1b[2J\rRunning on ARM");
    QVERIFY(scene.connectController());
    QVERIFY(
        scene.panel.log().await("<now> - Request 'http://192.168.7.2/index.html' failed: Error transferring "
                                "http://192.168.7.2/index.html - server replied: Gone?[2J?Running on ARM"_s));
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_HttpAnswers::bodyWithoutEnd()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.server.serveEndlessly(page);
    QVERIFY(scene.connectController());
    for (int i = 0; i < 20; ++i) {
        QVERIFY(scene.isAlive());
    }
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_HttpAnswers::circleOfRedirectsEnds()
{
    Scene scene;
    QVERIFY(scene.start());
    scene.server.answer(page, "HTTP/1.1 302 Found\r\nLocation: /other.html\r\nContent-Length: 0\r\n\r\n");
    scene.server.answer("/other.html",
                        "HTTP/1.1 302 Found\r\nLocation: /index.html\r\nContent-Length: 0\r\n\r\n");
    QVERIFY(scene.connectController());
    QVERIFY(scene.server.awaitCount("/other.html", 1));
    int before = 0;
    // The circle has ended once the panel answers a frame without having asked for a page meanwhile.
    do {
        before = scene.server.requests().size();
        QVERIFY(scene.isAlive());
        QVERIFY2(before < 60, "The engine follows the circle without end");
    } while (scene.server.requests().size() != before);
    QCOMPARE(scene.panel.stop(), 0);
}

void tst_HttpAnswers::slowStylesheetDoesNotHoldUpTheLink()
{
    Scene scene;
    QVERIFY(scene.start(SettingsFile().set("Network/UdpTimeout", "1")));
    scene.server.serve(page, "<html><link rel=stylesheet href=/slow.css><body>page</body></html>");
    scene.server.answer("/slow.css", "HTTP/1.1 200 OK\r\n", AfterAnswer::KeepOpen);
    QVERIFY(scene.connectController());
    QVERIFY(scene.server.awaitCount("/slow.css", 1));
    QVERIFY(scene.isAlive());
    QVERIFY(scene.panel.log().await("Remove R7M"_s));
    scene.server.serve(page, "<html><body>page</body></html>");
    QVERIFY(scene.connectController());
    QCOMPARE(scene.panel.stop(), 0);
}

QTEST_GUILESS_MAIN(tst_HttpAnswers)
#include "tst_httpanswers.moc"
