// SPDX-License-Identifier: MIT
#include "httpmessages.h"
#include "logreader.h"
#include "simulatorprocess.h"

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

constexpr qint64 mebi = 1024 * 1024;

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
class tst_SimulatorWeb : public QObject
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
    bool startBehindLogin(const QStringList& arguments);
    [[nodiscard]] QNetworkRequest request(const QString& path,
                                          const QByteArray& credentials = "user:secret") const;
    Reply get(const QString& path);
    Reply finished(const QString& path);
    Reply upload(const QByteArray& name, const QByteArray& content, const QNetworkRequest& to);
    static bool finish(const Reply& reply);
    static int status(const Reply& reply);
    QJsonObject control(const QString& query);

    std::unique_ptr<SimulatorProcess> simulator;
    std::unique_ptr<QTemporaryDir> uploads;
    QNetworkAccessManager client;
};

void tst_SimulatorWeb::init()
{
    uploads = std::make_unique<QTemporaryDir>();
    QVERIFY(startBehindLogin({"--upload-dir"_s, uploads->path(), "--map"_s,
                              VARNEL_SOURCE_DIR "/device/modbus.map"_s, "--sections"_s, "none"_s}));
    client.clearConnectionCache();
}

void tst_SimulatorWeb::cleanup()
{
    simulator.reset();
}

bool tst_SimulatorWeb::startBehindLogin(const QStringList& arguments)
{
    simulator = std::make_unique<SimulatorProcess>();
    const QStringList login{"--login"_s, "user"_s, "--password"_s, "secret"_s};
    return simulator->start(login + arguments);
}

QNetworkRequest tst_SimulatorWeb::request(const QString& path, const QByteArray& credentials) const
{
    QNetworkRequest made(simulator->url(path));
    if (!credentials.isEmpty()) {
        made.setRawHeader("Authorization", "Basic " + credentials.toBase64());
    }
    return made;
}

Reply tst_SimulatorWeb::get(const QString& path)
{
    return Reply(client.get(request(path)));
}

/// The answer once it is whole.
Reply tst_SimulatorWeb::finished(const QString& path)
{
    Reply reply = get(path);
    if (!finish(reply)) {
        qWarning() << "No answer to" << path;
    }
    return reply;
}

/// The answer to a form with one file.
Reply tst_SimulatorWeb::upload(const QByteArray& name, const QByteArray& content, const QNetworkRequest& to)
{
    QHttpMultiPart form(QHttpMultiPart::FormDataType);
    QHttpPart file;
    file.setRawHeader("Content-Disposition", R"(form-data; name="file"; filename=")" + name + "\"");
    file.setBody(content);
    form.append(file);
    Reply reply(client.post(to, &form));
    if (!finish(reply)) {
        qWarning() << "No answer to" << name;
    }
    return reply;
}

bool tst_SimulatorWeb::finish(const Reply& reply)
{
    return QTest::qWaitFor([&reply] { return reply->isFinished(); }, 60000);
}

int tst_SimulatorWeb::status(const Reply& reply)
{
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

QJsonObject tst_SimulatorWeb::control(const QString& query)
{
    QNetworkRequest asked = request("/control?"_s + query);
    asked.setHeader(QNetworkRequest::ContentTypeHeader, "text/plain"_s);
    const Reply reply(client.post(asked, QByteArray()));
    return finish(reply) ? QJsonDocument::fromJson(reply->readAll()).object() : QJsonObject();
}

void tst_SimulatorWeb::login_data()
{
    QTest::addColumn<QByteArray>("credentials");
    QTest::addColumn<int>("expected");
    QTest::addColumn<QString>("word");

    QTest::newRow("right") << QByteArray("user:secret") << 200 << "right"_s;
    QTest::newRow("none") << QByteArray() << 401 << "none"_s;
    QTest::newRow("wrong password") << QByteArray("user:Secret") << 401 << "wrong"_s;
    QTest::newRow("wrong login") << QByteArray("admin:secret") << 401 << "wrong"_s;
    QTest::newRow("no colon") << QByteArray("user") << 401 << "wrong"_s;
}

void tst_SimulatorWeb::login()
{
    QFETCH(QByteArray, credentials);
    const QStringList paths{"/index.html"_s, "/style.css"_s, "/control"_s};
    for (const QString& path : paths) {
        QNetworkRequest asked = request(path, credentials);
        asked.setHeader(QNetworkRequest::UserAgentHeader, "Test/1"_s);
        const Reply reply(client.get(asked));
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

void tst_SimulatorWeb::withoutLoginNothingIsAsked()
{
    simulator = std::make_unique<SimulatorProcess>();
    QVERIFY(simulator->start({"--login"_s, QString()}));
    const Reply reply(client.get(request("/index.html"_s, QByteArray())));
    QVERIFY(finish(reply));
    QCOMPARE(status(reply), 200);
}

void tst_SimulatorWeb::pages_data()
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

void tst_SimulatorWeb::pages()
{
    QFETCH(QString, path);
    const Reply reply = finished(path);
    QTEST(status(reply), "expected");
    QTEST(reply->rawHeader("Content-Type"), "type");
    QVERIFY(reply->bytesAvailable() > 0);
}

void tst_SimulatorWeb::frontPageIsComplete_data()
{
    QTest::addColumn<QString>("page");
    QTest::newRow("board") << "board"_s;
    QTest::newRow("plain") << "plain"_s;
}

void tst_SimulatorWeb::frontPageIsComplete()
{
    QFETCH(QString, page);
    QVERIFY(startBehindLogin({"--page"_s, page}));
    const Reply front = finished("/index.html"_s);
    const QString html = QString::fromUtf8(front->readAll());
    QRegularExpressionMatchIterator parts =
        QRegularExpression("(?:src|href)=\"([^\"]+)\""_s).globalMatch(html);
    int count = 0;
    for (; parts.hasNext(); ++count) {
        const QString path = parts.next().captured(1);
        QVERIFY2(path.startsWith(QLatin1Char('/')), qPrintable(path)); // nothing from elsewhere
        const Reply part = finished(path);
        QCOMPARE(status(part), 200);
    }
    QVERIFY(count >= 2);
}

void tst_SimulatorWeb::upload_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("size");

    const auto row = [](const char* name, const QString& file, const QString& stored, int size) {
        QTest::newRow(name) << file << stored << size;
    };
    row("plain name", "log.txt"_s, "log.txt"_s, 1000);
    row("empty file", "empty.bin"_s, "empty.bin"_s, 0);
    row("large file", "large.bin"_s, "large.bin"_s, 3000000);
    row("blanks and umlaut", QStringLiteral("Mein L\u00f6g.txt"), QStringLiteral("Mein L\u00f6g.txt"), 10);
    row("path outside", "../../x"_s, "x"_s, 10);
    row("dots", ".."_s, "unnamed"_s, 10);
}

void tst_SimulatorWeb::upload()
{
    QFETCH(QString, name);
    QFETCH(QString, stored);
    QFETCH(int, size);
    const QByteArray content = pattern(size);
    const Reply reply = upload(name.toUtf8(), content, request("/upload?format=json"_s));
    QCOMPARE(status(reply), 200);

    const QJsonArray list = QJsonDocument::fromJson(reply->readAll()).array();
    QCOMPARE(list.size(), 1);
    const QJsonObject received = list.first().toObject();
    const QString md5 =
        QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    QCOMPARE(received.value(QLatin1String("field")).toString(), "file"_s);
    QCOMPARE(received.value(QLatin1String("name")).toString(), name);
    QCOMPARE(received.value(QLatin1String("size")).toInt(), size);
    QCOMPARE(received.value(QLatin1String("md5")).toString(), md5);
    QFile copy(uploads->filePath(stored));
    QVERIFY(copy.open(QIODevice::ReadOnly));
    QVERIFY(copy.readAll() == content);

    const Reply overview = finished("/uploads"_s);
    QCOMPARE(QJsonDocument::fromJson(overview->readAll()).array(), list);
}

void tst_SimulatorWeb::uploadNeedsLogin()
{
    const Reply reply = upload("a.txt", "text", request("/upload"_s, "user:wrong"));
    QCOMPARE(status(reply), 401);
    QVERIFY(QDir(uploads->path()).isEmpty());
}

void tst_SimulatorWeb::oddAnswers_data()
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

void tst_SimulatorWeb::oddAnswers()
{
    QFETCH(QString, path);
    const Reply reply = finished(path);
    QTEST(status(reply), "expectedStatus");
    QTEST(int(reply->error()), "expectedError");
    if (path == QLatin1String("/odd/short")) {
        const Reply whole = finished("/plain.html"_s);
        QCOMPARE(reply->rawHeader("Content-Length").toLongLong(), whole->bytesAvailable() / 2);
    }
}

void tst_SimulatorWeb::lateAndEndlessAnswers()
{
    const Reply hung = get("/odd/hang"_s);
    QTRY_COMPARE(simulator->events("request"_s).size(), 1);
    const Reply half = get("/odd/stall"_s);
    QTRY_VERIFY(half->bytesAvailable() > 0);
    qint64 received = 0;
    const Reply endless = get("/odd/endless"_s);
    connect(endless.get(), &QNetworkReply::readyRead, this, [&] { received += endless->readAll().size(); });
    QTRY_VERIFY_WITH_TIMEOUT(received > 10 * mebi, 60000);
    endless->abort();
    const Reply meanwhile = finished("/index.html"_s);
    QCOMPARE(status(meanwhile), 200); // the others do not block it
    QVERIFY(!hung->isFinished());
    QVERIFY(!half->isFinished());
    simulator->act("quit");
    QVERIFY(simulator->process.waitForFinished(5000));
    QCOMPARE(simulator->process.exitCode(), 0);
    QVERIFY(finish(hung));
    QVERIFY(finish(half));
}

void tst_SimulatorWeb::redirectsForEver()
{
    QNetworkRequest asked = request("/odd/redirect-loop"_s);
    asked.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::SameOriginRedirectPolicy);
    const Reply reply(client.get(asked));
    QVERIFY(finish(reply));
    QCOMPARE(reply->error(), QNetworkReply::TooManyRedirectsError);
}

void tst_SimulatorWeb::spoilsOnlyTheGivenPath()
{
    const auto statusOf = [this](const char* path) {
        const Reply reply = get(QLatin1String(path));
        return finish(reply) ? status(reply) : 0;
    };
    control("do=http&path=/images/*&fault=status&status=404&count=1"_s);
    QCOMPARE(statusOf("/style.css"), 200);
    QCOMPARE(statusOf("/images/red.png"), 404);
    QCOMPARE(statusOf("/images/red.png"), 200);
    control("do=http&fault=status&status=503"_s);
    QCOMPARE(statusOf("/index.html"), 503);
    QCOMPARE(statusOf("/style.css"), 503);
    QCOMPARE(statusOf("/control"), 200);
    control("do=http&fault=none"_s);
    QCOMPARE(statusOf("/index.html"), 200);
}

void tst_SimulatorWeb::controlChangesFrames()
{
    QUdpSocket panel;
    QVERIFY(panel.bind(QHostAddress(QHostAddress::LocalHost), 0));
    QVERIFY(startBehindLogin({"--interval"_s, "10"_s, "--sections"_s, "gpiostate"_s, "--target"_s,
                              "127.0.0.1:%1"_s.arg(panel.localPort())}));
    const QJsonObject state = control("do=set&gpiostate.good=fast&gpiostate.critical=7"_s);
    QCOMPARE(state.value(QLatin1String("gpiostate")).toObject(),
             (QJsonObject{
                 {"good"_s, "fast"_s}, {"warning"_s, "off"_s}, {"critical"_s, 7}, {"buzzer"_s, "off"_s}}));
    QByteArray section;
    QTRY_COMPARE(([&] {
                     while (panel.hasPendingDatagrams())
                         section = panel.receiveDatagram().data().mid(16, 8);
                     return section.toHex();
                 }()),
                 QByteArray("2000080003000700"));
}

void tst_SimulatorWeb::controlRefusesNonsense()
{
    const Reply reply = finished("/control?do=set&gpiostate.good=purple"_s);
    QCOMPARE(status(reply), 400);
    QCOMPARE(reply->readAll(),
             QByteArray("{\"error\":\"value \\\"purple\\\" does not fit field \\\"gpiostate.good\\\"\"}\n"));
}

void tst_SimulatorWeb::portClosesAndOpens()
{
    const QJsonObject state = control("do=http-down&seconds=2"_s); // long enough for a slow machine to see it
    QVERIFY(!state.isEmpty());                                     // the answer still comes
    QTRY_VERIFY(([this] {
        const Reply reply = get("/index.html"_s);
        return finish(reply) && reply->error() == QNetworkReply::ConnectionRefusedError;
    }()));
    QTRY_VERIFY(([this] {
        const Reply reply = get("/index.html"_s);
        return finish(reply) && status(reply) == 200;
    }()));
    QCOMPARE(simulator->process.state(), QProcess::Running);
}

QTEST_GUILESS_MAIN(tst_SimulatorWeb)
#include "tst_simulatorweb.moc"
