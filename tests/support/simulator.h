// SPDX-License-Identifier: MIT
#pragma once

#include <QImage>
#include <QJsonObject>
#include <QList>

#include "program.h"

/// The simulated controller at 192.168.7.2, which broadcasts its frames and serves its page.
class Simulator : public Program
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(Simulator)

public:
    explicit Simulator(QObject* parent = nullptr);

    /// The picture of its still page ("--page plain"), except the caption in the band at the bottom, which
    /// covers less than two parts in a hundred.
    static QImage plainPage();

    /// Starts it with these options added and waits until it listens.
    [[nodiscard]] bool startAndListen(const QStringList& options = {});
    /// Lets it do one action, as its help describes them.
    void act(const QString& action);
    /// The events so far, one object for each frame, request and action.
    QList<QJsonObject> events() const;
};
