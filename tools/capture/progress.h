// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <tuple>

#include <unistd.h>

#include <QElapsedTimer>

/// Shows once a second how far a long file has been read, if standard error is a terminal.
class Progress
{
public:
    /// `word` is shown before the percentage; if `isWanted` is false, nothing is shown.
    Progress(const char* word, qint64 wholeSize, bool isWanted = true)
        : verb(word)
        , whole(wholeSize)
        , isShown(isWanted && wholeSize > 0 && isatty(STDERR_FILENO) != 0)
    {
        clock.start();
    }
    ~Progress()
    {
        if (isBegun) {
            std::ignore = std::fputs("\r\033[K", stderr);
        }
    }
    Q_DISABLE_COPY_MOVE(Progress)

    /// Takes the octets read so far; may be called for each packet.
    void show(qint64 position)
    {
        constexpr qint64 everyMs = 1000;
        if (!isShown || clock.elapsed() < everyMs) {
            return;
        }
        clock.start();
        isBegun = true;
        std::ignore = std::fprintf(stderr, "\r%s %3d %%", verb, int(position * 100 / whole));
    }

private:
    QElapsedTimer clock;
    const char* const verb;
    const qint64 whole;
    const bool isShown;
    bool isBegun = false;
};
