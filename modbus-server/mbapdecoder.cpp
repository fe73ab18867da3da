// SPDX-License-Identifier: MIT
#include "mbapdecoder.h"

#include <QtEndian>

namespace Varnel {

namespace {

// Transaction (2), protocol (2), length (2), unit (1). The length counts the unit and the PDU, whose longest
// form is 253 octets: 256 of a serial frame less address and CRC.
constexpr int protocolAt = 2;
constexpr int lengthAt = 4;
constexpr int unitAt = 6;
constexpr int headerSize = 7;
constexpr int minLength = 2;
constexpr int maxLength = 254;

} // namespace

std::optional<MbapRequest> MbapDecoder::next()
{
    if (broken || buffer.size() < headerSize) {
        return std::nullopt;
    }
    const char* octets = buffer.constData();
    const int protocol = qFromBigEndian<quint16>(octets + protocolAt);
    const int length = qFromBigEndian<quint16>(octets + lengthAt);
    if (protocol != 0 || length < minLength || length > maxLength) {
        broken = true;
        buffer.clear();
        return std::nullopt;
    }
    const int pduSize = length - 1;
    if (buffer.size() < headerSize + pduSize) {
        return std::nullopt;
    }
    MbapRequest request;
    request.transaction = qFromBigEndian<quint16>(octets);
    request.unit = static_cast<quint8>(buffer.at(unitAt));
    request.pdu = buffer.mid(headerSize, pduSize);
    buffer.remove(0, headerSize + pduSize);
    return request;
}

QByteArray mbapResponse(const MbapRequest& request, const QByteArray& pdu)
{
    QByteArray header(headerSize, '\0');
    qToBigEndian(request.transaction, header.data());
    qToBigEndian(static_cast<quint16>(pdu.size() + 1), header.data() + lengthAt);
    header[unitAt] = static_cast<char>(request.unit);
    return header + pdu;
}

} // namespace Varnel
