// SPDX-License-Identifier: MIT
#pragma once

#include <QTest>

/// The columns of a data-driven test and, by calls, its rows:
///     const Rows<int, QString> row("length", "text");
///     row("empty: refused", 0, "no text"_s);
template<typename... Types>
class Rows
{
public:
    template<typename... Names>
    explicit Rows(Names... names)
    {
        static_assert(sizeof...(Names) == sizeof...(Types), "each column has a name");
        (QTest::addColumn<Types>(names), ...);
    }

    void operator()(const char* name, const Types&... values) const
    {
        QTestData& row = QTest::newRow(name);
        (void)(row << ... << values);
    }
};
