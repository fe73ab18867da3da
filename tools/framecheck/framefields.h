// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include "framereport.h"
#include "rlpdecoder.h"

/// The fields of the frame header, as far as the frame has them, and the checksum.
[[nodiscard]] QVector<FrameField> headerFields(const QByteArray& octets);

/// The fields of one section: its header and, if it was decoded, those of the decoder's records. `items` are
/// those of the decoder's last Core section.
[[nodiscard]] QVector<FrameField> sectionFields(const Varnel::WalkedSection& section,
                                                const Varnel::RlpFrame& frame,
                                                const QList<Varnel::core_tmp>& items);

/// "GpioState" for 0x20; "unknown" for an unknown type.
[[nodiscard]] QString sectionName(quint16 type);

/// The length that a section of this type must have; 0 if it has no fixed length.
[[nodiscard]] int sectionSize(quint16 type);
