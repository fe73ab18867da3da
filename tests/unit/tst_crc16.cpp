// SPDX-License-Identifier: MIT
#include <QRandomGenerator>

#include "crc16.h"
#include "frame.h"
#include "rows.h"

using Varnel::crc16;

namespace {

quint16 crc(quint16 poly, quint16 init, const QByteArray& octets)
{
    return crc16(poly, init, reinterpret_cast<const uchar*>(octets.constData()),
                 static_cast<quint16>(octets.size()));
}

quint16 frameCrc(const QByteArray& octets)
{
    return crc(0x1021, 0, octets);
}

QByteArray noise(int size)
{
    QRandomGenerator generator(20160301);
    QByteArray octets(size, '\0');
    for (char& octet : octets) {
        octet = static_cast<char>(generator.bounded(256));
    }
    return octets;
}

} // namespace

/// The checksum of the frames, and the general form of it.
class tst_Crc16 : public QObject
{
    Q_OBJECT

private slots:
    void publishedValues_data()
    {
        const Rows<int, int, QByteArray, int> row("poly", "init", "octets", "value");
        const QByteArray digits("123456789");
        // Check values of the catalogue of parametrised CRC algorithms. The initial value of the augmented
        // form is not that of the direct form, so only those that start from 0 can be taken over.
        row("KERMIT, 1 to 9: its check value", 0x1021, 0, digits, 0x2189);
        row("ARC, 1 to 9: another polynomial", 0x8005, 0, digits, 0xBB3D);
        row("DNP, 1 to 9: without its final inversion", 0x3D65, 0, digits, (0xEA82 ^ 0xFFFF));
        // CRC-16/MCRF4XX is KERMIT started from 0xFFFF, which is 0x84CF shifted through 16 zero bits.
        row("MCRF4XX, 1 to 9: another start", 0x1021, 0x84CF, digits, 0x6F91);
        row("KERMIT, nothing: 0", 0x1021, 0, "", 0);
        row("KERMIT, zeros: 0", 0x1021, 0, QByteArray(40, '\0'), 0);
    }

    void publishedValues()
    {
        QFETCH(int, poly);
        QFETCH(int, init);
        QFETCH(QByteArray, octets);
        QTEST(int(crc(static_cast<quint16>(poly), static_cast<quint16>(init), octets)), "value");
    }

    void nullIsZero()
    {
        QCOMPARE(crc16(0x8005, 0xFFFF, nullptr, 9), quint16(0));
        QCOMPARE(crc16(0x1021, 0xFFFF, nullptr, 0), quint16(0));
    }

    void everyLengthAgreesWithTheBitwiseForm()
    {
        const QByteArray octets = noise(65535);
        QCOMPARE(frameCrc(octets), kermit(octets));
        for (int length = 0; length <= 300; ++length) {
            QCOMPARE(frameCrc(octets.left(length)), kermit(octets.left(length)));
        }
    }

    void everyAlignmentGivesTheSame()
    {
        const QByteArray octets = noise(64);
        const quint16 wanted = kermit(octets);
        for (int shift = 0; shift < 9; ++shift) {
            const QByteArray shifted = QByteArray(shift, 'x') + octets;
            QCOMPARE(crc16(0x1021, 0, reinterpret_cast<const uchar*>(shifted.constData()) + shift,
                           static_cast<quint16>(octets.size())),
                     wanted);
        }
    }
};

QTEST_GUILESS_MAIN(tst_Crc16)
#include "tst_crc16.moc"
