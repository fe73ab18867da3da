// SPDX-License-Identifier: MIT
#include "plain.h"

#include <algorithm>
#include <tuple>

#include <unistd.h>

namespace Varnel {

void Descriptor::reset(int other)
{
    if (number >= 0) {
        ::close(number);
    }
    number = other;
}

std::string printable(std::string_view text, std::size_t longest)
{
    std::string result(text.substr(0, longest));
    std::replace_if(
        result.begin(), result.end(), [](char octet) { return octet < ' ' || octet > '~'; }, '?');
    if (text.size() > longest) {
        result += "...";
    }
    return result;
}

void say(const std::string& line)
{
    const std::string whole = line + '\n';
    // Ignore a failure: there is nowhere to report it.
    std::ignore = ::write(STDERR_FILENO, whole.data(), whole.size());
}

} // namespace Varnel
