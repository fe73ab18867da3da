// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <csignal>

#include <QScopeGuard>

#include <sys/resource.h>

#include "downloadscene.h"
#include "rows.h"

/// Events while a file is saved. Nothing crashes, the log says what is missing, and the drive is read-only at
/// the end.
class tst_DownloadHandlerTrouble : public DownloadScene
{
    Q_OBJECT

private slots:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void savesWhatArrivedOfBrokenReply()
    {
        const QPointer<QNetworkReply> reply = offerHalf();
        server->breakOff(logPath);
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->content("log.txt"_s), QByteArray("first part"));
        QCOMPARE(messages, QStringList("Download complete"_s));
        QCOMPARE(lines(), savedLines(logPath, "log.txt"));
        QTRY_VERIFY(!reply);
    }

    // A controller that is switched off does not close the connection: without a limit the popup would stay
    // for hours.
    void givesUpOnSilentServer()
    {
        const QPointer<QNetworkReply> reply = offerHalf();
        auto* const silence = handler->findChild<QTimer*>();
        QVERIFY(silence);
        QVERIFY(silence->isActive() && silence->isSingleShot());
        silence->start(60000);
        handler->downloadProgress(10, 23);
        QCOMPARE(silence->interval(), 120000); // each part that arrives restarts the time

        silence->start(0);
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->content("log.txt"_s), QByteArray("first part"));
        QStringList expected = savedLines(logPath, "log.txt");
        expected[4] =
            "TIME - Download to '%1' broken off: the server has fallen silent"_s.arg(stick("log.txt"));
        QCOMPARE(lines(), expected);
        QCOMPARE(criticalLines(), QStringList(expected.at(4)));
        QCOMPARE(findPopup("ProgressPopup"_s), nullptr);
        QVERIFY(!silence->isActive());
        QTRY_VERIFY(!reply);
    }

    void reportsFullDrive()
    {
        offer(logPath, {{}, QByteArray(5000, 'x'), 10, true});
        QTRY_COMPARE(started, QVector<bool>{true});
        rlimit before{};
        ::getrlimit(RLIMIT_FSIZE, &before);
        const auto restore = qScopeGuard([&before] { ::setrlimit(RLIMIT_FSIZE, &before); });
        const rlimit limit{3000, before.rlim_max}; // of a file, as a full drive would
        ::setrlimit(RLIMIT_FSIZE, &limit);
        QVERIFY(std::signal(SIGXFSZ, SIG_IGN) != SIG_ERR);
        server->release(logPath);
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->content("log.txt"_s), QByteArray(3000, 'x'));
        const QString line = "TIME - Error writing file '%1': 3000 of 5000 octets written: File too large"_s;
        QCOMPARE(criticalLines(), QStringList(line.arg(stick("log.txt"))));
    }

    void reportsFailedSynchronization_data()
    {
        const Rows<QString, QString> row("device", "writeError");
        row("written but not synchronised", "/dev/null"_s, {});
        row("nothing written", "/dev/full"_s,
            "TIME - Error writing file '%1': 0 of 7 octets written: No space left on device"_s);
    }

    void reportsFailedSynchronization()
    {
        QFETCH(QString, device);
        QFETCH(QString, writeError);
        // A device that no fsync can force anything to takes the place of the file once the name is settled.
        answerChooser(QDialogButtonBox::Ok, [&] { QFile::link(device, stick("log.txt")); });
        offer(logPath, {{}, "the log", -1, true});
        QTRY_COMPARE(users->remounts().size(), 2);

        QStringList expected = savedLines(logPath, "log.txt");
        expected.insert(5, "TIME - Filesystem synchronization failed: error %1"_s.arg(EINVAL));
        if (!writeError.isEmpty()) {
            expected.insert(5, writeError.arg(stick("log.txt")));
            QCOMPARE(criticalLines(), QStringList(expected.at(5)));
        }
        QCOMPARE(lines(), expected);
        QCOMPARE(messages, QStringList("Download complete"_s));
    }

    void reportsDrivePulledWhileRunning()
    {
        offerHalf();
        users->pull();
        server->release(logPath);
        QTRY_COMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(criticalLines(),
                 QStringList("TIME - USB drive removed while '%1' was being saved"_s.arg(stick("log.txt"))));
    }

    void refusesDriveThatWasPulledMeanwhile()
    {
        answerChooser(QDialogButtonBox::Ok, [this] { users->pull(); });
        offer(logPath, {{}, "the log", -1, true});
        QTRY_COMPARE(started, QVector<bool>{false});

        // The directory is still there, on the panel's own storage: nothing may be hidden in it.
        QVERIFY(users->entries().isEmpty());
        QCOMPARE(criticalLines(),
                 QStringList("TIME - Error opening file '%1' for writing."_s.arg(stick("log.txt"))));
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
    }

    void survivesReplyDeletedWhileAsking()
    {
        answerChooser(QDialogButtonBox::Ok, [this] { manager.reset(); });
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
        QTRY_COMPARE(started, QVector<bool>{false});
        QVERIFY(!reply);
        QCOMPARE(criticalLines(),
                 QStringList("TIME - Download of '%1' lost: its reply is gone"_s.arg(url(logPath))));
        QVERIFY(users->remounts().isEmpty());
    }

    void breaksOff_data()
    {
        const Rows<QString, QByteArray> row("reason", "saved");
        row("reply deleted", "its reply is gone"_s, {});
        row("handler deleted", "the page is gone"_s, "first part");
    }

    void breaksOff()
    {
        QFETCH(QString, reason);
        QFETCH(QByteArray, saved);
        const QPointer<QNetworkReply> reply = offerHalf();
        if (reason == "its reply is gone"_s) {
            manager.reset();
        } else {
            handler.release()->deleteLater();
        }
        QTRY_COMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(users->content("log.txt"_s), saved);
        QCOMPARE(criticalLines(),
                 QStringList("TIME - Download to '%1' broken off: %2"_s.arg(stick("log.txt"), reason)));
        QTRY_VERIFY(!reply);
        QVERIFY(!findPopup("ProgressPopup"_s));
    }

    void secondDownloadReplacesFirst()
    {
        const auto other = "/other.csv"_s;
        const QPointer<QNetworkReply> first = offerHalf();
        const QPointer<QNetworkReply> second = offer(other, {{}, "1;2;3", 2, true});
        QTRY_COMPARE(started, QVector<bool>({true, true}));

        // The drive has the first part of the first file, and the log says that the file is incomplete.
        QCOMPARE(users->content("log.txt"_s), QByteArray("first part"));
        QCOMPARE(criticalLines(),
                 QStringList("TIME - Download to '%1' broken off: another download takes its place"_s.arg(
                     stick("log.txt"))));
        QTRY_VERIFY(!first);
        QVERIFY(second);
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "rw"_s}));

        server->release(other);
        QTRY_COMPARE(users->remounts().size(), 3);
        QCOMPARE(users->remounts().constLast(), "ro"_s);
        QCOMPARE(users->content("other.csv"_s), QByteArray("1;2;3"));
        QCOMPARE(messages, QStringList("Download complete"_s));
        QVERIFY(!findPopup("ProgressPopup"_s));
        QTRY_VERIFY(!second);
    }

    void refusedSecondDownloadLeavesFirst_data()
    {
        const Rows<bool> row("plugged");
        row("cancelled by the user", true);
        row("drive pulled", false);
    }

    void refusedSecondDownloadLeavesFirst()
    {
        QFETCH(bool, plugged);
        offerHalf();
        answerChooser(QDialogButtonBox::Cancel);
        if (!plugged) {
            users->pull();
        }
        const QPointer<QNetworkReply> second = offer("/other.csv"_s, {{}, "1;2;3", 2, true});
        QTRY_COMPARE(started, QVector<bool>({true, false}));
        users->plug();

        server->release(logPath);
        QTRY_COMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(users->content("log.txt"_s), QByteArray("first part, second part"));
        QCOMPARE(users->entries(), QStringList("log.txt"_s));
        QVERIFY(criticalLines().isEmpty());
        QTRY_VERIFY(!second);
    }

    void downloadWhileAnotherIsAsked()
    {
        // The page starts a second download of the same name while the first waits for a yes; the user says
        // yes to both, the upper one first.
        const auto twin = "/twin/log.txt"_s;
        int asked = 0;
        user->onWaiting("FileDialog"_s, [&](QDialog* dialog) {
            if (++asked == 1) {
                offer(twin, {{}, "the twin", -1, true});
                QTRY_COMPARE(users->content("log.txt"_s), QByteArray("the twin"));
            }
            press(dialog, QDialogButtonBox::Ok);
        });
        offer(logPath, {{}, "the log", -1, true});
        QTRY_COMPARE(started, QVector<bool>({true, true}));

        QCOMPARE(users->content("log.txt"_s), QByteArray("the twin"));
        QCOMPARE(users->content("log-1.txt"_s), QByteArray("the log"));
        QTRY_COMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s, "rw"_s, "ro"_s}));
        QVERIFY(criticalLines().isEmpty());
    }

    void downloadWhileCompletionIsShown()
    {
        const auto other = "/other.csv"_s;
        QPointer<QDialog> completion;
        user->onWaiting("TimedPopup"_s, [&](QDialog* popup) {
            if (messages.isEmpty()) { // the first popup stays until the second download runs
                messages << QString();
                completion = popup;
                offer(other, {{}, "1;2;3", 2, true});
            } else {
                popup->close();
            }
        });
        user->onShown("ProgressPopup"_s, [&](QDialog*) {
            if (completion) {
                completion->close();
            }
        });
        offer(logPath, {{}, "the log", -1, true});
        QTRY_VERIFY(users->remounts().size() == 2 && !completion);
        // The first one ends now. It must not take the drive away from the second one.
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "rw"_s}));

        server->release(other);
        QTRY_COMPARE(users->remounts().size(), 3);
        QCOMPARE(users->remounts().constLast(), "ro"_s);
        QCOMPARE(users->content("log.txt"_s), QByteArray("the log"));
        QCOMPARE(users->content("other.csv"_s), QByteArray("1;2;3"));
        QVERIFY(criticalLines().isEmpty());
    }

    void applicationQuits_data()
    {
        const Rows<QString, QStringList, QByteArray> row("during", "remounts", "content");
        const QStringList both{"rw"_s, "ro"_s};
        row("while asking: nothing saved", "FileDialog"_s, {}, {});
        row("while running: what has arrived", "ProgressPopup"_s, both, "first part");
        row("while completion is shown: all", "TimedPopup"_s, both, "first part, second part");
    }

    void applicationQuits()
    {
        QFETCH(QString, during);
        const QPointer<QNetworkReply> reply = request(logPath);
        const auto quit = [](QDialog*) { QCoreApplication::quit(); };
        server->serve(logPath, {{}, "first part, second part", 10, true});
        user->onShown("ProgressPopup"_s, [this](QDialog*) { server->release(logPath); });
        if (during == QLatin1String("ProgressPopup")) {
            user->onShown(during, quit);
        } else {
            user->onWaiting(during, quit);
        }
        connect(reply, &QNetworkReply::readyRead, handler.get(), [this, reply] {
            if (started.isEmpty()) {
                reply->deleteLater();
                started << false;
                started << handler->start(reply);
            }
        });
        QCOMPARE(QCoreApplication::exec(), 0);

        QTEST(users->remounts(), "remounts");
        QTEST(users->content("log.txt"_s), "content");
        QTRY_VERIFY(!reply);
    }
};

QTEST_MAIN(tst_DownloadHandlerTrouble)
#include "tst_downloadhandler_trouble.moc"
