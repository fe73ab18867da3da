// SPDX-License-Identifier: MIT
// The harness itself: what the other system tests take for granted about their sandbox and their helpers.

#include <QFile>
#include <QNetworkAccessManager>
#include <QNetworkInterface>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTest>

#include "rawcontroller.h"
#include "recordingscripts.h"
#include "standinsys.h"
#include "virtualscreen.h"
#include "webserver.h"

class tst_Support : public QObject
{
    Q_OBJECT

private slots:
    void sandboxHidesTheHost();
    void checksumHasThePublishedCheckValue();
    void frameHasTheDocumentedLayout();
    void broadcastComesBackFromTheControllersAddress();
    void recordingScriptKeepsEveryArgument();
    void recorderSeesWritesInOrder();
    void stubAnswersAndCounts();
    void logKeepsOrder();
    void forgottenLinesStillCount();
    void screenIsGrabbedWhole();
};

void tst_Support::sandboxHidesTheHost()
{
    QCOMPARE(StandInSys::read("/sys/class/net/usb0/operstate"_s), "down"_s);
    QVERIFY(!QFile::exists("/sys/kernel"_s));
    QStringList names;
    const QList<QNetworkInterface> interfaces = QNetworkInterface::allInterfaces();
    for (const QNetworkInterface& interface : interfaces) {
        names += interface.name();
    }
    names.sort();
    QCOMPARE(names, QStringList({"cable"_s, "eth1"_s, "lo"_s}));
    QCOMPARE(QNetworkInterface::interfaceFromName("eth1"_s).addressEntries().at(0).broadcast(),
             QHostAddress("192.168.7.255"_s));
}

void tst_Support::checksumHasThePublishedCheckValue()
{
    QCOMPARE(kermit("123456789"), quint16(0x2189));
}

void tst_Support::frameHasTheDocumentedLayout()
{
    const QByteArray octets = Frame(5).gpioState(1, 2, 3, 0).octets();
    QCOMPARE(octets.left(octets.size() - 2), hex("CE 01"       // magic, version
                                                 "16 00"       // payload length: 26 octets - 4
                                                 "0E 00"       // section offset: 14
                                                 "01 00"       // section count
                                                 "05 00 00 00" // sequence number
                                                 "01 00 00 00" // continuity word
                                                 "20 00 08 00" // GpioState, 8 octets
                                                 "01 02 03 00"));
    QCOMPARE(octets.size(), 26);
}

void tst_Support::broadcastComesBackFromTheControllersAddress()
{
    QUdpSocket panel;
    QVERIFY(panel.bind(QHostAddress("192.168.7.255"_s), 9876));
    RawController controller("192.168.7.3"_s);
    QVERIFY(controller.send(QByteArray("hello")));
    QTRY_VERIFY(panel.hasPendingDatagrams());
    QByteArray datagram(100, '\0');
    QHostAddress sender;
    datagram.resize(static_cast<int>(panel.readDatagram(datagram.data(), datagram.size(), &sender)));
    QCOMPARE(datagram, QByteArray("hello"));
    QCOMPARE(sender, QHostAddress("192.168.7.3"_s));
}

void tst_Support::recordingScriptKeepsEveryArgument()
{
    RecordingScripts scripts;
    QVERIFY(scripts.install("netcfg.sh"_s, ScriptBehaviour::Fails));
    QVERIFY(scripts.install("r7m.sh"_s));
    Program first("/usr/local/bin/netcfg.sh"_s);
    const QStringList arguments{QString(), "a b"_s, "line\nend"_s, "$HOME `id` \"'"_s,
                                QString::fromUtf8("\xc3\xa9")};
    QVERIFY(first.start(arguments));
    QVERIFY(first.awaitEnd());
    QCOMPARE(first.exitStatus(), 3);
    Program second("/usr/local/bin/r7m.sh"_s);
    QVERIFY(second.start());
    QVERIFY(second.awaitEnd());
    const QList<QStringList> expected{QStringList("netcfg.sh"_s) + arguments, {"r7m.sh"_s}};
    QCOMPARE(scripts.runs(), expected);
    QCOMPARE(scripts.runsOf("netcfg.sh"_s), QList<QStringList>{arguments});
}

void tst_Support::recorderSeesWritesInOrder()
{
    const StandInSys sys;
    const QString file = StandInSys::valueFile(StandInSys::red);
    const WriteRecorder recorder({file});
    QStringList expected;
    for (int i = 0; i < 5; ++i) {
        QFile value(file);
        QVERIFY(value.open(QIODevice::WriteOnly));
        value.write(QByteArray::number(i));
        value.close();
        QVERIFY(recorder.awaitWrites(file, i + 1));
        expected += QString::number(i);
    }
    QCOMPARE(recorder.texts(file), expected);
}

void tst_Support::stubAnswersAndCounts()
{
    WebServer server{QHostAddress()};
    QVERIFY(server.listen());
    server.serve("/index.html", "<html>here</html>");
    QNetworkAccessManager manager;
    const auto get = [&manager](const char* path) {
        QScopedPointer<QNetworkReply> reply(
            manager.get(QNetworkRequest(QUrl("http://192.168.7.2"_s + QLatin1String(path)))));
        const QSignalSpy finished(reply.data(), &QNetworkReply::finished);
        return QTest::qWaitFor([&] { return !finished.isEmpty(); }, 5000)
                   ? qMakePair(reply->error(), reply->readAll())
                   : qMakePair(QNetworkReply::TimeoutError, QByteArray());
    };
    QCOMPARE(get("/index.html"), qMakePair(QNetworkReply::NoError, QByteArray("<html>here</html>")));
    QCOMPARE(get("/none").first, QNetworkReply::ContentNotFoundError);
    server.answer("/short", "HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nabc");
    QCOMPARE(get("/short").first, QNetworkReply::RemoteHostClosedError);
    QCOMPARE(server.count("/index.html"), 1);
    QCOMPARE(server.requests().at(0).headers.value("host"), QByteArray("192.168.7.2"));
}

void tst_Support::logKeepsOrder()
{
    LogReader log;
    log.feed("first\n2026-01-02 03:04:05.678 - second\nthi");
    QCOMPARE(log.lines(), QStringList({"first"_s, "<now> - second"_s}));
    log.feed("rd\n");
    QVERIFY(log.await({"first"_s, "third"_s}));
    QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Not logged: \"?first"_s));
    QVERIFY(!log.await("first"_s, std::chrono::milliseconds(1)));
}

void tst_Support::forgottenLinesStillCount()
{
    LogReader log;
    log.feed("one\ntwo\nthr");
    QVERIFY(log.await("one"_s));
    log.forget();
    log.feed("ee\n");
    QCOMPARE(log.lines(), QStringList("three"_s));
    QVERIFY(log.await("three"_s));
    QCOMPARE(log.lineCount(), qint64(3));
    QCOMPARE(log.octetCount(), qint64(14));
}

void tst_Support::screenIsGrabbedWhole()
{
    VirtualScreen screen;
    QVERIFY(screen.start());
    const QImage empty = screen.grab();
    QCOMPARE(empty.size(), QSize(800, 480));
    QCOMPARE(difference(empty, empty, 0), 0.0);
    QImage other = empty;
    other.fill(Qt::red);
    QCOMPARE(difference(empty, other, 8), 1.0);
}

QTEST_GUILESS_MAIN(tst_Support)
#include "tst_support.moc"
