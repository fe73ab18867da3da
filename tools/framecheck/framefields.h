// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

#include "framereport.h"
#include "rlpdecoder.h"

/// The fields of the frame header that are there, and the checksum.
[[nodiscard]] QVector<FrameField> headerFields(const QByteArray& octets);

/// The fields of one section: its header, and, if it was decoded, what the decoder's records say. `items` are
/// those of the decoder's last Core section.
[[nodiscard]] QVector<FrameField> sectionFields(const Varnel::WalkedSection& section,
                                                const Varnel::RlpFrame& frame,
                                                const QList<Varnel::core_tmp>& items);

/// "GpioState" for 0x20; "unknown" for what is no section type.
[[nodiscard]] QString sectionName(quint16 type);

/// The length that a section of this type must have; 0 where it has no fixed one.
[[nodiscard]] int sectionSize(quint16 type);
