// SPDX-License-Identifier: MIT
#include "replykeeper.h"

#include <QEvent>

namespace Varnel {

ReplyKeeper::ReplyKeeper(QNetworkReply* kept)
    : reply(kept)
{
    kept->installEventFilter(this);
}

ReplyKeeper::~ReplyKeeper()
{
    if (!reply) {
        return;
    }
    reply->removeEventFilter(this);
    if (deletionPutOff) {
        reply->deleteLater();
    }
}

bool ReplyKeeper::eventFilter(QObject* object, QEvent* event)
{
    if (object == reply && event->type() == QEvent::DeferredDelete) {
        deletionPutOff = true;
        return true;
    }
    return QObject::eventFilter(object, event);
}

} // namespace Varnel
