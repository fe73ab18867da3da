// SPDX-License-Identifier: MIT
// The precision or range that a value loses between controller and register, by the documented encodings.
#include "mapchecker.h"

#include <algorithm>
#include <iterator>

#include "mappingtexts.h"

using Varnel::MbType_s;

namespace {

bool isSigned(const MbType_s& type)
{
    return type.name.startsWith(QLatin1String("int"));
}

bool isWhole(const MbType_s& type)
{
    return type.name.contains(QLatin1String("int"));
}

bool isNumber(const MbType_s& type)
{
    return isWhole(type) || type.name == QLatin1String("float");
}

/// One way in which a value changes when it is sent as one type and shown as another.
struct Loss
{
    bool (*happens)(const MbType_s& sent, const MbType_s& shown);
    const char* text; ///< %1: the type it is sent in, %2: the register's, %3: bits of the register's
};

constexpr Loss losses[] = {
    {[](const MbType_s& sent, const MbType_s& shown) {
         return isWhole(sent) && isWhole(shown) && sent.byteSize > shown.byteSize;
     },
     "%1 is cut to the %3 bits of %2"},
    {[](const MbType_s& sent, const MbType_s&) { return isSigned(sent) && sent.byteSize == 4; },
     "negative values of %1 arrive as 0"},
    {[](const MbType_s& sent, const MbType_s& shown) {
         return isSigned(sent) && sent.byteSize < 4 && isWhole(shown) && !isSigned(shown);
     },
     "negative values of %1 show as large numbers of %2"},
    {[](const MbType_s& sent, const MbType_s& shown) {
         return sent.name == QLatin1String("string") && isNumber(shown);
     },
     "a %1 that is no number shows as 0"},
};

const char* const adviceText = "; add a \"note\" to the register if that is meant";

} // namespace

/// The "note" of a register is assumed to mention the loss.
void MapChecker::checkEncoding(const Definition& reg)
{
    const auto typeOf = [&](const char* member) {
        const QString name = reg.members.value(QLatin1String(member)).toString();
        return bridge->GetCiTypeList().value(bridge->GetCiTypeLookup().value(name));
    };
    if (faultyRegisters.contains(reg.index) ||
        !reg.members.value(QLatin1String("note")).toString().isEmpty()) {
        return;
    }
    const MbType_s sent = typeOf("ci_type");
    const MbType_s shown = typeOf("mb_type");
    if (sent.name == QLatin1String("float")) {
        silentFloats.append(reg.index);
    }
    const auto* const loss = std::find_if(std::begin(losses), std::end(losses), [&](const Loss& candidate) {
        return candidate.happens(sent, shown);
    });
    if (loss != std::end(losses)) {
        QString text = QLatin1String(loss->text);
        text.replace(QLatin1String("%1"), sent.name);
        text.replace(QLatin1String("%2"), shown.name);
        text.replace(QLatin1String("%3"), QString::number(8 * shown.byteSize));
        warning(registerPath(reg.index) / QStringLiteral("ci_type"),
                registerName(reg.members) + QLatin1String(": ") + text + QLatin1String(adviceText));
    }
}

/// That floats are sent as text is one finding, for any number of registers.
void MapChecker::checkFloats()
{
    if (silentFloats.isEmpty()) {
        return;
    }
    const int index = silentFloats.first();
    const QJsonObject reg = mapping.value(QLatin1String("registers")).toArray().at(index).toObject();
    const int others = silentFloats.size() - 1;
    warning(registerPath(index) / QStringLiteral("ci_type"),
            registerName(reg) + (others > 0 ? QStringLiteral(" and %1 more").arg(others) : QString()) +
                QStringLiteral(": a float has to be sent as decimal text, its IEEE 754 octets arrive as 0") +
                QLatin1String(adviceText));
}
