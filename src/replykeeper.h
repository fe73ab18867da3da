// SPDX-License-Identifier: MIT
#pragma once

#include <QNetworkReply>
#include <QObject>
#include <QPointer>

namespace Varnel {

/// Keeps a network reply alive against deferred deletion. The page schedules every reply for deletion as soon
/// as it has seen it, and again when it has finished; a dialog's event loop would then carry that out while
/// the reply is still being read. The keeper puts such a deletion off until it goes itself.
class ReplyKeeper : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ReplyKeeper)

public:
    /// Begins to keep `kept`, which stays the property of its access manager.
    explicit ReplyKeeper(QNetworkReply* kept);

    /// Lets the reply go: a deletion that was put off is scheduled again.
    ~ReplyKeeper() override;

    /// The reply, or null when it was deleted outright (with its access manager) all the same.
    [[nodiscard]] QNetworkReply* get() const { return reply; }

    bool eventFilter(QObject* object, QEvent* event) override;

private:
    QPointer<QNetworkReply> reply;
    bool deletionPutOff = false;
};

} // namespace Varnel
