// SPDX-License-Identifier: MIT
#include "protocol.h"

#include <algorithm>

#include "plain.h"

namespace ScriptService {

namespace {

/// Long enough for every script's name.
constexpr std::size_t longestName = 40;

bool isKnown(std::string_view name)
{
    return std::find(scriptNames.begin(), scriptNames.end(), name) != scriptNames.end();
}

} // namespace

ScriptRequest parse(std::string_view octets)
{
    if (octets.empty()) {
        return {{}, "refused a request: it is empty"};
    }
    const std::string_view name = octets.substr(0, octets.find('\0'));
    if (!isKnown(name)) {
        return {{}, "refused " + Varnel::printable(name, longestName) + ": no script of the panel"};
    }
    const auto refuse = [name](const char* why) {
        return ScriptRequest{{}, "refused " + std::string(name) + ": " + why};
    };
    if (octets.size() > longestRequest) {
        return refuse("the request is too long");
    }
    if (octets.back() != '\0') {
        return refuse("the request is cut off");
    }
    const auto words = static_cast<std::size_t>(std::count(octets.begin(), octets.end(), '\0'));
    if (words > mostWords) {
        return refuse("it has too many arguments");
    }
    ScriptRequest request;
    request.words.reserve(words);
    for (std::size_t at = 0; at < octets.size(); at += request.words.back().size() + 1) {
        request.words.emplace_back(octets.substr(at, octets.find('\0', at) - at));
    }
    return request;
}

} // namespace ScriptService
