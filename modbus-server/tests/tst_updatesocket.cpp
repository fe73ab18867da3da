// SPDX-License-Identifier: MIT
// One command and one answer for each connection, however the octets arrive.
#include <memory>

#include <QLocalSocket>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include "literals.h"
#include "registerupdate.h"
#include "rows.h"
#include "service.h"
#include "updatesocket.h"

using namespace Varnel;

class tst_UpdateSocket : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        path = directory.filePath("made/updates"_s);
        updates.reset();
        service = std::make_unique<Service>(ServiceOptions());
        updates = std::make_unique<UpdateSocket>(*service);
        updates->listen(path);
    }

    void answers_data()
    {
        const Rows<QByteArray, QByteArray> row("octets", "answer");
        const QByteArray end(1, '\0');
        row("not started", R"({"cmd":"setconfig","data":[]})" + end,
            "-update command: the server is not started");
        row("nothing", end, "-update command: not JSON: illegal value at octet 0");
        row("more behind the NUL", R"({"cmd":"setconfig","data":[]})" + end + "more",
            "-update command: the server is not started");
        row("without an end", QByteArray(maxUpdateSize + 1, ' '),
            "-update command: 1048577 octets are too long, 1048576 are "
            "allowed");
    }

    void answers()
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

    void commandInPieces()
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

    void whoGoesAwayChangesNothing()
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

    void socketOfAKilledServer()
    {
        UpdateSocket second(*service); // the first one's file is in the way
        second.listen(path);
        commandInPieces();
    }

    void noDirectory()
    {
        QTest::ignoreMessage(
            QtWarningMsg,
            QRegularExpression("^updates come by D-Bus alone, no socket at /proc/none/updates: .+"_s));
        UpdateSocket second(*service);
        second.listen("/proc/none/updates"_s);
    }

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

QTEST_GUILESS_MAIN(tst_UpdateSocket)
#include "tst_updatesocket.moc"
