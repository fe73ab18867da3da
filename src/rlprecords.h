// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QString>

namespace Varnel {

/// The controller's description of itself (DevInfo section).
struct devinfo_s
{
    quint16 type = 0;
    quint16 hwmajor = 0;
    quint16 hwminor = 0;
    quint16 swmajor = 0;
    quint16 swminor = 0;
    quint16 swbuild = 0;
    quint32 serial = 0;
    QString lang; ///< language code of the web interface; empty when the controller sends none
};

/// Commands for the LEDs and the buzzer (GpioState section): 0 off, 1 on, 2 slow blink, 3 fast blink.
struct gpiostate_s
{
    quint8 good = 0;     ///< green LED
    quint8 warning = 0;  ///< yellow LED
    quint8 critical = 0; ///< red LED
    quint8 buzzer = 0;
};

/// The panel's own network settings (NetCfg section).
struct netcfg_s
{
    bool resetcfg = false; ///< not on the wire: apply the next record of this kind whatever it holds
    bool varnel = false;   ///< false: the controller leaves the panel's network alone
    bool dhcp = false;
    QHostAddress ip;
    QHostAddress mask;
    QHostAddress gateway;
    QHostAddress dns1;
    QHostAddress dns2;
};

/// SNMP agent and trap settings (SnmpCfg section).
struct snmpcfg_s
{
    bool resetcfg = false; ///< as in netcfg_s
    quint8 version = 0;    ///< security mode of the agent, 1 to 5
    quint8 options = 0;
    quint8 nopriv_hash = 0;
    quint8 priv_hash = 0;
    quint8 priv_algo = 0;
    quint8 cli_hash = 0;
    quint8 cli_mode = 0; ///< security mode of the traps, 1 to 5
    quint8 cli_algo = 0;
    QString ro_user;
    QString nopriv_user;
    QString nopriv_pwd;
    QString priv_user;
    QString priv_pwd;
    QString priv_key;
    QString oid;
    QString ro_oid;
    QString nopriv_oid;
    QString priv_oid;
    QString r7m_context;
    QString r7m_community;
    QString cli_engineid;
    QString cli_community;
    QString cli_user;
    QString cli_pwd;
    QString cli_key;
    quint16 port = 0;      ///< UDP port of the agent
    quint16 port_trap = 0; ///< UDP port of the trap destinations
    QHostAddress trap_addr1;
    QHostAddress trap_addr2;
    QHostAddress trap_addr3;
    QHostAddress trap_addr4;
    QHostAddress trap_addr5;
};

/// Modbus TCP server settings (ModbusCfg section).
struct modbuscfg_s
{
    bool resetcfg = false; ///< as in netcfg_s
    bool tcp_status = false;
    quint16 tcp_port = 0;
};

/// One value of the controller (item of a Core section).
struct core_tmp
{
    quint16 ci_class = 0;
    quint16 ci_field = 0;
    quint8 instance = 0;
    quint8 ci_type = 0;
    quint16 datalen = 0; ///< octets of the value on the wire
    QByteArray baData;   ///< the value, most significant octet first
};

} // namespace Varnel
