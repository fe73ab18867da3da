// SPDX-License-Identifier: MIT
#include "replykeeper.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

#include "webserver.h"

using Varnel::ReplyKeeper;

class tst_ReplyKeeper : public QObject
{
    Q_OBJECT

private slots:
    void keepsReplyThroughDeferredDeletion();
    void schedulesDeletionThatWasPutOff();
    void leavesReplyThatNobodyScheduled();
    void survivesOutrightDeletion();

private:
    QNetworkReply* get()
    {
        server.serve(QStringLiteral("/log"), {{}, "the log", -1, true});
        QNetworkReply* const reply = manager->get(QNetworkRequest(server.url(QStringLiteral("/log"))));
        QSignalSpy finished(reply, &QNetworkReply::finished);
        return finished.wait() ? reply : nullptr;
    }

    static void deliverDeletions() { QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); }

    WebServer server;
    std::unique_ptr<QNetworkAccessManager> manager = std::make_unique<QNetworkAccessManager>();
};

void tst_ReplyKeeper::keepsReplyThroughDeferredDeletion()
{
    const QPointer<QNetworkReply> reply = get();
    QVERIFY(reply);
    ReplyKeeper keeper(reply);
    for (int times = 0; times < 3; ++times) {
        reply->deleteLater();
        deliverDeletions();
        QVERIFY(reply);
        QCOMPARE(keeper.get(), reply.data());
    }
    QCOMPARE(reply->readAll(), QByteArray("the log"));
}

void tst_ReplyKeeper::schedulesDeletionThatWasPutOff()
{
    const QPointer<QNetworkReply> reply = get();
    QVERIFY(reply);
    {
        const ReplyKeeper keeper(reply);
        reply->deleteLater();
        deliverDeletions();
    }
    QVERIFY(reply);
    deliverDeletions();
    QVERIFY(!reply);
}

void tst_ReplyKeeper::leavesReplyThatNobodyScheduled()
{
    const QPointer<QNetworkReply> reply = get();
    QVERIFY(reply);
    {
        const ReplyKeeper keeper(reply);
        deliverDeletions();
    }
    deliverDeletions();
    QVERIFY(reply);
}

void tst_ReplyKeeper::survivesOutrightDeletion()
{
    const QPointer<QNetworkReply> reply = get();
    QVERIFY(reply);
    const ReplyKeeper keeper(reply);
    manager.reset(); // takes its replies along
    QVERIFY(!reply);
    QVERIFY(!keeper.get());
}

QTEST_GUILESS_MAIN(tst_ReplyKeeper)
#include "tst_replykeeper.moc"
