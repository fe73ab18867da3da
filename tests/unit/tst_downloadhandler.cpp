// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <QProgressBar>

#include "downloadscene.h"

/// Downloads that succeed, and downloads that are refused.
class tst_DownloadHandler : public DownloadScene
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void savesFinishedReplyAtOnce();
    void savesRunningReplyWhenItFinishes();
    void savesBody_data();
    void savesBody();
    void refusesWithoutDrive_data();
    void refusesWithoutDrive();
    void letsUserCancel();
    void numbersTakenName();
    void namesByHeader_data();
    void namesByHeader();
    void namesByDateAndTime();
    void refusesName_data();
    void refusesName();
    void showsTheNameAndTheFiles();
    void movesProgressBar_data();
    void movesProgressBar();
    void barFollowsReply();
    void leavesBarWithoutTotal();
    void finishedWithoutDownload();
    void remounts_data();
    void remounts();
    void remountNeedsExecutableScript_data();
    void remountNeedsExecutableScript();
};

void tst_DownloadHandler::init()
{
    setUp();
}

void tst_DownloadHandler::cleanup()
{
    tearDown();
}

void tst_DownloadHandler::savesFinishedReplyAtOnce()
{
    server->serve(logPath, {{}, "octets\0of the log\n", -1, true});
    const QPointer<QNetworkReply> reply = request(logPath);
    QTRY_VERIFY(reply->isFinished());
    reply->deleteLater();
    QVERIFY(handler->start(reply));

    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("octets\0of the log\n"));
    QCOMPARE(user->seen(), QStringList({QStringLiteral("FileDialog"), QStringLiteral("TimedPopup")}));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(lines(), savedLines(logPath, "log.txt"));
    QVERIFY(criticalLines().isEmpty());
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::savesRunningReplyWhenItFinishes()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QVERIFY(findPopup(QStringLiteral("ProgressPopup")));
    QCOMPARE(findPopup(QStringLiteral("ProgressPopup"))->findChild<QLabel*>()->text(),
             QStringLiteral("Download in progress"));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray());
    QCOMPARE(users->remounts(), QStringList(QStringLiteral("rw")));
    QVERIFY(reply);

    server->release(logPath);
    QTRY_COMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part, second part"));
    QCOMPARE(user->seen(), QStringList({QStringLiteral("FileDialog"), QStringLiteral("ProgressPopup"),
                                        QStringLiteral("TimedPopup")}));
    QVERIFY(!findPopup(QStringLiteral("ProgressPopup")));
    QCOMPARE(lines(), savedLines(logPath, "log.txt"));
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::savesBody_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<bool>("withLength");

    QByteArray all;
    for (int octet = 0; octet < 256; ++octet) {
        all.append(static_cast<char>(octet));
    }
    QTest::newRow("empty: empty file") << QByteArray() << true;
    QTest::newRow("one octet") << QByteArray("x") << true;
    QTest::newRow("every octet value: unchanged") << all << true;
    QTest::newRow("length unknown: whole") << all.repeated(300) << false;
    QTest::newRow("16 KiB: whole") << all.repeated(64) << true;
    QTest::newRow("8 MiB: whole") << all.repeated(32768) << true;
}

void tst_DownloadHandler::savesBody()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, withLength);
    offer(logPath, {{}, body, -1, withLength});
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->entries(), QStringList(QStringLiteral("log.txt")));
    QVERIFY(users->content(QStringLiteral("log.txt")) == body);
    QCOMPARE(lines(), savedLines(logPath, "log.txt"));
}

void tst_DownloadHandler::refusesWithoutDrive_data()
{
    QTest::addColumn<bool>("marker");
    QTest::addColumn<bool>("directory");

    QTest::newRow("no marker file") << false << true;
    QTest::newRow("no directory") << true << false;
    QTest::newRow("neither") << false << false;
}

void tst_DownloadHandler::refusesWithoutDrive()
{
    QFETCH(bool, marker);
    QFETCH(bool, directory);
    if (!marker) {
        users->pull();
    }
    if (!directory) {
        QVERIFY(QDir().rmdir(users->path()));
    }
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
    QTRY_COMPARE(started, QVector<bool>{false});

    QCOMPARE(messages, QStringList(QStringLiteral("USB drive not detected.")));
    QCOMPARE(user->seen(), QStringList(QStringLiteral("TimedPopup")));
    QCOMPARE(lines(), QStringList({QStringLiteral("NOW - Download request for '%1'").arg(url(logPath)),
                                   QStringLiteral("NOW - Download canceled: USB drive not mounted")}));
    QVERIFY(users->remounts().isEmpty());
    QTRY_VERIFY(!reply); // the deletion that its page wanted
}

void tst_DownloadHandler::letsUserCancel()
{
    answerChooser(QDialogButtonBox::Cancel);
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
    QTRY_COMPARE(started, QVector<bool>{false});

    QCOMPARE(user->seen(), QStringList(QStringLiteral("FileDialog")));
    QCOMPARE(lines(), QStringList({QStringLiteral("NOW - Download request for '%1'").arg(url(logPath)),
                                   QStringLiteral("NOW - Download canceled by user")}));
    QVERIFY(users->remounts().isEmpty());
    QVERIFY(users->entries().isEmpty());
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::numbersTakenName()
{
    users->put(QStringLiteral("log.txt"), "old");
    users->put(QStringLiteral("log-1.txt"), "older");
    offer(logPath, {{}, "new", -1, true});
    QTRY_COMPARE(lines(), savedLines(logPath, "log-2.txt"));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("old"));
    QCOMPARE(users->content(QStringLiteral("log-1.txt")), QByteArray("older"));
    QCOMPARE(users->content(QStringLiteral("log-2.txt")), QByteArray("new"));
}

void tst_DownloadHandler::namesByHeader_data()
{
    QTest::addColumn<QByteArray>("name");

    QTest::newRow("quotes") << QByteArray("\"a b.txt\"");
    QTest::newRow("a colon in front") << QByteArray(":a.txt");
}

void tst_DownloadHandler::namesByHeader()
{
    QFETCH(QByteArray, name);
    offer(logPath, {"Content-Disposition: attachment; filename=" + name + "\r\n", "the log", -1, true});
    QTRY_COMPARE(lines(), savedLines(logPath, name.constData()));
    QCOMPARE(users->content(QString::fromLatin1(name)), QByteArray("the log"));
}

void tst_DownloadHandler::namesByDateAndTime()
{
    const auto path = QStringLiteral("/logs/");
    offer(path, {{}, "the log", -1, true});
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->entries().size(), 1);
    const QString name = users->entries().constFirst();
    QVERIFY2(QRegularExpression(QStringLiteral("^\\d{8}-\\d{6}$")).match(name).hasMatch(), qPrintable(name));
    QStringList expected = savedLines(path, qPrintable(name));
    expected.insert(1, QStringLiteral("NOW - No filename specified, using '%1'").arg(name));
    QCOMPARE(lines(), expected);
}

void tst_DownloadHandler::refusesName_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<QString>("path");

    const auto row = [](const char* title, const QByteArray& name, const QString& path) {
        QTest::newRow(title) << name << path;
    };
    row("way up", "..", QStringLiteral("%1/.."));
    row("way up and down", "../plugged", QStringLiteral("%1/../plugged"));
    row("absolute", "/tmp/varnel-absolute", QStringLiteral("/tmp/varnel-absolute"));
    row("into a directory of the drive", "sub/log.txt", QStringLiteral("%1/sub/log.txt"));
    row("300 characters", QByteArray(300, 'n'), QStringLiteral("%1/") + QString(300, QLatin1Char('n')));
}

void tst_DownloadHandler::refusesName()
{
    QFETCH(QByteArray, name);
    QFETCH(QString, path);
    path = path.contains(QLatin1String("%1")) ? path.arg(users->path()) : path;
    QVERIFY(QDir(users->path()).mkdir(QStringLiteral("sub")));
    const QPointer<QNetworkReply> reply =
        offer(logPath, {"Content-Disposition: attachment; filename=" + name + "\r\n", "the log", -1, true});
    QTRY_COMPARE(started, QVector<bool>{false});

    QCOMPARE(lines(), QStringList({
                          QStringLiteral("NOW - Download request for '%1'").arg(url(logPath)),
                          QStringLiteral("Rw-remount the usb drive"),
                          QStringLiteral("RemountUSB \"rw\""),
                          QStringLiteral("NOW - File will be saved to '%1'").arg(path),
                          QStringLiteral("NOW - Error opening file '%1' for writing.").arg(path),
                          QStringLiteral("Ro-remount the usb drive"),
                          QStringLiteral("RemountUSB \"ro\""),
                      }));
    QCOMPARE(criticalLines(), QStringList(lines().at(4)));
    QCOMPARE(messages,
             QStringList(QStringLiteral("Error opening file '%1' for writing."))); // as it is stored
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(users->entries(), QStringList(QStringLiteral("sub")));
    QVERIFY(QDir(users->path(QStringLiteral("sub"))).isEmpty());
    QVERIFY(!QFile::exists(QStringLiteral("/tmp/varnel-absolute")));
    QCOMPARE(QFile(users->marker()).size(), 0);
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::showsTheNameAndTheFiles()
{
    users->put(QStringLiteral("log.txt"), "old");
    QString title;
    QString name;
    user->onWaiting(QStringLiteral("FileDialog"), [&](QDialog* dialog) {
        title = dialog->windowTitle();
        name = dialog->findChild<QLabel*>(QStringLiteral("lblFileValue"))->text();
        QVERIFY(dialog->isModal());
        press(dialog, QDialogButtonBox::Cancel);
    });
    offer(logPath, {{}, "the log", -1, true});
    QTRY_COMPARE(started, QVector<bool>{false});
    QCOMPARE(title, QStringLiteral("Download"));
    QCOMPARE(name, QStringLiteral("log-1.txt"));
}

void tst_DownloadHandler::movesProgressBar_data()
{
    QTest::addColumn<qint64>("read");
    QTest::addColumn<qint64>("total");
    QTest::addColumn<int>("value");

    QTest::newRow("nothing of something: 0") << qint64(0) << qint64(500) << 0;
    QTest::newRow("a third: truncated") << qint64(1) << qint64(3) << 33;
    QTest::newRow("nearly all: truncated") << qint64(999) << qint64(1000) << 99;
    QTest::newRow("all: 100") << qint64(1000) << qint64(1000) << 100;
    QTest::newRow("beyond 32 bits: 50") << (qint64(1) << 40) << (qint64(1) << 41) << 50;
    QTest::newRow("total unknown: ignored") << qint64(7) << qint64(-1) << 77;
    QTest::newRow("total unknown, negative beyond 32 bits: ignored")
        << ((qint64(1) << 32) - 1) << qint64(-1) << 77;
    QTest::newRow("total zero: ignored") << qint64(0) << qint64(0) << 77;
    QTest::newRow("total zero, something read: ignored") << qint64(9) << qint64(0) << 77;
    QTest::newRow("more than all: ignored") << qint64(3) << qint64(2) << 77;
}

void tst_DownloadHandler::movesProgressBar()
{
    QFETCH(qint64, read);
    QFETCH(qint64, total);
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "1234567890", 5, true});
    QTRY_VERIFY(findPopup(QStringLiteral("ProgressPopup")));
    const auto* const bar = findPopup(QStringLiteral("ProgressPopup"))->findChild<QProgressBar*>();

    handler->downloadProgress(77, 100);
    QCOMPARE(bar->value(), 77);
    handler->downloadProgress(read, total);
    QTEST(bar->value(), "value");

    server->release(logPath);
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::barFollowsReply()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, QByteArray(1000, 'x'), 500, true});
    QTRY_VERIFY(findPopup(QStringLiteral("ProgressPopup")));
    const auto* const bar = findPopup(QStringLiteral("ProgressPopup"))->findChild<QProgressBar*>();
    QCOMPARE(bar->value(), 0);
    // The reply reports its progress ten times a second at most.
    QTRY_VERIFY((server->sendMore(logPath, 1), bar->value() >= 50));
    QVERIFY(bar->value() < 60);
    server->release(logPath);
    QTRY_COMPARE(users->content(QStringLiteral("log.txt")).size(), 1000);
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandler::leavesBarWithoutTotal()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "1234567890", 5, false});
    QTRY_COMPARE(started, QVector<bool>{true});
    const auto* const bar = findPopup(QStringLiteral("ProgressPopup"))->findChild<QProgressBar*>();
    QTRY_COMPARE(reply->bytesAvailable(), 5);
    QCOMPARE(bar->value(), 0);
    server->release(logPath);
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("1234567890"));
    handler->downloadProgress(1, 2); // without a popup there is no bar to move
}

void tst_DownloadHandler::finishedWithoutDownload()
{
    handler->downloadFinished();
    QCOMPARE(lines(),
             QStringList({QStringLiteral("NOW - Download complete"),
                          QStringLiteral("Ro-remount the usb drive"), QStringLiteral("RemountUSB \"ro\"")}));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
    QVERIFY(users->entries().isEmpty());
}

void tst_DownloadHandler::remounts_data()
{
    QTest::addColumn<bool>("readWrite");
    QTest::addColumn<QString>("argument");

    QTest::newRow("read-write: rw") << true << QStringLiteral("rw");
    QTest::newRow("read-only: ro") << false << QStringLiteral("ro");
}

void tst_DownloadHandler::remounts()
{
    QFETCH(bool, readWrite);
    QFETCH(QString, argument);
    QVERIFY(handler->remountUsb(readWrite));
    QCOMPARE(users->remounts(), QStringList(argument));
    QCOMPARE(lines(), QStringList(QStringLiteral("RemountUSB \"%1\"").arg(argument)));
}

void tst_DownloadHandler::remountNeedsExecutableScript_data()
{
    QTest::addColumn<bool>("there");

    QTest::newRow("not executable: skipped") << true;
    QTest::newRow("missing: skipped") << false;
}

void tst_DownloadHandler::remountNeedsExecutableScript()
{
    QFETCH(bool, there);
    if (there) {
        QVERIFY(QFile::setPermissions(users->script(), QFile::ReadOwner));
    } else {
        QVERIFY(QFile::remove(users->script()));
    }
    offer(logPath, {{}, "the log", -1, true});
    QTRY_COMPARE(lines(), savedLines(logPath, "log.txt"));
    QVERIFY(users->remounts().isEmpty());
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("the log"));
}

QTEST_MAIN(tst_DownloadHandler)
#include "tst_downloadhandler.moc"
