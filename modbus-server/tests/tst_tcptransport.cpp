// SPDX-License-Identifier: MIT
#include "literals.h"
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
const QByteArray request = QByteArray::fromHex("1234 0000 0002 FF 41");
const QByteArray response = QByteArray::fromHex("1234 0000 0004 FF 41 5555");

void expect(QtMsgType type, const QString& pattern)
{
    QTest::ignoreMessage(type, QRegularExpression(pattern));
}

bool isClosed(const QTcpSocket* socket)
{
    return socket->state() == QAbstractSocket::UnconnectedState;
}

} // namespace

class tst_TcpTransport : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        sockets.clear();
        answers = 0;
    }

    void cleanup()
    {
        sockets.clear();
        transport.reset();
    }

    void answersSeveralClients()
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
        transport.reset();
        QTRY_VERIFY(isClosed(first) && isClosed(second));
    }

    void silentAndHalfSilentClientsBlockNobody()
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

    void refusesClientsBeyondTheLimit()
    {
        open(2);
        QTcpSocket* first = connectClient();
        QTcpSocket* second = connectClient();
        QVERIFY(exchange(second));
        expect(QtWarningMsg, "^refused 127\\.0\\.0\\.1:\\d+ : the limit of 2 clients is reached$"_s);
        for (int more = 0; more < 3; ++more) { // reported once
            QVERIFY(isRefused());
        }
        QCOMPARE(transport->clientCount(), 2);
        QVERIFY(exchange(first));
        first->disconnectFromHost(); // its place is free again
        QTRY_COMPARE(transport->clientCount(), 1);
        QVERIFY(exchange(connectClient()));
    }

    void silentClientGivesItsPlaceUp()
    {
        open(2, 1ms);
        QTcpSocket* silent = connectClient();
        QTcpSocket* active = connectClient();
        QVERIFY(exchange(active));
        QTRY_COMPARE(transport->clientCount(), 2);
        QVERIFY(exchange(active)); // now `silent` is the one who asked longest ago
        expect(QtInfoMsg,
               "^dropped the silent client 127\\.0\\.0\\.1:%1 for a new one$"_s.arg(silent->localPort()));
        QVERIFY(exchange(connectClient()));
        QTRY_VERIFY(isClosed(silent));
        QVERIFY(exchange(active));
    }

    void whoNeverAskedGoesFirst()
    {
        open(2, 1h);
        QTcpSocket* active = connectClient();
        QVERIFY(exchange(active));
        QTcpSocket* silent = connectClient();
        QTRY_COMPARE(transport->clientCount(), 2);
        expect(QtWarningMsg, "^refused .* the limit of 2"_s);
        QVERIFY(isRefused()); // the silent one still has time for its first request
        expect(QtInfoMsg, "^dropped the silent client .*:%1 "_s.arg(silent->localPort()));
        QTest::qWait(1000); // what is tested is a time
        QVERIFY(exchange(connectClient()));
        QTRY_VERIFY(isClosed(silent));
        QVERIFY(exchange(active));
    }

    void oneAddressCannotTakeAllPlaces()
    {
        open(3, 1h);
        QTcpSocket* greedy[] = {connectClient(), connectClient(), connectClient()};
        for (QTcpSocket* socket : greedy) {
            QVERIFY(exchange(socket));
        }
        expect(QtWarningMsg, "^refused .* the limit of 3"_s);
        QVERIFY(isRefused());
        expect(QtInfoMsg, "^dropped the greedy client .*:%1 "_s.arg(greedy[0]->localPort()));
        QTcpSocket* plc = connectClient(QHostAddress("127.0.0.2"_s));
        QVERIFY(exchange(plc));
        QTRY_VERIFY(isClosed(greedy[0]));
        // Two and one: no client loses its place to another one of either address.
        expect(QtWarningMsg, "^refused .* the limit of 3"_s);
        QVERIFY(isRefused(QHostAddress("127.0.0.2"_s)));
        QVERIFY(exchange(greedy[1]) && exchange(greedy[2]) && exchange(plc));
    }

    void closesBrokenStreams()
    {
        open(10);
        QTcpSocket* good = connectClient();
        const QByteArray broken[] = {QByteArray("GET / HTTP/1.1\r\nHost: panel\r\n\r\n"),
                                     QByteArray(100000, '\xff'),
                                     request + QByteArray::fromHex("0001 0000 0000 01"), QByteArray(7, '\0')};
        for (const QByteArray& octets : broken) {
            QTcpSocket* socket = connectClient();
            socket->write(octets);
            QTRY_VERIFY(isClosed(socket));
        }
        QCOMPARE(transport->clientCount(), 1);
        QVERIFY(exchange(good));
    }

    void clientThatDoesNotReadIsNotReadEither()
    {
        open(2);
        QTcpSocket* greedy = connectClient();
        // Takes nothing from its kernel, whose small buffers fill up, and then ours.
        greedy->setReadBufferSize(1);
        greedy->setSocketOption(QAbstractSocket::ReceiveBufferSizeSocketOption, 4096);
        constexpr int requests = 512 * 1024;
        const QByteArray flood = request.repeated(requests);
        greedy->write(flood);
        QTcpSocket* other = connectClient();
        // Served meanwhile is the other one alone, again and again: one answer each.
        int quietRounds = 0;
        for (int rounds = 0; rounds < 10000 && quietRounds < 20; ++rounds) {
            for (int turn = 0; turn < 100; ++turn) {
                QCoreApplication::processEvents(); // in which the greedy one is read if at all
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

private:
    void open(int clientLimit, std::chrono::milliseconds idleLimit = 0ms)
    {
        const TcpEndpoint endpoint{QHostAddress(QHostAddress::LocalHost), 0, clientLimit};
        transport = std::make_unique<TcpTransport>(endpoint, idleLimit, [this](const QByteArray& pdu) {
            ++answers;
            return pdu + QByteArray::fromHex("5555");
        });
        const Outcome<> opened = transport->open();
        QVERIFY2(opened, qPrintable(opened.refusal.text));
    }

    QTcpSocket* connectClient(const QHostAddress& from = QHostAddress(QHostAddress::LocalHost))
    {
        sockets.push_back(std::make_unique<QTcpSocket>());
        QTcpSocket* socket = sockets.back().get();
        socket->bind(from);
        socket->connectToHost(QHostAddress(QHostAddress::LocalHost), transport->port());
        return QTest::qWaitFor([socket] { return socket->state() == QAbstractSocket::ConnectedState; })
                   ? socket
                   : nullptr;
    }

    /// Connects, and loses the connection at once.
    bool isRefused(const QHostAddress& from = QHostAddress(QHostAddress::LocalHost))
    {
        const QTcpSocket* socket = connectClient(from);
        return QTest::qWaitFor([socket] { return isClosed(socket); });
    }

    /// Sends one request and waits for exactly its answer.
    static bool exchange(QTcpSocket* socket)
    {
        socket->write(request);
        return QTest::qWaitFor([socket] { return socket->bytesAvailable() >= response.size(); }) &&
               socket->readAll() == response;
    }

    std::unique_ptr<TcpTransport> transport;
    std::vector<std::unique_ptr<QTcpSocket>> sockets;
    int answers = 0; // given so far
};

QTEST_GUILESS_MAIN(tst_TcpTransport)
#include "tst_tcptransport.moc"
