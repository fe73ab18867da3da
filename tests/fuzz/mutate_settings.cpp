// SPDX-License-Identifier: MIT
// Settings files are changed line by line: groups and keys that the panel knows, with values that mean
// something.
#include <cstring>
#include <random>

#include <QByteArray>
#include <QList>

#include "settings.h"

extern "C" size_t LLVMFuzzerMutate(uint8_t* data, size_t size, size_t maxSize);

namespace {

class Mutator
{
public:
    explicit Mutator(unsigned seed)
        : engine(seed)
    {
    }

    QByteArray mutated(const QByteArray& text)
    {
        QList<QByteArray> lines = text.split('\n');
        const int at = below(lines.size() + 1);
        switch (below(6)) {
        case 0:
            lines.removeAt(below(lines.size()));
            break;
        case 1:
            lines.insert(at, '[' + QByteArray(anyEntry().group) + ']');
            break;
        case 2:
            lines[below(lines.size())] = changed(lines.at(below(lines.size())));
            break;
        default:
            insertSetting(&lines, at);
        }
        return lines.join('\n');
    }

private:
    int below(int limit) { return int(engine() % unsigned(limit)); }

    const Varnel::Settings::Entry& anyEntry()
    {
        const auto& entries = Varnel::Settings::entries();
        return entries[size_t(below(int(entries.size())))];
    }

    QByteArray value()
    {
        static const char* const values[] = {"",
                                             "0",
                                             "1",
                                             "false",
                                             "FALSE",
                                             "no",
                                             "65535",
                                             "65536",
                                             "70000",
                                             "-1",
                                             "2147483648",
                                             "4294967296",
                                             "1e3",
                                             "0x10",
                                             "18446744073709551616",
                                             " 7 ",
                                             "\"a;b\"",
                                             "\"\\x41\\n\\0\"",
                                             "a, b, c",
                                             "@ByteArray(x\\0y)",
                                             "@Invalid()",
                                             "@String(",
                                             "@Rect(1 2 3 4)",
                                             "@@x",
                                             "%U00e9",
                                             "\"unfinished",
                                             "tcp",
                                             "RTU",
                                             "0.0.0.0:502:10",
                                             "1:/dev/ttyS1:19200:8N1",
                                             "::",
                                             "\\",
                                             "caf\xc3\xa9"};
        QByteArray result = values[below(int(std::size(values)))];
        return below(4) == 0 ? changed(result) : result;
    }

    void insertSetting(QList<QByteArray>* lines, int at)
    {
        const Varnel::Settings::Entry& entry = anyEntry();
        const QByteArray key = below(8) == 0 ? QByteArray(entry.key).toLower() : QByteArray(entry.key);
        lines->insert(at, key + (below(10) == 0 ? " = " : "=") + value());
        if (below(4) != 0) {
            lines->insert(at, '[' + QByteArray(entry.group) + ']');
        }
    }

    QByteArray changed(const QByteArray& text)
    {
        QByteArray octets = text;
        octets.resize(text.size() + 16);
        const size_t size = LLVMFuzzerMutate(reinterpret_cast<uint8_t*>(octets.data()), size_t(text.size()),
                                             size_t(octets.size()));
        return octets.left(int(size));
    }

    std::minstd_rand engine;
};

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t* data, size_t size, size_t maxSize, unsigned seed)
{
    if (seed % 8 == 0) {
        return LLVMFuzzerMutate(data, size, maxSize);
    }
    const QByteArray result =
        Mutator(seed).mutated(QByteArray(reinterpret_cast<const char*>(data), int(size)));
    const size_t length = qMin(size_t(result.size()), maxSize);
    std::memcpy(data, result.constData(), length);
    return length;
}
