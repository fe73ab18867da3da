// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

#include "logrecorder.h"
#include "rlpdecoder.h"

/// The decoder with the state that its owner keeps for it.
class ExposedDecoder : public Varnel::RlpDecoder
{
public:
    using RlpDecoder::hasPacketSender;
    using RlpDecoder::lastSeqno;
    using RlpDecoder::m_itemList;
    using RlpDecoder::packetSender;
};

/// The result for one datagram.
struct Outcome
{
    bool accepted = false;
    Varnel::RlpDecoder::Header header;
    Varnel::RlpFrame frame;
    QByteArray remaining; ///< the datagram as the checks left it
    QStringList log;

    /// The kinds of section that decoded, in the order in which they are applied.
    QStringList decoded() const
    {
        const std::pair<bool, const char*> kinds[] = {
            {frame.hasDevInfo, "DevInfo"}, {frame.hasGpioState, "GpioState"},
            {frame.hasSnmpCfg, "SnmpCfg"}, {frame.hasNetCfg, "NetCfg"},
            {frame.hasCore, "Core"},       {frame.hasModbusCfg, "ModbusCfg"},
        };
        QStringList names;
        for (const auto& [has, name] : kinds) {
            if (has) {
                names << QString::fromLatin1(name);
            }
        }
        return names;
    }
};

/// Checks `datagram`, and walks its sections if it is accepted.
inline Outcome receive(ExposedDecoder& decoder, const QByteArray& datagram,
                       const QHostAddress& sender = QHostAddress(QStringLiteral("192.168.7.2")))
{
    // A buffer of its own, as small as the datagram, so that the sanitizer sees a read past its end.
    QByteArray data(datagram.constData(), datagram.size());
    data.squeeze();
    Outcome outcome;
    const LogRecorder log;
    outcome.accepted = decoder.checkFrame(&data, sender, &outcome.header);
    if (outcome.accepted) {
        decoder.walkSections(data, outcome.header, &outcome.frame);
    }
    outcome.remaining = data;
    outcome.log = log.texts();
    return outcome;
}
