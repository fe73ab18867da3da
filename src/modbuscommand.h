// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

#include "modbustypes.h"

class QJsonObject;

namespace Varnel {

/// The interface object of the server's start-up description for `mode` ("rtu" or "tcp"), from the parts of
/// the interface setting: device id, serial device, baud rate and character format, or listen address, port
/// and number of clients. A number that cannot be read counts as 0. False, after a log line, when the mode is
/// unknown or the setting has too few or too many parts.
[[nodiscard]] bool serverInterface(const QString& mode, const QString& setting, QJsonObject* result);

/// The command, as compact JSON, that gives the server the tables of `rawdata`. Every frame needs one, and a
/// tree of JSON values would cost several times the text, so the text is put together directly. It is byte
/// for byte what the JSON writer gives.
[[nodiscard]] QString updateCommand(const QVector<MbRawData_s>& rawdata);

} // namespace Varnel
