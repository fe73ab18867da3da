// SPDX-License-Identifier: MIT
// Requests to the script service: any octets are a script of the panel's with its words, or one line that can
// be printed and tells no argument.
#include <algorithm>
#include <string>

#include "harness.h"
#include "protocol.h"

using fuzz::require;

namespace {

constexpr std::size_t longestRefusal = 100;

bool isName(const std::string& word)
{
    return std::find(ScriptService::scriptNames.begin(), ScriptService::scriptNames.end(), word) !=
           ScriptService::scriptNames.end();
}

/// The words written as a request again.
std::string written(const std::vector<std::string>& words)
{
    std::string octets;
    for (const std::string& word : words) {
        octets.append(word).push_back('\0');
    }
    return octets;
}

void checkRefusal(const std::string& refusal, const std::string& name)
{
    require(refusal.rfind("refused ", 0) == 0 && refusal.size() < longestRefusal,
            "a refusal is one short line");
    require(
        std::all_of(refusal.begin(), refusal.end(), [](char octet) { return octet >= ' ' && octet <= '~'; }),
        "a refusal can be printed");
    require(!isName(name) || refusal.rfind("refused " + name + ": ", 0) == 0, "a refusal names the script");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string octets(reinterpret_cast<const char*>(data), size);
    const std::string name = octets.substr(0, octets.find('\0'));
    const auto words = static_cast<std::size_t>(std::count(octets.begin(), octets.end(), '\0'));
    const bool isGood = isName(name) && octets.back() == '\0' && words <= ScriptService::mostWords;
    const ScriptService::ScriptRequest request = ScriptService::parse(octets);
    require(request.words.empty() != request.refusal.empty(), "words or a refusal");
    require(!request.words.empty() == isGood, "a script of the panel with few words that end is taken");
    if (isGood) {
        require(written(request.words) == octets, "the words are those of the request");
    } else {
        checkRefusal(request.refusal, name);
    }
    return 0;
}
