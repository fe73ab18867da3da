// SPDX-License-Identifier: MIT
#include <QtEndian>

#include "exposeddecoder.h"
#include "frame.h"
#include "rows.h"
#include "sectionkinds.h"

using namespace Varnel;

namespace {

constexpr int untouched = -77;

/// The fields of the record that was decoded, in wire order.
QVariantList fieldsOf(const RlpFrame& frame)
{
    QVariantList fields;
    if (frame.hasDevInfo) {
        const devinfo_s& r = frame.devinfo;
        fields << r.type << r.hwmajor << r.hwminor << r.swmajor << r.swminor << r.swbuild << r.serial
               << r.lang;
    } else if (frame.hasGpioState) {
        const gpiostate_s& r = frame.gpiostate;
        fields << r.good << r.warning << r.critical << r.buzzer;
    } else if (frame.hasNetCfg) {
        const netcfg_s& r = *frame.netcfg;
        fields << r.resetcfg << r.varnel << r.dhcp << r.ip.toString() << r.mask.toString()
               << r.gateway.toString() << r.dns1.toString() << r.dns2.toString();
    } else if (frame.hasModbusCfg) {
        fields << frame.modbuscfg.tcp_status << frame.modbuscfg.tcp_port;
    } else if (frame.hasSnmpCfg) {
        const snmpcfg_s& r = *frame.snmpcfg;
        // The mode of the trap client comes before its hash.
        fields << r.resetcfg << r.version << r.options << r.nopriv_hash << r.priv_hash << r.priv_algo
               << r.cli_mode << r.cli_hash << r.cli_algo << r.ro_user << r.nopriv_user << r.nopriv_pwd
               << r.priv_user << r.priv_pwd << r.priv_key << r.oid << r.ro_oid << r.nopriv_oid << r.priv_oid
               << r.r7m_context << r.r7m_community << r.cli_engineid << r.cli_community << r.cli_user
               << r.cli_pwd << r.cli_key << r.port << r.port_trap;
        for (const QHostAddress& trap :
             {r.trap_addr1, r.trap_addr2, r.trap_addr3, r.trap_addr4, r.trap_addr5}) {
            fields << trap.toString();
        }
    }
    return fields;
}

} // namespace

/// The section decoders, called as the walker calls them.
class tst_RlpSections : public QObject
{
    Q_OBJECT

private slots:
    void refusals_data()
    {
        const Rows<int, int, int, int, bool, QString> add("kind", "type", "length", "octets", "hasRecord",
                                                          "reason");
        const std::pair<int, int> kinds[] = {
            {DevInfo, 28}, {GpioState, 8}, {NetCfg, 26}, {SnmpCfg, 580}, {ModbusCfg, 8}};
        for (const auto& [kind, size] : kinds) {
            const auto row = [&add, kind = kind](const char* what, int type, int length, int octets,
                                                 const QString& reason, bool hasRecord = true) {
                add(qPrintable("0x%1, %2"_s.arg(kind, 0, 16).arg(QLatin1String(what))), kind, type, length,
                    octets, hasRecord, reason);
            };
            row("type of another", kind + 1, size, size, "Bad type"_s);
            row("one short", kind, size - 1, size - 1, "Too short"_s);
            row("length 0", kind, 0, 0, "Too short"_s);
            row("four octets more", kind, size, size + 4, "Payload size mismatch"_s);
            row("one octet less", kind, size, size - 1, "Payload size mismatch"_s);
            row("longer, handed 4 more", kind, size + 1, size + 5, "Payload size mismatch"_s);
            row("no record", kind, size, size, "Null pointer"_s, false);
            row("all wrong: the type comes first", 0, 0, 3, "Bad type"_s, false);
            row("short and mismatched: too short comes first", kind, size - 1, 3, "Too short"_s);
            row("mismatched without record: mismatch comes first", kind, size, 3, "Payload size mismatch"_s,
                false);
        }
    }

    void refusals()
    {
        QFETCH(int, kind);
        QFETCH(int, type);
        QFETCH(int, length);
        QFETCH(int, octets);
        QFETCH(bool, hasRecord);
        QFETCH(QString, reason);
        RlpDecoder rlp;
        RlpFrame frame;
        const SectionKind* const entry = findSectionKind(quint16(kind));
        QByteArray payload(octets, '\xff');
        void* const record = hasRecord ? entry->record(&frame, nullptr) : nullptr;
        const LogRecorder log;
        int consumed = untouched;
        QVERIFY(!(rlp.*entry->decode)(quint16(type), quint16(length), &payload, record, &consumed));
        QCOMPARE(log.texts(), QStringList{reason});
        QCOMPARE(log.lines().constFirst().type, QtDebugMsg);
        QCOMPARE(consumed, untouched);
        QCOMPARE(frame.devinfo.serial, 0U);
        QCOMPARE(frame.gpiostate.good, quint8(0));
        QVERIFY(!frame.netcfg || !frame.netcfg->dhcp);
        QVERIFY(!frame.snmpcfg || frame.snmpcfg->port == 0);
        QCOMPARE(frame.modbuscfg.tcp_port, quint16(0));
    }

    void coreRefusals()
    {
        ExposedDecoder rlp;
        rlp.m_itemList.append(core_tmp());
        int consumed = untouched;
        QByteArray payload = hex("80 00 04 00");
        const LogRecorder log;
        QVERIFY(!rlp.handleSectionCore(0x81, 4, &payload, &rlp.m_itemList, &consumed));
        QVERIFY(!rlp.handleSectionCore(0x80, 5, &payload, &rlp.m_itemList, &consumed));
        QVERIFY(!rlp.handleSectionCore(0x80, 4, &payload, nullptr, &consumed));
        QCOMPARE(log.texts(), (QStringList{"Bad type"_s, "Payload size mismatch"_s, "Null pointer"_s}));
        QCOMPARE(log.lines().at(1).type, QtWarningMsg);
        QCOMPARE(consumed, untouched);
        QCOMPARE(rlp.items().size(), 1);
    }

    void fields_data()
    {
        const Rows<QByteArray, QVariantList> row("octets", "fields");
        row("DevInfo",
            hex("10 00 | 1c 00 | 01 80 | 02 81 | 03 82 | 04 83 | 05 84 | 06 85 |"
                "07 08 09 8a | 66 72 00 00 00 00 00 00"),
            QVariantList{0x8001, 0x8102, 0x8203, 0x8304, 0x8405, 0x8506, 0x8A090807U, "fr"_s});
        const auto language = [](const char* name, const QByteArray& octets, const QString& text) {
            QTest::addRow("DevInfo, language of %s", name)
                << section(0x10, QByteArray(16, '\0') + textField(octets, 8))
                << QVariantList{0, 0, 0, 0, 0, 0, 0, text};
        };
        language("eight letters: all", "default!", "default!"_s);
        language("NUL first: empty, whatever follows", QByteArray("\0fr", 3), QString());
        language("letters after the NUL: dropped", QByteArray("en\0frfrf", 8), "en"_s);
        language("a Latin-1 octet: its letter", "\xe9", "\u00e9"_s);

        row("GpioState", hex("20 00 | 08 00 | 01 | 02 | 03 | ff"), QVariantList{1, 2, 3, 255});
        // The walker never hands one over, but a decoder by itself takes more than it needs.
        row("GpioState, longer", hex("20 00 | 0a 00 | 01 | 02 | 03 | 04 | 05 | 06"),
            QVariantList{1, 2, 3, 4});

        const auto netCfg = [](const char* name, const QByteArray& flags, bool varnel, bool dhcp) {
            QTest::addRow("NetCfg, %s", name)
                << section(0x30, flags + hex("c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | 08 08 04 04 |"
                                             "00 00 00 00"))
                << QVariantList{false,           varnel,      dhcp,       "192.168.1.10"_s, "255.255.255.0"_s,
                                "192.168.1.1"_s, "8.8.4.4"_s, "0.0.0.0"_s}; // four zero octets are an address
        };
        netCfg("00 00: neither", hex("00 00"), false, false);
        netCfg("01 00: varnel", hex("01 00"), true, false);
        netCfg("00 01: dhcp", hex("00 01"), false, true);
        netCfg("ff 80: any other value is true", hex("ff 80"), true, true);

        const auto modbusCfg = [](const char* name, const QByteArray& octets, bool status, int port) {
            QTest::addRow("ModbusCfg, %s", name) << section(0x60, octets) << QVariantList{status, port};
        };
        modbusCfg("00 00: off", hex("00 00 | f6 01"), false, 502);
        modbusCfg("01 00: on", hex("01 00 | f6 01"), true, 502);
        modbusCfg("00 01: on, both octets count", hex("00 01 | ff ff"), true, 65535);

        QByteArray snmpCfg = hex("40 00 | 44 02 | 05 | 11 | 12 | 13 | 14 | 15 | 16 | 17");
        QVariantList fields{false, 0x05, 0x11, 0x12, 0x13, 0x14, 0x15, 0x16, 0x17};
        const auto addText = [&](const QByteArray& octets, const QString& text) {
            snmpCfg += octets.leftJustified(32, '\0');
            fields << text;
        };
        addText(QByteArray(32, 'r'), QString(32, QLatin1Char('r'))); // without NUL
        addText("a \"b'\n$c%1\t\xc3\xa9" + QByteArray("\0hidden", 7),
                QString::fromLatin1("a \"b'\n$c%1\t\xc3\xa9"));
        addText(QByteArray("\0hidden", 7), QString());
        for (int text = 4; text < 17; ++text) {
            addText("text " + QByteArray::number(text), "text %1"_s.arg(text));
        }
        addText(QByteArray(32, '\xe9'), QString(32, QLatin1Char('\xe9')));
        snmpCfg += hex("a1 84 | a2 85 | 0a 00 00 01 | 7f 00 00 01 | 00 00 00 00 | ff ff ff ff | c0 a8 07 02");
        fields << 0x84A1 << 0x85A2 << "10.0.0.1"_s
               << "127.0.0.1"_s
               << "0.0.0.0"_s
               << "255.255.255.255"_s
               << "192.168.7.2"_s;
        row("SnmpCfg", snmpCfg, fields);
    }

    void fields()
    {
        QFETCH(QByteArray, octets);
        QFETCH(QVariantList, fields);
        const SectionKind* const kind = findSectionKind(qFromLittleEndian<quint16>(octets.constData()));
        RlpFrame frame; // with other values, as of an earlier section
        frame.devinfo.lang = "old"_s;
        netcfg_s& net = frame.netcfg.emplace();
        net.resetcfg = net.varnel = net.dhcp = true;
        frame.snmpcfg.emplace().resetcfg = frame.modbuscfg.tcp_status = true;
        RlpDecoder rlp;
        const LogRecorder log;
        int consumed = untouched;
        QByteArray payload = octets;
        const auto length = quint16(octets.size());
        frame.*kind->decoded = (rlp.*kind->decode)(quint16(kind->type), length, &payload,
                                                   kind->record(&frame, nullptr), &consumed);
        QVERIFY(frame.*kind->decoded);
        QCOMPARE(consumed, octets.size());
        QCOMPARE(payload, octets);
        QVERIFY(log.lines().isEmpty());
        const QVariantList decoded = fieldsOf(frame);
        QCOMPARE(decoded.size(), fields.size());
        for (int i = 0; i < fields.size(); ++i) {
            QCOMPARE(decoded.at(i).toString(), fields.at(i).toString());
        }
    }

    void coreItems_data()
    {
        const Rows<QByteArray, int, QStringList> add("section", "consumedOctets", "items");
        const auto row = [&add](const char* name, const QByteArray& body, const QStringList& items,
                                int length = -1) {
            add(name, section(0x80, body, length), (length < 0 ? body.size() + 4 : length), items);
        };
        // An item is written as class.field.instance.type:length=value, the value with its first octet on the
        // wire last.
        const QByteArray two =
            coreItem(1, 2, 3, 4, hex("aa bb")) + coreItem(0x8005, 0x8106, 255, 254, hex("01 02 03 04"));
        const QStringList twoRead{"1.2.3.4:2=bbaa"_s, "32773.33030.255.254:4=04030201"_s};
        const QStringList oneRead = twoRead.mid(0, 1);
        row("no items: empty list", "", {});
        row("two items of 2 and 4 octets: both, reversed", two, twoRead);
        row("an item without value: kept", coreItem(1, 2, 3, 4, ""), {"1.2.3.4:0="_s});
        row("rest shorter than an item header: left out", two + hex("01 02 03 04 05 06 07"), twoRead);
        row("value one octet too long: left out", two + coreItem(9, 9, 9, 9, hex("11 22"), 3), twoRead);
        row("value of 65535 octets: left out", two + coreItem(9, 9, 9, 9, hex("11 22"), 65535), twoRead);
        row("value to the very end: kept", coreItem(9, 9, 9, 9, QByteArray(5, '\1')),
            {"9.9.9.9:5=0101010101"_s});
        row("a bad item first: none is used", coreItem(9, 9, 9, 9, "", 200) + two, {});
        // The section's own length field ends the items, however many octets there are.
        row("ends after the first item: one item", two, oneRead, 14);
        row("ends within the second item: the first", two, oneRead, 25);
        row("past the octets there are: both items", two, twoRead, 65535);
        row("shorter than the section header: none", two, {}, 3);
    }

    void coreItems()
    {
        QFETCH(QByteArray, section);
        QList<core_tmp> record{core_tmp(), core_tmp(), core_tmp()}; // of an earlier frame
        section.squeeze();                                          // the sanitizers see a read past its end
        int consumed = untouched;
        QVERIFY(RlpDecoder().handleSectionCore(0x80, quint16(section.size()), &section, &record, &consumed));
        QTEST(consumed, "consumedOctets");
        QStringList read;
        for (const core_tmp& item : record) {
            read << "%1.%2.%3.%4:%5=%6"_s.arg(item.ci_class)
                        .arg(item.ci_field)
                        .arg(item.instance)
                        .arg(item.ci_type)
                        .arg(item.datalen)
                        .arg(QString::fromLatin1(item.baData.toHex()));
        }
        QTEST(read, "items");
    }

    void itemPastTheSectionIsReportedIfEnabled()
    {
        const LogRules rules("varnel.rlp.debug=true");
        const LogRecorder log;
        QByteArray octets = section(0x80, coreItem(1, 2, 3, 4, "", 1));
        QList<core_tmp> record;
        int consumed = 0;
        QVERIFY(RlpDecoder().handleSectionCore(0x80, quint16(octets.size()), &octets, &record, &consumed));
        QCOMPARE(log.texts("varnel.rlp"_s), QStringList{"Core item at 4 runs past the section's end"_s});
    }
};

QTEST_GUILESS_MAIN(tst_RlpSections)
#include "tst_rlpsections.moc"
