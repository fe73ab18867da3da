// SPDX-License-Identifier: MIT
#include "tcptransport.h"

#include <memory>
#include <vector>

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTest>

using namespace Varnel;
using namespace std::chrono_literals;

namespace {

/// A request with one word of data, and the answer that the test's answer function gives to it.
const QByteArray request = QByteArray::fromHex("0007 0000 0002 09 41");
const QByteArray response = QByteArray::fromHex("0007 0000 0004 09 41 5555");

QByteArray answerWithTwoOctets(const QByteArray& pdu)
{
    return pdu + QByteArray::fromHex("5555");
}

} // namespace

class tst_TcpTransport : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void answersSeveralClients();
    void silentAndHalfSilentClientsBlockNobody();
    void refusesClientsBeyondTheLimit();
    void placeIsFreeAgainAfterDisconnect();
    void silentClientGivesItsPlaceUp();
    void whoNeverAskedGoesFirst();
    void oneAddressCannotTakeAllPlaces();
    void closesBrokenStreams();
    void clientThatDoesNotReadIsNotReadEither();
    void reportsAPortInUse();
    void endsWithClientsConnected();

private:
    void open(int clientLimit, std::chrono::milliseconds idleLimit = 0ms);
    QTcpSocket* connectClient(const QHostAddress& from = QHostAddress(QHostAddress::LocalHost));
    static bool exchange(QTcpSocket* socket);

    std::unique_ptr<TcpTransport> transport;
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    int answers = 0; // given so far
};

void tst_TcpTransport::init()
{
    sockets.clear();
    answers = 0;
}

void tst_TcpTransport::cleanup()
{
    sockets.clear();
    transport.reset();
}

void tst_TcpTransport::open(int clientLimit, std::chrono::milliseconds idleLimit)
{
    const TcpEndpoint endpoint{QHostAddress(QHostAddress::LocalHost), 0, clientLimit};
    transport = std::make_unique<TcpTransport>(endpoint, idleLimit, [this](const QByteArray& pdu) {
        ++answers;
        return answerWithTwoOctets(pdu);
    });
    const Outcome<> opened = transport->open();
    QVERIFY2(opened, qPrintable(opened.refusal.text));
}

QTcpSocket* tst_TcpTransport::connectClient(const QHostAddress& from)
{
    sockets.push_back(std::make_unique<QTcpSocket>());
    QTcpSocket* socket = sockets.back().get();
    socket->bind(from);
    socket->connectToHost(QHostAddress(QHostAddress::LocalHost), transport->port());
    return QTest::qWaitFor([socket] { return socket->state() == QAbstractSocket::ConnectedState; }) ? socket
                                                                                                    : nullptr;
}

/// Sends one request and waits for exactly its answer.
bool tst_TcpTransport::exchange(QTcpSocket* socket)
{
    socket->write(request);
    return QTest::qWaitFor([socket] { return socket->bytesAvailable() >= response.size(); }) &&
           socket->readAll() == response;
}

void tst_TcpTransport::answersSeveralClients()
{
    open(3);
    QTcpSocket* first = connectClient();
    QTcpSocket* second = connectClient();
    for (int round = 0; round < 10; ++round) {
        QVERIFY(exchange(first));
        QVERIFY(exchange(second));
    }
    QCOMPARE(transport->clientCount(), 2);
    // Requests in one piece are answered one by one, in order.
    first->write(request + request + request.left(5));
    QTRY_COMPARE(first->bytesAvailable(), qint64(2 * response.size()));
    first->write(request.mid(5));
    QTRY_COMPARE(first->bytesAvailable(), qint64(3 * response.size()));
    QCOMPARE(first->readAll(), response + response + response);
}

void tst_TcpTransport::silentAndHalfSilentClientsBlockNobody()
{
    open(10);
    QVERIFY(connectClient());
    QTcpSocket* half = connectClient();
    half->write(request.left(7));
    QVERIFY(half->flush());
    QTcpSocket* promise = connectClient();
    promise->write(QByteArray::fromHex("0001 0000 00FE 01")); // says 253 octets follow, and stops
    QVERIFY(promise->flush());
    QVERIFY(exchange(connectClient()));
    half->write(request.mid(7));
    QTRY_COMPARE(half->bytesAvailable(), qint64(response.size()));
    QCOMPARE(half->readAll(), response);
}

void tst_TcpTransport::refusesClientsBeyondTheLimit()
{
    open(2);
    QTcpSocket* first = connectClient();
    QTcpSocket* second = connectClient();
    QVERIFY(exchange(second));
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral(
                             "^refused 127\\.0\\.0\\.1:\\d+ : the limit of 2 clients is reached$")));
    for (int more = 0; more < 3; ++more) { // reported once
        QTcpSocket* refused = connectClient();
        QTRY_COMPARE(refused->state(), QAbstractSocket::UnconnectedState);
    }
    QCOMPARE(transport->clientCount(), 2);
    QVERIFY(exchange(first));
}

void tst_TcpTransport::placeIsFreeAgainAfterDisconnect()
{
    open(1);
    QTcpSocket* first = connectClient();
    QVERIFY(exchange(first));
    first->disconnectFromHost();
    QTRY_COMPARE(transport->clientCount(), 0);
    QVERIFY(exchange(connectClient()));
}

void tst_TcpTransport::silentClientGivesItsPlaceUp()
{
    open(2, 1ms);
    QTcpSocket* silent = connectClient();
    QTcpSocket* active = connectClient();
    QVERIFY(exchange(active));
    QTRY_COMPARE(transport->clientCount(), 2);
    QVERIFY(exchange(active)); // now `silent` is the one who asked longest ago
    QTest::ignoreMessage(
        QtInfoMsg,
        QRegularExpression(QStringLiteral("^dropped the silent client 127\\.0\\.0\\.1:%1 for a new one$")
                               .arg(silent->localPort())));
    QVERIFY(exchange(connectClient()));
    QTRY_COMPARE(silent->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(exchange(active));
}

void tst_TcpTransport::whoNeverAskedGoesFirst()
{
    open(2, 1h);
    QTcpSocket* active = connectClient();
    QVERIFY(exchange(active));
    QTcpSocket* silent = connectClient();
    QTRY_COMPARE(transport->clientCount(), 2);
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^refused .* the limit of 2")));
    QTcpSocket* early = connectClient(); // the silent one still has time for its first request
    QTRY_COMPARE(early->state(), QAbstractSocket::UnconnectedState);
    QTest::ignoreMessage(
        QtInfoMsg,
        QRegularExpression(QStringLiteral("^dropped the silent client .*:%1 ").arg(silent->localPort())));
    QTest::qWait(1000); // what is tested is a time
    QVERIFY(exchange(connectClient()));
    QTRY_COMPARE(silent->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(exchange(active));
}

void tst_TcpTransport::oneAddressCannotTakeAllPlaces()
{
    open(3, 1h);
    QTcpSocket* greedy[] = {connectClient(), connectClient(), connectClient()};
    for (QTcpSocket* socket : greedy) {
        QVERIFY(exchange(socket));
    }
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^refused .* the limit of 3")));
    QTcpSocket* fourth = connectClient();
    QTRY_COMPARE(fourth->state(), QAbstractSocket::UnconnectedState);
    QTest::ignoreMessage(
        QtInfoMsg,
        QRegularExpression(QStringLiteral("^dropped the greedy client .*:%1 ").arg(greedy[0]->localPort())));
    QTcpSocket* plc = connectClient(QHostAddress(QStringLiteral("127.0.0.2")));
    QVERIFY(exchange(plc));
    QTRY_COMPARE(greedy[0]->state(), QAbstractSocket::UnconnectedState);
    // Two and one: no client loses its place to another one of either address.
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("^refused .* the limit of 3")));
    QTcpSocket* another = connectClient(QHostAddress(QStringLiteral("127.0.0.2")));
    QTRY_COMPARE(another->state(), QAbstractSocket::UnconnectedState);
    QVERIFY(exchange(greedy[1]) && exchange(greedy[2]) && exchange(plc));
}

void tst_TcpTransport::closesBrokenStreams()
{
    open(10);
    QTcpSocket* good = connectClient();
    const QByteArray broken[] = {QByteArray("GET / HTTP/1.1\r\nHost: panel\r\n\r\n"),
                                 QByteArray(100000, '\xff'),
                                 request + QByteArray::fromHex("0001 0000 0000 01"), QByteArray(7, '\0')};
    for (const QByteArray& octets : broken) {
        QTcpSocket* socket = connectClient();
        socket->write(octets);
        QTRY_COMPARE(socket->state(), QAbstractSocket::UnconnectedState);
    }
    QCOMPARE(transport->clientCount(), 1);
    QVERIFY(exchange(good));
}

void tst_TcpTransport::clientThatDoesNotReadIsNotReadEither()
{
    open(2);
    QTcpSocket* greedy = connectClient();
    greedy->setReadBufferSize(1); // takes nothing from its kernel, whose small buffers fill up, and then ours
    greedy->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
    constexpr int requests = 512 * 1024;
    const QByteArray flood = request.repeated(requests);
    greedy->write(flood);
    QTcpSocket* other = connectClient();
    // Served meanwhile is the other one alone, again and again: one answer each.
    int quietRounds = 0;
    for (int rounds = 0; rounds < 10000 && quietRounds < 20; ++rounds) {
        for (int turn = 0; turn < 100;
             ++turn) { // of the event loop, in which the greedy one is read if at all
            QCoreApplication::processEvents();
        }
        const int before = answers;
        QVERIFY(exchange(other));
        quietRounds = answers == before + 1 ? quietRounds + 1 : 0;
    }
    QCOMPARE(quietRounds, 20);
    QVERIFY2(answers < requests / 2, qPrintable(QString::number(answers)));
    // Once it reads, it is read again.
    const int stuckAt = answers;
    greedy->setReadBufferSize(0);
    QByteArray received = greedy->readAll();
    connect(greedy, &QTcpSocket::readyRead, this, [&] { received += greedy->readAll(); });
    QTRY_VERIFY_WITH_TIMEOUT(answers > stuckAt + 1000, 60000);
    QVERIFY(received.startsWith(response.repeated(1000)));
}

void tst_TcpTransport::reportsAPortInUse()
{
    open(1);
    const TcpEndpoint taken{QHostAddress(QHostAddress::LocalHost), transport->port(), 1};
    TcpTransport second(taken, 0ms, &answerWithTwoOctets);
    QCOMPARE(second.open().refusal.text, QStringLiteral("The bound address is already in use"));
    transport.reset();
    QVERIFY(second.open());
}

void tst_TcpTransport::endsWithClientsConnected()
{
    open(2);
    QTcpSocket* socket = connectClient();
    QVERIFY(exchange(socket));
    transport.reset();
    QTRY_COMPARE(socket->state(), QAbstractSocket::UnconnectedState);
}

QTEST_GUILESS_MAIN(tst_TcpTransport)
#include "tst_tcptransport.moc"
