// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <vector>

#include <QByteArray>
#include <QLatin1String>
#include <QString>

namespace Varnel {

/// A JSON text of the kind that mapping files are made of, read in one pass: an object of printable ASCII
/// without escapes, with small whole numbers, few levels deep, no name twice in one object. Every other text
/// is left to Qt's parser, good or bad. What is read here reads there as well, and means the same; the
/// classes inside are used like QJsonValue, QJsonObject and QJsonArray, but texts stay where they are in the
/// source and nothing is converted or shared: a tenth of the time. They are valid as long as their PlainJson.
class PlainJson
{
public:
    class Value;
    class Object;
    class Array;

    /// Nothing when the text is not plain.
    static std::optional<PlainJson> read(const QByteArray& source);

    /// The whole.
    Object object() const;

    /// The log's form of the whole: its compact text (members sorted by name) in double quotes, with the
    /// log's own escapes, exactly as qDebug() prints the string that Qt's JSON writer gives.
    QString quoted() const;

private:
    friend class PlainJsonReader;
    friend class PlainJsonWriter;

    static constexpr int sizeBits = 28;
    static constexpr quint32 longest = (1U << sizeBits) - 1;

    enum class Kind : quint32
    {
        Undefined, ///< not there
        Word,      ///< true, false, null
        Number,
        String,
        Array,
        Object,
    };

    /// A value. Of a scalar, `start` and `size` name its octets in the source, of a string without its
    /// quotes; of an array its place among the elements, of an object its place among the members.
    struct Node
    {
        Node()
            : Node(0, 0, Kind::Undefined)
        {
        }
        Node(std::ptrdiff_t start, std::ptrdiff_t size, Kind kind)
            : start(quint32(start))
            , size(quint32(size) & longest)
            , kind(kind)
        {
        }

        quint32 start;
        quint32 size : sizeBits;
        Kind kind : 32 - sizeBits;
    };

    struct Member
    {
        quint64 prefix = 0; ///< the name's first eight octets as a number, which sorts like them
        Node name;
        Node value;
    };

    PlainJson() = default;
    QLatin1String textOf(const Node& node) const;
    Member memberOf(const Node& name, const Node& value) const;
    int compareName(const Member& member, quint64 prefix, QLatin1String name) const;

    QByteArray source;
    std::vector<Node> elements;  ///< of all arrays, those of one array side by side
    std::vector<Member> members; ///< of all objects, those of one object side by side, sorted by name
    Node root;
};

/// Like QJsonValue.
class PlainJson::Value
{
public:
    Value(const PlainJson* json, const Node& node)
        : json(json)
        , node(node)
    {
    }

    bool isDouble() const { return node.kind == Kind::Number; }
    bool isString() const { return node.kind == Kind::String; }
    bool isArray() const { return node.kind == Kind::Array; }
    bool isObject() const { return node.kind == Kind::Object; }
    /// The number; 0 for anything else.
    int toInt() const;
    /// The text, as it stands in the source; empty for anything else.
    QLatin1String toString() const;
    /// The array or object; an empty one for anything else.
    Array toArray() const;
    Object toObject() const;

private:
    const PlainJson* json;
    Node node;
};

/// Like QJsonObject.
class PlainJson::Object
{
public:
    class const_iterator
    {
    public:
        const_iterator(const PlainJson* json, const Member* member)
            : json(json)
            , member(member)
        {
        }
        QLatin1String key() const { return json->textOf(member->name); }
        Value value() const { return {json, member->value}; }
        const_iterator& operator++()
        {
            ++member;
            return *this;
        }
        bool operator!=(const const_iterator& other) const { return member != other.member; }

    private:
        const PlainJson* json;
        const Member* member;
    };

    Object(const PlainJson* json, const Node& node)
        : json(json)
        , node(node)
    {
    }

    const_iterator constBegin() const { return {json, json->members.data() + node.start}; }
    const_iterator constEnd() const { return {json, json->members.data() + node.start + node.size}; }
    /// The member's value; one that is nothing when there is no such member.
    Value value(QLatin1String name) const;

private:
    const PlainJson* json;
    Node node;
};

/// Like QJsonArray.
class PlainJson::Array
{
public:
    class const_iterator
    {
    public:
        const_iterator(const PlainJson* json, const Node* node)
            : json(json)
            , node(node)
        {
        }
        Value operator*() const { return {json, *node}; }
        const_iterator& operator++()
        {
            ++node;
            return *this;
        }
        bool operator!=(const const_iterator& other) const { return node != other.node; }

    private:
        const PlainJson* json;
        const Node* node;
    };

    Array(const PlainJson* json, const Node& node)
        : json(json)
        , node(node)
    {
    }

    int size() const { return int(node.size); }
    const_iterator begin() const { return {json, json->elements.data() + node.start}; }
    const_iterator end() const { return {json, json->elements.data() + node.start + node.size}; }

private:
    const PlainJson* json;
    Node node;
};

inline QLatin1String PlainJson::textOf(const Node& node) const
{
    return QLatin1String(source.constData() + node.start, int(node.size));
}

inline PlainJson::Object PlainJson::object() const
{
    return {this, root};
}

} // namespace Varnel
