// SPDX-License-Identifier: MIT
// One command and one answer for each connection, however the octets arrive.
#include <memory>

#include <QLocalSocket>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include "registerupdate.h"
#include "service.h"
#include "updatesocket.h"

using namespace Varnel;

class tst_UpdateSocket : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void answers_data();
    void answers();
    void commandInPieces();
    void whoGoesAwayChangesNothing();
    void socketOfAKilledServer();
    void noDirectory();

private:
    std::unique_ptr<QLocalSocket> connectedSocket() const
    {
        auto socket = std::make_unique<QLocalSocket>();
        socket->connectToServer(path);
        return socket->waitForConnected() ? std::move(socket) : nullptr;
    }

    QTemporaryDir directory;
    QString path;
    std::unique_ptr<Service> service;
    std::unique_ptr<UpdateSocket> updates;
};

void tst_UpdateSocket::init()
{
    path = directory.filePath(QStringLiteral("made/updates"));
    updates.reset();
    service = std::make_unique<Service>(ServiceOptions());
    updates = std::make_unique<UpdateSocket>(*service);
    updates->listen(path);
}

void tst_UpdateSocket::answers_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QByteArray>("answer");
    const QByteArray end(1, '\0');
    QTest::newRow("not started") << R"({"cmd":"setconfig","data":[]})" + end
                                 << QByteArray("-update command: the server is not started");
    QTest::newRow("nothing") << end << QByteArray("-update command: not JSON: illegal value at octet 0");
    QTest::newRow("more behind the NUL") << R"({"cmd":"setconfig","data":[]})" + end + "more"
                                         << QByteArray("-update command: the server is not started");
    QTest::newRow("without an end") << QByteArray(maxUpdateSize + 1, ' ')
                                    << QByteArray("-update command: 1048577 octets are too long, 1048576 are "
                                                  "allowed");
}

void tst_UpdateSocket::answers()
{
    QFETCH(QByteArray, octets);
    QFETCH(QByteArray, answer);
    QTest::ignoreMessage(QtWarningMsg, answer.mid(1).constData());
    const auto socket = connectedSocket();
    QVERIFY(socket);
    socket->write(octets);
    QTRY_COMPARE(socket->state(), QLocalSocket::UnconnectedState);
    QCOMPARE(socket->readAll(), answer);
}

void tst_UpdateSocket::commandInPieces()
{
    QTest::ignoreMessage(QtWarningMsg, "update command: the server is not started");
    const auto socket = connectedSocket();
    QVERIFY(socket);
    for (const char octet : QByteArray(R"({"cmd":"setconfig","data":[]})")) {
        socket->write(&octet, 1);
        QVERIFY(socket->flush());
        QCoreApplication::processEvents();
    }
    QCOMPARE(socket->state(), QLocalSocket::ConnectedState);
    socket->write("", 1);
    QTRY_COMPARE(socket->state(), QLocalSocket::UnconnectedState);
    QCOMPARE(socket->readAll(), QByteArray("-update command: the server is not started"));
}

void tst_UpdateSocket::whoGoesAwayChangesNothing()
{
    auto socket = connectedSocket();
    QVERIFY(socket);
    socket->write("half a comm");
    QVERIFY(socket->flush());
    QCoreApplication::processEvents();
    socket->abort();
    QCoreApplication::processEvents();
    commandInPieces();
}

void tst_UpdateSocket::socketOfAKilledServer()
{
    UpdateSocket second(*service); // the first one's file is in the way
    second.listen(path);
    commandInPieces();
}

void tst_UpdateSocket::noDirectory()
{
    QTest::ignoreMessage(QtWarningMsg,
                         QRegularExpression(QStringLiteral(
                             "^updates come by D-Bus alone, no socket at /proc/none/updates: .+")));
    UpdateSocket second(*service);
    second.listen(QStringLiteral("/proc/none/updates"));
}

QTEST_GUILESS_MAIN(tst_UpdateSocket)
#include "tst_updatesocket.moc"
