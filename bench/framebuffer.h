// SPDX-License-Identifier: MIT
#pragma once

#include <QFile>
#include <QPoint>
#include <QRect>

namespace VarnelBench {

/// The X server's frame buffer as a file in memory: reading it puts no load on the server, which is busy
/// while a program starts.
class FrameBuffer
{
    Q_DISABLE_COPY_MOVE(FrameBuffer)

public:
    FrameBuffer() = default;

    /// Maps the file that the server, started with -fbdir, keeps in X window dump format.
    [[nodiscard]] bool map(const QString& path);

    /// The colour at `point`, 0xRRGGBB.
    unsigned pixel(QPoint point) const;
    /// True when `area` has more than one colour.
    bool isWrittenOn(const QRect& area) const;

private:
    QFile file;
    const uchar* pixels = nullptr;
    int stride = 0;
};

} // namespace VarnelBench
