// SPDX-License-Identifier: MIT
#include <QTest>
#include <QtEndian>

#include "exposeddecoder.h"
#include "frame.h"

using namespace Varnel;

/// One decoder with what it needs to be called.
struct SectionDecoder
{
    quint16 type = 0;
    int size = 0;
    bool (RlpDecoder::*decode)(quint16, quint16, QByteArray*, void*, int*) = nullptr;
};
Q_DECLARE_METATYPE(SectionDecoder)

/// The section decoders, called as the walker calls them.
class tst_RlpSections : public QObject
{
    Q_OBJECT

private slots:
    void refusals_data();
    void refusals();
    void coreRefusals();
    void devInfo();
    void languageText_data();
    void languageText();
    void gpioState();
    void netCfg();
    void netCfgFlags_data();
    void netCfgFlags();
    void snmpCfg();
    void snmpTextFillsItsField();
    void snmpTextEndsAtNul();
    void modbusCfg_data();
    void modbusCfg();
    void longerSectionsAreReadToo();
    void coreItems_data();
    void coreItems();
    void coreLengthField_data();
    void coreLengthField();
};

namespace {

constexpr int untouched = -77;

/// Decodes into `record`; the row fails when the decoder refuses.
template<typename Record>
bool decode(bool (RlpDecoder::*decoder)(quint16, quint16, QByteArray*, void*, int*), QByteArray octets,
            Record* record)
{
    RlpDecoder rlp;
    const LogRecorder log;
    int consumed = untouched;
    const auto type = qFromLittleEndian<quint16>(octets.constData());
    const auto length = static_cast<quint16>(octets.size());
    const QByteArray before = octets;
    return (rlp.*decoder)(type, length, &octets, record, &consumed) && consumed == length &&
           log.lines().isEmpty() && octets == before;
}

QString dotted(const QHostAddress& address)
{
    return address.toString();
}

} // namespace

void tst_RlpSections::refusals_data()
{
    QTest::addColumn<SectionDecoder>("decoder");
    QTest::addColumn<int>("type");
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("octets");
    QTest::addColumn<bool>("hasRecord");
    QTest::addColumn<QString>("reason");
    const std::pair<const char*, SectionDecoder> decoders[] = {
        {"DevInfo", {0x10, 28, &RlpDecoder::handleSectionDevInfo}},
        {"GpioState", {0x20, 8, &RlpDecoder::handleSectionGpioState}},
        {"NetCfg", {0x30, 26, &RlpDecoder::handleSectionNetCfg}},
        {"SnmpCfg", {0x40, 580, &RlpDecoder::handleSectionSnmpCfg}},
        {"ModbusCfg", {0x60, 8, &RlpDecoder::handleSectionModbusCfg}},
    };
    for (const auto& [name, decoder] : decoders) {
        const auto row = [name = name, decoder = decoder](const char* what, int type, int length, int octets,
                                                          bool hasRecord, const char* reason) {
            QTest::addRow("%s, %s", name, what)
                << decoder << type << length << octets << hasRecord << QString::fromLatin1(reason);
        };
        const int type = decoder.type;
        const int size = decoder.size;
        row("type of another: bad type", type + 1, size, size, true, "Bad type");
        row("type 0: bad type", 0, size, size, true, "Bad type");
        row("one short: too short", type, size - 1, size - 1, true, "Too short");
        row("length 0: too short", type, 0, 0, true, "Too short");
        row("four octets more: size mismatch", type, size, size + 4, true, "Payload size mismatch");
        row("one octet less: size mismatch", type, size, size - 1, true, "Payload size mismatch");
        row("no octets: size mismatch", type, size, 0, true, "Payload size mismatch");
        row("longer, handed 4 more: size mismatch", type, size + 1, size + 5, true, "Payload size mismatch");
        row("no record: null pointer", type, size, size, false, "Null pointer");
        row("all wrong: the type comes first", 0, 0, 3, false, "Bad type");
        row("short and mismatched: too short comes first", type, size - 1, 3, false, "Too short");
        row("mismatched without record: mismatch comes first", type, size, 3, false, "Payload size mismatch");
    }
}

void tst_RlpSections::refusals()
{
    QFETCH(SectionDecoder, decoder);
    QFETCH(int, type);
    QFETCH(int, length);
    QFETCH(int, octets);
    QFETCH(bool, hasRecord);
    QFETCH(QString, reason);
    RlpDecoder rlp;
    RlpFrame frame;
    frame.netcfg.emplace();
    frame.snmpcfg.emplace().port = frame.modbuscfg.tcp_port = 4711;
    QByteArray payload(octets, '\xff');
    void* record = nullptr;
    if (hasRecord) {
        switch (decoder.type) {
        case 0x10:
            record = &frame.devinfo;
            break;
        case 0x20:
            record = &frame.gpiostate;
            break;
        case 0x30:
            record = &*frame.netcfg;
            break;
        case 0x40:
            record = &*frame.snmpcfg;
            break;
        default:
            record = &frame.modbuscfg;
            break;
        }
    }
    const LogRecorder log;
    int consumed = untouched;
    QVERIFY(!(rlp.*decoder.decode)(static_cast<quint16>(type), static_cast<quint16>(length), &payload, record,
                                   &consumed));
    QCOMPARE(log.texts(), QStringList{reason});
    QCOMPARE(log.lines().constFirst().type, QtDebugMsg);
    QCOMPARE(consumed, untouched);
    QCOMPARE(frame.devinfo.serial, 0U);
    QCOMPARE(frame.gpiostate.good, quint8(0));
    QVERIFY(!frame.netcfg->dhcp);
    QCOMPARE(frame.snmpcfg->port, quint16(4711));
    QCOMPARE(frame.modbuscfg.tcp_port, quint16(4711));
}

void tst_RlpSections::coreRefusals()
{
    ExposedDecoder rlp;
    rlp.m_itemList.append(core_tmp());
    int consumed = untouched;
    QByteArray payload = hex("80 00 04 00");
    const LogRecorder log;
    QVERIFY(!rlp.handleSectionCore(0x81, 4, &payload, &rlp.m_itemList, &consumed));
    QVERIFY(!rlp.handleSectionCore(0x80, 5, &payload, &rlp.m_itemList, &consumed));
    QVERIFY(!rlp.handleSectionCore(0x80, 4, &payload, nullptr, &consumed));
    QCOMPARE(log.texts(), (QStringList{QStringLiteral("Bad type"), QStringLiteral("Payload size mismatch"),
                                       QStringLiteral("Null pointer")}));
    QCOMPARE(log.lines().at(1).type, QtWarningMsg);
    QCOMPARE(consumed, untouched);
    QCOMPARE(rlp.items().size(), 1);
}

void tst_RlpSections::devInfo()
{
    devinfo_s record;
    QVERIFY(decode(&RlpDecoder::handleSectionDevInfo,
                   hex("10 00 | 1c 00 | 01 80 | 02 81 | 03 82 | 04 83 | 05 84 | 06 85 | 07 08 09 8a |"
                       "66 72 00 00 00 00 00 00"),
                   &record));
    QCOMPARE(record.type, quint16(0x8001));
    QCOMPARE(record.hwmajor, quint16(0x8102));
    QCOMPARE(record.hwminor, quint16(0x8203));
    QCOMPARE(record.swmajor, quint16(0x8304));
    QCOMPARE(record.swminor, quint16(0x8405));
    QCOMPARE(record.swbuild, quint16(0x8506));
    QCOMPARE(record.serial, quint32(0x8A090807));
    QCOMPARE(record.lang, QStringLiteral("fr"));
}

void tst_RlpSections::languageText_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<QString>("text");
    const auto row = [](const char* name, const char* octets, const QString& text) {
        QTest::newRow(name) << hex(octets) << text;
    };
    row("two letters and NUL: the letters", "66 72 00 00 00 00 00 00", QStringLiteral("fr"));
    row("all NUL: empty", "00 00 00 00 00 00 00 00", QString());
    row("eight letters: all", "64 65 66 61 75 6c 74 21", QStringLiteral("default!"));
    row("NUL first: empty, whatever follows", "00 66 72 00 00 00 00 00", QString());
    row("letters after the NUL: dropped", "65 6e 00 66 72 66 72 66", QStringLiteral("en"));
    row("Latin-1 octet: its letter", "e9 00 00 00 00 00 00 00", QStringLiteral("\u00e9"));
}

void tst_RlpSections::languageText()
{
    QFETCH(QByteArray, octets);
    devinfo_s record;
    record.lang = QStringLiteral("old");
    QVERIFY(decode(&RlpDecoder::handleSectionDevInfo, section(0x10, QByteArray(16, '\1') + octets), &record));
    QTEST(record.lang, "text");
}

void tst_RlpSections::gpioState()
{
    gpiostate_s record;
    QVERIFY(decode(&RlpDecoder::handleSectionGpioState, hex("20 00 | 08 00 | 01 | 02 | 03 | ff"), &record));
    QCOMPARE(record.good, quint8(1));
    QCOMPARE(record.warning, quint8(2));
    QCOMPARE(record.critical, quint8(3));
    QCOMPARE(record.buzzer, quint8(255));
}

void tst_RlpSections::netCfg()
{
    netcfg_s record;
    record.resetcfg = true;
    QVERIFY(decode(&RlpDecoder::handleSectionNetCfg,
                   hex("30 00 | 1a 00 | 01 | 00 | c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | 08 08 04 04 |"
                       "00 00 00 00"),
                   &record));
    QVERIFY(!record.resetcfg);
    QVERIFY(record.varnel);
    QVERIFY(!record.dhcp);
    QCOMPARE(dotted(record.ip), QStringLiteral("192.168.1.10"));
    QCOMPARE(dotted(record.mask), QStringLiteral("255.255.255.0"));
    QCOMPARE(dotted(record.gateway), QStringLiteral("192.168.1.1"));
    QCOMPARE(dotted(record.dns1), QStringLiteral("8.8.4.4"));
    QCOMPARE(dotted(record.dns2), QStringLiteral("0.0.0.0"));
    QVERIFY(!record.dns2.isNull()); // four zero octets are an address
}

void tst_RlpSections::netCfgFlags_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<bool>("varnel");
    QTest::addColumn<bool>("dhcp");
    QTest::newRow("00 00: neither") << hex("00 00") << false << false;
    QTest::newRow("01 00: varnel") << hex("01 00") << true << false;
    QTest::newRow("00 01: dhcp") << hex("00 01") << false << true;
    QTest::newRow("ff 80: any other value is true") << hex("ff 80") << true << true;
}

void tst_RlpSections::netCfgFlags()
{
    QFETCH(QByteArray, octets);
    netcfg_s record;
    record.varnel = record.dhcp = true;
    QVERIFY(decode(&RlpDecoder::handleSectionNetCfg, section(0x30, octets + QByteArray(20, '\1')), &record));
    QTEST(record.varnel, "varnel");
    QTEST(record.dhcp, "dhcp");
}

void tst_RlpSections::snmpCfg()
{
    // Every text names its own offset, so a field that is read from another's place shows.
    static const std::pair<int, QString snmpcfg_s::*> texts[] = {
        {12, &snmpcfg_s::ro_user},       {44, &snmpcfg_s::nopriv_user},    {76, &snmpcfg_s::nopriv_pwd},
        {108, &snmpcfg_s::priv_user},    {140, &snmpcfg_s::priv_pwd},      {172, &snmpcfg_s::priv_key},
        {204, &snmpcfg_s::oid},          {236, &snmpcfg_s::ro_oid},        {268, &snmpcfg_s::nopriv_oid},
        {300, &snmpcfg_s::priv_oid},     {332, &snmpcfg_s::r7m_context},   {364, &snmpcfg_s::r7m_community},
        {396, &snmpcfg_s::cli_engineid}, {428, &snmpcfg_s::cli_community}, {460, &snmpcfg_s::cli_user},
        {492, &snmpcfg_s::cli_pwd},      {524, &snmpcfg_s::cli_key},
    };
    QByteArray octets = hex("40 00 | 44 02 | 05 | 11 | 12 | 13 | 14 | 15 | 16 | 17");
    for (const auto& [offset, field] : texts) {
        QCOMPARE(octets.size(), offset);
        octets += textField("text at " + QByteArray::number(offset), 32);
    }
    octets += hex("a1 84 | a2 85 | 0a 00 00 01 | 7f 00 00 01 | 00 00 00 00 | ff ff ff ff | c0 a8 07 02");
    QCOMPARE(octets.size(), 580);

    snmpcfg_s record;
    record.resetcfg = true;
    QVERIFY(decode(&RlpDecoder::handleSectionSnmpCfg, octets, &record));
    QVERIFY(!record.resetcfg);
    QCOMPARE(record.version, quint8(0x05));
    QCOMPARE(record.options, quint8(0x11));
    QCOMPARE(record.nopriv_hash, quint8(0x12));
    QCOMPARE(record.priv_hash, quint8(0x13));
    QCOMPARE(record.priv_algo, quint8(0x14));
    QCOMPARE(record.cli_mode, quint8(0x15)); // the mode comes before the hash
    QCOMPARE(record.cli_hash, quint8(0x16));
    QCOMPARE(record.cli_algo, quint8(0x17));
    for (const auto& [offset, field] : texts) {
        QCOMPARE(record.*field, QStringLiteral("text at %1").arg(offset));
    }
    QCOMPARE(record.port, quint16(0x84A1));
    QCOMPARE(record.port_trap, quint16(0x85A2));
    QCOMPARE(dotted(record.trap_addr1), QStringLiteral("10.0.0.1"));
    QCOMPARE(dotted(record.trap_addr2), QStringLiteral("127.0.0.1"));
    QCOMPARE(dotted(record.trap_addr3), QStringLiteral("0.0.0.0"));
    QCOMPARE(dotted(record.trap_addr4), QStringLiteral("255.255.255.255"));
    QCOMPARE(dotted(record.trap_addr5), QStringLiteral("192.168.7.2"));
}

void tst_RlpSections::snmpTextFillsItsField()
{
    // 32 letters without NUL: the next field does not run into it.
    QByteArray octets = section(0x40, QByteArray(576, '\0'));
    octets.replace(12, 32, QByteArray(32, 'r'));
    octets.replace(44, 32, QByteArray(32, 'n'));
    octets.replace(524, 32, QByteArray(32, '\xe9')); // the last text
    snmpcfg_s record;
    QVERIFY(decode(&RlpDecoder::handleSectionSnmpCfg, octets, &record));
    QCOMPARE(record.ro_user, QString(32, QLatin1Char('r')));
    QCOMPARE(record.nopriv_user, QString(32, QLatin1Char('n')));
    QCOMPARE(record.nopriv_pwd, QString());
    QCOMPARE(record.cli_key, QString(32, QLatin1Char('\xe9')));
    QCOMPARE(record.port, quint16(0));
}

void tst_RlpSections::snmpTextEndsAtNul()
{
    QByteArray octets = section(0x40, QByteArray(576, 'z'));
    octets.replace(12, 32,
                   textField(QByteArray("a \"b'\n$c%1\t\xc3\xa9", 14) + QByteArray("\0hidden", 7), 32));
    octets.replace(44, 32, textField(QByteArray("\0hidden", 7), 32));
    snmpcfg_s record;
    QVERIFY(decode(&RlpDecoder::handleSectionSnmpCfg, octets, &record));
    QCOMPARE(record.ro_user, QString::fromLatin1("a \"b'\n$c%1\t\xc3\xa9"));
    QCOMPARE(record.nopriv_user, QString());
}

void tst_RlpSections::modbusCfg_data()
{
    QTest::addColumn<QByteArray>("octets");
    QTest::addColumn<bool>("status");
    QTest::addColumn<int>("port");
    QTest::newRow("00 00: off") << hex("00 00 | f6 01") << false << 502;
    QTest::newRow("01 00: on") << hex("01 00 | f6 01") << true << 502;
    QTest::newRow("00 01: on, both octets count") << hex("00 01 | f6 01") << true << 502;
    QTest::newRow("port 0: taken as it is") << hex("01 00 | 00 00") << true << 0;
    QTest::newRow("largest port: unsigned") << hex("00 00 | ff ff") << false << 65535;
}

void tst_RlpSections::modbusCfg()
{
    QFETCH(QByteArray, octets);
    modbuscfg_s record;
    record.resetcfg = false;
    record.tcp_status = true;
    QVERIFY(decode(&RlpDecoder::handleSectionModbusCfg, section(0x60, octets), &record));
    QTEST(record.tcp_status, "status");
    QTEST(int(record.tcp_port), "port");
}

void tst_RlpSections::longerSectionsAreReadToo()
{
    // The walker never hands one over, but a decoder by itself takes more than it needs.
    gpiostate_s record;
    QVERIFY(decode(&RlpDecoder::handleSectionGpioState, section(0x20, hex("01 02 03 04 05 06")), &record));
    QCOMPARE(record.buzzer, quint8(4));
}

void tst_RlpSections::coreItems_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("items");
    const auto row = [](const char* name, const QByteArray& body, const QStringList& items) {
        QTest::newRow(name) << body << items;
    };
    // An item is written as class.field.instance.type:length=value, the value with its first octet on the
    // wire last.
    const QByteArray two =
        coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(0x8005, 0x8106, 255, 254, hex("01 02 03 04"));
    const QStringList twoRead{QStringLiteral("1.2.3.4:2=bbaa"),
                              QStringLiteral("32773.33030.255.254:4=04030201")};
    row("no items: empty list", "", {});
    row("two items of 2 and 4 octets: both, reversed", two, twoRead);
    row("an item without value: kept", coreItem(1, 2, 3, 4, ""), {QStringLiteral("1.2.3.4:0=")});
    row("rest shorter than an item header: left out", two + hex("01 02 03 04 05 06 07"), twoRead);
    row("one octet left over: left out", two + hex("ff"), twoRead);
    row("value one octet too long: left out", two + coreItem(9, 9, 9, 9, hex("11 22"), 3), twoRead);
    row("value of 65535 octets: left out", two + coreItem(9, 9, 9, 9, hex("11 22"), 65535), twoRead);
    row("value missing: left out", coreItem(9, 9, 9, 9, "", 1), {});
    row("value to the very end: kept", coreItem(9, 9, 9, 9, QByteArray(5, '\1')),
        {QStringLiteral("9.9.9.9:5=0101010101")});
    row("a bad item first: none is used", coreItem(9, 9, 9, 9, "", 200) + two, {});
}

void tst_RlpSections::coreItems()
{
    QFETCH(QByteArray, body);
    QList<core_tmp> record{core_tmp(), core_tmp(), core_tmp()}; // of an earlier frame
    QVERIFY(decode(&RlpDecoder::handleSectionCore, section(0x80, body), &record));
    QStringList read;
    for (const core_tmp& item : record) {
        read << QStringLiteral("%1.%2.%3.%4:%5=%6")
                    .arg(item.ci_class)
                    .arg(item.ci_field)
                    .arg(item.instance)
                    .arg(item.ci_type)
                    .arg(item.datalen)
                    .arg(QString::fromLatin1(item.baData.toHex()));
    }
    QTEST(read, "items");
}

void tst_RlpSections::coreLengthField_data()
{
    QTest::addColumn<QByteArray>("lengthField");
    QTest::addColumn<int>("consumedOctets");
    QTest::addColumn<int>("itemCount");
    QTest::newRow("whole: both items") << hex("1a 00") << 26 << 2;
    QTest::newRow("ends after the first item: one item") << hex("0e 00") << 14 << 1;
    QTest::newRow("ends within the second item: the first") << hex("19 00") << 25 << 1;
    QTest::newRow("past the octets there are: both items") << hex("ff ff") << 65535 << 2;
    QTest::newRow("shorter than the section header: none") << hex("03 00") << 3 << 0;
    QTest::newRow("0: none") << hex("00 00") << 0 << 0;
}

/// The section's own length field ends the items, however many octets there are.
void tst_RlpSections::coreLengthField()
{
    QFETCH(QByteArray, lengthField);
    QByteArray payload = hex("80 00") + lengthField + coreItem(1, 2, 3, 4, hex("aa bb")) +
                         coreItem(5, 6, 7, 8, hex("01 02 03 04"));
    payload.squeeze();
    ExposedDecoder rlp;
    int consumed = untouched;
    QVERIFY(rlp.handleSectionCore(0x80, quint16(payload.size()), &payload, &rlp.m_itemList, &consumed));
    QTEST(consumed, "consumedOctets");
    QTEST(rlp.items().size(), "itemCount");
}

QTEST_GUILESS_MAIN(tst_RlpSections)
#include "tst_rlpsections.moc"
