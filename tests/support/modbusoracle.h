// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <variant>
#include <vector>

/// A second opinion on what the Modbus bridge does, for comparing the two on random mappings. It shares no
/// code and no way of thinking with the product: definitions are plain lists searched from the back, numbers
/// are strings of binary digits, and an IEEE 754 pattern is put together from sign, exponent and fraction.
namespace oracle {

struct Register
{
    long id = 0;
    std::string mbType;
    std::string ciClass;
    std::string ciField;
    long index = 0;
    std::string ciType;
    bool complete = true; ///< every member is there with its kind
};

struct Table
{
    long address = 0;
    std::vector<long> entries;
};

struct Item
{
    long ciClass = 0;
    long ciField = 0;
    long index = 0;
    long type = 0;
    std::string octets;
};

struct Mapping
{
    std::map<std::string, long> types; ///< member name and code; sorted, as JSON members are
    std::map<std::string, long> classes;
    std::map<std::string, long> fields; ///< the same for all classes
    std::vector<Register> registers;
    std::vector<Table> tables;
};

/// A type: name, octets, words, and the names by which it is referred to.
struct Type
{
    std::string name;
    std::size_t octets = 0;
    std::size_t words = 0;
    std::vector<std::string> aliases;
};

using Value = std::variant<bool, long long, float, std::string>;
using Coordinate = std::vector<long>;

inline Type typeOfMember(std::string member)
{
    static const char* const rows = "bool bool 1 1 bool boolean\n"
                                    "u8 uint8 1 1 u8 uint8\n"
                                    "s8 int8 1 1 s8 sint8 int8\n"
                                    "u16 uint16 2 1 u16 uint16\n"
                                    "s16 int16 2 1 s16 sint16 int16\n"
                                    "u32 uint32 4 2 u32 uint32\n"
                                    "s32 int32 4 2 s32 sint32 int32\n"
                                    "float float 4 2 float float32\n"
                                    "string string 0 0 string str\n"
                                    "struct struct 0 0 struct\n";
    std::transform(member.begin(), member.end(), member.begin(),
                   [](char c) { return char(std::tolower(c)); });
    std::istringstream lines(rows);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string key;
        Type type;
        fields >> key >> type.name >> type.octets >> type.words;
        for (std::string alias; fields >> alias;) {
            type.aliases.push_back(alias);
        }
        if (key == member) {
            return type;
        }
    }
    return {"undef", 0, 0, {"undef"}};
}

/// `number` in two's complement, 64 binary digits, most significant first.
inline std::string binary(long long number)
{
    std::string digits;
    for (int i = 0; i < 64; ++i) {
        const long long bit = ((number % 2) + 2) % 2;
        digits.insert(digits.begin(), char('0' + bit));
        number = (number - bit) / 2;
    }
    return digits;
}

inline long long fromBinary(const std::string& digits)
{
    long long number = 0;
    for (const char digit : digits) {
        number = number * 2 + (digit - '0');
    }
    return number;
}

/// The IEEE 754 single-precision pattern of a normal number or zero, 32 binary digits.
inline std::string floatPattern(double number)
{
    if (number == 0) {
        return std::string(32, '0');
    }
    int exponent = 0;
    double fraction = std::frexp(std::fabs(number), &exponent); // 0.5 to 1
    double mantissa = std::nearbyint(std::ldexp(fraction, 24)); // 24 bits, the first of them implied
    if (mantissa == std::ldexp(1.0, 24)) {
        mantissa /= 2;
        ++exponent;
    }
    return (number < 0 ? "1" : "0") + binary(exponent + 126).substr(56) +
           binary(static_cast<long long>(mantissa)).substr(41);
}

inline Value decode(const std::string& typeName, const std::string& octets)
{
    std::string digits;
    for (const char octet : octets) {
        digits += binary(static_cast<unsigned char>(octet)).substr(56);
    }
    const bool isSigned = typeName.compare(0, 3, "int") == 0;
    const bool tooWide = digits.empty() || digits.size() > 32;
    const bool tooHigh = isSigned && digits.size() == 32 && digits[0] == '1';
    digits = tooWide || tooHigh ? std::string(32, '0') : std::string(32 - digits.size(), '0') + digits;
    if (typeName == "bool") {
        return digits.find('1') != std::string::npos;
    }
    if (typeName == "float") {
        std::istringstream text(octets);
        double number = 0;
        return static_cast<float>(text >> number && text.eof() ? number : 0.0);
    }
    if (typeName == "string") {
        return octets;
    }
    for (const long bits : {8L, 16L, 32L}) {
        const std::string width = std::to_string(bits);
        const std::string kept = digits.substr(std::size_t(32 - bits));
        if (typeName == "uint" + width) {
            return fromBinary(kept);
        }
        if (typeName == "int" + width) {
            return fromBinary(kept) - (kept[0] == '1' ? 1LL << bits : 0);
        }
    }
    return 0LL;
}

inline double asNumber(const Value& value)
{
    if (const auto* text = std::get_if<std::string>(&value)) {
        const bool isNumber = !text->empty() && text->find_first_not_of("0123456789") == std::string::npos;
        return isNumber ? std::stod(*text) : 0.0;
    }
    return std::visit(
        [](const auto& number) {
            if constexpr (std::is_same_v<std::decay_t<decltype(number)>, std::string>) {
                return 0.0;
            } else {
                return static_cast<double>(number);
            }
        },
        value);
}

inline bool asBool(const Value& value)
{
    if (const auto* text = std::get_if<std::string>(&value)) {
        return !(*text == "" || *text == "0" || *text == "false");
    }
    return asNumber(value) != 0;
}

inline std::vector<int> words(const Value& value, const Type& type)
{
    std::string digits(32, '0');
    if (type.name == "bool") {
        digits.back() = asBool(value) ? '1' : '0';
    } else if (type.name == "float") {
        digits = floatPattern(asNumber(value));
    } else if (type.name.find("int") != std::string::npos) {
        digits = binary(std::llround(asNumber(value))).substr(32);
    }
    const std::size_t kept = type.octets * 8;
    digits = std::string(32 - kept, '0') + digits.substr(32 - kept);
    std::vector<int> result;
    for (std::size_t i = type.words; i > 0; --i) {
        result.push_back(int(fromBinary(digits.substr(32 - i * 16, 16))));
    }
    return result;
}

/// The bridge after a mapping has been loaded.
class Bridge
{
public:
    explicit Bridge(Mapping definitions)
        : mapping(std::move(definitions))
    {
        mapping.registers.erase(std::remove_if(mapping.registers.begin(), mapping.registers.end(),
                                               [this](const Register& reg) { return !isUsed(reg); }),
                                mapping.registers.end());
        typesLoaded = anyComplete;
        // If several tables have one address, the last one counts.
        std::map<long, Table> standing;
        for (const Table& table : mapping.tables) {
            standing[table.address] = table;
        }
        mapping.tables.clear();
        for (const auto& [address, table] : standing) {
            mapping.tables.push_back(table);
        }
    }

    /// Takes one frame's items; the addresses of the tables to send.
    std::vector<long> update(const std::vector<Item>& items)
    {
        std::vector<long> addresses;
        for (const Item& item : items) {
            const Coordinate wanted{item.ciClass, item.ciField, item.index, item.type};
            std::optional<long> target;
            for (const Table& table : mapping.tables) {
                for (const long entry : table.entries) {
                    const Register* reg = find(entry);
                    if (!reg || coordinate(*reg) != wanted) {
                        continue;
                    }
                    if (!target) {
                        target = entry;
                    }
                    if (std::find(addresses.begin(), addresses.end(), table.address) == addresses.end()) {
                        addresses.push_back(table.address);
                    }
                }
            }
            if (target) {
                values[*target] = decode(typeOfCode(item.type).name, item.octets);
            }
        }
        return addresses;
    }

    std::vector<int> render(long address) const
    {
        std::vector<int> result;
        for (const long entry : tableAt(address).entries) {
            const std::vector<int> part = entry > 0 ? words(valueOf(entry), typeOfRegister(entry))
                                                    : std::vector<int>(std::size_t(-entry), 0);
            result.insert(result.end(), part.begin(), part.end());
        }
        return result;
    }

    /// The words that the server gets for the table.
    long length(long address) const
    {
        long sum = 0;
        for (const long entry : tableAt(address).entries) {
            sum += entry < 0 ? -entry : long(typeOfRegister(entry).words);
        }
        return sum;
    }

    const std::vector<Table>& tables() const { return mapping.tables; }

private:
    bool isUsed(const Register& reg)
    {
        anyComplete = anyComplete || reg.complete;
        return reg.complete && mapping.classes.count(reg.ciClass) == 1 &&
               mapping.fields.count(reg.ciField) == 1;
    }

    const Register* find(long id) const
    {
        const auto last = std::find_if(mapping.registers.rbegin(), mapping.registers.rend(),
                                       [id](const Register& reg) { return reg.id == id; });
        return last != mapping.registers.rend() ? &*last : nullptr;
    }

    const Table& tableAt(long address) const
    {
        return *std::find_if(mapping.tables.begin(), mapping.tables.end(),
                             [address](const Table& table) { return table.address == address; });
    }

    Coordinate coordinate(const Register& reg) const
    {
        return {mapping.classes.at(reg.ciClass), mapping.fields.at(reg.ciField), reg.index,
                codeOf(reg.ciType)};
    }

    long codeOf(const std::string& alias) const
    {
        for (auto member = mapping.types.rbegin(); typesLoaded && member != mapping.types.rend(); ++member) {
            const Type type = typeOfMember(member->first);
            if (std::count(type.aliases.begin(), type.aliases.end(), alias) > 0) {
                return member->second;
            }
        }
        return 0;
    }

    Type typeOfCode(long code) const
    {
        for (auto member = mapping.types.rbegin(); typesLoaded && member != mapping.types.rend(); ++member) {
            if (member->second == code) {
                return typeOfMember(member->first);
            }
        }
        return {};
    }

    /// The Modbus type of a register; one that nothing defines has the type code 0.
    Type typeOfRegister(long id) const
    {
        const Register* reg = find(id);
        return typeOfCode(reg ? codeOf(reg->mbType) : 0);
    }

    Value valueOf(long id) const
    {
        const auto found = values.find(id);
        return found != values.end() ? found->second : Value(0LL);
    }

    Mapping mapping;
    std::map<long, Value> values;
    bool anyComplete = false;
    bool typesLoaded = false;
};

} // namespace oracle
