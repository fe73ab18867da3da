// SPDX-License-Identifier: MIT
#include "jsonlogline.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include <QJsonDocument>
#include <QtDebug>

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

/// Writes a JSON text that the parser has accepted once more, compact, sorted and with a backslash before
/// every quote. It gives up, and says so, on everything that the JSON writer would not simply repeat.
class PlainRewriter
{
public:
    explicit PlainRewriter(const QByteArray& source)
        : position(source.constData())
        , end(position + source.size())
        // Nothing grows but the quotes, to twice their size, and the two that go around the whole.
        , text(new char[2 * size_t(source.size()) + 2])
        , out(text.get())
    {
    }

    /// False when the text is not plain.
    bool run()
    {
        *out++ = '"';
        skipBlanks();
        if (!value(0) || position != end) {
            return false;
        }
        *out++ = '"';
        return true;
    }

    QString result() const { return QString::fromLatin1(text.get(), int(out - text.get())); }

private:
    /// Deeper objects would be moved about once per level.
    static constexpr int deepest = 16;
    /// Whole numbers up to so many digits are written as they were read.
    static constexpr int longestNumber = 9;

    /// A member as it stands in the new text, its comma included.
    struct Member
    {
        std::ptrdiff_t start = 0;
        std::ptrdiff_t nameLength = 0;
        std::ptrdiff_t length = 0;
    };

    void skipBlanks()
    {
        while (position != end &&
               (*position == ' ' || *position == '\n' || *position == '\t' || *position == '\r')) {
            ++position;
        }
    }

    bool next(char wanted)
    {
        if (position == end || *position != wanted) {
            return false;
        }
        ++position;
        skipBlanks();
        return true;
    }

    /// Repeats what was read since `start`.
    void repeatFrom(const char* start)
    {
        out = std::copy(start, position, out);
        skipBlanks();
    }

    bool value(int depth)
    {
        if (position == end || depth > deepest) {
            return false;
        }
        switch (*position) {
        case '{':
            return object(depth);
        case '[':
            return array(depth);
        case '"':
            return string();
        case 't':
        case 'f':
        case 'n':
            return word();
        default:
            return number();
        }
    }

    bool string()
    {
        const char* const start = ++position;
        while (position != end && isPlain[static_cast<quint8>(*position)]) {
            ++position;
        }
        if (position != end && *position != '"') { // the log or the writer would escape it
            return false;
        }
        if (position == end) {
            return false;
        }
        *out++ = '\\';
        *out++ = '"';
        out = std::copy(start, position++, out);
        *out++ = '\\';
        *out++ = '"';
        skipBlanks();
        return true;
    }

    bool word()
    {
        const char* const start = position;
        while (position != end && *position >= 'a' && *position <= 'z') {
            ++position;
        }
        repeatFrom(start);
        return true;
    }

    bool number()
    {
        const char* const start = position;
        if (*position == '-') {
            ++position;
        }
        const char* const digits = position;
        while (position != end && *position >= '0' && *position <= '9') {
            ++position;
        }
        const bool isWhole = position == end || (*position != '.' && *position != 'e' && *position != 'E');
        const bool isMinusZero = digits != start && position != digits && *digits == '0';
        const bool isShort =
            position != digits && position - digits <= longestNumber && isWhole && !isMinusZero;
        repeatFrom(start);
        return isShort;
    }

    bool array(int depth)
    {
        next('[');
        *out++ = '[';
        if (!next(']')) {
            do {
                if (!value(depth + 1)) {
                    return false;
                }
                *out++ = ',';
            } while (next(','));
            if (!next(']')) {
                return false;
            }
            --out; // the last comma
        }
        *out++ = ']';
        return true;
    }

    bool object(int depth)
    {
        next('{');
        *out++ = '{';
        const size_t firstMember = members.size(); // of this object; those of the outer ones stand before
        if (!next('}')) {
            do {
                if (!member(depth)) {
                    return false;
                }
            } while (next(','));
            if (!next('}') || !sortMembers(firstMember)) {
                return false;
            }
            --out;
        }
        *out++ = '}';
        members.resize(firstMember);
        return true;
    }

    bool member(int depth)
    {
        Member one;
        one.start = out - text.get();
        if (position == end || *position != '"' || !string()) {
            return false;
        }
        one.nameLength = out - text.get() - one.start;
        *out++ = ':';
        if (!next(':') || !value(depth + 1)) {
            return false;
        }
        *out++ = ',';
        one.length = out - text.get() - one.start;
        members.push_back(one);
        return true;
    }

    /// The order of the names between their quotes.
    int compareNames(const Member& left, const Member& right) const
    {
        constexpr std::ptrdiff_t closingQuote = 2;
        const auto common = size_t(std::min(left.nameLength, right.nameLength) - closingQuote);
        const int order = std::memcmp(text.get() + left.start, text.get() + right.start, common);
        return order != 0 ? order : int(left.nameLength - right.nameLength);
    }

    /// Puts the members from `first` on into the order of their names; false when one name stands twice.
    bool sortMembers(size_t first)
    {
        const auto begin = members.begin() + std::ptrdiff_t(first);
        const auto order = [this](const Member& left, const Member& right) {
            return compareNames(left, right);
        };
        const auto isBefore = [&order](const Member& left, const Member& right) {
            return order(left, right) < 0;
        };
        const auto isSame = [&order](const Member& left, const Member& right) {
            return order(left, right) == 0;
        };
        const std::ptrdiff_t start = begin->start;
        const bool isSorted = std::is_sorted(begin, members.end(), isBefore);
        if (!isSorted) {
            std::sort(begin, members.end(), isBefore);
        }
        if (std::adjacent_find(begin, members.end(), isSame) != members.end()) {
            return false;
        }
        if (!isSorted) {
            sorted.clear();
            for (auto one = begin; one != members.end(); ++one) {
                sorted.insert(sorted.end(), text.get() + one->start, text.get() + one->start + one->length);
            }
            std::copy(sorted.begin(), sorted.end(), text.get() + start);
        }
        return true;
    }

    const char* position;
    const char* const end;
    const std::unique_ptr<char[]> text; // not cleared first, unlike a vector
    char* out;
    std::vector<char> sorted;
    std::vector<Member> members;
};

} // namespace

QString quotedJson(const QByteArray& source, const QJsonDocument& document)
{
    PlainRewriter rewriter(source);
    if (rewriter.run()) {
        return rewriter.result();
    }
    QString line;
    QDebug(&line).nospace() << QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    return line;
}

} // namespace Varnel
