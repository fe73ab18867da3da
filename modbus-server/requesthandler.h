// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include "registerstore.h"

namespace Varnel {

/// Answers one request PDU (function code and data, no addressing, no checksum) from `store`. Pure; it
/// accepts any octets; an empty request gives an empty answer.
///
/// Function codes 3 and 4 read the registers. 1 and 2 read the same addresses as bits: a bit is set when the
/// register's word is not 0, which is what a "bool" register means. Everything else, including all writes, is
/// answered with exception 01. The order of the checks is that of the Modbus application protocol: function
/// (01), quantity or malformed data (03), address (02), then age (04).
[[nodiscard]] QByteArray answerRequest(const QByteArray& pdu, const RegisterStore& store,
                                       RegisterStore::Clock::time_point now);

} // namespace Varnel
