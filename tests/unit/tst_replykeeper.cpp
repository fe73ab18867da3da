// SPDX-License-Identifier: MIT
#include "replykeeper.h"

#include <QNetworkAccessManager>
#include <QPointer>
#include <QTest>

#include "webserver.h"

using Varnel::ReplyKeeper;

class tst_ReplyKeeper : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        server.serve("/log", "the log");
        manager = std::make_unique<QNetworkAccessManager>();
        reply = manager->get(QNetworkRequest(server.url("/log")));
        QTRY_VERIFY(reply->isFinished());
    }

    void keepsReplyThroughDeferredDeletion()
    {
        ReplyKeeper keeper(reply);
        for (int times = 0; times < 3; ++times) {
            reply->deleteLater();
            deliverDeletions();
            QVERIFY(reply);
            QCOMPARE(keeper.get(), reply.data());
        }
        QCOMPARE(reply->readAll(), QByteArray("the log"));
    }

    void schedulesDeletionThatWasPutOff()
    {
        {
            const ReplyKeeper keeper(reply);
            reply->deleteLater();
            deliverDeletions();
        }
        QVERIFY(reply);
        deliverDeletions();
        QVERIFY(!reply);
    }

    void leavesReplyThatNobodyScheduled()
    {
        {
            const ReplyKeeper keeper(reply);
            deliverDeletions();
        }
        deliverDeletions();
        QVERIFY(reply);
    }

    void survivesOutrightDeletion()
    {
        const ReplyKeeper keeper(reply);
        manager.reset(); // takes its replies along
        QVERIFY(!reply);
        QVERIFY(!keeper.get());
    }

private:
    static void deliverDeletions() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    WebServer server;
    std::unique_ptr<QNetworkAccessManager> manager;
    QPointer<QNetworkReply> reply;
};

QTEST_GUILESS_MAIN(tst_ReplyKeeper)
#include "tst_replykeeper.moc"
