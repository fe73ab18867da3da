// SPDX-License-Identifier: MIT
#include "jsonmutator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace fuzz {

QByteArray JsonMutator::mutated(const QByteArray& text, const QByteArray& fallback)
{
    QJsonDocument document = QJsonDocument::fromJson(text);
    if (!document.isObject()) {
        document = QJsonDocument::fromJson(fallback);
    }
    QJsonValue root = document.object();
    for (int count = 1 + below(3); count > 0; --count) {
        root = changedObject(root, 0);
    }
    return QJsonDocument(root.toObject()).toJson(oneIn(2) ? QJsonDocument::Compact : QJsonDocument::Indented);
}

QJsonValue JsonMutator::number()
{
    static const double numbers[] = {0,     1,     -1,      2,          100,           255,      256,
                                     32767, 65534, 65535,   65536,      -65536,        1e9,      2147483647,
                                     -3,    0.5,   1.0e300, 4294967296, -2147483648.0, 123456789};
    return oneIn(2) ? QJsonValue(below(300)) : QJsonValue(numbers[size_t(below(int(std::size(numbers))))]);
}

QJsonValue JsonMutator::anything()
{
    switch (below(8)) {
    case 0:
        return QJsonValue(QJsonValue::Null);
    case 1:
        return QJsonValue(oneIn(2));
    case 2:
        return QJsonArray{number(), number()};
    case 3:
        return QJsonObject();
    case 4:
        return QString(QChar(below(0x300)));
    case 5:
        return words.at(below(words.size()));
    default:
        return number();
    }
}

QJsonValue JsonMutator::changed(const QJsonValue& value, int depth)
{
    if (oneIn(12)) {
        return anything();
    }
    if (value.isObject()) {
        return changedObject(value, depth + 1);
    }
    if (value.isArray()) {
        return changedArray(value, depth + 1);
    }
    if (value.isDouble()) {
        return oneIn(3) ? QJsonValue(value.toDouble() + below(5) - 2) : number();
    }
    return words.at(below(words.size()));
}

QJsonValue JsonMutator::changedArray(const QJsonValue& value, int depth)
{
    QJsonArray array = value.toArray();
    if (array.isEmpty() || oneIn(6)) {
        array.insert(below(array.size() + 1), array.isEmpty() ? number() : array.at(below(array.size())));
        return array;
    }
    const int at = below(array.size());
    if (oneIn(6)) {
        array.removeAt(at);
    } else {
        array.replace(at, changed(array.at(at), depth));
    }
    return array;
}

QJsonValue JsonMutator::changedObject(const QJsonValue& value, int depth)
{
    QJsonObject object = value.toObject();
    if (object.isEmpty() || oneIn(depth == 0 ? 20 : 8)) {
        object.insert(words.at(below(words.size())), anything());
        return object;
    }
    const QString name = object.keys().at(below(object.size()));
    if (oneIn(20)) {
        object.remove(name);
    } else {
        object.insert(name, changed(object.value(name), depth));
    }
    return object;
}

} // namespace fuzz
