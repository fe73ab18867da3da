// SPDX-License-Identifier: MIT
#pragma once

namespace fuzz {

/// What an input for the Modbus server is, by its first octet modulo 8 ("0" to "4"); all others are requests.
enum ServerInput
{
    Init,
    Update,
    TcpStream,
    SerialLine,
    Request,
};

} // namespace fuzz
