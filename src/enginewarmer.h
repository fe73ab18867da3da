// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>

namespace Varnel {

/// Lets the engine lay out and paint a small page off the screen while the panel waits for its controller, so
/// that fonts, style sheets and script engine are ready for the first real page. Sends no requests and does
/// not use the view or its access manager.
class EngineWarmer : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(EngineWarmer)

public:
    /// Warms the engine up once, shortly after the event loop has started.
    explicit EngineWarmer(QObject* parent = nullptr);

    /// Warms the engine up at once.
    static void warmUp();
};

} // namespace Varnel
