// SPDX-License-Identifier: MIT
// The table of all kinds of section, and the decoders of RlpDecoder, one for each kind. Offsets count from
// the section's first octet.
#include "rlpdecoder.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include <QLoggingCategory>
#include <QtDebug>

#include "fieldreader.h"
#include "sectionkinds.h"

namespace Varnel {

namespace {

Q_LOGGING_CATEGORY(lcRlp, "varnel.rlp", QtWarningMsg)

/// The address of a record; an optional one is made when it is first needed.
void* addressOf(void* record)
{
    return record;
}
template<typename Record>
void* addressOf(std::optional<Record>* record)
{
    return record->has_value() ? &**record : &record->emplace();
}

template<auto member>
void* recordIn(RlpFrame* frame, QList<core_tmp>* /*items*/)
{
    return addressOf(&(frame->*member));
}

void* itemList(RlpFrame* /*frame*/, QList<core_tmp>* items)
{
    return items;
}

/// All kinds of section, in the order in which a frame's sections are used.
constexpr SectionKind sectionKinds[] = {
    {SectionType::DevInfo, 28, "DevInfo section length mismatch (", &RlpDecoder::handleSectionDevInfo,
     recordIn<&RlpFrame::devinfo>, &RlpFrame::hasDevInfo, &SectionUser::useDevInfo},
    // A GpioState of the wrong length is reported as DevInfo: the controller's test bench looks for those
    // words.
    {SectionType::GpioState, 8, "DevInfo section length mismatch (", &RlpDecoder::handleSectionGpioState,
     recordIn<&RlpFrame::gpiostate>, &RlpFrame::hasGpioState, &SectionUser::useGpioState},
    {SectionType::SnmpCfg, 580, "SnmpCfg section length mismatch (", &RlpDecoder::handleSectionSnmpCfg,
     recordIn<&RlpFrame::snmpcfg>, &RlpFrame::hasSnmpCfg, &SectionUser::useSnmpCfg},
    {SectionType::NetCfg, 26, "NetCfg section length mismatch (", &RlpDecoder::handleSectionNetCfg,
     recordIn<&RlpFrame::netcfg>, &RlpFrame::hasNetCfg, &SectionUser::useNetCfg},
    {SectionType::Core, 0, nullptr, &RlpDecoder::handleSectionCore, itemList, &RlpFrame::hasCore,
     &SectionUser::useCore},
    {SectionType::ModbusCfg, 8, "ModbusCfg section length mismatch (", &RlpDecoder::handleSectionModbusCfg,
     recordIn<&RlpFrame::modbuscfg>, &RlpFrame::hasModbusCfg, &SectionUser::useModbusCfg},
};

constexpr const SectionKind* findKind(quint16 type)
{
    for (const SectionKind& kind : sectionKinds) {
        if (static_cast<quint16>(kind.type) == type) {
            return &kind;
        }
    }
    return nullptr;
}

constexpr int sizeOf(SectionType type)
{
    return findKind(static_cast<quint16>(type))->size;
}

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
static_assert(snmpTrapsAt + int(std::size(snmpTraps)) * ipv4Width == sizeOf(SectionType::SnmpCfg),
              "the trap addresses end the section");

/// Checks a section of fixed size. If it passes, lets `fill` read its fields into the record.
template<typename Record>
bool decodeFixed(SectionType expected, quint16 type, quint16 length, const QByteArray& payload, void* record,
                 int* consumed, void (*fill)(FieldReader*, Record*))
{
    if (type != quint16(expected)) {
        qDebug() << "Bad type";
        return false;
    }
    if (length < sizeOf(expected)) {
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
    *consumed = length;
    FieldReader reader(payload);
    fill(&reader, static_cast<Record*>(record));
    return true;
}

void fillDevInfo(FieldReader* reader, devinfo_s* devinfo)
{
    devinfo->type = reader->u16(4);
    devinfo->hwmajor = reader->u16(6);
    devinfo->hwminor = reader->u16(8);
    devinfo->swmajor = reader->u16(10);
    devinfo->swminor = reader->u16(12);
    devinfo->swbuild = reader->u16(14);
    devinfo->serial = reader->u32(16);
    devinfo->lang = reader->latin1(langAt, langWidth);
}

void fillGpioState(FieldReader* reader, gpiostate_s* gpiostate)
{
    gpiostate->good = reader->u8(4);
    gpiostate->warning = reader->u8(5);
    gpiostate->critical = reader->u8(6);
    gpiostate->buzzer = reader->u8(7);
}

void fillNetCfg(FieldReader* reader, netcfg_s* netcfg)
{
    netcfg->resetcfg = false;
    netcfg->varnel = reader->u8(4) != 0;
    netcfg->dhcp = reader->u8(5) != 0;
    netcfg->ip.setAddress(reader->ipv4(6));
    netcfg->mask.setAddress(reader->ipv4(10));
    netcfg->gateway.setAddress(reader->ipv4(14));
    netcfg->dns1.setAddress(reader->ipv4(18));
    netcfg->dns2.setAddress(reader->ipv4(22));
}

void fillSnmpCfg(FieldReader* reader, snmpcfg_s* snmpcfg)
{
    snmpcfg->resetcfg = false;
    snmpcfg->version = reader->u8(4);
    snmpcfg->options = reader->u8(5);
    snmpcfg->nopriv_hash = reader->u8(6);
    snmpcfg->priv_hash = reader->u8(7);
    snmpcfg->priv_algo = reader->u8(8);
    snmpcfg->cli_mode = reader->u8(9); // on the wire the mode comes before the hash
    snmpcfg->cli_hash = reader->u8(10);
    snmpcfg->cli_algo = reader->u8(11);
    int offset = snmpTextsAt;
    for (QString snmpcfg_s::*text : snmpTexts) {
        snmpcfg->*text = reader->latin1(offset, snmpTextWidth);
        offset += snmpTextWidth;
    }
    snmpcfg->port = reader->u16(snmpPortAt);
    snmpcfg->port_trap = reader->u16(snmpPortAt + 2);
    offset = snmpTrapsAt;
    for (QHostAddress snmpcfg_s::*trap : snmpTraps) {
        (snmpcfg->*trap).setAddress(reader->ipv4(offset));
        offset += ipv4Width;
    }
}

void fillModbusCfg(FieldReader* reader, modbuscfg_s* modbuscfg)
{
    modbuscfg->tcp_status = reader->u16(4) != 0;
    modbuscfg->tcp_port = reader->u16(6);
}

} // namespace

bool RlpDecoder::handleSectionDevInfo(quint16 type, quint16 length, QByteArray* payload, void* record,
                                      int* consumed)
{
    return decodeFixed(SectionType::DevInfo, type, length, *payload, record, consumed, fillDevInfo);
}

bool RlpDecoder::handleSectionGpioState(quint16 type, quint16 length, QByteArray* payload, void* record,
                                        int* consumed)
{
    return decodeFixed(SectionType::GpioState, type, length, *payload, record, consumed, fillGpioState);
}

bool RlpDecoder::handleSectionNetCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                     int* consumed)
{
    return decodeFixed(SectionType::NetCfg, type, length, *payload, record, consumed, fillNetCfg);
}

bool RlpDecoder::handleSectionSnmpCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                      int* consumed)
{
    return decodeFixed(SectionType::SnmpCfg, type, length, *payload, record, consumed, fillSnmpCfg);
}

bool RlpDecoder::handleSectionModbusCfg(quint16 type, quint16 length, QByteArray* payload, void* record,
                                        int* consumed)
{
    return decodeFixed(SectionType::ModbusCfg, type, length, *payload, record, consumed, fillModbusCfg);
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

    // An item that runs past the section's end is dropped and ends the list.
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

const SectionKind* findSectionKind(quint16 type)
{
    return findKind(type);
}

void useSections(const RlpFrame& frame, SectionUser* user)
{
    for (const SectionKind& kind : sectionKinds) {
        if (frame.*kind.decoded) {
            (user->*kind.use)(frame);
        }
    }
}

} // namespace Varnel
