// SPDX-License-Identifier: MIT
// The values of a section come from the panel's records, so they are what the panel has read.
#include "framefields.h"

#include <iterator>
#include <optional>

#include "fieldreader.h"
#include "sectionkinds.h"

using namespace Varnel;

namespace {

QJsonValue toJson(bool value)
{
    return value;
}

QJsonValue toJson(quint32 value)
{
    return double(value);
}

QJsonValue toJson(const QString& value)
{
    return value;
}

QJsonValue toJson(const QHostAddress& value)
{
    return value.toString();
}

template<typename Record>
const Record& plain(const Record& record)
{
    return record;
}

template<typename Record>
const Record& plain(const std::optional<Record>& record)
{
    return *record;
}

/// The member `Member` of the frame's record `Record`.
template<auto Record, auto Member>
QJsonValue valueOf(const RlpFrame& frame)
{
    const auto& value = plain(frame.*Record).*Member;
    if constexpr (std::is_integral_v<std::decay_t<decltype(value)>> &&
                  !std::is_same_v<std::decay_t<decltype(value)>, bool>) {
        return toJson(quint32(value));
    } else {
        return toJson(value);
    }
}

/// The words for the values of a code, from 0 on.
struct Words
{
    const char* const* words;
    int count;
    const char* others; ///< for all further values
};

constexpr const char* outputTexts[] = {"off", "on", "slow blink", "fast blink"};
constexpr const char* hashTexts[] = {"UNDEF", "MD5", "SHA"};
constexpr const char* algoTexts[] = {"UNDEF", "DES", "AES"};
constexpr const char* modeTexts[] = {"unknown", "V1", "V2", "V3NOAUTH", "V3NOPRIV", "V3PRIV"};
constexpr Words outputWords{outputTexts, int(std::size(outputTexts)), "on"};
constexpr Words hashWords{hashTexts, int(std::size(hashTexts)), "UNDEF"};
constexpr Words algoWords{algoTexts, int(std::size(algoTexts)), "UNDEF"};
constexpr Words modeWords{modeTexts, int(std::size(modeTexts)), "unknown"};

struct SectionField
{
    SectionType section = SectionType::DevInfo;
    const char* name = nullptr;
    int offset = 0;
    int width = 0;
    QJsonValue (*value)(const RlpFrame& frame) = nullptr;
    const char* meaning = nullptr;
    const Words* words = nullptr;
};

template<auto Member>
constexpr auto dev = &valueOf<&RlpFrame::devinfo, Member>;
template<auto Member>
constexpr auto gpio = &valueOf<&RlpFrame::gpiostate, Member>;
template<auto Member>
constexpr auto net = &valueOf<&RlpFrame::netcfg, Member>;
template<auto Member>
constexpr auto snmp = &valueOf<&RlpFrame::snmpcfg, Member>;
template<auto Member>
constexpr auto modbus = &valueOf<&RlpFrame::modbuscfg, Member>;

constexpr SectionField sectionTable[] = {
    {SectionType::DevInfo, "devinfo.type", 4, 2, dev<&devinfo_s::type>, "device type"},
    {SectionType::DevInfo, "devinfo.hwmajor", 6, 2, dev<&devinfo_s::hwmajor>, "hardware version, major"},
    {SectionType::DevInfo, "devinfo.hwminor", 8, 2, dev<&devinfo_s::hwminor>, "hardware version, minor"},
    {SectionType::DevInfo, "devinfo.swmajor", 10, 2, dev<&devinfo_s::swmajor>, "software version, major"},
    {SectionType::DevInfo, "devinfo.swminor", 12, 2, dev<&devinfo_s::swminor>, "software version, minor"},
    {SectionType::DevInfo, "devinfo.swbuild", 14, 2, dev<&devinfo_s::swbuild>, "software build"},
    {SectionType::DevInfo, "devinfo.serial", 16, 4, dev<&devinfo_s::serial>, "serial number"},
    {SectionType::DevInfo, "devinfo.lang", 20, 8, dev<&devinfo_s::lang>, "language; empty: leave it alone"},
    {SectionType::GpioState, "gpiostate.good", 4, 1, gpio<&gpiostate_s::good>, "green LED", &outputWords},
    {SectionType::GpioState, "gpiostate.warning", 5, 1, gpio<&gpiostate_s::warning>, "yellow LED",
     &outputWords},
    {SectionType::GpioState, "gpiostate.critical", 6, 1, gpio<&gpiostate_s::critical>, "red LED",
     &outputWords},
    {SectionType::GpioState, "gpiostate.buzzer", 7, 1, gpio<&gpiostate_s::buzzer>, "buzzer", &outputWords},
    {SectionType::NetCfg, "netcfg.varnel", 4, 1, net<&netcfg_s::varnel>,
     "whether the controller manages the panel's network"},
    {SectionType::NetCfg, "netcfg.dhcp", 5, 1, net<&netcfg_s::dhcp>, "whether the address comes by DHCP"},
    {SectionType::NetCfg, "netcfg.ip", 6, 4, net<&netcfg_s::ip>, "address"},
    {SectionType::NetCfg, "netcfg.mask", 10, 4, net<&netcfg_s::mask>, "netmask"},
    {SectionType::NetCfg, "netcfg.gateway", 14, 4, net<&netcfg_s::gateway>, "gateway"},
    {SectionType::NetCfg, "netcfg.dns1", 18, 4, net<&netcfg_s::dns1>, "first name server"},
    {SectionType::NetCfg, "netcfg.dns2", 22, 4, net<&netcfg_s::dns2>, "second name server"},
    {SectionType::SnmpCfg, "snmpcfg.version", 4, 1, snmp<&snmpcfg_s::version>, "security of the agent",
     &modeWords},
    {SectionType::SnmpCfg, "snmpcfg.options", 5, 1, snmp<&snmpcfg_s::options>, "options"},
    {SectionType::SnmpCfg, "snmpcfg.nopriv_hash", 6, 1, snmp<&snmpcfg_s::nopriv_hash>, "hash of V3NOPRIV",
     &hashWords},
    {SectionType::SnmpCfg, "snmpcfg.priv_hash", 7, 1, snmp<&snmpcfg_s::priv_hash>, "hash of V3PRIV",
     &hashWords},
    {SectionType::SnmpCfg, "snmpcfg.priv_algo", 8, 1, snmp<&snmpcfg_s::priv_algo>, "cipher of V3PRIV",
     &algoWords},
    {SectionType::SnmpCfg, "snmpcfg.cli_mode", 9, 1, snmp<&snmpcfg_s::cli_mode>, "security of the traps",
     &modeWords},
    {SectionType::SnmpCfg, "snmpcfg.cli_hash", 10, 1, snmp<&snmpcfg_s::cli_hash>, "hash of the traps",
     &hashWords},
    {SectionType::SnmpCfg, "snmpcfg.cli_algo", 11, 1, snmp<&snmpcfg_s::cli_algo>, "cipher of the traps",
     &algoWords},
    {SectionType::SnmpCfg, "snmpcfg.ro_user", 12, 32, snmp<&snmpcfg_s::ro_user>, "user of V3NOAUTH"},
    {SectionType::SnmpCfg, "snmpcfg.nopriv_user", 44, 32, snmp<&snmpcfg_s::nopriv_user>, "user of V3NOPRIV"},
    {SectionType::SnmpCfg, "snmpcfg.nopriv_pwd", 76, 32, snmp<&snmpcfg_s::nopriv_pwd>,
     "authentication password of V3NOPRIV"},
    {SectionType::SnmpCfg, "snmpcfg.priv_user", 108, 32, snmp<&snmpcfg_s::priv_user>, "user of V3PRIV"},
    {SectionType::SnmpCfg, "snmpcfg.priv_pwd", 140, 32, snmp<&snmpcfg_s::priv_pwd>,
     "authentication password of V3PRIV"},
    {SectionType::SnmpCfg, "snmpcfg.priv_key", 172, 32, snmp<&snmpcfg_s::priv_key>, "privacy key of V3PRIV"},
    {SectionType::SnmpCfg, "snmpcfg.oid", 204, 32, snmp<&snmpcfg_s::oid>, "subtree for V1 and V2"},
    {SectionType::SnmpCfg, "snmpcfg.ro_oid", 236, 32, snmp<&snmpcfg_s::ro_oid>, "subtree for V3NOAUTH"},
    {SectionType::SnmpCfg, "snmpcfg.nopriv_oid", 268, 32, snmp<&snmpcfg_s::nopriv_oid>,
     "subtree for V3NOPRIV"},
    {SectionType::SnmpCfg, "snmpcfg.priv_oid", 300, 32, snmp<&snmpcfg_s::priv_oid>, "subtree for V3PRIV"},
    {SectionType::SnmpCfg, "snmpcfg.r7m_context", 332, 32, snmp<&snmpcfg_s::r7m_context>,
     "context at the controller's agent"},
    {SectionType::SnmpCfg, "snmpcfg.r7m_community", 364, 32, snmp<&snmpcfg_s::r7m_community>,
     "community at the controller's agent"},
    {SectionType::SnmpCfg, "snmpcfg.cli_engineid", 396, 32, snmp<&snmpcfg_s::cli_engineid>,
     "engine id for V3 traps"},
    {SectionType::SnmpCfg, "snmpcfg.cli_community", 428, 32, snmp<&snmpcfg_s::cli_community>,
     "community for V1 and V2 traps"},
    {SectionType::SnmpCfg, "snmpcfg.cli_user", 460, 32, snmp<&snmpcfg_s::cli_user>, "user for V3 traps"},
    {SectionType::SnmpCfg, "snmpcfg.cli_pwd", 492, 32, snmp<&snmpcfg_s::cli_pwd>,
     "authentication password for V3 traps"},
    {SectionType::SnmpCfg, "snmpcfg.cli_key", 524, 32, snmp<&snmpcfg_s::cli_key>, "privacy key for V3 traps"},
    {SectionType::SnmpCfg, "snmpcfg.port", 556, 2, snmp<&snmpcfg_s::port>, "UDP port of the agent"},
    {SectionType::SnmpCfg, "snmpcfg.port_trap", 558, 2, snmp<&snmpcfg_s::port_trap>,
     "UDP port of the trap destinations"},
    {SectionType::SnmpCfg, "snmpcfg.trap_addr1", 560, 4, snmp<&snmpcfg_s::trap_addr1>, "trap destination"},
    {SectionType::SnmpCfg, "snmpcfg.trap_addr2", 564, 4, snmp<&snmpcfg_s::trap_addr2>, "trap destination"},
    {SectionType::SnmpCfg, "snmpcfg.trap_addr3", 568, 4, snmp<&snmpcfg_s::trap_addr3>, "trap destination"},
    {SectionType::SnmpCfg, "snmpcfg.trap_addr4", 572, 4, snmp<&snmpcfg_s::trap_addr4>, "trap destination"},
    {SectionType::SnmpCfg, "snmpcfg.trap_addr5", 576, 4, snmp<&snmpcfg_s::trap_addr5>, "trap destination"},
    {SectionType::ModbusCfg, "modbuscfg.tcp_status", 4, 2, modbus<&modbuscfg_s::tcp_status>,
     "whether Modbus TCP is on"},
    {SectionType::ModbusCfg, "modbuscfg.tcp_port", 6, 2, modbus<&modbuscfg_s::tcp_port>, "its port"},
};

QString meaningOf(const SectionField& field, const QJsonValue& value)
{
    QString text = QLatin1String(field.meaning);
    if (field.words != nullptr) {
        const int code = value.toInt();
        text += QLatin1String(": ") +
                QLatin1String(code < field.words->count ? field.words->words[code] : field.words->others);
    }
    return text;
}

QVector<FrameField> coreFields(int at, const QList<core_tmp>& items)
{
    constexpr int headerSize = 8;
    QVector<FrameField> fields;
    for (const core_tmp& item : items) {
        fields +=
            {{QStringLiteral("core.class"), at, 2, int(item.ci_class), QStringLiteral("class of the value")},
             {QStringLiteral("core.field"), at + 2, 2, int(item.ci_field),
              QStringLiteral("field of the class")},
             {QStringLiteral("core.instance"), at + 4, 1, int(item.instance), QStringLiteral("instance")},
             {QStringLiteral("core.type"), at + 5, 1, int(item.ci_type),
              QStringLiteral("type code, as numbered by the mapping")},
             {QStringLiteral("core.datalen"), at + 6, 2, int(item.datalen),
              QStringLiteral("octets of the value")}};
        if (item.datalen > 0) {
            fields += {QStringLiteral("core.value"), at + headerSize, int(item.datalen),
                       QString::fromLatin1(item.baData.toHex()),
                       QStringLiteral("the value, most significant octet first")};
        }
        at += headerSize + item.datalen;
    }
    return fields;
}

} // namespace

QVector<FrameField> headerFields(const QByteArray& octets)
{
    struct HeaderField
    {
        const char* name;
        int offset;
        int width;
        const char* meaning;
    };
    constexpr int checksumSize = 2;
    constexpr HeaderField table[] = {
        {"magic", 0, 1, "0xce in every frame"},
        {"version", 1, 1, "1 in every frame"},
        {"payload_length", 2, 2, "octets of the frame less 4"},
        {"section_offset", 4, 2, "the first section begins 2 octets behind it"},
        {"section_count", 6, 2, "sections that follow"},
        {"seqno", 8, 4, "sequence number"},
        {"continuity", 12, 4, "0 while the controller starts"},
    };
    FieldReader reader(octets);
    QVector<FrameField> fields;
    for (const HeaderField& field : table) {
        if (field.offset + field.width > octets.size() - checksumSize) {
            break;
        }
        const quint32 value = field.width == 1   ? reader.u8(field.offset)
                              : field.width == 2 ? reader.u16(field.offset)
                                                 : reader.u32(field.offset);
        fields += {QLatin1String(field.name), field.offset, field.width, double(value),
                   QLatin1String(field.meaning)};
    }
    if (octets.size() >= checksumSize) {
        const int at = octets.size() - checksumSize;
        fields += {QStringLiteral("checksum"), at, checksumSize, int(reader.u16(at)),
                   QStringLiteral("CRC-16/KERMIT of all octets before it")};
    }
    return fields;
}

QVector<FrameField> sectionFields(const WalkedSection& section, const RlpFrame& frame,
                                  const QList<core_tmp>& items)
{
    constexpr int headerSize = 4;
    QVector<FrameField> fields{
        {QStringLiteral("section.type"), section.position, 2, int(section.type), sectionName(section.type)},
        {QStringLiteral("section.length"), section.position + 2, 2, int(section.length),
         QStringLiteral("octets of the section, these 4 included")}};
    if (!section.decoded) {
        return fields;
    }
    if (section.type == quint16(SectionType::Core)) {
        return fields + coreFields(section.position + headerSize, items);
    }
    for (const SectionField& field : sectionTable) {
        if (quint16(field.section) == section.type) {
            const QJsonValue value = field.value(frame);
            fields += {QLatin1String(field.name), section.position + field.offset, field.width, value,
                       meaningOf(field, value)};
        }
    }
    return fields;
}

QString sectionName(quint16 type)
{
    switch (SectionType(type)) { // no default: the compiler tells when a kind lacks its name
    case SectionType::DevInfo:
        return QStringLiteral("DevInfo");
    case SectionType::GpioState:
        return QStringLiteral("GpioState");
    case SectionType::SnmpCfg:
        return QStringLiteral("SnmpCfg");
    case SectionType::NetCfg:
        return QStringLiteral("NetCfg");
    case SectionType::Core:
        return QStringLiteral("Core");
    case SectionType::ModbusCfg:
        return QStringLiteral("ModbusCfg");
    }
    return QStringLiteral("unknown");
}

int sectionSize(quint16 type)
{
    const SectionKind* const kind = findSectionKind(type);
    return kind != nullptr ? kind->size : 0;
}
