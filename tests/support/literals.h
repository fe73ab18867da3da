// SPDX-License-Identifier: MIT
#pragma once

#include <QStringList>

/// "text"_s: the QString that QStringLiteral("text") makes, easier on the eye where tests are full of them.
inline QString operator""_s(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size));
}

/// "one two"_words: the words between blanks.
inline QStringList operator""_words(const char* text, std::size_t size)
{
    return QString::fromUtf8(text, static_cast<int>(size)).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}
