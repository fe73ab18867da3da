// SPDX-License-Identifier: MIT
#pragma once

#include "figures.h"
#include "subject.h"

namespace VarnelBench {

/// A figure of several subjects, filled round by round.
class Figure
{
public:
    Figure(std::string title, std::string unit, const QList<Subject>& subjects)
        : title(std::move(title))
        , unit(std::move(unit))
    {
        for (const Subject& subject : subjects) {
            series.push_back({subject.name.toStdString(), {}, subject.target});
        }
    }

    void add(int subject, double value) { series[static_cast<std::size_t>(subject)].values.push_back(value); }

    /// Forgets the subjects' targets, which are those of another figure.
    void withoutTargets()
    {
        for (Series& one : series) {
            one.target = 0;
        }
    }

    void print(Floor floor = Floor::First) const { printFigure(title, unit, series, floor); }

private:
    std::string title;
    std::string unit;
    std::vector<Series> series;
};

} // namespace VarnelBench
