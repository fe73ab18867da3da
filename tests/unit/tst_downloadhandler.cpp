// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <QProgressBar>

#include "downloadscene.h"
#include "rows.h"

/// Downloads that succeed, and downloads that are refused.
class tst_DownloadHandler : public DownloadScene
{
    Q_OBJECT

private slots:
    void init() { setUp(); }
    void cleanup() { tearDown(); }

    void savesFinishedReplyAtOnce()
    {
        server->serve(logPath, {{}, "the log", -1, true});
        const QPointer<QNetworkReply> reply = request(logPath);
        QTRY_VERIFY(reply->isFinished());
        reply->deleteLater();
        QVERIFY(handler->start(reply));

        QCOMPARE(users->content("log.txt"_s), QByteArray("the log"));
        QCOMPARE(user->seen(), QStringList({"FileDialog"_s, "TimedPopup"_s}));
        QCOMPARE(messages, QStringList("Download complete"_s));
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(lines(), savedLines(logPath, "log.txt"));
        QVERIFY(criticalLines().isEmpty());
        QTRY_VERIFY(!reply);
    }

    void savesRunningReplyWhenItFinishes()
    {
        const QPointer<QNetworkReply> reply = offerHalf();
        QVERIFY(findPopup("ProgressPopup"_s));
        QCOMPARE(findPopup("ProgressPopup"_s)->parentWidget(), window.get());
        QCOMPARE(findPopup("ProgressPopup"_s)->findChild<QLabel*>()->text(), "Download in progress"_s);
        QCOMPARE(users->content("log.txt"_s), QByteArray());
        QCOMPARE(users->remounts(), QStringList("rw"_s));

        server->release(logPath);
        QTRY_COMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(users->content("log.txt"_s), QByteArray("first part, second part"));
        QCOMPARE(user->seen(), QStringList({"FileDialog"_s, "ProgressPopup"_s, "TimedPopup"_s}));
        QVERIFY(!findPopup("ProgressPopup"_s));
        QCOMPARE(lines(), savedLines(logPath, "log.txt"));
        QTRY_VERIFY(!reply);
    }

    void savesBody_data()
    {
        const Rows<QByteArray, bool> row("body", "withLength");
        QByteArray all;
        for (int octet = 0; octet < 256; ++octet) {
            all.append(static_cast<char>(octet));
        }
        row("empty: empty file", {}, true);
        row("every octet value: unchanged", all, true);
        row("length unknown: whole", all.repeated(300), false);
        row("8 MiB: whole", all.repeated(32768), true);
    }

    void savesBody()
    {
        QFETCH(QByteArray, body);
        QFETCH(bool, withLength);
        offer(logPath, {{}, body, -1, withLength});
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->entries(), QStringList("log.txt"_s));
        QVERIFY(users->content("log.txt"_s) == body);
        QCOMPARE(lines(), savedLines(logPath, "log.txt"));
    }

    void refusesWithoutDrive()
    {
        users->pull();
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
        QTRY_COMPARE(started, QVector<bool>{false});

        QCOMPARE(messages, QStringList("USB drive not detected."_s));
        QCOMPARE(user->seen(), QStringList("TimedPopup"_s));
        QCOMPARE(lines(), QStringList({"TIME - Download request for '%1'"_s.arg(url(logPath)),
                                       "TIME - Download canceled: USB drive not mounted"_s}));
        QVERIFY(users->remounts().isEmpty());
        QTRY_VERIFY(!reply); // the deletion that its page wanted
    }

    void letsUserCancel()
    {
        users->put("log.txt"_s, "old");
        QStringList shown;
        user->onWaiting("FileDialog"_s, [&](QDialog* dialog) {
            shown << dialog->windowTitle() << dialog->findChild<QLabel*>("lblFileValue"_s)->text();
            QVERIFY(dialog->isModal());
            press(dialog, QDialogButtonBox::Cancel);
        });
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
        QTRY_COMPARE(started, QVector<bool>{false});

        QCOMPARE(shown, QStringList({"Download"_s, "log-1.txt"_s}));
        QCOMPARE(user->seen(), QStringList("FileDialog"_s));
        QCOMPARE(lines(), QStringList({"TIME - Download request for '%1'"_s.arg(url(logPath)),
                                       "TIME - Download canceled by user"_s}));
        QVERIFY(users->remounts().isEmpty());
        QCOMPARE(users->entries(), QStringList("log.txt"_s));
        QTRY_VERIFY(!reply);
    }

    void namesByHeader_data()
    {
        const Rows<QByteArray, QByteArray> row("name", "saved");
        row("quotes", "\"a b.txt\"", "\"a b.txt\"");
        row("a colon in front", ":a.txt", ":a.txt");
        row("taken: numbered", "old.txt", "old-1.txt");
    }

    void namesByHeader()
    {
        QFETCH(QByteArray, name);
        QFETCH(QByteArray, saved);
        users->put("old.txt"_s, "old");
        offer(logPath, {"Content-Disposition: attachment; filename=" + name + "\r\n", "the log", -1, true});
        QTRY_COMPARE(lines(), savedLines(logPath, saved.constData()));
        QCOMPARE(users->content(QString::fromLatin1(saved)), QByteArray("the log"));
        QCOMPARE(users->content("old.txt"_s), QByteArray("old"));
    }

    void namesByDateAndTime()
    {
        const auto path = "/logs/"_s;
        offer(path, {{}, "the log", -1, true});
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->entries().size(), 1);
        const QString name = users->entries().constFirst();
        QVERIFY2(QRegularExpression("^\\d{8}-\\d{6}$"_s).match(name).hasMatch(), qPrintable(name));
        QStringList expected = savedLines(path, qPrintable(name));
        expected.insert(1, "TIME - No filename specified, using '%1'"_s.arg(name));
        QCOMPARE(lines(), expected);
    }

    void refusesName_data()
    {
        const Rows<QByteArray, QString> row("name", "path");
        row("way up and down", "../plugged", "%1/../plugged"_s);
        row("absolute", "/tmp/varnel-absolute", "/tmp/varnel-absolute"_s);
        row("into a directory of the drive", "sub/log.txt", "%1/sub/log.txt"_s);
        row("300 characters", QByteArray(300, 'n'), "%1/"_s + QString(300, QLatin1Char('n')));
    }

    void refusesName()
    {
        QFETCH(QByteArray, name);
        QFETCH(QString, path);
        path = path.contains(QLatin1String("%1")) ? path.arg(users->path()) : path;
        QVERIFY(QDir(users->path()).mkdir("sub"_s));
        const QPointer<QNetworkReply> reply = offer(
            logPath, {"Content-Disposition: attachment; filename=" + name + "\r\n", "the log", -1, true});
        QTRY_COMPARE(started, QVector<bool>{false});

        QCOMPARE(lines(), QStringList({
                              "TIME - Download request for '%1'"_s.arg(url(logPath)),
                              "Rw-remount the usb drive"_s,
                              "RemountUSB \"rw\""_s,
                              "TIME - File will be saved to '%1'"_s.arg(path),
                              "TIME - Error opening file '%1' for writing."_s.arg(path),
                              "Ro-remount the usb drive"_s,
                              "RemountUSB \"ro\""_s,
                          }));
        QCOMPARE(criticalLines(), QStringList(lines().at(4)));
        QCOMPARE(messages,
                 QStringList("Error opening file '%1' for writing."_s)); // as it is stored
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(users->entries(), QStringList("sub"_s));
        QVERIFY(QDir(users->path("sub"_s)).isEmpty());
        QVERIFY(!QFile::exists("/tmp/varnel-absolute"_s));
        QCOMPARE(QFile(users->marker()).size(), 0);
        QTRY_VERIFY(!reply);
    }

    void movesProgressBar_data()
    {
        const Rows<qint64, qint64, int> row("read", "total", "value");
        row("nothing of something: 0", 0, 500, 0);
        row("a third: truncated", 1, 3, 33);
        row("all: 100", 1000, 1000, 100);
        row("beyond 32 bits: 50", qint64(1) << 40, qint64(1) << 41, 50);
        row("total unknown: ignored", 7, -1, 77);
        row("total unknown, negative beyond 32 bits: ignored", (qint64(1) << 32) - 1, -1, 77);
        row("total zero: ignored", 0, 0, 77);
        row("more than all: ignored", 3, 2, 77);
    }

    void movesProgressBar()
    {
        QFETCH(qint64, read);
        QFETCH(qint64, total);
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, "1234567890", 5, true});
        QTRY_VERIFY(findPopup("ProgressPopup"_s));
        const auto* const bar = findPopup("ProgressPopup"_s)->findChild<QProgressBar*>();

        handler->downloadProgress(77, 100);
        QCOMPARE(bar->value(), 77);
        handler->downloadProgress(read, total);
        QTEST(bar->value(), "value");

        server->release(logPath);
        QTRY_VERIFY(!reply);
    }

    void barFollowsReply()
    {
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, QByteArray(1000, 'x'), 500, true});
        QTRY_VERIFY(findPopup("ProgressPopup"_s));
        const auto* const bar = findPopup("ProgressPopup"_s)->findChild<QProgressBar*>();
        QCOMPARE(bar->value(), 0);
        // The reply reports its progress ten times a second at most.
        QTRY_VERIFY((server->sendMore(logPath, 1), bar->value() >= 50));
        QVERIFY(bar->value() < 60);
        server->release(logPath);
        QTRY_COMPARE(users->content("log.txt"_s).size(), 1000);
        QTRY_VERIFY(!reply);
    }

    void leavesBarWithoutTotal()
    {
        const QPointer<QNetworkReply> reply = offer(logPath, {{}, "1234567890", 5, false});
        QTRY_COMPARE(started, QVector<bool>{true});
        const auto* const bar = findPopup("ProgressPopup"_s)->findChild<QProgressBar*>();
        QTRY_COMPARE(reply->bytesAvailable(), 5);
        QCOMPARE(bar->value(), 0);
        server->release(logPath);
        QTRY_COMPARE(users->remounts().size(), 2);
        QCOMPARE(users->content("log.txt"_s), QByteArray("1234567890"));
        handler->downloadProgress(1, 2); // without a popup there is no bar to move
    }

    void finishedWithoutDownload()
    {
        handler->downloadFinished();
        QCOMPARE(lines(), QStringList({"TIME - Download complete"_s, "Ro-remount the usb drive"_s,
                                       "RemountUSB \"ro\""_s}));
        QCOMPARE(messages, QStringList("Download complete"_s));
        QVERIFY(users->entries().isEmpty());
    }

    void remounts()
    {
        QVERIFY(handler->remountUsb(true));
        QVERIFY(handler->remountUsb(false));
        QCOMPARE(users->remounts(), QStringList({"rw"_s, "ro"_s}));
        QCOMPARE(lines(), QStringList({"RemountUSB \"rw\""_s, "RemountUSB \"ro\""_s}));
    }

    void remountNeedsItsScript()
    {
        QVERIFY(QFile::remove(users->script()));
        offer(logPath, {{}, "the log", -1, true});
        QTRY_COMPARE(lines(), savedLines(logPath, "log.txt"));
        QVERIFY(users->remounts().isEmpty());
        QCOMPARE(users->content("log.txt"_s), QByteArray("the log"));
    }
};

QTEST_MAIN(tst_DownloadHandler)
#include "tst_downloadhandler.moc"
