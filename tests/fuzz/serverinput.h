// SPDX-License-Identifier: MIT
#pragma once

namespace fuzz {

/// The kinds of input for the Modbus server, by the first byte modulo 8 ("0" to "4"); all others are
/// requests.
enum ServerInput
{
    Init,
    Update,
    TcpStream,
    SerialLine,
    Request,
};

} // namespace fuzz
