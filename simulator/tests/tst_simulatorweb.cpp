// SPDX-License-Identifier: MIT
#include "simulatorprocess.h"

#include "httpmessages.h"

#include <QCryptographicHash>
#include <QHttpMultiPart>
#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QNetworkDatagram>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QUdpSocket>
#include <QtTest>

#include <memory>

namespace {

constexpr qint64 kibi = 1024;
constexpr qint64 mebi = 1024 * kibi;

using Reply = std::unique_ptr<QNetworkReply>;

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
class SimulatorWebTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void login_data();
    void login();
    void withoutLoginNothingIsAsked();
    void pages_data();
    void pages();
    void frontPageIsComplete_data();
    void frontPageIsComplete();
    void downloads_data();
    void downloads();
    void generatedBody();
    void brokenDownload();
    void customDownload();
    void hugeDownload();
    void upload_data();
    void upload();
    void uploadNeedsLogin();
    void oddAnswers_data();
    void oddAnswers();
    void lateAndEndlessAnswers();
    void redirectsForEver();
    void spoilsOnlyTheGivenPath();
    void controlChangesFrames();
    void controlRefusesNonsense();
    void portClosesAndOpens();

private:
    [[nodiscard]] QNetworkRequest request(const QString& path,
                                          const QByteArray& credentials = "user:secret") const;
    Reply get(const QString& path);
    static bool finish(const Reply& reply);
    static int status(const Reply& reply);
    QJsonObject control(const QString& query);

    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<QTemporaryDir> uploads;
    QNetworkAccessManager client;
};

void SimulatorWebTest::init()
{
    uploads = std::make_unique<QTemporaryDir>();
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({QStringLiteral("--login"), QStringLiteral("user"), QStringLiteral("--password"),
                              QStringLiteral("secret"), QStringLiteral("--upload-dir"), uploads->path(),
                              QStringLiteral("--map"), QStringLiteral(VARNEL_SOURCE_DIR "/device/modbus.map"),
                              QStringLiteral("--sections"), QStringLiteral("none")}));
    client.clearConnectionCache();
}

void SimulatorWebTest::cleanup()
{
    simulator.reset();
}

QNetworkRequest SimulatorWebTest::request(const QString& path, const QByteArray& credentials) const
{
    QNetworkRequest made(simulator->url(path));
    if (!credentials.isEmpty()) {
        made.setRawHeader("Authorization", "Basic " + credentials.toBase64());
    }
    return made;
}

Reply SimulatorWebTest::get(const QString& path)
{
    return Reply(client.get(request(path)));
}

bool SimulatorWebTest::finish(const Reply& reply)
{
    return QTest::qWaitFor([&reply] { return reply->isFinished(); }, 60000);
}

int SimulatorWebTest::status(const Reply& reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QJsonObject SimulatorWebTest::control(const QString& query)
{
    QNetworkRequest asked = request(QStringLiteral("/control?") + query);
    asked.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("text/plain"));
    const Reply reply(client.post(asked, QByteArray()));
    return finish(reply) ? QJsonDocument::fromJson(reply->readAll()).object() : QJsonObject();
}

void SimulatorWebTest::login_data()
{
    QTest::addColumn<QByteArray>("credentials");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("word");

    QTest::newRow("right") << QByteArray("user:secret") << 200 << QStringLiteral("right");
    QTest::newRow("none") << QByteArray() << 401 << QStringLiteral("none");
    QTest::newRow("wrong password") << QByteArray("user:Secret") << 401 << QStringLiteral("wrong");
    QTest::newRow("wrong login") << QByteArray("admin:secret") << 401 << QStringLiteral("wrong");
    QTest::newRow("no colon") << QByteArray("user") << 401 << QStringLiteral("wrong");
}

void SimulatorWebTest::login()
{
    QFETCH(QByteArray, credentials);
    const QStringList paths{QStringLiteral("/index.html"), QStringLiteral("/style.css"),
                            QStringLiteral("/control")};
    for (const QString& path : paths) {
        QNetworkRequest asked = request(path, credentials);
        asked.setHeader(QNetworkRequest::UserAgentHeader, QStringLiteral("Test/1"));
        const Reply reply(client.get(asked));
        QVERIFY(finish(reply));
        QTEST(status(reply), "expected");
        if (status(reply) == 401) {
            QCOMPARE(reply->rawHeader("WWW-Authenticate"), QByteArray("Basic realm=\"R7M\""));
        }
    }
    QTRY_VERIFY(simulator->events(QStringLiteral("request")).size() >= 3);
    const QJsonObject logged = simulator->events(QStringLiteral("request")).at(0);
    QCOMPARE(logged.value(QLatin1String("path")).toString(), QStringLiteral("/index.html"));
    QCOMPARE(logged.value(QLatin1String("agent")).toString(), QStringLiteral("Test/1"));
    QTEST(logged.value(QLatin1String("auth")).toString(), "word");
    QTEST(logged.value(QLatin1String("status")).toInt(), "expected");
}

void SimulatorWebTest::withoutLoginNothingIsAsked()
{
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({QStringLiteral("--login"), QString()}));
    const Reply reply(client.get(request(QStringLiteral("/index.html"), QByteArray())));
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 200);
}

void SimulatorWebTest::pages_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QByteArray>("type");

    const auto row = [](const char* path, int expected, const char* type) {
        QTest::newRow(path) << QString(QLatin1String(path)) << expected << QByteArray(type);
    };
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

void SimulatorWebTest::pages()
{
    QFETCH(QString, path);
    const Reply reply = get(path);
    QVERIFY(finish(reply));
    QTEST(status(reply), "expected");
    QTEST(reply->rawHeader("Content-Type"), "type");
    QVERIFY(reply->bytesAvailable() > 0);
}

void SimulatorWebTest::frontPageIsComplete_data()
{
    QTest::addColumn<QString>("page");
    QTest::newRow("board") << QStringLiteral("board");
    QTest::newRow("plain") << QStringLiteral("plain");
}

void SimulatorWebTest::frontPageIsComplete()
{
    QFETCH(QString, page);
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({QStringLiteral("--login"), QStringLiteral("user"), QStringLiteral("--password"),
                              QStringLiteral("secret"), QStringLiteral("--page"), page}));
    const Reply front = get(QStringLiteral("/index.html"));
    QVERIFY(finish(front));
    const QString html = QString::fromUtf8(front->readAll());
    QRegularExpressionMatchIterator parts =
        QRegularExpression(QStringLiteral("(?:src|href)=\"([^\"]+)\"")).globalMatch(html);
    int count = 0;
    for (; parts.hasNext(); ++count) {
        const QString path = parts.next().captured(1);
        QVERIFY2(path.startsWith(QLatin1Char('/')), qPrintable(path)); // nothing from elsewhere
        const Reply part = get(path);
        QVERIFY(finish(part));
        QCOMPARE(status(part), 200);
    }
    QVERIFY(count >= 2);
}

void SimulatorWebTest::downloads_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("disposition");
    QTest::addColumn<int>("size");

    const auto row = [](const char* path, const QByteArray& disposition, int size = 2048) {
        QTest::newRow(path) << QString(QLatin1String(path)) << disposition << size;
    };
    row("plain", "attachment; filename=report.txt");
    row("quoted", "attachment; filename=\"report.txt\"");
    row("twice", "attachment;filename=log.txt; filename=b.txt");
    row("upper", "attachment; FILENAME=x");
    row("extended", "attachment; filename*=UTF-8''x.txt");
    row("nameless", "attachment");
    row("blanks", "attachment; filename=   ; size=2048");
    row("dot", "attachment; filename=.");
    row("dotdot", "attachment; filename=..");
    row("climb", "attachment; filename=../escaped.txt");
    row("subdirectory", "attachment; filename=logs/today.txt");
    row("latin1", "attachment; filename=r\xE9sum\xE9.txt");
    row("utf8", "attachment; filename=\xD0\xBE\xD1\x82\xD1\x87\xD1\x91\xD1\x82.txt");
    row("long", "attachment; filename=" + QByteArray(296, 'n') + ".txt");
    row("percent", "attachment; filename=100%25-%s-%1.txt");
    row("hidden", "attachment; filename=.hidden");
    row("no-suffix", "attachment; filename=data");
    row("no-header/data.bin", QByteArray());
    row("slash/", QByteArray());
    row("empty", "attachment; filename=empty.bin", 0);
    row("large", "attachment; filename=large.bin", 5 * 1024 * 1024);
}

void SimulatorWebTest::downloads()
{
    QFETCH(QString, path);
    QFETCH(int, size);
    const Reply reply = get(QStringLiteral("/download/") + path);
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 200);
    QFETCH(QByteArray, disposition);
    QCOMPARE(reply->rawHeader("Content-Disposition"), disposition);
    QCOMPARE(reply->hasRawHeader("Content-Disposition"), !disposition.isNull());
    QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/octet-stream"));
    QCOMPARE(reply->rawHeader("Content-Length").toInt(), size);
    QVERIFY(reply->readAll() == pattern(size));
}

void SimulatorWebTest::generatedBody()
{
    // octet i is i xor (i >> 8) xor (i >> 16): neighbouring blocks of 256 differ
    QCOMPARE(pattern(4).toHex(), QByteArray("00010203"));
    QCOMPARE(pattern(260).mid(256).toHex(), QByteArray("01000302"));
    QCOMPARE(int(uchar(Simulator::patternOctet(0x12345))), 0x45 ^ 0x23 ^ 0x01);
}

void SimulatorWebTest::brokenDownload()
{
    const Reply reply = get(QStringLiteral("/download/break"));
    QVERIFY(finish(reply));
    QCOMPARE(reply->error(), QNetworkReply::RemoteHostClosedError);
    QVERIFY(reply->readAll() == pattern(32 * kibi));

    const Reply stalled = get(QStringLiteral("/download/stall"));
    QTRY_COMPARE(stalled->bytesAvailable(), 32 * kibi);
    QVERIFY(!stalled->isFinished());
}

void SimulatorWebTest::customDownload()
{
    const Reply reply =
        get(QStringLiteral("/download/custom/x.bin?disposition=attachment%3B%20filename%3Da%20b.txt"
                           "&type=application/x-odd&size=10000&pace=20"));
    QElapsedTimer clock;
    clock.start();
    QVERIFY(finish(reply));
    QVERIFY(clock.elapsed() >= 50); // three paces of 4096 octets
    QCOMPARE(reply->rawHeader("Content-Disposition"), QByteArray("attachment; filename=a b.txt"));
    QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/x-odd"));
    QVERIFY(reply->readAll() == pattern(10000));
}

void SimulatorWebTest::hugeDownload()
{
    const Reply reply = get(QStringLiteral("/download/huge"));
    reply->setReadBufferSize(mebi);
    qint64 received = 0;
    bool intact = true;
    const auto drain = [&] {
        const QByteArray block = reply->readAll();
        if (!block.isEmpty()) {
            intact = intact && block.at(0) == Simulator::patternOctet(received);
        }
        received += block.size();
    };
    connect(reply.get(), &QNetworkReply::readyRead, this, drain);
    QVERIFY(QTest::qWaitFor([&reply] { return reply->isFinished(); }, 60000));
    drain();
    QCOMPARE(received, 200 * mebi);
    QVERIFY(intact);
}

void SimulatorWebTest::upload_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("size");

    QTest::newRow("plain name") << QStringLiteral("log.txt") << QStringLiteral("log.txt") << 1000;
    QTest::newRow("empty file") << QStringLiteral("empty.bin") << QStringLiteral("empty.bin") << 0;
    QTest::newRow("large file") << QStringLiteral("large.bin") << QStringLiteral("large.bin") << 3000000;
    QTest::newRow("blanks and umlaut")
        << QStringLiteral("Mein L\u00f6g.txt") << QStringLiteral("Mein L\u00f6g.txt") << 10;
    QTest::newRow("path outside") << QStringLiteral("../../x") << QStringLiteral("x") << 10;
    QTest::newRow("dots") << QStringLiteral("..") << QStringLiteral("unnamed") << 10;
}

void SimulatorWebTest::upload()
{
    QFETCH(QString, name);
    QFETCH(QString, stored);
    QFETCH(int, size);
    const QByteArray content = pattern(size);
    QHttpMultiPart form(QHttpMultiPart::FormDataType);
    QHttpPart file;
    file.setRawHeader("Content-Disposition", R"(form-data; name="file"; filename=")" + name.toUtf8() + "\"");
    file.setBody(content);
    form.append(file);
    const Reply reply(client.post(request(QStringLiteral("/upload?format=json")), &form));
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 200);

    const QJsonArray list = QJsonDocument::fromJson(reply->readAll()).array();
    QCOMPARE(list.size(), 1);
    const QJsonObject received = list.first().toObject();
    const QString md5 =
        QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    QCOMPARE(received.value(QLatin1String("field")).toString(), QStringLiteral("file"));
    QCOMPARE(received.value(QLatin1String("name")).toString(), name);
    QCOMPARE(received.value(QLatin1String("size")).toInt(), size);
    QCOMPARE(received.value(QLatin1String("md5")).toString(), md5);
    QFile copy(uploads->filePath(stored));
    QVERIFY(copy.open(QIODevice::ReadOnly));
    QVERIFY(copy.readAll() == content);

    const Reply overview = get(QStringLiteral("/uploads"));
    QVERIFY(finish(overview));
    QCOMPARE(QJsonDocument::fromJson(overview->readAll()).array(), list);
}

void SimulatorWebTest::uploadNeedsLogin()
{
    QHttpMultiPart form(QHttpMultiPart::FormDataType);
    QHttpPart file;
    file.setRawHeader("Content-Disposition", R"(form-data; name="file"; filename="a.txt")");
    file.setBody("text");
    form.append(file);
    const Reply reply(client.post(request(QStringLiteral("/upload"), "user:wrong"), &form));
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 401);
    QVERIFY(QDir(uploads->path()).isEmpty());
}

void SimulatorWebTest::oddAnswers_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("expectedStatus");
    QTest::addColumn<int>("expectedError");

    const auto row = [](const char* path, int expectedStatus, QNetworkReply::NetworkError error) {
        QTest::newRow(path) << QString(QLatin1String(path)) << expectedStatus << int(error);
    };
    row("/odd/status", 500, QNetworkReply::InternalServerError);
    row("/odd/status?status=404", 404, QNetworkReply::ContentNotFoundError);
    row("/odd/status?status=401", 401, QNetworkReply::AuthenticationRequiredError);
    row("/odd/slow?ms=50", 200, QNetworkReply::NoError);
    row("/odd/trickle?ms=2", 200, QNetworkReply::NoError);
    row("/odd/break", 200, QNetworkReply::RemoteHostClosedError);
    row("/odd/long", 200, QNetworkReply::RemoteHostClosedError);
    row("/odd/short", 200, QNetworkReply::NoError);
}

void SimulatorWebTest::oddAnswers()
{
    QFETCH(QString, path);
    const Reply reply = get(path);
    QVERIFY(finish(reply));
    QTEST(status(reply), "expectedStatus");
    QTEST(int(reply->error()), "expectedError");
    if (path == QLatin1String("/odd/short")) {
        const Reply whole = get(QStringLiteral("/plain.html"));
        QVERIFY(finish(whole));
        QCOMPARE(reply->rawHeader("Content-Length").toLongLong(), whole->bytesAvailable() / 2);
    }
}

void SimulatorWebTest::lateAndEndlessAnswers()
{
    const Reply hung = get(QStringLiteral("/odd/hang"));
    QTRY_COMPARE(simulator->events(QStringLiteral("request")).size(), 1);
    const Reply half = get(QStringLiteral("/odd/stall"));
    QTRY_VERIFY(half->bytesAvailable() > 0);
    qint64 received = 0;
    const Reply endless = get(QStringLiteral("/odd/endless"));
    connect(endless.get(), &QNetworkReply::readyRead, this, [&] { received += endless->readAll().size(); });
    QTRY_VERIFY_WITH_TIMEOUT(received > 10 * mebi, 60000);
    endless->abort();
    const Reply meanwhile = get(QStringLiteral("/index.html"));
    QVERIFY(finish(meanwhile));
    QCOMPARE(status(meanwhile), 200); // the others do not block it
    QVERIFY(!hung->isFinished());
    QVERIFY(!half->isFinished());
    simulator->act("quit");
    QVERIFY(simulator->process.waitForFinished(5000));
    QCOMPARE(simulator->process.exitCode(), 0);
    QVERIFY(finish(hung));
    QVERIFY(finish(half));
}

void SimulatorWebTest::redirectsForEver()
{
    QNetworkRequest asked = request(QStringLiteral("/odd/redirect-loop"));
    asked.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::SameOriginRedirectPolicy);
    const Reply reply(client.get(asked));
    QVERIFY(finish(reply));
    QCOMPARE(reply->error(), QNetworkReply::TooManyRedirectsError);
}

void SimulatorWebTest::spoilsOnlyTheGivenPath()
{
    const auto statusOf = [this](const char* path) {
        const Reply reply = get(QLatin1String(path));
        return finish(reply) ? status(reply) : 0;
    };
    control(QStringLiteral("do=http&path=/images/*&fault=status&status=404&count=1"));
    QCOMPARE(statusOf("/style.css"), 200);
    QCOMPARE(statusOf("/images/red.png"), 404);
    QCOMPARE(statusOf("/images/red.png"), 200);
    control(QStringLiteral("do=http&fault=status&status=503"));
    QCOMPARE(statusOf("/index.html"), 503);
    QCOMPARE(statusOf("/style.css"), 503);
    QCOMPARE(statusOf("/control"), 200);
    control(QStringLiteral("do=http&fault=none"));
    QCOMPARE(statusOf("/index.html"), 200);
}

void SimulatorWebTest::controlChangesFrames()
{
    QUdpSocket panel;
    QVERIFY(panel.bind(QHostAddress(QHostAddress::LocalHost), 0));
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({QStringLiteral("--login"), QStringLiteral("user"), QStringLiteral("--password"),
                              QStringLiteral("secret"), QStringLiteral("--interval"), QStringLiteral("10"),
                              QStringLiteral("--sections"), QStringLiteral("gpiostate"),
                              QStringLiteral("--target"),
                              QStringLiteral("127.0.0.1:%1").arg(panel.localPort())}));
    const QJsonObject state = control(QStringLiteral("do=set&gpiostate.good=fast&gpiostate.critical=7"));
    QCOMPARE(state.value(QLatin1String("gpiostate")).toObject(),
             (QJsonObject{{QStringLiteral("good"), QStringLiteral("fast")},
                          {QStringLiteral("warning"), QStringLiteral("off")},
                          {QStringLiteral("critical"), 7},
                          {QStringLiteral("buzzer"), QStringLiteral("off")}}));
    QByteArray section;
    QTRY_COMPARE(([&] {
                     while (panel.hasPendingDatagrams())
                         section = panel.receiveDatagram().data().mid(16, 8);
                     return section.toHex();
                 }()),
                 QByteArray("2000080003000700"));
}

void SimulatorWebTest::controlRefusesNonsense()
{
    const Reply reply = get(QStringLiteral("/control?do=set&gpiostate.good=purple"));
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 400);
    QCOMPARE(reply->readAll(),
             QByteArray("{\"error\":\"value \\\"purple\\\" does not fit field \\\"gpiostate.good\\\"\"}\n"));
}

void SimulatorWebTest::portClosesAndOpens()
{
    const QJsonObject state =
        control(QStringLiteral("do=http-down&seconds=2")); // long enough for a slow machine to see it
    QVERIFY(!state.isEmpty());                             // the answer still comes
    QTRY_VERIFY(([this] {
        const Reply reply = get(QStringLiteral("/index.html"));
        return finish(reply) && reply->error() == QNetworkReply::ConnectionRefusedError;
    }()));
    QTRY_VERIFY(([this] {
        const Reply reply = get(QStringLiteral("/index.html"));
        return finish(reply) && status(reply) == 200;
    }()));
    QCOMPARE(simulator->process.state(), QProcess::Running);
}

QTEST_GUILESS_MAIN(SimulatorWebTest)
#include "tst_simulatorweb.moc"
