// SPDX-License-Identifier: MIT
#include "jsonlocator.h"

#include <algorithm>

#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

namespace {

/// Deeper than Qt's parser goes.
constexpr int deepest = 2048;

} // namespace

JsonPath operator/(JsonPath path, const QString& name)
{
    path.append(name);
    return path;
}

JsonPath operator/(JsonPath path, int index)
{
    path.append(index);
    return path;
}

JsonLocator::JsonLocator(const QByteArray& text)
    : text(text)
{
    if (text.startsWith("\xEF\xBB\xBF")) {
        position = 3; // skip a byte order mark
    }
    skipBlanks();
    readValue(&root, 0);
}

int JsonLocator::line(const JsonPath& path) const
{
    const Place* place = &root;
    for (const JsonStep& step : path) {
        if (const auto* name = std::get_if<QString>(&step)) {
            // The last member of a name counts.
            const auto found = std::find_if(place->members.rbegin(), place->members.rend(),
                                            [name](const auto& member) { return member.first == *name; });
            if (found == place->members.rend()) {
                break;
            }
            place = &found->second;
        } else {
            const auto index = static_cast<size_t>(std::get<int>(step));
            if (index >= place->elements.size()) {
                break;
            }
            place = &place->elements[index];
        }
    }
    return place->line;
}

int JsonLocator::lineAt(const QByteArray& text, int offset)
{
    return 1 + int(std::count(text.cbegin(), text.cbegin() + std::clamp(offset, 0, text.size()), '\n'));
}

void JsonLocator::skipBlanks()
{
    for (; position < text.size(); ++position) {
        const char c = text[position];
        if (c == '\n') {
            ++currentLine;
        } else if (c != ' ' && c != '\t' && c != '\r') {
            return;
        }
    }
}

/// Takes the byte `wanted` and the blanks after it, if it is there.
bool JsonLocator::take(char wanted)
{
    if (position >= text.size() || text[position] != wanted) {
        return false;
    }
    ++position;
    skipBlanks();
    return true;
}

/// The string that begins here; nothing when there is none.
QString JsonLocator::readString()
{
    const int start = position;
    if (position >= text.size() || text[position] != '"') {
        return {};
    }
    for (++position; position < text.size() && text[position] != '"'; ++position) {
        if (text[position] == '\\') {
            ++position;
        }
    }
    position = std::min(position + 1, text.size());
    const QByteArray quoted = text.mid(start, position - start);
    skipBlanks();
    if (!quoted.contains('\\')) {
        return QString::fromUtf8(quoted.mid(1, quoted.size() - 2));
    }
    return QJsonDocument::fromJson('[' + quoted + ']').array().at(0).toString();
}

void JsonLocator::readValue(Place* place, int depth)
{
    if (place->line == 0) {
        place->line = currentLine;
    }
    if (position >= text.size() || depth > deepest) {
        position = text.size();
        return;
    }
    switch (text[position]) {
    case '{':
        readObject(place, depth);
        break;
    case '[':
        readArray(place, depth);
        break;
    case '"':
        readString();
        break;
    default: // a number or a word
        while (position < text.size() && !strchr(",]} \t\r\n", text[position])) {
            ++position;
        }
        skipBlanks();
    }
}

void JsonLocator::readObject(Place* place, int depth)
{
    take('{');
    QSet<QString> names;
    while (position < text.size() && !take('}')) {
        Place member;
        member.line = currentLine;
        const int before = position;
        const QString name = readString();
        take(':');
        if (names.contains(name)) {
            repeated.append({member.line, name});
        }
        names.insert(name);
        readValue(&member, depth + 1);
        place->members.emplace_back(name, std::move(member));
        take(',');
        if (position == before) {
            position = text.size(); // no JSON after all
        }
    }
}

void JsonLocator::readArray(Place* place, int depth)
{
    take('[');
    while (position < text.size() && !take(']')) {
        const int before = position;
        place->elements.emplace_back();
        readValue(&place->elements.back(), depth + 1);
        take(',');
        if (position == before) {
            position = text.size();
        }
    }
}
