// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>

namespace Varnel {

/// CRC-16/MODBUS: polynomial 0x8005 reflected, start 0xFFFF, no final XOR; "123456789" gives 0x4B37.
[[nodiscard]] quint16 modbusCrc(const QByteArray& octets);

/// The serial frame of `pdu` for or from the device `address`; the CRC's low octet goes first.
[[nodiscard]] QByteArray rtuFrame(quint8 address, const QByteArray& pdu);

/// Finds the requests for one device in the data of a serial line.
///
/// A frame carries no length. Only the silence around it marks its end, and a program behind a driver or a
/// USB adapter sees silence late or not at all. So the decoder recognises frames by their contents: requests
/// and answers of the common function codes have a known length, and the CRC confirms it. Silence only drops
/// unrecognised data and ends frames of unknown length.
class RtuDecoder
{
public:
    explicit RtuDecoder(quint8 deviceId)
        : deviceId(deviceId)
    {
    }

    /// Takes octets as they arrive. Returns the PDU of a request for this device once it is complete. A
    /// master asks again only after an answer or a time-out, so one call has at most one request to answer:
    /// the last.
    std::optional<QByteArray> receive(const QByteArray& octets);

    /// The line has been silent. Returns the PDU if the remaining data is one whole frame for this device.
    std::optional<QByteArray> silence();

    /// True while octets wait for the rest of their frame.
    [[nodiscard]] bool isPending() const { return !buffer.isEmpty(); }

private:
    /// A frame at the start of the buffer; length 0 is none.
    struct Shape
    {
        int length = 0;
        bool isRequest = false;
    };

    [[nodiscard]] Shape recognise() const;
    std::optional<QByteArray> requestAtEnd();

    QByteArray buffer;
    quint8 deviceId = 0;
};

} // namespace Varnel
