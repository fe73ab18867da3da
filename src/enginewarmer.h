// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

namespace Varnel {

/// Lets the engine lay out and paint a small page of its own, off the screen, while the panel waits for its
/// controller: the first real page then finds fonts, style sheets and script engine ready. It asks nothing of
/// the network and touches neither the view nor its access manager.
class EngineWarmer : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EngineWarmer)

public:
    /// Warms the engine up once, shortly after the event loop has begun to run.
    explicit EngineWarmer(QObject* parent = nullptr);

    /// Does so at once.
    static void warmUp();
};

} // namespace Varnel
