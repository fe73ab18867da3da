// SPDX-License-Identifier: MIT
#pragma once

#include <QNetworkReply>
#include <QObject>
#include <QPointer>

namespace Varnel {

/// Protects a network reply against deferred deletion. The page schedules each reply for deletion when it
/// receives it and again when it has finished, and a dialog's event loop would delete it while it is still
/// being read. The keeper postpones the deletion until it is destroyed.
class ReplyKeeper : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ReplyKeeper)

public:
    /// Protects `kept`, which its access manager still owns.
    explicit ReplyKeeper(QNetworkReply* kept);

    /// Schedules a postponed deletion again.
    ~ReplyKeeper() override;

    /// The reply, or null when it was deleted directly, with its access manager.
    [[nodiscard]] QNetworkReply* get() const { return reply; }

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    QPointer<QNetworkReply> reply;
    bool deletionPutOff = false;
};

} // namespace Varnel
