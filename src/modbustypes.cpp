// SPDX-License-Identifier: MIT
#include "modbustypes.h"

#include <algorithm>
#include <vector>

#include <QLatin1String>

namespace Varnel {

const MbTypeRow& typeRow(const QString& member)
{
    const auto row = [](const char* name, const MbType_s& type, const QStringList& aliases) {
        return MbTypeRow{QLatin1String(name), type, aliases};
    };
    const auto text = [](const char* name) { return QString(QLatin1String(name)); };
    static const std::vector<MbTypeRow> rows = {
        row("bool", {text("bool"), 1, 1, 1}, {text("bool"), text("boolean")}),
        row("u8", {text("uint8"), 1, 1, 1}, {text("u8"), text("uint8")}),
        row("s8", {text("int8"), 1, 1, 1}, {text("s8"), text("sint8"), text("int8")}),
        row("u16", {text("uint16"), 2, 1, 1}, {text("u16"), text("uint16")}),
        row("s16", {text("int16"), 2, 1, 1}, {text("s16"), text("sint16"), text("int16")}),
        row("u32", {text("uint32"), 4, 1, 2}, {text("u32"), text("uint32")}),
        row("s32", {text("int32"), 4, 1, 2}, {text("s32"), text("sint32"), text("int32")}),
        row("float", {text("float"), 4, 1, 2}, {text("float"), text("float32")}),
        row("string", {text("string"), 0, 1, 0}, {text("string"), text("str")}),
        row("struct", {text("struct"), 0, 1, 0}, {text("struct")}),
    };
    static const MbTypeRow unknown = row("", {text("undef"), 0, 0, 0}, {text("undef")});
    const auto found = std::find_if(rows.cbegin(), rows.cend(),
                                    [&](const MbTypeRow& known) { return known.member == member; });
    return found != rows.cend() ? *found : unknown;
}

} // namespace Varnel
