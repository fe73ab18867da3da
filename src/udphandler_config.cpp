// SPDX-License-Identifier: MIT
// UdpHandler's scripts: registration of the controller and the three configurations that it sends.
#include "udphandler.h"

#include <QtDebug>

#include "configarguments.h"
#include "scriptrunner.h"

namespace Varnel {

namespace {

const QString registrationScript = QStringLiteral("r7m.sh");
const QString netCfgScript = QStringLiteral("netcfg.sh");
const QString snmpControlScript = QStringLiteral("snmpctl.sh");
const QString snmpAgentScript = QStringLiteral("snmpcfg.sh");
const QString snmpTrapScript = QStringLiteral("snmptrap.sh");
const QString modbusCfgScript = QStringLiteral("modbuscfg.sh");

/// Applies `now` if it differs from `kept`, after one log line, and keeps it in either case.
template<typename Config>
void useConfig(UdpHandler* handler, const Config& now, Config* kept, const char* changedWords,
               bool (UdpHandler::*isChanged)(const Config&) const, bool (UdpHandler::*apply)(const Config&))
{
    if ((handler->*isChanged)(now)) {
        qDebug() << changedWords;
        (handler->*apply)(now);
    }
    *kept = now;
}

} // namespace

void UdpHandler::useSnmpCfg(const RlpFrame& frame)
{
    useConfig(this, *frame.snmpcfg, &last_snmpcfg, "Snmpcfg changed !", &UdpHandler::isSnmpCfgChanged,
              &UdpHandler::applySnmpCfg);
}

void UdpHandler::useNetCfg(const RlpFrame& frame)
{
    useConfig(this, *frame.netcfg, &last_netcfg, "Netcfg changed !", &UdpHandler::isNetCfgChanged,
              &UdpHandler::applyNetCfg);
}

void UdpHandler::useModbusCfg(const RlpFrame& frame)
{
    useConfig(this, frame.modbuscfg, &last_modbuscfg, "Modbuscfg changed !", &UdpHandler::isModbusCfgChanged,
              &UdpHandler::applyModbusCfg);
}

void UdpHandler::addR7M()
{
    if (packetSender.isNull()) {
        return;
    }
    qDebug() << "Add R7M";
    runScriptOrLog(scriptPath(registrationScript),
                   registrationArguments(packetSender, last_devinfo, last_snmpcfg, last_modbuscfg));
}

void UdpHandler::removeR7M()
{
    qDebug() << "Remove R7M";
    runScriptOrLog(scriptPath(registrationScript),
                   removalArguments(packetSender, last_devinfo, last_snmpcfg));
}

bool UdpHandler::isNetCfgChanged(const netcfg_s& cfg) const
{
    return configDiffers(last_netcfg, cfg);
}

bool UdpHandler::isSnmpCfgChanged(const snmpcfg_s& cfg) const
{
    return configDiffers(last_snmpcfg, cfg);
}

bool UdpHandler::isModbusCfgChanged(const modbuscfg_s& cfg) const
{
    return configDiffers(last_modbuscfg, cfg);
}

bool UdpHandler::applyNetCfg(const netcfg_s& cfg)
{
    qDebug() << "NetCfg, hasVarnel? " << cfg.varnel;
    if (!cfg.varnel) {
        qDebug() << "Reject new network config";
        return false;
    }
    qDebug() << "Apply new network config";
    removeR7M(); // the panel's own address may change, so the controller is registered again afterwards
    runScriptOrLog(scriptPath(netCfgScript), netCfgArguments(cfg));
    addR7M();
    return true;
}

bool UdpHandler::applySnmpCfg(const snmpcfg_s& cfg)
{
    const QString control = scriptPath(snmpControlScript);
    const QString agent = scriptPath(snmpAgentScript);
    const QString trap = scriptPath(snmpTrapScript);
    if (!isRunnableScript(control) || !isRunnableScript(agent) || !isRunnableScript(trap)) {
        qDebug() << "Missing script";
        return false;
    }
    qDebug() << "Apply new snmp config";

    const QStringList reset{QStringLiteral("init")};
    qDebug() << control;
    for (const QString& argument : reset) {
        qDebug() << argument;
    }
    runScript(control, reset);

    const QStringList agentArguments = snmpAgentArguments(cfg, packetSender);
    qDebug() << agent;
    for (int i = 0; i < agentArguments.size(); ++i) {
        qDebug() << "[" << i << "] = '" << agentArguments.at(i) << "'";
    }
    runScript(agent, agentArguments);

    runScript(trap, snmpTrapInitArguments(cfg));
    const QList<QStringList> destinations = snmpTrapAddArguments(cfg);
    for (const QStringList& destination : destinations) {
        runScript(trap, destination);
    }
    runScript(control, {QStringLiteral("apply")});
    return true;
}

bool UdpHandler::applyModbusCfg(const modbuscfg_s& cfg)
{
    qDebug() << "Apply new modbus config";
    runScriptOrLog(scriptPath(modbusCfgScript), modbusCfgArguments(cfg));
    return true;
}

} // namespace Varnel
