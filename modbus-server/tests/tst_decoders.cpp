// SPDX-License-Identifier: MIT
#include "frame.h"
#include "mbapdecoder.h"
#include "rows.h"
#include "rtudecoder.h"

#include <QRandomGenerator>
#include <QTest>

using namespace Varnel;

/// Both framings: what is cut out of octet streams, right and wrong ones.
class tst_Decoders : public QObject
{
    Q_OBJECT

private slots:
    void tcpRequestInAnyPieces()
    {
        const QByteArray frame = hex("0102 0000 0006 11 03 0064 0004");
        for (int cut = 0; cut < frame.size(); ++cut) {
            MbapDecoder decoder;
            decoder.append(frame.left(cut));
            QVERIFY(!decoder.next());
            QVERIFY(!decoder.isBroken());
            QCOMPARE(decoder.pending(), cut);
            decoder.append(frame.mid(cut));
            const std::optional<MbapRequest> request = decoder.next();
            QVERIFY(request);
            QCOMPARE(request->transaction, quint16(0x0102));
            QCOMPARE(request->unit, quint8(0x11));
            QCOMPARE(request->pdu, hex("03 0064 0004"));
            QCOMPARE(decoder.pending(), 0);
        }
    }

    void tcpBrokenHeaders_data()
    {
        const Rows<QByteArray, bool> row("octets", "broken");
        row("protocol 1: broken", hex("0001 0001 0006 FF 03 0064 0004"), true);
        row("length 0: broken", hex("0001 0000 0000 FF"), true);
        row("length 1, no function code: broken", hex("0001 0000 0001 FF"), true);
        row("length 254: longest request", hex("0001 0000 00FE FF"), false);
        row("length 255: broken", hex("0001 0000 00FF FF"), true);
        row("length 65535: broken", hex("0001 0000 FFFF FF"), true);
        row("a web browser: broken", "GET / HTTP/1.1\r\n\r\n", true);
        row("six octets of it: waits", "GET / ", false);
    }

    void tcpBrokenHeaders()
    {
        QFETCH(QByteArray, octets);
        QFETCH(bool, broken);
        MbapDecoder decoder;
        decoder.append(octets);
        QVERIFY(!decoder.next());
        QCOMPARE(decoder.isBroken(), broken);
        // Nothing is found in a broken stream any more, however right it looks.
        decoder.append(hex("0001 0000 0006 FF 03 0064 0004"));
        QVERIFY(!broken || !decoder.next());
    }

    void crc()
    {
        // The check value that catalogues of CRCs give for CRC-16/MODBUS.
        QCOMPARE(modbusCrc("123456789"), quint16(0x4B37));
        // The example of the Modbus serial line guide: 02 07 ends in 41 12.
        QCOMPARE(rtuFrame(2, hex("07")), hex("02 07 41 12"));
    }

    void rtuFrames_data()
    {
        // request: at once
        // afterSilence: only when the line has been silent
        const Rows<QByteArray, QByteArray, QByteArray> row("heard", "request", "afterSilence");
        const QByteArray none;
        const QByteArray read = hex("03 0064 0004");
        const QByteArray ours = rtuFrame(1, read);
        const QByteArray others = rtuFrame(2, read);
        const QByteArray othersAnswer = rtuFrame(2, hex("03 08 0000 0001 1234 5678"));
        const QByteArray othersException = rtuFrame(2, hex("83 02"));

        row("read: at once", ours, read, none);
        row("write of registers: at once", rtuFrame(1, hex("10 0064 0001 02 0001")),
            hex("10 0064 0001 02 0001"), none);
        row("diagnostics: at once", rtuFrame(1, hex("08 0000 1234")), hex("08 0000 1234"), none);
        row("function without data: after silence", rtuFrame(1, hex("07")), none, hex("07"));
        row("identification: after silence", rtuFrame(1, hex("2B 0E 01 00")), none, hex("2B 0E 01 00"));
        row("for another device: left alone", others, none, none);
        row("broadcast: left alone", rtuFrame(0, hex("06 0064 0001")), none, none);
        row("wrong CRC: left alone", ours.left(7) + '\x00', none, none);
        row("cut: left alone", ours.left(6), none, none);
        row("another device's dialogue, then ours", others + othersAnswer + ours, read, none);
        row("another device's exception, then ours", others + othersException + ours, read, none);
        row("another device's answer alone", othersAnswer, none, none);
        row("noise, then ours", hex("00 FF 13") + ours, read, none);
        row("cut request of ours, then the master's second try", ours.left(5) + ours, read, none);
        row("own answer heard again", rtuFrame(1, hex("03 04 0001 0002")), none, none);
        row("own exception heard again", rtuFrame(1, hex("83 02")), none, none);
    }

    void rtuFrames()
    {
        QFETCH(QByteArray, heard);
        QFETCH(QByteArray, request);
        QFETCH(QByteArray, afterSilence);
        RtuDecoder decoder(1);
        QCOMPARE(decoder.receive(heard).value_or(QByteArray()), request);
        QCOMPARE(decoder.silence().value_or(QByteArray()), afterSilence);
        QVERIFY(!decoder.isPending());
        // Whatever came before, the next request is heard.
        QCOMPARE(decoder.receive(rtuFrame(1, hex("04 0001 0001"))).value_or(QByteArray()),
                 hex("04 0001 0001"));
    }

    void rtuRequestInAnyPieces()
    {
        const QByteArray frame = rtuFrame(17, hex("04 0000 007D"));
        for (int cut = 1; cut < frame.size(); ++cut) {
            RtuDecoder decoder(17);
            QVERIFY(!decoder.receive(frame.left(cut)));
            QVERIFY(decoder.isPending());
            QCOMPARE(decoder.receive(frame.mid(cut)).value_or(QByteArray()), hex("04 0000 007D"));
        }
    }

    void rtuDamagedRequestsAreNotAnswered()
    {
        const QByteArray frame = rtuFrame(17, hex("03 0000 0002"));
        for (int bit = 0; bit < frame.size() * 8; ++bit) {
            QByteArray damaged = frame;
            damaged[bit / 8] = static_cast<char>(damaged.at(bit / 8) ^ (1 << (bit % 8)));
            RtuDecoder decoder(17);
            QVERIFY2(!decoder.receive(damaged), qPrintable(QString::number(bit)));
            QVERIFY2(!decoder.silence(), qPrintable(QString::number(bit)));
        }
    }

    void rtuKeepsLittleOfNoise()
    {
        QRandomGenerator random(4711); // the same noise in each run
        RtuDecoder decoder(17);
        for (int lump = 0; lump < 200; ++lump) {
            QByteArray noise(700, '\0');
            for (char& octet : noise) {
                octet = static_cast<char>(random.bounded(256));
            }
            QVERIFY(!decoder.receive(noise));
        }
        QVERIFY(decoder.isPending());
        const QByteArray read = hex("03 0000 0002");
        QCOMPARE(decoder.receive(rtuFrame(17, read)).value_or(QByteArray()), read);
        QVERIFY(!decoder.isPending());
    }
};

QTEST_GUILESS_MAIN(tst_Decoders)
#include "tst_decoders.moc"
