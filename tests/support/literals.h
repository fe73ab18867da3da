// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/// "text"_s: the QString that QStringLiteral("text") makes, easier on the eye where tests are full of them.
inline QString operator""_s(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}
