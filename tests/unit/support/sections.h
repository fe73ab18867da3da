// SPDX-License-Identifier: MIT
#pragma once

#include "framebuilder.h"
#include "hex.h"

/// Sections of every kind with plain values, put together field by field.

inline QByteArray devInfoSection(quint16 type = 7, quint16 build = 42, const QByteArray& language = "")
{
    return section(0x10, littleEndian16(type) + hex("01 00 | 02 00 | 03 00 | 04 00") + littleEndian16(build) +
                             hex("78 56 34 12") + textField(language, 8));
}

inline QByteArray gpioSection(quint8 good, quint8 warning, quint8 critical, quint8 buzzer)
{
    return section(0x20, QByteArray(1, char(good)) + char(warning) + char(critical) + char(buzzer));
}

/// 192.168.1.10/24 by 192.168.1.1, name servers 192.168.1.2 and .3.
inline QByteArray netCfgSection(bool varnel = true, bool dhcp = false)
{
    return section(0x30, QByteArray(1, char(varnel)) + char(dhcp) +
                             hex("c0 a8 01 0a | ff ff ff 00 | c0 a8 01 01 | c0 a8 01 02 | c0 a8 01 03"));
}

/// Every text is the name of its field; the traps go to 10.0.0.1 to 10.0.0.5. Hash codes are SHA for the
/// encrypted user and the trap client, MD5 for the other; the ciphers DES and AES.
inline QByteArray snmpCfgSection(quint8 version = 1, quint8 clientMode = 1)
{
    static const char* const texts[] = {
        "ro_user",      "nopriv_user",   "nopriv_pwd", "priv_user", "priv_pwd", "priv_key",
        "oid",          "ro_oid",        "nopriv_oid", "priv_oid",  "context",  "community",
        "cli_engineid", "cli_community", "cli_user",   "cli_pwd",   "cli_key"};
    QByteArray body =
        QByteArray(1, char(version)) + hex("00 | 01 | 02 | 01") + char(clientMode) + hex("02 | 02");
    for (const char* const text : texts) {
        body += textField(text, 32);
    }
    body += littleEndian16(1161) + littleEndian16(1162);
    for (char host = 1; host <= 5; ++host) {
        body += hex("0a 00 00") + host;
    }
    return section(0x40, body);
}

inline QByteArray modbusCfgSection(bool status = true, quint16 port = 502)
{
    return section(0x60, littleEndian16(status ? 1 : 0) + littleEndian16(port));
}
