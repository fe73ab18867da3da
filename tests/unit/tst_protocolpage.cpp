// SPDX-License-Identifier: MIT
// The worked examples of the protocol's page are what the panel understands: the octets as they stand there
// are accepted and give the values that stand beside them.
#include "rlpdecoder.h"

#include <QFile>
#include <QRegularExpression>
#include <QtTest>

using namespace Varnel;

namespace {

/// The octets of each table under the heading of the examples: the first columns, joined.
QVector<QByteArray> exampleOctets(const QString& page)
{
    static const QRegularExpression row(QStringLiteral("^\\| `([0-9a-f ]+)` \\|"));
    QVector<QByteArray> tables;
    bool insideTable = false;
    const QString section = page.section(QStringLiteral("## A frame, octet by octet"), 1);
    const QStringList lines = section.split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const auto found = row.match(line);
        if (!found.hasMatch()) {
            insideTable = insideTable && line.startsWith(QLatin1Char('|'));
            continue;
        }
        if (!insideTable) {
            tables.append(QByteArray());
            insideTable = true;
        }
        tables.last() += QByteArray::fromHex(found.captured(1).toLatin1());
    }
    return tables;
}

} // namespace

class TestProtocolPage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void frameIsAcceptedAndDecoded();
    void frameWithAnotherOctetIsDropped();
    void coreSectionHoldsBothValues();

private:
    QVector<QByteArray> examples;
};

void TestProtocolPage::initTestCase()
{
    QFile file(QFINDTESTDATA("../../docs/rlp-protocol.md"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    examples = exampleOctets(QString::fromUtf8(file.readAll()));
    QCOMPARE(examples.size(), 2);
    QCOMPARE(examples.at(0).size(), 54);
    QCOMPARE(examples.at(1).size(), 26);
}

void TestProtocolPage::frameIsAcceptedAndDecoded()
{
    RlpDecoder decoder;
    RlpDecoder::Header header;
    QByteArray octets = examples.at(0);
    QVERIFY(decoder.checkFrame(&octets, QHostAddress(QHostAddress::LocalHost), &header));
    QCOMPARE(header.seqno, 42U);

    RlpFrame frame;
    decoder.walkSections(octets, header, &frame);
    QVERIFY(frame.hasDevInfo);
    QCOMPARE(frame.devinfo.type, quint16(7));
    QCOMPARE(frame.devinfo.hwmajor, quint16(1));
    QCOMPARE(frame.devinfo.hwminor, quint16(2));
    QCOMPARE(frame.devinfo.swmajor, quint16(2));
    QCOMPARE(frame.devinfo.swminor, quint16(0));
    QCOMPARE(frame.devinfo.swbuild, quint16(1234));
    QCOMPARE(frame.devinfo.serial, 74565U);
    QCOMPARE(frame.devinfo.lang, QStringLiteral("fr"));
    QVERIFY(frame.hasGpioState);
    QCOMPARE(frame.gpiostate.good, quint8(1));
    QCOMPARE(frame.gpiostate.warning, quint8(0));
    QCOMPARE(frame.gpiostate.critical, quint8(2));
    QCOMPARE(frame.gpiostate.buzzer, quint8(0));
}

void TestProtocolPage::frameWithAnotherOctetIsDropped()
{
    RlpDecoder decoder;
    RlpDecoder::Header header;
    QByteArray octets = examples.at(0);
    octets[20] = char(octets.at(20) ^ 1);
    QTest::ignoreMessage(QtDebugMsg, QRegularExpression(QStringLiteral("^Invalid checksum")));
    QVERIFY(!decoder.checkFrame(&octets, QHostAddress(QHostAddress::LocalHost), &header));
}

void TestProtocolPage::coreSectionHoldsBothValues()
{
    RlpDecoder decoder;
    QByteArray octets = examples.at(1);
    QList<core_tmp> items;
    int consumed = 0;
    QVERIFY(decoder.handleSectionCore(0x80, 26, &octets, &items, &consumed));
    QCOMPARE(consumed, 26);
    QCOMPARE(items.size(), 2);
    QCOMPARE(items.at(0).baData, QByteArray::fromHex("00d7"));
    QCOMPARE(items.at(1).ci_field, quint16(2));
    QCOMPARE(items.at(1).ci_type, quint8(6));
    QCOMPARE(items.at(1).baData, QByteArray::fromHex("12345678"));
}

QTEST_APPLESS_MAIN(TestProtocolPage)
#include "tst_protocolpage.moc"
