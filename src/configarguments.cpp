// SPDX-License-Identifier: MIT
#include "configarguments.h"

#include <tuple>

namespace Varnel {

namespace {

QString decimal(unsigned value)
{
    return QString::number(value);
}

QString flag(bool value)
{
    return value ? QStringLiteral("1") : QStringLiteral("0");
}

/// The security words at the end of an agent call, by the agent's own fields.
QStringList agentSecurity(const snmpcfg_s& cfg)
{
    switch (cfg.version) {
    case 1:
        return {cfg.oid, QStringLiteral("V1")};
    case 2:
        return {cfg.oid, QStringLiteral("V2")};
    case 3:
        return {cfg.ro_oid, QStringLiteral("V3NOAUTH"), cfg.ro_user};
    case 4:
        return {cfg.nopriv_oid, QStringLiteral("V3NOPRIV"), cfg.nopriv_user, decode_hash(cfg.nopriv_hash),
                cfg.nopriv_pwd};
    case 5:
        return {cfg.priv_oid, QStringLiteral("V3PRIV"),   cfg.priv_user, decode_hash(cfg.priv_hash),
                cfg.priv_pwd, decode_algo(cfg.priv_algo), cfg.priv_key};
    default:
        return {};
    }
}

/// The security words at the end of a trap call, by the fields of the trap client.
QStringList trapSecurity(const snmpcfg_s& cfg)
{
    switch (cfg.cli_mode) {
    case 1:
        return {QStringLiteral("V1"), cfg.cli_community};
    case 2:
        return {QStringLiteral("V2"), cfg.cli_community};
    case 3:
        return {QStringLiteral("V3NOAUTH"), cfg.cli_engineid, cfg.cli_user};
    case 4:
        return {QStringLiteral("V3NOPRIV"), cfg.cli_engineid, cfg.cli_user, decode_hash(cfg.cli_hash),
                cfg.cli_pwd};
    case 5:
        return {
            QStringLiteral("V3PRIV"),  cfg.cli_engineid, cfg.cli_user, decode_hash(cfg.cli_hash), cfg.cli_pwd,
            decode_algo(cfg.cli_algo), cfg.cli_key};
    default:
        return {};
    }
}

QStringList trapArguments(const QString& verb, const QHostAddress& destination, const snmpcfg_s& cfg)
{
    return QStringList{verb, destination.toString(), decimal(cfg.port_trap)} + trapSecurity(cfg);
}

auto comparedFields(const netcfg_s& c)
{
    return std::tie(c.varnel, c.dhcp, c.ip, c.mask, c.gateway, c.dns1, c.dns2);
}

auto comparedFields(const snmpcfg_s& c)
{
    return std::tie(c.version, c.nopriv_hash, c.priv_hash, c.priv_algo, c.cli_hash, c.cli_mode, c.cli_algo,
                    c.ro_user, c.nopriv_user, c.nopriv_pwd, c.priv_user, c.priv_pwd, c.priv_key, c.oid,
                    c.ro_oid, c.nopriv_oid, c.priv_oid, c.r7m_context, c.r7m_community, c.cli_engineid,
                    c.cli_community, c.cli_user, c.cli_pwd, c.cli_key, c.port, c.port_trap, c.trap_addr1,
                    c.trap_addr2, c.trap_addr3, c.trap_addr4, c.trap_addr5);
}

auto comparedFields(const modbuscfg_s& c)
{
    return std::tie(c.tcp_status, c.tcp_port);
}

} // namespace

QString decode_hash(quint8 hash)
{
    switch (hash) {
    case 1:
        return QStringLiteral("MD5");
    case 2:
        return QStringLiteral("SHA");
    default:
        return QStringLiteral("UNDEF");
    }
}

QString decode_algo(quint8 algo)
{
    switch (algo) {
    case 1:
        return QStringLiteral("DES");
    case 2:
        return QStringLiteral("AES");
    default:
        return QStringLiteral("UNDEF");
    }
}

QStringList netCfgArguments(const netcfg_s& cfg)
{
    if (cfg.dhcp) {
        return {QStringLiteral("dhcp")};
    }
    QStringList arguments{QStringLiteral("static"), cfg.ip.toString(), cfg.mask.toString(),
                          cfg.gateway.toString()};
    for (const QHostAddress& server : {cfg.dns1, cfg.dns2}) {
        if (!server.isNull()) {
            arguments << server.toString();
        }
    }
    return arguments;
}

QStringList snmpAgentArguments(const snmpcfg_s& cfg, const QHostAddress& controller)
{
    return QStringList{controller.toString(), decimal(cfg.port), cfg.r7m_context, cfg.r7m_community} +
           agentSecurity(cfg);
}

QStringList snmpTrapInitArguments(const snmpcfg_s& cfg)
{
    return trapArguments(QStringLiteral("init"), cfg.trap_addr1, cfg);
}

QList<QStringList> snmpTrapAddArguments(const snmpcfg_s& cfg)
{
    QList<QStringList> calls;
    for (const QHostAddress& destination :
         {cfg.trap_addr1, cfg.trap_addr2, cfg.trap_addr3, cfg.trap_addr4, cfg.trap_addr5}) {
        if (!destination.isNull() && destination != QHostAddress(QHostAddress::LocalHost)) {
            calls << trapArguments(QStringLiteral("add"), destination, cfg);
        }
    }
    return calls;
}

QStringList modbusCfgArguments(const modbuscfg_s& cfg)
{
    return {flag(cfg.tcp_status), decimal(cfg.tcp_port)};
}

QStringList registrationArguments(const QHostAddress& controller, const devinfo_s& devinfo,
                                  const snmpcfg_s& snmpcfg, const modbuscfg_s& modbuscfg)
{
    return {QStringLiteral("add"),       controller.toString(),      decimal(devinfo.type),
            decimal(snmpcfg.port),       decimal(snmpcfg.port_trap), flag(modbuscfg.tcp_status),
            decimal(modbuscfg.tcp_port), decimal(devinfo.swbuild)};
}

QStringList removalArguments(const QHostAddress& controller, const devinfo_s& devinfo,
                             const snmpcfg_s& snmpcfg)
{
    return {QStringLiteral("delete"), controller.toString(),      decimal(devinfo.type),
            decimal(snmpcfg.port),    decimal(snmpcfg.port_trap), decimal(devinfo.swbuild)};
}

bool configDiffers(const netcfg_s& kept, const netcfg_s& now)
{
    return kept.resetcfg || comparedFields(kept) != comparedFields(now);
}

bool configDiffers(const snmpcfg_s& kept, const snmpcfg_s& now)
{
    return kept.resetcfg || comparedFields(kept) != comparedFields(now);
}

bool configDiffers(const modbuscfg_s& kept, const modbuscfg_s& now)
{
    return kept.resetcfg || comparedFields(kept) != comparedFields(now);
}

} // namespace Varnel
