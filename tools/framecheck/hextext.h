// SPDX-License-Identifier: MIT
#pragma once

#include <optional>

#include <QByteArray>
#include <QIODevice>
#include <QString>

/// Reads frames from hexadecimal text. An empty line ends a frame. A line may begin with its offset, as in a
/// hex dump: then a column of text after the octets is left out, and offset 0 begins a frame. "#" begins a
/// comment.
class HexText
{
public:
    explicit HexText(QIODevice* source)
        : device(source)
    {
    }

    /// The next frame; nothing at the end or when something is wrong.
    [[nodiscard]] std::optional<QByteArray> next();

    /// The error, with the number of the line; empty when there is none.
    [[nodiscard]] QString error() const { return problem; }

private:
    void takeLine(const QByteArray& line);

    QIODevice* device;
    QByteArray frame;
    std::optional<QByteArray> finished; ///< the frame before the one that a line with offset 0 has begun
    int number = 0;
    QString problem;
};
