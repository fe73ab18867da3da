// SPDX-License-Identifier: MIT
// Mappings are changed as JSON, and items are made for the coordinates that the mapping names.
#include <cstring>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include "jsonmutator.h"
#include "mapinput.h"
#include "mappingfile.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

QStringList words()
{
    return QStringLiteral(
               "bool boolean u8 uint8 s8 int8 u16 uint16 s16 int16 u32 uint32 s32 int32 float float32 string "
               "str struct undef UINT16 c f g r w rw id name mb_type ci_class ci_field ci_index ci_type "
               "default mode address registers tables ci types classes fields info mapping date target")
        .split(QLatin1Char(' '));
}

QByteArray plainMapping()
{
    return mappingText(registerText(1, "u16", "u16") + ',' + registerText(2, "u32", "u32", 1),
                       tableText(100, "1, -2, 2"));
}

/// A value of one of the mapping's coordinates, or nearly.
Varnel::core_tmp anyItem(fuzz::JsonMutator* chance, const QJsonObject& mapping)
{
    const QJsonObject ci = mapping[QLatin1String("ci")].toObject();
    const QJsonObject types = ci[QLatin1String("types")].toObject();
    const QJsonObject classes = ci[QLatin1String("classes")].toObject();
    const auto pick = [chance](const QJsonObject& object) {
        return object.isEmpty() ? QJsonValue() : object[object.keys().at(chance->below(object.size()))];
    };
    const QJsonValue ciClass = pick(classes);
    Varnel::core_tmp item;
    item.ci_class = static_cast<quint16>(ciClass[QLatin1String("id")].toInt());
    item.ci_field = static_cast<quint16>(pick(ciClass[QLatin1String("fields")].toObject()).toInt());
    item.instance = static_cast<quint8>(chance->below(4));
    item.ci_type = static_cast<quint8>(pick(types).toInt());
    if (chance->oneIn(4)) {
        const QJsonArray registers = mapping[QLatin1String("registers")].toArray();
        item.instance = static_cast<quint8>(
            registers.at(chance->below(qMax(1, registers.size())))[QLatin1String("ci_index")].toInt());
    }
    static const QByteArray texts[] = {"3.5", "-1e6", "17",    "0",    "false",
                                       "nan", "inf",  "65536", "1.5x", " 7"};
    if (chance->oneIn(3)) {
        item.baData = texts[chance->below(int(std::size(texts)))];
    } else {
        for (int count = chance->below(6); count > 0; --count) {
            item.baData += char(chance->oneIn(3) ? 0xFF * chance->below(2) : chance->below(256));
        }
    }
    return item;
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed)
{
    if (seed % 3 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    fuzz::Input input(data, size);
    QByteArray text = input.takeUntil('\0');
    QList<Varnel::core_tmp> items = fuzz::readItems(input.rest());
    fuzz::JsonMutator mutator(seed, words());
    if (mutator.oneIn(3)) {
        const QJsonObject mapping = QJsonDocument::fromJson(text).object();
        for (int count = 1 + mutator.below(4); count > 0; --count) {
            items.insert(mutator.below(items.size() + 1), anyItem(&mutator, mapping));
        }
        while (items.size() > 24) {
            items.removeAt(mutator.below(items.size()));
        }
    } else {
        text = mutator.mutated(text, plainMapping());
    }
    const QByteArray result = text + '\0' + fuzz::writeItems(items);
    const size_t length = qMin(size_t(result.size()), maxSize);
    std::memcpy(data, result.constData(), length);
    return length;
}
