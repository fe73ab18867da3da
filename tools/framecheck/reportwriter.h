// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

#include "framereport.h"

/// Facts about a datagram besides the panel's verdict.
struct FrameOrigin
{
    qint64 number = 0;  ///< of the packet or frame, from 1
    double seconds = 0; ///< since the first one
    QString source;     ///< empty when unknown
    QString target;
};

/// One line about a frame: number, time, ends, length and verdict.
[[nodiscard]] QString headline(const FrameOrigin& origin, const FrameReport& report);

/// The panel's log lines, the octets with the wrong ones underlined, and what is wrong with them.
[[nodiscard]] QString faultText(const FrameReport& report);

/// Every field with its offset, octets, value and meaning.
[[nodiscard]] QString fieldText(const FrameReport& report);

/// All of it as one JSON object.
[[nodiscard]] QJsonObject asJson(const FrameOrigin& origin, const FrameReport& report);

/// Text from outside, without control characters for a terminal.
[[nodiscard]] QString printable(const QString& text);
