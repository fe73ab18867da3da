// SPDX-License-Identifier: MIT
#include "rows.h"
#include "simulatorprocess.h"

#include "httpmessages.h"

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

/// The downloads of the real program, as seen through Qt's own HTTP client.
class tst_SimulatorDownloads : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        simulator = std::make_unique<SimulatorProcess>();
        QVERIFY(simulator->start("--login= --sections none"_s));
    }

    void downloads_data()
    {
        const Rows<QByteArray, int> add("disposition", "size");
        const auto row = [&add](const char* path, const QByteArray& disposition, int size = 2048) {
            add(path, disposition, size);
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

    void downloads()
    {
        const QString path = QLatin1String(QTest::currentDataTag());
        QFETCH(int, size);
        const Reply reply = simulator->finished("/download/"_s + path);
        QCOMPARE(SimulatorProcess::status(reply), 200);
        QFETCH(QByteArray, disposition);
        QCOMPARE(reply->rawHeader("Content-Disposition"), disposition);
        QCOMPARE(reply->hasRawHeader("Content-Disposition"), !disposition.isNull());
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/octet-stream"));
        QCOMPARE(reply->rawHeader("Content-Length").toInt(), size);
        QVERIFY(reply->readAll() == pattern(size));
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
        const Reply reply = simulator->finished("/download/break"_s);
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
        QVERIFY(SimulatorProcess::finish(reply));
        QVERIFY(clock.elapsed() >= 50); // three paces of 4096 octets
        QCOMPARE(reply->rawHeader("Content-Disposition"), QByteArray("attachment; filename=a b.txt"));
        QCOMPARE(reply->rawHeader("Content-Type"), QByteArray("application/x-odd"));
        QVERIFY(reply->readAll() == pattern(10000));
    }

    void hugeDownload()
    {
        const Reply reply = simulator->get("/download/huge"_s);
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
        QVERIFY(SimulatorProcess::finish(reply));
        drain();
        QCOMPARE(received, 200 * mebi);
        QVERIFY(intact);
    }

private:
    std::unique_ptr<SimulatorProcess> simulator;
};

QTEST_GUILESS_MAIN(tst_SimulatorDownloads)
#include "tst_simulatordownloads.moc"
