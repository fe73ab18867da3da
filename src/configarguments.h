// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include "rlprecords.h"

namespace Varnel {

/// The word for a hash code of the controller: "MD5" for 1, "SHA" for 2, "UNDEF" otherwise.
QString decode_hash(quint8 hash);
/// The word for a cipher code of the controller: "DES" for 1, "AES" for 2, "UNDEF" otherwise.
QString decode_algo(quint8 algo);

/// Argument lists of the configuration scripts, each a pure function of the records. Texts of the controller
/// are passed unchanged: they are arguments of a program, never shell text.
[[nodiscard]] QStringList netCfgArguments(const netcfg_s& cfg);
[[nodiscard]] QStringList snmpAgentArguments(const snmpcfg_s& cfg, const QHostAddress& controller);
/// The first trap call; it names trap_addr1 whether or not that address becomes a destination.
[[nodiscard]] QStringList snmpTrapInitArguments(const snmpcfg_s& cfg);
/// One list for each trap destination. A null address and 127.0.0.1 are skipped, 0.0.0.0 is not.
[[nodiscard]] QList<QStringList> snmpTrapAddArguments(const snmpcfg_s& cfg);
[[nodiscard]] QStringList modbusCfgArguments(const modbuscfg_s& cfg);
/// "add" of the registration script.
[[nodiscard]] QStringList registrationArguments(const QHostAddress& controller, const devinfo_s& devinfo,
                                                const snmpcfg_s& snmpcfg, const modbuscfg_s& modbuscfg);
/// "delete" of the registration script.
[[nodiscard]] QStringList removalArguments(const QHostAddress& controller, const devinfo_s& devinfo,
                                           const snmpcfg_s& snmpcfg);

/// Whether `now` is to be applied: the resetcfg flag of `kept` is set, or a compared field differs.
[[nodiscard]] bool configDiffers(const netcfg_s& kept, const netcfg_s& now);
/// The options octet is not compared: the controller toggles it at run time without a new configuration.
[[nodiscard]] bool configDiffers(const snmpcfg_s& kept, const snmpcfg_s& now);
[[nodiscard]] bool configDiffers(const modbuscfg_s& kept, const modbuscfg_s& now);

} // namespace Varnel
