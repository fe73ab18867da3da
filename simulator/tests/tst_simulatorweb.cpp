// SPDX-License-Identifier: MIT
#include "files.h"
#include "httpmessages.h"
#include "rows.h"
#include "simulatorprocess.h"

#include <QCryptographicHash>
#include <QHttpMultiPart>
#include <QJsonArray>
#include <QRegularExpression>
#include <QtTest>

namespace {

constexpr qint64 kibi = 1024;
constexpr qint64 mebi = 1024 * kibi;

QByteArray pattern(qint64 size)
{
    QByteArray octets;
    for (qint64 i = 0; i < size; ++i) {
        octets.append(Simulator::patternOctet(i));
    }
    return octets;
}

} // namespace

/// The web site of the real program, as seen through Qt's own HTTP client.
class tst_SimulatorWeb : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        uploads = std::make_unique<QTemporaryDir>();
        QVERIFY(start("--sections none --map " VARNEL_SOURCE_DIR "/device/modbus.map --upload-dir "_s +
                      uploads->path()));
    }

    void cleanup() { simulator.reset(); }

    void login_data()
    {
        const Rows<QByteArray, int, QString> row("credentials", "expected", "word");
        row("right", "user:secret", 200, "right"_s);
        row("none", {}, 401, "none"_s);
        row("wrong password", "user:Secret", 401, "wrong"_s);
        row("wrong login", "admin:secret", 401, "wrong"_s);
        row("no colon", "user", 401, "wrong"_s);
    }

    void login()
    {
        QFETCH(const QByteArray, credentials);
        simulator->credentials = credentials;
        for (const QString& path : "/index.html /style.css /control"_words) {
            QNetworkRequest asked = simulator->request(path);
            asked.setHeader(QNetworkRequest::UserAgentHeader, "Test/1"_s);
            const Reply reply(simulator->client.get(asked));
            QVERIFY(finish(reply));
            QTEST(status(reply), "expected");
            if (status(reply) == 401) {
                QCOMPARE(reply->rawHeader("WWW-Authenticate"), QByteArray("Basic realm=\"R7M\""));
            }
        }
        QTRY_VERIFY(simulator->events("request"_s).size() >= 3);
        const QJsonObject logged = simulator->events("request"_s).at(0);
        QCOMPARE(logged.value(QLatin1String("path")).toString(), "/index.html"_s);
        QCOMPARE(logged.value(QLatin1String("agent")).toString(), "Test/1"_s);
        QTEST(logged.value(QLatin1String("auth")).toString(), "word");
        QTEST(logged.value(QLatin1String("status")).toInt(), "expected");
    }

    void pages_data()
    {
        const Rows<int, QByteArray> row("expected", "type");
        row("/", 200, "text/html; charset=utf-8");
        row("/index.html", 200, "text/html; charset=utf-8");
        row("/board.js", 200, "application/javascript");
        row("/style.css", 200, "text/css");
        row("/images/green.png", 200, "image/png");
        row("/uploads", 200, "application/json");
        row("/downloads", 200, "application/json");
        row("/control", 200, "application/json");
        row("/favicon.ico", 404, "text/plain");
        row("/images", 404, "text/plain");
        row("/images/../../options.cpp", 404, "text/plain");
        row("/download/unknown", 404, "text/plain");
        row("/odd/unknown", 404, "text/plain");
        row("/upload", 405, "text/plain");
    }

    void pages()
    {
        const Reply reply = finished(QLatin1String(QTest::currentDataTag()));
        QTEST(status(reply), "expected");
        QTEST(reply->rawHeader("Content-Type"), "type");
        QVERIFY(reply->bytesAvailable() > 0);
    }

    void frontPageIsComplete()
    {
        for (const QString& page : {"board"_s, "plain"_s}) {
            QVERIFY(start("--page "_s + page));
            const QString html = QString::fromUtf8(finished("/index.html"_s)->readAll());
            QRegularExpressionMatchIterator parts =
                QRegularExpression("(?:src|href)=\"([^\"]+)\""_s).globalMatch(html);
            int count = 0;
            for (; parts.hasNext(); ++count) {
                const QString path = parts.next().captured(1);
                QVERIFY2(path.startsWith(QLatin1Char('/')), qPrintable(path)); // nothing from elsewhere
                QCOMPARE(statusOf(path), 200);
            }
            QVERIFY(count >= 2);
        }
    }

    void upload_data()
    {
        const Rows<QString, QString, int> row("name", "stored", "size");
        row("plain name", "log.txt"_s, "log.txt"_s, 1000);
        row("empty file", "empty.bin"_s, "empty.bin"_s, 0);
        row("large file", "large.bin"_s, "large.bin"_s, 3000000);
        row("blanks and umlaut", "Mein L\u00f6g.txt"_s, "Mein L\u00f6g.txt"_s, 10);
        row("path outside", "../../x"_s, "x"_s, 10);
        row("dots", ".."_s, "unnamed"_s, 10);
    }

    /// The answer to a form with one file.
    void upload()
    {
        QFETCH(QString, name);
        QFETCH(QString, stored);
        QFETCH(int, size);
        const QByteArray content = pattern(size);
        const Reply reply = send(name.toUtf8(), content);
        QCOMPARE(status(reply), 200);

        const QJsonArray list = QJsonDocument::fromJson(reply->readAll()).array();
        const QByteArray md5 = QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
        QCOMPARE(list.size(), 1);
        const QJsonObject received = list.first().toObject();
        QCOMPARE(received.value(QLatin1String("field")).toString(), "file"_s);
        QCOMPARE(received.value(QLatin1String("name")).toString(), name);
        QCOMPARE(received.value(QLatin1String("size")).toInt(), size);
        QCOMPARE(received.value(QLatin1String("md5")).toString().toLatin1(), md5);
        QVERIFY(QFileInfo::exists(uploads->filePath(stored)));
        QVERIFY(contentOf(uploads->filePath(stored)) == content);
        QCOMPARE(QJsonDocument::fromJson(finished("/uploads"_s)->readAll()).array(), list);
    }

    void uploadNeedsLogin()
    {
        simulator->credentials = "user:wrong";
        QCOMPARE(status(send("a.txt", "text")), 401);
        QVERIFY(QDir(uploads->path()).isEmpty());
    }

    void oddAnswers_data()
    {
        const Rows<int, QNetworkReply::NetworkError> row("expectedStatus", "expectedError");
        row("/odd/status", 500, QNetworkReply::InternalServerError);
        row("/odd/status?status=404", 404, QNetworkReply::ContentNotFoundError);
        row("/odd/status?status=401", 401, QNetworkReply::AuthenticationRequiredError);
        row("/odd/slow?ms=50", 200, QNetworkReply::NoError);
        row("/odd/trickle?ms=2", 200, QNetworkReply::NoError);
        row("/odd/break", 200, QNetworkReply::RemoteHostClosedError);
        row("/odd/long", 200, QNetworkReply::RemoteHostClosedError);
        row("/odd/short", 200, QNetworkReply::NoError);
        row("/odd/redirect-loop", 302, QNetworkReply::TooManyRedirectsError);
    }

    void oddAnswers()
    {
        const QString path = QLatin1String(QTest::currentDataTag());
        const Reply reply = finished(path);
        QTEST(status(reply), "expectedStatus");
        QTEST(reply->error(), "expectedError");
        if (path == QLatin1String("/odd/short")) {
            QCOMPARE(reply->rawHeader("Content-Length").toLongLong(),
                     finished("/plain.html"_s)->bytesAvailable() / 2);
        }
    }

    void lateAndEndlessAnswers()
    {
        const Reply hung = simulator->get("/odd/hang"_s);
        QTRY_COMPARE(simulator->events("request"_s).size(), 1);
        const Reply half = simulator->get("/odd/stall"_s);
        QTRY_VERIFY(half->bytesAvailable() > 0);
        qint64 received = 0;
        const Reply endless = simulator->get("/odd/endless"_s);
        connect(endless.get(), &QNetworkReply::readyRead, this,
                [&] { received += endless->readAll().size(); });
        QTRY_VERIFY_WITH_TIMEOUT(received > 10 * mebi, 60000);
        endless->abort();
        QCOMPARE(statusOf("/index.html"_s), 200); // the others do not block it
        QVERIFY(!hung->isFinished());
        QVERIFY(!half->isFinished());
        simulator->act("quit");
        QVERIFY(simulator->awaitEnd());
        QCOMPARE(simulator->exitStatus(), 0);
        QVERIFY(finish(hung));
        QVERIFY(finish(half));
    }

    void spoilsOnlyTheGivenPath()
    {
        std::ignore = control("do=http&path=/images/*&fault=status&status=404&count=1"_s);
        QCOMPARE(statusOf("/style.css"_s), 200);
        QCOMPARE(statusOf("/images/red.png"_s), 404);
        QCOMPARE(statusOf("/images/red.png"_s), 200);
        std::ignore = control("do=http&fault=status&status=503"_s);
        QCOMPARE(statusOf("/index.html"_s), 503);
        QCOMPARE(statusOf("/style.css"_s), 503);
        QCOMPARE(statusOf("/control"_s), 200);
        std::ignore = control("do=http&fault=none"_s);
        QCOMPARE(statusOf("/index.html"_s), 200);
    }

    void controlChangesFrames()
    {
        PanelSocket panel;
        QVERIFY(start("--interval 100 --sections gpiostate --target "_s + panel.target()));
        const QJsonObject state = control("do=set&gpiostate.good=fast&gpiostate.critical=7"_s);
        QCOMPARE(
            state.value(QLatin1String("gpiostate")).toObject(),
            (QJsonObject{
                {"good"_s, "fast"_s}, {"warning"_s, "off"_s}, {"critical"_s, 7}, {"buzzer"_s, "off"_s}}));
        QTRY_COMPARE(panel.nextFrame().mid(16, 8).toHex(), QByteArray("2000080003000700"));
    }

    void controlRefusesNonsense()
    {
        const Reply reply = finished("/control?do=set&gpiostate.good=purple"_s);
        QCOMPARE(status(reply), 400);
        QCOMPARE(
            reply->readAll(),
            QByteArray("{\"error\":\"value \\\"purple\\\" does not fit field \\\"gpiostate.good\\\"\"}\n"));
    }

    void portClosesAndOpens()
    {
        QVERIFY(!control("do=http-down&seconds=2"_s).isEmpty()); // the answer still comes
        // long enough for a slow machine to see it
        QTRY_COMPARE(finished("/index.html"_s)->error(), QNetworkReply::ConnectionRefusedError);
        QTRY_COMPARE(statusOf("/index.html"_s), 200);
        QVERIFY(simulator->isRunning());
    }

    void downloads_data()
    {
        const Rows<QByteArray> row("disposition");
        row("plain", "attachment; filename=report.txt");
        row("dotdot", "attachment; filename=..");
        row("climb", "attachment; filename=../escaped.txt");
        row("subdirectory", "attachment; filename=logs/today.txt");
        row("long", "attachment; filename=" + QByteArray(296, 'n') + ".txt");
        row("no-header/data.bin", QByteArray());
        row("slash/", QByteArray());
    }

    /// tst_downloads saves the files of all other names.
    void downloads()
    {
        const Reply reply = finished("/download/"_s + QLatin1String(QTest::currentDataTag()));
        QCOMPARE(status(reply), 200);
        QFETCH(QByteArray, disposition);
        QCOMPARE(reply->rawHeader("Content-Disposition"), disposition);
        QCOMPARE(reply->hasRawHeader("Content-Disposition"), !disposition.isNull());
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/octet-stream"));
        QCOMPARE(reply->rawHeader("Content-Length").toInt(), 2048);
        QVERIFY(reply->readAll() == pattern(2048));
    }

    void generatedBody()
    {
        // octet i is i xor (i >> 8) xor (i >> 16): neighbouring blocks of 256 differ
        QCOMPARE(pattern(4).toHex(), QByteArray("00010203"));
        QCOMPARE(pattern(260).mid(256).toHex(), QByteArray("01000302"));
        QCOMPARE(int(uchar(Simulator::patternOctet(0x12345))), 0x45 ^ 0x23 ^ 0x01);
    }

    void brokenDownload()
    {
        const Reply reply = finished("/download/break"_s);
        QCOMPARE(reply->error(), QNetworkReply::RemoteHostClosedError);
        QVERIFY(reply->readAll() == pattern(32 * kibi));

        const Reply stalled = simulator->get("/download/stall"_s);
        QTRY_COMPARE(stalled->bytesAvailable(), 32 * kibi);
        QVERIFY(!stalled->isFinished());
    }

    void customDownload()
    {
        const Reply reply =
            simulator->get("/download/custom/x.bin?disposition=attachment%3B%20filename%3Da%20b.txt"
                           "&type=application/x-odd&size=10000&pace=20"_s);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(finish(reply));
        QVERIFY(clock.elapsed() >= 50); // three paces of 4096 octets
        QCOMPARE(reply->rawHeader("Content-Disposition"), QByteArray("attachment; filename=a b.txt"));
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/x-odd"));
        QVERIFY(reply->readAll() == pattern(10000));
    }

private:
    /// Starts the simulator behind a login, which the requests then have.
    bool start(const QString& options)
    {
        simulator = std::make_unique<SimulatorProcess>();
        simulator->credentials = "user:secret";
        simulator->client.setRedirectPolicy(QNetworkRequest::SameOriginRedirectPolicy);
        return simulator->start("--login user --password secret "_s + options);
    }

    [[nodiscard]] Reply finished(const QString& path) const { return simulator->finished(path); }
    [[nodiscard]] int statusOf(const QString& path) const { return status(finished(path)); }

    /// The answer to a form with one file.
    [[nodiscard]] Reply send(const QByteArray& name, const QByteArray& content) const
    {
        QHttpMultiPart form(QHttpMultiPart::FormDataType);
        QHttpPart file;
        file.setRawHeader("Content-Disposition", "form-data; name=\"file\"; filename=\"" + name + "\"");
        file.setBody(content);
        form.append(file);
        Reply reply(simulator->client.post(simulator->request("/upload?format=json"_s), &form));
        std::ignore = finish(reply);
        return reply;
    }

    [[nodiscard]] QJsonObject control(const QString& query) const
    {
        QNetworkRequest asked = simulator->request("/control?"_s + query);
        asked.setHeader(QNetworkRequest::ContentTypeHeader, "text/plain"_s);
        const Reply reply(simulator->client.post(asked, QByteArray()));
        return finish(reply) ? QJsonDocument::fromJson(reply->readAll()).object() : QJsonObject();
    }

    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<QTemporaryDir> uploads;
};

QTEST_GUILESS_MAIN(tst_SimulatorWeb)
#include "tst_simulatorweb.moc"
