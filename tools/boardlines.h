// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVector>

namespace Board {

/// One output line of the panel as the kernel's files show it.
struct BoardLine
{
    bool exported = false;  ///< its directory exists
    bool driven = false;    ///< its direction is "out"
    bool on = false;        ///< lit or sounding
    bool activeLow = false; ///< "on" is a low level on the line
};

inline bool operator==(const BoardLine& left, const BoardLine& right)
{
    return left.exported == right.exported && left.driven == right.driven && left.on == right.on &&
           left.activeLow == right.activeLow;
}
inline bool operator!=(const BoardLine& left, const BoardLine& right)
{
    return !(left == right);
}

/// Reads the outputs on GPIO lines from a directory laid out as /sys/class/gpio.
class BoardLines
{
public:
    /// `directory` contains "gpio224" and its siblings; `lines` are the numbers to read.
    BoardLines(QString directory, QVector<int> lines);

    /// Reads all lines again; true when one of them has changed.
    bool refresh();
    /// The lines as last read, in the order given to the constructor.
    const QVector<BoardLine>& current() const { return outputs; }

private:
    BoardLine readLine(int line, const BoardLine& before) const;

    QString directory;
    QVector<int> lines;
    QVector<BoardLine> outputs;
};

/// Reads a record of script runs: each is the number of its words, then the words, each ended by a NUL.
class ScriptRuns
{
public:
    explicit ScriptRuns(QString file);

    /// Reads what was added since the last call; one text a run, words with blanks or nothing in them quoted.
    /// A record that became shorter is read from its beginning.
    QStringList added();

private:
    QString path;
    qint64 position = 0;
};

} // namespace Board
