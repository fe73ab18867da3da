// SPDX-License-Identifier: MIT
#include <QRandomGenerator>
#include <QTest>

#include "exposeddecoder.h"
#include "frame.h"

using namespace Varnel;

/// Valid frames, cut at every length and flipped at every octet; then frames that are nothing but noise
/// with a right checksum. Meant to be run under the sanitizers as well.
class tst_RlpMutations : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cut_data() { frames(); }
    void cut();
    void lengthened_data() { frames(); }
    void lengthened();
    void flipped_data() { frames(); }
    void flipped();
    void cutAndSealed_data() { frames(); }
    void cutAndSealed();
    void flippedAndSealed_data() { frames(); }
    void flippedAndSealed();
    void noise();

private:
    static void frames();
    static bool isReason(const QString& line);
    void checkDropped(const QByteArray& datagram);
    void checkSane(const QByteArray& datagram);

    ExposedDecoder decoder;
};

namespace {

QByteArray filled(int size)
{
    QByteArray octets(size, '\0');
    for (int i = 0; i < size; ++i) {
        octets[i] = static_cast<char>(i * 7 + 1);
    }
    return octets;
}

QByteArray core()
{
    return section(0x80, coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(5, 6, 7, 8, hex("01 02 03 04")));
}

} // namespace

void tst_RlpMutations::initTestCase()
{
    decoder.lastSeqno = 41;
    decoder.hasPacketSender = true;
    decoder.packetSender = QHostAddress(QStringLiteral("192.168.7.2"));
    decoder.m_itemList = {core_tmp()};
}

void tst_RlpMutations::frames()
{
    QTest::addColumn<QByteArray>("datagram");
    const auto frame = [] { return Frame(42).continuity(0x11223344); };
    QTest::newRow("DevInfo") << frame().add(section(0x10, filled(24))).octets();
    QTest::newRow("GpioState") << frame().add(section(0x20, filled(4))).octets();
    QTest::newRow("NetCfg") << frame().add(section(0x30, filled(22))).octets();
    QTest::newRow("SnmpCfg") << frame().add(section(0x40, filled(576))).octets();
    QTest::newRow("ModbusCfg") << frame().add(section(0x60, filled(4))).octets();
    QTest::newRow("Core") << frame().add(core()).octets();
    QTest::newRow("all kinds") << frame()
                                      .add(section(0x10, filled(24)))
                                      .add(section(0x20, filled(4)))
                                      .add(section(0x40, filled(576)))
                                      .add(section(0x30, filled(22)))
                                      .add(section(0x60, filled(4)))
                                      .add(core())
                                      .octets();
}

bool tst_RlpMutations::isReason(const QString& line)
{
    return line == QLatin1String("Not a RLP magic number. Drop frame") ||
           line.startsWith(QLatin1String("Invalid checksum (0x "));
}

/// The datagram changes nothing and says why, in one line.
void tst_RlpMutations::checkDropped(const QByteArray& datagram)
{
    const Outcome outcome = receive(decoder, datagram);
    QVERIFY2(!outcome.accepted, datagram.toHex().constData());
    QCOMPARE(outcome.log.size(), 1);
    QVERIFY2(isReason(outcome.log.constFirst()), qPrintable(outcome.log.constFirst()));
    QVERIFY(outcome.remaining == datagram);
    QCOMPARE(decoder.items().size(), 1);
}

/// Whatever is made of the datagram, nothing but its own octets is in the records, and a dropped one is
/// explained.
void tst_RlpMutations::checkSane(const QByteArray& datagram)
{
    ExposedDecoder fresh;
    const Outcome outcome = receive(fresh, datagram);
    QVERIFY(outcome.accepted || !outcome.log.isEmpty());
    QCOMPARE(fresh.lastSeqno, 0U);
    QVERIFY(!fresh.hasPacketSender);
    if (!outcome.accepted) {
        QVERIFY(outcome.decoded().isEmpty());
        QVERIFY(fresh.items().isEmpty());
    }
    for (const core_tmp& item : fresh.items()) {
        QByteArray wire = item.baData;
        std::reverse(wire.begin(), wire.end());
        QCOMPARE(wire.size(), int(item.datalen));
        QVERIFY(datagram.contains(littleEndian16(item.datalen) + wire));
    }
}

void tst_RlpMutations::cut()
{
    QFETCH(QByteArray, datagram);
    ExposedDecoder fresh;
    QVERIFY(receive(fresh, datagram).accepted);
    for (int length = 0; length < datagram.size(); ++length) {
        checkDropped(datagram.left(length));
        checkDropped(datagram.right(length));
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

void tst_RlpMutations::lengthened()
{
    QFETCH(QByteArray, datagram);
    for (const char octet : {'\1', '\xce', '\xff'}) {
        checkDropped(datagram + octet);
        checkDropped(datagram + octet + octet + octet);
    }
    // Zeros after a sealed frame keep its checksum right; the payload length shows them.
    const Outcome outcome = receive(decoder, datagram + '\0' + '\0');
    QVERIFY(!outcome.accepted);
    QCOMPARE(outcome.log, (QStringList{QStringLiteral("Payload length mismatch. Drop frame"),
                                       QString::number(datagram.size() - 4)}));
}

void tst_RlpMutations::flipped()
{
    QFETCH(QByteArray, datagram);
    for (int at = 0; at < datagram.size(); ++at) {
        for (const int mask : {0x01, 0x02, 0x04, 0x08, 0x10, 0x20, 0x40, 0x80, 0xFF}) {
            QByteArray mutated = datagram;
            mutated[at] = static_cast<char>(mutated.at(at) ^ mask);
            checkDropped(mutated);
            if (QTest::currentTestFailed()) {
                return;
            }
        }
    }
}

void tst_RlpMutations::cutAndSealed()
{
    QFETCH(QByteArray, datagram);
    for (int length = 0; length <= datagram.size() - 2; ++length) {
        QByteArray cut = datagram.left(length);
        checkSane(sealed(cut));
        if (length >= 4) {
            // The payload length agrees as well: the sections alone are cut.
            cut.replace(2, 2, littleEndian16(static_cast<quint16>(length - 2)));
            checkSane(sealed(cut));
        }
        if (QTest::currentTestFailed()) {
            return;
        }
    }
}

void tst_RlpMutations::flippedAndSealed()
{
    QFETCH(QByteArray, datagram);
    const QByteArray unsealed = datagram.chopped(2);
    for (int at = 0; at < unsealed.size(); ++at) {
        // In the texts of an SnmpCfg one octet is like the other.
        const int step = at > 60 && at < unsealed.size() - 60 ? 3 : 1;
        for (int bit = 0; bit < 8; bit += step) {
            QByteArray mutated = unsealed;
            mutated[at] = static_cast<char>(mutated.at(at) ^ (1 << bit));
            checkSane(sealed(mutated));
            if (QTest::currentTestFailed()) {
                return;
            }
        }
    }
}

void tst_RlpMutations::noise()
{
    // Right header and checksum around sections that are right in their type alone.
    QRandomGenerator generator(9876);
    constexpr quint16 types[] = {0x10, 0x20, 0x30, 0x40, 0x60, 0x80, 0x50};
    constexpr quint16 lengths[] = {0, 3, 4, 8, 9, 26, 28, 580, 65535, 65532};
    int accepted = 0;
    for (int round = 0; round < 3000; ++round) {
        Frame frame;
        const int sections = generator.bounded(1, 6);
        for (int i = 0; i < sections; ++i) {
            QByteArray body(generator.bounded(64), '\0');
            for (char& octet : body) {
                octet = static_cast<char>(generator.bounded(256));
            }
            const int length = generator.bounded(2) == 0 ? -1 : lengths[generator.bounded(10)];
            frame.add(section(types[generator.bounded(7)], body, length));
        }
        frame.sequence(generator.bounded(1U, 100U));
        frame.sectionOffset(generator.bounded(4) == 0 ? static_cast<quint16>(generator.bounded(8, 40)) : 14);
        ExposedDecoder fresh;
        accepted += receive(fresh, frame.octets()).accepted ? 1 : 0;
        checkSane(frame.octets());
        if (QTest::currentTestFailed()) {
            return;
        }
    }
    QVERIFY2(accepted > 2000, qPrintable(QString::number(accepted)));
}

QTEST_GUILESS_MAIN(tst_RlpMutations)
#include "tst_rlpmutations.moc"
