// SPDX-License-Identifier: MIT
// The worked examples of the documentation are correct: the panel accepts their octets and gets the values
// and register words next to them.
#include <QtTest>

#include "literals.h"
#include "modbusinterface.h"
#include "pageexamples.h"
#include "rlpdecoder.h"

using namespace Varnel;

class tst_ExamplePages : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        examples = exampleOctets(QFINDTESTDATA("../../docs/rlp-protocol.md"), "## A frame, octet by octet"_s);
        QCOMPARE(examples.size(), 2);
        QCOMPARE(examples.at(0).size(), 54);
        QCOMPARE(examples.at(1).size(), 26);
    }

    void frameIsAcceptedAndDecoded()
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
        QCOMPARE(frame.devinfo.lang, "fr"_s);
        QVERIFY(frame.hasGpioState);
        QCOMPARE(frame.gpiostate.good, quint8(1));
        QCOMPARE(frame.gpiostate.warning, quint8(0));
        QCOMPARE(frame.gpiostate.critical, quint8(2));
        QCOMPARE(frame.gpiostate.buzzer, quint8(0));
    }

    void frameWithAnotherOctetIsDropped()
    {
        RlpDecoder decoder;
        RlpDecoder::Header header;
        QByteArray octets = examples.at(0);
        octets[20] = char(octets.at(20) ^ 1);
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression("^Invalid checksum"_s));
        QVERIFY(!decoder.checkFrame(&octets, QHostAddress(QHostAddress::LocalHost), &header));
    }

    void coreSectionHoldsBothValues()
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

    void coreSectionBecomesRegisters()
    {
        const QString path = QFINDTESTDATA("../../docs/modbus-map.md");
        const QVector<QByteArray> sections = exampleOctets(path, "## From octets to registers"_s);
        QCOMPARE(sections.size(), 1);
        QByteArray octets = sections.first();

        RlpDecoder decoder;
        QList<core_tmp> items;
        int consumed = 0;
        QVERIFY(decoder.handleSectionCore(0x80, quint16(octets.size()), &octets, &items, &consumed));
        QCOMPARE(consumed, octets.size());

        ModbusInterface bridge;
        QVERIFY(bridge.LoadConfig(QFINDTESTDATA("../../device/modbus.map")));
        const QString command =
            ModbusInterface::GenerateDbusUpdateQuery(bridge.ComputeRawData(bridge.CheckTableToUpdate(items)));
        QFile page(path);
        QVERIFY(page.open(QIODevice::ReadOnly));
        QVERIFY2(page.readAll().contains(command.toUtf8()), qPrintable(command));
    }

private:
    QVector<QByteArray> examples;
};

QTEST_APPLESS_MAIN(tst_ExamplePages)
#include "tst_examplepages.moc"
