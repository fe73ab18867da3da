// SPDX-License-Identifier: MIT
// A web server that answers wrongly never stops the panel, and the panel shows that something is wrong.

#include "rows.h"
#include "scene.h"

namespace {

const QByteArray page = "/index.html";
const QByteArray head = "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\n";

} // namespace

Q_DECLARE_METATYPE(AfterAnswer)

class tst_HttpAnswers : public QObject
{
    Q_OBJECT

private slots:
    void badAnswer_data()
    {
        // errorPage: the panel says so and retries; otherwise it shows what comes
        const Rows<QByteArray, AfterAnswer, bool> row("octets", "after", "errorPage");
        const auto fails = [&row](const char* name, const QByteArray& octets,
                                  AfterAnswer after = AfterAnswer::Close) {
            row(qPrintable(QLatin1String(name) + ": error page"_s), octets, after, true);
        };
        const auto isHarmless = [&row](const char* name, const QByteArray& octets,
                                       AfterAnswer after = AfterAnswer::Close) {
            row(qPrintable(QLatin1String(name) + ": no harm"_s), octets, after, false);
        };
        const QByteArray tooShort = head + "Content-Length: 1000\r\n\r\n<html>half";
        fails("closed without a word", {});
        fails("reset without a word", {}, AfterAnswer::Reset);
        isHarmless("open without a word", {}, AfterAnswer::KeepOpen);
        fails("half a status line", "HTTP/1.1 20");
        fails("head breaks off", "HTTP/1.1 200 OK\r\nContent-Ty");
        fails("body breaks off", tooShort);
        fails("body is reset", tooShort, AfterAnswer::Reset);
        isHarmless("body stalls", tooShort, AfterAnswer::KeepOpen);
        isHarmless("length too small", head + "Content-Length: 6\r\n\r\n<html>and more");
        isHarmless("length is no number", head + "Content-Length: many\r\n\r\n<html>");
        fails("another protocol", "SSH-2.0-server\r\n");
        isHarmless("chunk of no size", head + "Transfer-Encoding: chunked\r\n\r\nzz\r\nabc\r\n");
        fails(
            "401",
            "HTTP/1.1 401 Unauthorized\r\nWWW-Authenticate: Basic realm=\"x\"\r\nContent-Length: 0\r\n\r\n");
        fails("500", "HTTP/1.1 500 Oops\r\nContent-Length: 4\r\n\r\noops");
        isHarmless("a header of a megabyte", head + "X-Long: " + QByteArray(1 << 20, 'x') + "\r\n\r\n<html>");
        isHarmless("markup of nothing but depth", head + "\r\n" + QByteArray("<div>").repeated(20000));
    }

    void badAnswer()
    {
        QFETCH(QByteArray, octets);
        QFETCH(AfterAnswer, after);
        QFETCH(bool, errorPage);
        Scene scene;
        QVERIFY(scene.start(SettingsFile().set("WebSite/Login", "user")));
        scene.server.answer(page, octets, after);
        QVERIFY(scene.connectController());
        if (errorPage) {
            QVERIFY(scene.panel.log().await({"HTTP ERROR"_s, "WebView::handleLoadFinished() -> fail"_s,
                                             "wv: Load error page ( \"en\" )"_s}));
        }
        QVERIFY(scene.isAlive());
        QCOMPARE(scene.panel.stop(), 0);
    }

    void reasonKeepsToItsLine()
    {
        Scene scene;
        QVERIFY(scene.start());
        scene.server.refuse(page, "404 Gone\x1b[2J\rRunning on ARM");
        QVERIFY(scene.connectController());
        QVERIFY(scene.panel.log().await(
            "<now> - Request 'http://192.168.7.2/index.html' failed: Error transferring "
            "http://192.168.7.2/index.html - server replied: Gone?[2J?Running on ARM"_s));
    }

    void circleOfRedirectsEnds()
    {
        Scene scene;
        QVERIFY(scene.start());
        const QByteArray redirect = "HTTP/1.1 302 Found\r\nContent-Length: 0\r\nLocation: ";
        scene.server.answer(page, redirect + "/other.html\r\n\r\n");
        scene.server.answer("/other.html", redirect + page + "\r\n\r\n");
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

    void slowStylesheetDoesNotHoldUpTheLink()
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
};

QTEST_GUILESS_MAIN(tst_HttpAnswers)
#include "tst_httpanswers.moc"
