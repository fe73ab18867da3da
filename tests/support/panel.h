// SPDX-License-Identifier: MIT
#pragma once

#include "program.h"

/// The panel application. It runs on the offscreen platform unless a display is set.
class Panel : public Program
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Panel)

public:
    explicit Panel(QObject* parent = nullptr);

    /// Lets it run on the X display `name`, such as ":99".
    void setDisplay(const QString& name);
    /// Starts it and waits until its UDP port is bound and its event loop is about to run.
    [[nodiscard]] bool startAndBind(const QStringList& arguments = {});
};
