// SPDX-License-Identifier: MIT
// The section decoders of RlpDecoder: one function a kind, offsets counted from the section's first octet.
#include "rlpdecoder.h"

#include <algorithm>
#include <iterator>

#include <QLoggingCategory>
#include <QtDebug>

#include "fieldreader.h"

namespace Varnel {

namespace {

Q_LOGGING_CATEGORY(lcRlp, "varnel.rlp", QtWarningMsg)

constexpr int devInfoSize = 28;
constexpr int gpioStateSize = 8;
constexpr int netCfgSize = 26;
constexpr int snmpCfgSize = 580;
constexpr int modbusCfgSize = 8;

constexpr int langAt = 20;
constexpr int langWidth = 8;

constexpr int snmpTextsAt = 12;
constexpr int snmpTextWidth = 32;
constexpr int snmpPortAt = 556;
constexpr int snmpTrapsAt = 560;
constexpr int ipv4Width = 4;

/// The text fields of an SnmpCfg section in wire order.
constexpr QString snmpcfg_s::*snmpTexts[] = {
    &snmpcfg_s::ro_user,      &snmpcfg_s::nopriv_user,   &snmpcfg_s::nopriv_pwd,  &snmpcfg_s::priv_user,
    &snmpcfg_s::priv_pwd,     &snmpcfg_s::priv_key,      &snmpcfg_s::oid,         &snmpcfg_s::ro_oid,
    &snmpcfg_s::nopriv_oid,   &snmpcfg_s::priv_oid,      &snmpcfg_s::r7m_context, &snmpcfg_s::r7m_community,
    &snmpcfg_s::cli_engineid, &snmpcfg_s::cli_community, &snmpcfg_s::cli_user,    &snmpcfg_s::cli_pwd,
    &snmpcfg_s::cli_key,
};
static_assert(snmpTextsAt + int(std::size(snmpTexts)) * snmpTextWidth == snmpPortAt,
              "the texts end where the port begins");

constexpr QHostAddress snmpcfg_s::*snmpTraps[] = {
    &snmpcfg_s::trap_addr1, &snmpcfg_s::trap_addr2, &snmpcfg_s::trap_addr3,
    &snmpcfg_s::trap_addr4, &snmpcfg_s::trap_addr5,
};
static_assert(snmpTrapsAt + int(std::size(snmpTraps)) * ipv4Width == snmpCfgSize,
              "the trap addresses end the section");

/// The checks that all decoders of a fixed size begin with.
bool checkFixedSection(SectionType expected, int size, quint16 type, quint16 length,
                       const QByteArray& payload, const void* record)
{
    if (type != quint16(expected)) {
        qDebug() << "Bad type";
        return false;
    }
    if (length < size) {
        qDebug() << "Too short";
        return false;
    }
    if (payload.size() != length) {
        qDebug() << "Payload size mismatch";
        return false;
    }
    if (record == nullptr) {
        qDebug() << "Null pointer";
        return false;
    }
    return true;
}

} // namespace

bool RlpDecoder::handleSectionDevInfo(quint16 type, quint16 length, QByteArray* payload, void* record,
                                      int* consumed)
{
    if (!checkFixedSection(SectionType::DevInfo, devInfoSize, type, length, *payload, record)) {
        return false;
    }
    *consumed = length;
    auto& devinfo = *static_cast<devinfo_s*>(record);
    FieldReader reader(*payload);
    devinfo.type = reader.u16(4);
    devinfo.hwmajor = reader.u16(6);
    devinfo.hwminor = reader.u16(8);
    devinfo.swmajor = reader.u16(10);
    devinfo.swminor = reader.u16(12);
    devinfo.swbuild = reader.u16(14);
    devinfo.serial = reader.u32(16);
    devinfo.lang = reader.latin1(langAt, langWidth);
    return true;
}

bool RlpDecoder::handleSectionGpioState(quint16 type, quint16 length, QByteArray* payload, void* record,
                                        int* consumed)
{
    if (!checkFixedSection(SectionType::GpioState, gpioStateSize, type, length, *payload, record)) {
        return false;
    }
    *consumed = length;
    auto& gpiostate = *static_cast<gpiostate_s*>(record);
    FieldReader reader(*payload);
    gpiostate.good = reader.u8(4);
    gpiostate.warning = reader.u8(5);
    gpiostate.critical = reader.u8(6);
    gpiostate.buzzer = reader.u8(7);
    return true;
}

bool RlpDecoder::handleSectionNetCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                     int* consumed)
{
    if (!checkFixedSection(SectionType::NetCfg, netCfgSize, type, length, *payload, record)) {
        return false;
    }
    *consumed = length;
    auto& netcfg = *static_cast<netcfg_s*>(record);
    FieldReader reader(*payload);
    netcfg.resetcfg = false;
    netcfg.varnel = reader.u8(4) != 0;
    netcfg.dhcp = reader.u8(5) != 0;
    netcfg.ip.setAddress(reader.ipv4(6));
    netcfg.mask.setAddress(reader.ipv4(10));
    netcfg.gateway.setAddress(reader.ipv4(14));
    netcfg.dns1.setAddress(reader.ipv4(18));
    netcfg.dns2.setAddress(reader.ipv4(22));
    return true;
}

bool RlpDecoder::handleSectionSnmpCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                      int* consumed)
{
    if (!checkFixedSection(SectionType::SnmpCfg, snmpCfgSize, type, length, *payload, record)) {
        return false;
    }
    *consumed = length;
    auto& snmpcfg = *static_cast<snmpcfg_s*>(record);
    FieldReader reader(*payload);
    snmpcfg.resetcfg = false;
    snmpcfg.version = reader.u8(4);
    snmpcfg.options = reader.u8(5);
    snmpcfg.nopriv_hash = reader.u8(6);
    snmpcfg.priv_hash = reader.u8(7);
    snmpcfg.priv_algo = reader.u8(8);
    snmpcfg.cli_mode = reader.u8(9); // on the wire the mode comes before the hash
    snmpcfg.cli_hash = reader.u8(10);
    snmpcfg.cli_algo = reader.u8(11);
    int offset = snmpTextsAt;
    for (QString snmpcfg_s::*text : snmpTexts) {
        snmpcfg.*text = reader.latin1(offset, snmpTextWidth);
        offset += snmpTextWidth;
    }
    snmpcfg.port = reader.u16(snmpPortAt);
    snmpcfg.port_trap = reader.u16(snmpPortAt + 2);
    offset = snmpTrapsAt;
    for (QHostAddress snmpcfg_s::*trap : snmpTraps) {
        (snmpcfg.*trap).setAddress(reader.ipv4(offset));
        offset += ipv4Width;
    }
    return true;
}

bool RlpDecoder::handleSectionModbusCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                        int* consumed)
{
    if (!checkFixedSection(SectionType::ModbusCfg, modbusCfgSize, type, length, *payload, record)) {
        return false;
    }
    *consumed = length;
    auto& modbuscfg = *static_cast<modbuscfg_s*>(record);
    FieldReader reader(*payload);
    modbuscfg.tcp_status = reader.u16(4) != 0;
    modbuscfg.tcp_port = reader.u16(6);
    return true;
}

bool RlpDecoder::handleSectionCore(quint16 type, quint16 length, QByteArray* payload, void* record,
                                   int* consumed)
{
    constexpr int itemsAt = 4;
    constexpr int itemHeaderSize = 8;
    if (type != quint16(SectionType::Core)) {
        qDebug() << "Bad type";
        return false;
    }
    if (payload->size() != length) {
        qWarning() << "Payload size mismatch";
        return false;
    }
    if (record == nullptr) {
        qDebug() << "Null pointer";
        return false;
    }
    FieldReader reader(*payload);
    const int end = std::min<int>(reader.u16(2), payload->size());
    *consumed = reader.u16(2);
    auto& itemList = *static_cast<QList<core_tmp>*>(record);
    itemList.clear();

    // An item whose value or header runs past the section's end ends the list: half a value is no value.
    int position = itemsAt;
    while (end - position >= itemHeaderSize) {
        core_tmp item;
        item.ci_class = reader.u16(position);
        item.ci_field = reader.u16(position + 2);
        item.instance = reader.u8(position + 4);
        item.ci_type = reader.u8(position + 5);
        item.datalen = reader.u16(position + 6);
        if (item.datalen > end - position - itemHeaderSize) {
            qCDebug(lcRlp) << "Core item at" << position << "runs past the section's end";
            break;
        }
        item.baData = getBytes(payload, static_cast<quint16>(position + itemHeaderSize), item.datalen);
        itemList.append(item);
        position += itemHeaderSize + item.datalen;
    }
    return true;
}

} // namespace Varnel
