// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QJsonObject>
#include <QList>

#include "program.h"

/// The simulated controller at 192.168.7.2, which broadcasts its frames and serves its page.
class Simulator : public Program
{
public:
    Simulator()
        : Program("r7m-simulator"_s)
    {
    }

    /// The picture of its still page ("--page plain"), except the caption in the band at the bottom, which
    /// covers less than two parts in a hundred.
    static QImage plainPage();

    /// Starts it with these options added and waits until it listens.
    [[nodiscard]] bool startAndListen(const QStringList& options = {});
    /// Waits for an upload; its first file, empty when there is none.
    QJsonObject awaitUpload() const;
};
