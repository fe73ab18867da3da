// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QList>

#include "harness.h"
#include "rlprecords.h"

namespace fuzz {

/// The items behind the mapping's text and a NUL: class, field, instance, type, and the value with its length
/// in one octet.
inline QList<Varnel::core_tmp> readItems(const QByteArray& octets)
{
    QList<Varnel::core_tmp> items;
    Input input(reinterpret_cast<const uint8_t*>(octets.constData()), size_t(octets.size()));
    while (!input.isEmpty() && items.size() < 200) {
        Varnel::core_tmp item;
        item.ci_class = input.u16();
        item.ci_field = input.u16();
        item.instance = input.u8();
        item.ci_type = input.u8();
        item.baData = input.take(input.u8());
        item.datalen = static_cast<quint16>(item.baData.size());
        items.append(item);
    }
    return items;
}

inline QByteArray writeItems(const QList<Varnel::core_tmp>& items)
{
    QByteArray octets;
    for (const Varnel::core_tmp& item : items) {
        for (const quint16 number : {item.ci_class, item.ci_field}) {
            octets += char(number & 0xFFU);
            octets += char(number >> 8U);
        }
        octets += char(item.instance);
        octets += char(item.ci_type);
        octets += char(qMin(255, item.baData.size()));
        octets += item.baData.left(255);
    }
    return octets;
}

} // namespace fuzz
