// SPDX-License-Identifier: MIT
#include "wirelayout.h"

namespace Simulator {

namespace {

using Kind = FieldKind;

std::vector<Field> snmpFields()
{
    return {
        {"version", 4, 1, Kind::Number, "2"},
        {"options", 5, 1, Kind::Number, "0"},
        {"nopriv_hash", 6, 1, Kind::Number, "1"},
        {"priv_hash", 7, 1, Kind::Number, "2"},
        {"priv_algo", 8, 1, Kind::Number, "2"},
        {"cli_mode", 9, 1, Kind::Number, "2"},
        {"cli_hash", 10, 1, Kind::Number, "2"},
        {"cli_algo", 11, 1, Kind::Number, "2"},
        {"ro_user", 12, 32, Kind::Text, "reader"},
        {"nopriv_user", 44, 32, Kind::Text, "operator"},
        {"nopriv_pwd", 76, 32, Kind::Text, "operator-pass"},
        {"priv_user", 108, 32, Kind::Text, "admin"},
        {"priv_pwd", 140, 32, Kind::Text, "admin-pass"},
        {"priv_key", 172, 32, Kind::Text, "admin-key"},
        {"oid", 204, 32, Kind::Text, ".1.3.6.1.4.1.53864"},
        {"ro_oid", 236, 32, Kind::Text, ".1.3.6.1.4.1.53864.1"},
        {"nopriv_oid", 268, 32, Kind::Text, ".1.3.6.1.4.1.53864.2"},
        {"priv_oid", 300, 32, Kind::Text, ".1.3.6.1.4.1.53864.3"},
        {"r7m_context", 332, 32, Kind::Text, "r7m"},
        {"r7m_community", 364, 32, Kind::Text, "public"},
        {"cli_engineid", 396, 32, Kind::Text, "0x8000d26803"},
        {"cli_community", 428, 32, Kind::Text, "traps"},
        {"cli_user", 460, 32, Kind::Text, "trapper"},
        {"cli_pwd", 492, 32, Kind::Text, "trapper-pass"},
        {"cli_key", 524, 32, Kind::Text, "trapper-key"},
        {"port", 556, 2, Kind::Number, "161"},
        {"port_trap", 558, 2, Kind::Number, "162"},
        {"trap_addr1", 560, 4, Kind::Address, "192.168.1.20"},
        {"trap_addr2", 564, 4, Kind::Address, "127.0.0.1"},
        {"trap_addr3", 568, 4, Kind::Address, "127.0.0.1"},
        {"trap_addr4", 572, 4, Kind::Address, "127.0.0.1"},
        {"trap_addr5", 576, 4, Kind::Address, "127.0.0.1"},
    };
}

std::vector<SectionLayout> buildLayouts()
{
    return {
        {"devinfo",
         0x10,
         28,
         {
             {"type", 4, 2, Kind::Number, "7"},
             {"hwmajor", 6, 2, Kind::Number, "2"},
             {"hwminor", 8, 2, Kind::Number, "1"},
             {"swmajor", 10, 2, Kind::Number, "3"},
             {"swminor", 12, 2, Kind::Number, "4"},
             {"swbuild", 14, 2, Kind::Number, "512"},
             {"serial", 16, 4, Kind::Number, "70012345"},
             {"lang", 20, 8, Kind::Text, "en"},
         }},
        {"gpiostate",
         0x20,
         8,
         {
             {"good", 4, 1, Kind::Output, "on"},
             {"warning", 5, 1, Kind::Output, "off"},
             {"critical", 6, 1, Kind::Output, "off"},
             {"buzzer", 7, 1, Kind::Output, "off"},
         }},
        {"netcfg",
         0x30,
         26,
         {
             {"varnel", 4, 1, Kind::Flag, "on"},
             {"dhcp", 5, 1, Kind::Flag, "off"},
             {"ip", 6, 4, Kind::Address, "192.168.1.10"},
             {"mask", 10, 4, Kind::Address, "255.255.255.0"},
             {"gateway", 14, 4, Kind::Address, "192.168.1.1"},
             {"dns1", 18, 4, Kind::Address, "192.168.1.1"},
             {"dns2", 22, 4, Kind::Address, "0.0.0.0"},
         }},
        {"snmpcfg", 0x40, 580, snmpFields()},
        {"modbuscfg",
         0x60,
         8,
         {
             {"tcp_status", 4, 2, Kind::Flag, "on"},
             {"tcp_port", 6, 2, Kind::Number, "502"},
         }},
    };
}

} // namespace

const std::vector<SectionLayout>& sectionLayouts()
{
    static const std::vector<SectionLayout> layouts = buildLayouts();
    return layouts;
}

const SectionLayout* findLayout(const QString& name)
{
    for (const SectionLayout& layout : sectionLayouts()) {
        if (name == QLatin1String(layout.name)) {
            return &layout;
        }
    }
    return nullptr;
}

} // namespace Simulator
