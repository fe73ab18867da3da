// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>

namespace Varnel {

/// One request of a Modbus/TCP client.
struct MbapRequest
{
    quint16 transaction = 0;
    quint8 unit = 0;
    QByteArray pdu;
};

/// Cuts one client's octet stream into requests. Keeps at most the octets appended since the last complete
/// request; the caller limits what it appends.
class MbapDecoder
{
public:
    void append(const QByteArray& octets) { buffer += octets; }

    /// The next complete request, or nothing when more octets are needed or the stream is broken.
    std::optional<MbapRequest> next();

    /// True once a header was not a Modbus/TCP header. The next request cannot be found then, so the caller
    /// has to close the connection.
    [[nodiscard]] bool isBroken() const { return broken; }

    /// Octets waiting for their request to become complete.
    [[nodiscard]] int pending() const { return buffer.size(); }

private:
    QByteArray buffer;
    bool broken = false;
};

/// The frame that answers `request` with `pdu`: the same transaction and unit, protocol 0.
[[nodiscard]] QByteArray mbapResponse(const MbapRequest& request, const QByteArray& pdu);

} // namespace Varnel
