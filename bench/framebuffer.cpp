// SPDX-License-Identifier: MIT
#include "framebuffer.h"

#include <cstddef>

#include <QtEndian>

namespace VarnelBench {

namespace {

// Fields of the dump's header (X11/XWDFile.h), 32 bits each, most significant octet first.
constexpr int headerSizeAt = 0;
constexpr int bitsPerPixelAt = 11 * 4;
constexpr int bytesPerLineAt = 12 * 4;
constexpr int colorsAt = 19 * 4;
constexpr int headerSize = 25 * 4;
constexpr int colorSize = 12;

} // namespace

bool FrameBuffer::map(const QString& path)
{
    file.setFileName(path);
    const uchar* const start = file.open(QIODevice::ReadOnly) ? file.map(0, file.size()) : nullptr;
    if (start == nullptr || file.size() < headerSize ||
        qFromBigEndian<quint32>(start + bitsPerPixelAt) != 32) {
        return false;
    }
    stride = qFromBigEndian<qint32>(start + bytesPerLineAt);
    pixels = start + qFromBigEndian<quint32>(start + headerSizeAt) +
             std::size_t{qFromBigEndian<quint32>(start + colorsAt)} * colorSize;
    return true;
}

unsigned FrameBuffer::pixel(QPoint point) const
{
    const std::ptrdiff_t line = stride;
    return qFromLittleEndian<quint32>(pixels + point.y() * line + std::ptrdiff_t{point.x()} * 4) & 0xFFFFFFU;
}

bool FrameBuffer::isWrittenOn(const QRect& area) const
{
    const unsigned first = pixel(area.topLeft());
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            if (pixel({x, y}) != first) {
                return true;
            }
        }
    }
    return false;
}

} // namespace VarnelBench
