// SPDX-License-Identifier: MIT
// For programs that must start without a toolkit.
#pragma once

#include <string>
#include <string_view>

namespace Varnel {

/// A file descriptor that is closed with its owner; -1 is none.
class Descriptor
{
public:
    explicit Descriptor(int number = -1)
        : number(number)
    {
    }
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept
        : number(other.release())
    {
    }
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        reset(other.release());
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int get() const { return number; }
    [[nodiscard]] bool isOpen() const { return number >= 0; }
    [[nodiscard]] int release()
    {
        const int released = number;
        number = -1;
        return released;
    }
    void reset(int other = -1);

private:
    int number;
};

/// `text` with a "?" for each byte that is not printable ASCII, cut to `longest` bytes: text from outside
/// must not break a line of the journal, control a terminal, or flood either.
[[nodiscard]] std::string printable(std::string_view text, std::size_t longest = 200);

/// Writes one line to standard error, which is the journal, in one piece.
void say(const std::string& line);

} // namespace Varnel
