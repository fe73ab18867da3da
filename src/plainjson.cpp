// SPDX-License-Identifier: MIT
#include "plainjson.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>

#include <QtEndian>

namespace Varnel {

namespace {

/// The octets that both the JSON writer and the log repeat as they are.
constexpr std::array<bool, 256> plainOctets()
{
    std::array<bool, 256> result = {};
    for (size_t octet = 0x20; octet < 0x7F; ++octet) {
        result[octet] = octet != '"' && octet != '\\';
    }
    return result;
}

constexpr std::array<bool, 256> isPlain = plainOctets();

/// Deeper texts are nothing that an engineer writes.
constexpr int deepest = 16;
/// Numbers up to so many digits fit an int, and the writer writes them as they were read.
constexpr std::ptrdiff_t longestNumber = 9;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr int prefixLength = sizeof(quint64);

/// The first eight octets of a name as a number, which sorts like them. So many octets can be read from its
/// start on, the name's own or not.
quint64 prefixOf(QLatin1String name, std::ptrdiff_t readable)
{
    if (readable < prefixLength) {
        char padded[prefixLength] = {};
        std::copy(name.begin(), name.end(), padded);
        return qFromBigEndian<quint64>(padded);
    }
    const auto octets = qFromBigEndian<quint64>(name.data());
    const int unused = std::max(0, prefixLength - name.size());
    return unused == prefixLength ? 0 : octets >> 8 * unused << 8 * unused;
}

} // namespace

/// Reads the text. It gives up on everything that is not plain, mistakes included.
class PlainJsonReader
{
public:
    explicit PlainJsonReader(PlainJson* json)
        : json(json)
        , begin(json->source.constData())
        , end(begin + json->source.size())
        , position(begin)
    {
        // No more members than colons; so much memory is then never moved about.
        json->members.reserve(size_t(std::count(begin, end, ':')));
    }

    /// False when the text is not plain.
    bool run()
    {
        skipBlanks();
        return at('{') && object(&json->root, 0) && position == end;
    }

private:
    using Kind = PlainJson::Kind;
    using Node = PlainJson::Node;
    using Member = PlainJson::Member;

    bool at(char wanted) const { return position != end && *position == wanted; }

    void skipBlanks()
    {
        while (position != end &&
               (*position == ' ' || *position == '\n' || *position == '\t' || *position == '\r')) {
            ++position;
        }
    }

    bool next(char wanted)
    {
        if (!at(wanted)) {
            return false;
        }
        ++position;
        skipBlanks();
        return true;
    }

    /// The value that was read since `start`.
    Node scalar(const char* start, Kind kind) const { return {start - begin, position - start, kind}; }

    bool value(Node* result, int depth)
    {
        if (position == end || depth > deepest) {
            return false;
        }
        switch (*position) {
        case '{':
            return object(result, depth);
        case '[':
            return array(result, depth);
        case '"':
            return string(result);
        case 't':
        case 'f':
        case 'n':
            return word(result);
        default:
            return number(result);
        }
    }

    bool string(Node* result)
    {
        const char* const start = ++position;
        while (position != end && isPlain[static_cast<quint8>(*position)]) {
            ++position;
        }
        *result = scalar(start, Kind::String);
        return next('"');
    }

    bool word(Node* result)
    {
        const char* const start = position;
        while (position != end && *position >= 'a' && *position <= 'z') {
            ++position;
        }
        *result = scalar(start, Kind::Word);
        const QLatin1String text(start, int(position - start));
        skipBlanks();
        return text == QLatin1String("true") || text == QLatin1String("false") ||
               text == QLatin1String("null");
    }

    bool number(Node* result)
    {
        const char* const start = position;
        const bool isNegative = at('-');
        const char* const digits = start + (isNegative ? 1 : 0);
        position = digits;
        while (position != end && isDigit(*position)) {
            ++position;
        }
        const std::ptrdiff_t length = position - digits;
        *result = scalar(start, Kind::Number);
        skipBlanks();
        // A fraction or an exponent fails where a comma or a bracket is expected.
        return length > 0 && length <= longestNumber && (*digits != '0' || (length == 1 && !isNegative));
    }

    bool array(Node* result, int depth)
    {
        const size_t first = openElements.size(); // those of the outer arrays stand before
        next('[');
        if (!next(']')) {
            do {
                Node element;
                if (!value(&element, depth + 1)) {
                    return false;
                }
                openElements.push_back(element);
            } while (next(','));
            if (!next(']')) {
                return false;
            }
        }
        *result = moved(&openElements, first, &json->elements, Kind::Array);
        return true;
    }

    bool object(Node* result, int depth)
    {
        const size_t first = openMembers.size();
        next('{');
        if (!next('}')) {
            do {
                if (!member(depth)) {
                    return false;
                }
            } while (next(','));
            if (!next('}') || !sortMembers(first)) {
                return false;
            }
        }
        *result = moved(&openMembers, first, &json->members, Kind::Object);
        return true;
    }

    /// Moves what was read from `first` on to its place in the whole.
    template<typename Part>
    static Node moved(std::vector<Part>* open, size_t first, std::vector<Part>* all, Kind kind)
    {
        const auto from = open->begin() + std::ptrdiff_t(first);
        const Node result(std::ptrdiff_t(all->size()), open->end() - from, kind);
        all->insert(all->end(), from, open->end());
        open->erase(from, open->end());
        return result;
    }

    bool member(int depth)
    {
        Node name;
        Node content;
        if (!at('"') || !string(&name) || !next(':') || !value(&content, depth + 1)) {
            return false;
        }
        openMembers.push_back(json->memberOf(name, content));
        return true;
    }

    /// Puts the members from `first` on into the order of their names; false when one name stands twice.
    bool sortMembers(size_t first)
    {
        const auto order = [this](const Member& left, const Member& right) {
            return json->compareName(left, right.prefix, json->textOf(right.name));
        };
        const auto from = openMembers.begin() + std::ptrdiff_t(first);
        std::sort(from, openMembers.end(),
                  [&order](const Member& left, const Member& right) { return order(left, right) < 0; });
        return std::adjacent_find(from, openMembers.end(), [&order](const Member& left, const Member& right) {
                   return order(left, right) == 0;
               }) == openMembers.end();
    }

    PlainJson* json;
    const char* const begin;
    const char* const end;
    const char* position;
    std::vector<Node> openElements; ///< of the arrays being read, those of the outer ones first
    std::vector<Member> openMembers;
};

/// Writes the log's form.
class PlainJsonWriter
{
public:
    explicit PlainJsonWriter(const PlainJson& json)
        : json(json)
        // Nothing grows but the quotes, to twice their size, and the two that go around the whole.
        , result(2 * json.source.size() + 2 + blockLength, Qt::Uninitialized)
        , out(reinterpret_cast<ushort*>(result.data()))
    {
    }

    QString run()
    {
        put('"');
        value(json.root);
        put('"');
        result.resize(int(out - result.utf16()));
        return result;
    }

private:
    using Kind = PlainJson::Kind;
    using Node = PlainJson::Node;
    using Member = PlainJson::Member;

    /// Texts are copied in blocks, which is quicker than to look where they end.
    static constexpr int blockLength = 16;

    void put(char c) { *out++ = uchar(c); }

    void value(const Node& node)
    {
        switch (node.kind) {
        case Kind::Object:
            object(node);
            break;
        case Kind::Array:
            array(node);
            break;
        case Kind::String:
            string(node);
            break;
        default:
            octets(node);
        }
    }

    void octets(const Node& node)
    {
        const char* const start = json.source.constData() + node.start;
        if (node.size <= blockLength && json.source.constEnd() - start >= blockLength) {
            std::copy_n(start, blockLength, out);
        } else {
            std::copy_n(start, node.size, out);
        }
        out += node.size;
    }

    void string(const Node& node)
    {
        put('\\');
        put('"');
        octets(node);
        put('\\');
        put('"');
    }

    void object(const Node& node)
    {
        put('{');
        for (quint32 i = 0; i < node.size; ++i) {
            const Member& member = json.members[node.start + i];
            string(member.name);
            put(':');
            value(member.value);
            put(',');
        }
        end(node, '}');
    }

    void array(const Node& node)
    {
        put('[');
        for (quint32 i = 0; i < node.size; ++i) {
            value(json.elements[node.start + i]);
            put(',');
        }
        end(node, ']');
    }

    /// The closing bracket takes the place of the last comma.
    void end(const Node& node, char bracket)
    {
        out -= node.size > 0 ? 1 : 0;
        put(bracket);
    }

    const PlainJson& json;
    QString result;
    ushort* out;
};

std::optional<PlainJson> PlainJson::read(const QByteArray& source)
{
    if (quint32(source.size()) > longest) {
        return std::nullopt;
    }
    PlainJson json;
    json.source = source;
    return PlainJsonReader(&json).run() ? std::optional(std::move(json)) : std::nullopt;
}

QString PlainJson::quoted() const
{
    return PlainJsonWriter(*this).run();
}

PlainJson::Member PlainJson::memberOf(const Node& name, const Node& value) const
{
    return {prefixOf(textOf(name), std::ptrdiff_t(source.size()) - name.start), name, value};
}

/// Negative when the member's name stands before `name`, zero when it is the same.
int PlainJson::compareName(const Member& member, quint64 prefix, QLatin1String name) const
{
    if (member.prefix != prefix) {
        return member.prefix < prefix ? -1 : 1;
    }
    const QLatin1String text = textOf(member.name);
    const int common = std::min(text.size(), name.size());
    const int order = common > prefixLength ? std::memcmp(text.data(), name.data(), size_t(common)) : 0;
    return order != 0 ? order : text.size() - name.size();
}

int PlainJson::Value::toInt() const
{
    if (!isDouble()) {
        return 0;
    }
    const QLatin1String text = json->textOf(node);
    const bool isNegative = text.front() == QLatin1Char('-');
    int result = 0;
    for (const char* c = text.begin() + (isNegative ? 1 : 0); c != text.end(); ++c) {
        result = 10 * result + (*c - '0');
    }
    return isNegative ? -result : result;
}

QLatin1String PlainJson::Value::toString() const
{
    return isString() ? json->textOf(node) : QLatin1String();
}

PlainJson::Array PlainJson::Value::toArray() const
{
    return {json, isArray() ? node : Node()};
}

PlainJson::Object PlainJson::Value::toObject() const
{
    return {json, isObject() ? node : Node()};
}

PlainJson::Value PlainJson::Object::value(QLatin1String name) const
{
    const quint64 prefix = prefixOf(name, name.size());
    const auto last = json->members.begin() + node.start + node.size;
    const auto found = std::lower_bound(json->members.begin() + node.start, last, name,
                                        [this, prefix](const Member& member, QLatin1String wanted) {
                                            return json->compareName(member, prefix, wanted) < 0;
                                        });
    return {json, found != last && json->compareName(*found, prefix, name) == 0 ? found->value : Node()};
}

} // namespace Varnel
