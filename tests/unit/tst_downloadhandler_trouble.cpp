// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <csignal>

#include <sys/resource.h>

#include "downloadscene.h"

namespace {

/// Limits how large a file may grow, for this process and its scripts, as a full drive would.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t octets)
        : oldHandler(std::signal(SIGXFSZ, SIG_IGN))
    {
        ::getrlimit(RLIMIT_FSIZE, &old);
        const rlimit limit{octets, old.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }

    ~FileSizeLimit()
    {
        ::setrlimit(RLIMIT_FSIZE, &old);
        static_cast<void>(std::signal(SIGXFSZ, oldHandler));
    }

    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    rlimit old{};
    void (*oldHandler)(int) = nullptr;
};

} // namespace

/// Events while a file is saved. Nothing crashes, the log says what is missing, and the drive is read-only at
/// the end.
class tst_DownloadHandlerTrouble : public DownloadScene
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void savesWhatArrivedOfBrokenReply();
    void givesUpOnSilentServer();
    void reportsFullDrive();
    void reportsFailedSynchronization_data();
    void reportsFailedSynchronization();
    void reportsDrivePulledWhileRunning();
    void refusesDriveThatWasPulledMeanwhile();
    void survivesReplyDeletedWhileAsking();
    void survivesReplyDeletedWhileRunning();
    void secondDownloadReplacesFirst();
    void refusedSecondDownloadLeavesFirst_data();
    void refusedSecondDownloadLeavesFirst();
    void downloadWhileAnotherIsAsked();
    void downloadWhileCompletionIsShown();
    void handlerDeletedWhileRunning();
    void applicationQuits_data();
    void applicationQuits();
};

void tst_DownloadHandlerTrouble::init()
{
    setUp();
}

void tst_DownloadHandlerTrouble::cleanup()
{
    tearDown();
}

void tst_DownloadHandlerTrouble::savesWhatArrivedOfBrokenReply()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QTRY_COMPARE(reply->bytesAvailable(), 10);
    server->breakOff(logPath);
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part"));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
    QCOMPARE(lines(), savedLines(logPath, "log.txt"));
    QTRY_VERIFY(!reply);
}

// A controller that is switched off does not close the connection: without a limit the popup would stay for
// hours.
void tst_DownloadHandlerTrouble::givesUpOnSilentServer()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QTRY_COMPARE(reply->bytesAvailable(), 10);
    auto* const silence = handler->findChild<QTimer*>();
    QVERIFY(silence);
    QVERIFY(silence->isActive() && silence->isSingleShot());
    silence->start(60000);
    handler->downloadProgress(10, 23);
    QCOMPARE(silence->interval(), 120000); // each part that arrives restarts the time

    silence->start(0);
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part"));
    QStringList expected = savedLines(logPath, "log.txt");
    expected[4] = QStringLiteral("NOW - Download to '%1' broken off: the server has fallen silent")
                      .arg(stick("log.txt"));
    QCOMPARE(lines(), expected);
    QCOMPARE(criticalLines(), QStringList(expected.at(4)));
    QCOMPARE(findPopup(QStringLiteral("ProgressPopup")), nullptr);
    QVERIFY(!silence->isActive());
    QTRY_VERIFY(!reply);
}

void tst_DownloadHandlerTrouble::reportsFullDrive()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, QByteArray(5000, 'x'), 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    {
        const FileSizeLimit limit(3000);
        server->release(logPath);
        QTRY_COMPARE(users->remounts().size(), 2);
    }
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray(3000, 'x'));
    QStringList expected = savedLines(logPath, "log.txt");
    expected.insert(
        5, QStringLiteral("NOW - Error writing file '%1': 3000 of 5000 octets written: File too large")
               .arg(stick("log.txt")));
    QCOMPARE(lines(), expected);
    QCOMPARE(criticalLines(), QStringList(expected.at(5)));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
}

void tst_DownloadHandlerTrouble::reportsFailedSynchronization_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QString>("writeError");

    QTest::newRow("written but not synchronised") << QStringLiteral("/dev/null") << QString();
    QTest::newRow("nothing written")
        << QStringLiteral("/dev/full")
        << QStringLiteral("NOW - Error writing file '%1': 0 of 7 octets written: No space left on device");
}

void tst_DownloadHandlerTrouble::reportsFailedSynchronization()
{
    QFETCH(QString, device);
    QFETCH(QString, writeError);
    // A device that no fsync can force anything to takes the place of the file once the name is settled.
    answerChooser(QDialogButtonBox::Ok, [&] { QFile::link(device, stick("log.txt")); });
    offer(logPath, {{}, "the log", -1, true});
    QTRY_COMPARE(users->remounts().size(), 2);

    QStringList expected = savedLines(logPath, "log.txt");
    expected.insert(5, QStringLiteral("NOW - Filesystem synchronization failed: error %1").arg(EINVAL));
    if (!writeError.isEmpty()) {
        expected.insert(5, writeError.arg(stick("log.txt")));
        QCOMPARE(criticalLines(), QStringList(expected.at(5)));
    }
    QCOMPARE(lines(), expected);
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
}

void tst_DownloadHandlerTrouble::reportsDrivePulledWhileRunning()
{
    offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    users->pull();
    server->release(logPath);
    QTRY_COMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(criticalLines(),
             QStringList(
                 QStringLiteral("NOW - USB drive removed while '%1' was being saved").arg(stick("log.txt"))));
}

void tst_DownloadHandlerTrouble::refusesDriveThatWasPulledMeanwhile()
{
    answerChooser(QDialogButtonBox::Ok, [this] { users->pull(); });
    offer(logPath, {{}, "the log", -1, true});
    QTRY_COMPARE(started, QVector<bool>{false});

    // The directory is still there, on the panel's own storage: nothing may be hidden in it.
    QVERIFY(users->entries().isEmpty());
    QCOMPARE(criticalLines(),
             QStringList(QStringLiteral("NOW - Error opening file '%1' for writing.").arg(stick("log.txt"))));
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
}

void tst_DownloadHandlerTrouble::survivesReplyDeletedWhileAsking()
{
    answerChooser(QDialogButtonBox::Ok, [this] { manager.reset(); });
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
    QTRY_COMPARE(started, QVector<bool>{false});
    QVERIFY(!reply);
    QCOMPARE(criticalLines(),
             QStringList(QStringLiteral("NOW - Download of '%1' lost: its reply is gone").arg(url(logPath))));
    QVERIFY(users->remounts().isEmpty());
}

void tst_DownloadHandlerTrouble::survivesReplyDeletedWhileRunning()
{
    offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    manager.reset();
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(
        criticalLines(),
        QStringList(
            QStringLiteral("NOW - Download to '%1' broken off: its reply is gone").arg(stick("log.txt"))));
    QVERIFY(!findPopup(QStringLiteral("ProgressPopup")));
}

void tst_DownloadHandlerTrouble::secondDownloadReplacesFirst()
{
    const auto other = QStringLiteral("/other.csv");
    const QPointer<QNetworkReply> first = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QTRY_COMPARE(first->bytesAvailable(), 10);
    const QPointer<QNetworkReply> second = offer(other, {{}, "1;2;3", 2, true});
    QTRY_COMPARE(started, QVector<bool>({true, true}));

    // The part of the first file that had arrived is on the drive, and the log says that it is incomplete.
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part"));
    QCOMPARE(criticalLines(),
             QStringList(QStringLiteral("NOW - Download to '%1' broken off: another download takes its place")
                             .arg(stick("log.txt"))));
    QTRY_VERIFY(!first);
    QVERIFY(second);
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("rw")}));

    server->release(other);
    QTRY_COMPARE(users->remounts().size(), 3);
    QCOMPARE(users->remounts().constLast(), QStringLiteral("ro"));
    QCOMPARE(users->content(QStringLiteral("other.csv")), QByteArray("1;2;3"));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
    QVERIFY(!findPopup(QStringLiteral("ProgressPopup")));
    QTRY_VERIFY(!second);
}

void tst_DownloadHandlerTrouble::refusedSecondDownloadLeavesFirst_data()
{
    QTest::addColumn<bool>("plugged");

    QTest::newRow("cancelled by the user") << true;
    QTest::newRow("drive pulled") << false;
}

void tst_DownloadHandlerTrouble::refusedSecondDownloadLeavesFirst()
{
    QFETCH(bool, plugged);
    offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    answerChooser(QDialogButtonBox::Cancel);
    if (!plugged) {
        users->pull();
    }
    const QPointer<QNetworkReply> second = offer(QStringLiteral("/other.csv"), {{}, "1;2;3", 2, true});
    QTRY_COMPARE(started, QVector<bool>({true, false}));
    users->plug();

    server->release(logPath);
    QTRY_COMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part, second part"));
    QCOMPARE(users->entries(), QStringList(QStringLiteral("log.txt")));
    QVERIFY(criticalLines().isEmpty());
    QTRY_VERIFY(!second);
}

void tst_DownloadHandlerTrouble::downloadWhileAnotherIsAsked()
{
    // The page starts a second download of the same name while the first waits for a yes; the user says yes
    // to both, the upper one first.
    const auto twin = QStringLiteral("/twin/log.txt");
    int asked = 0;
    user->onWaiting(QStringLiteral("FileDialog"), [&](QDialog* dialog) {
        if (++asked == 1) {
            offer(twin, {{}, "the twin", -1, true});
            QTRY_COMPARE(users->content(QStringLiteral("log.txt")), QByteArray("the twin"));
        }
        press(dialog, QDialogButtonBox::Ok);
    });
    offer(logPath, {{}, "the log", -1, true});
    QTRY_COMPARE(started, QVector<bool>({true, true}));

    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("the twin"));
    QCOMPARE(users->content(QStringLiteral("log-1.txt")), QByteArray("the log"));
    QTRY_COMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro"),
                                                 QStringLiteral("rw"), QStringLiteral("ro")}));
    QVERIFY(criticalLines().isEmpty());
}

void tst_DownloadHandlerTrouble::downloadWhileCompletionIsShown()
{
    const auto other = QStringLiteral("/other.csv");
    QPointer<QDialog> completion;
    user->onWaiting(QStringLiteral("TimedPopup"), [&](QDialog* popup) {
        if (messages.isEmpty()) { // the first popup stays until the second download runs
            messages << QString();
            completion = popup;
            offer(other, {{}, "1;2;3", 2, true});
        } else {
            popup->close();
        }
    });
    user->onShown(QStringLiteral("ProgressPopup"), [&](QDialog*) {
        if (completion) {
            completion->close();
        }
    });
    offer(logPath, {{}, "the log", -1, true});
    QTRY_VERIFY(users->remounts().size() == 2 && !completion);
    // The first one ends now. It must not take the drive away from the second one.
    QCOMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("rw")}));

    server->release(other);
    QTRY_COMPARE(users->remounts().size(), 3);
    QCOMPARE(users->remounts().constLast(), QStringLiteral("ro"));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("the log"));
    QCOMPARE(users->content(QStringLiteral("other.csv")), QByteArray("1;2;3"));
    QVERIFY(criticalLines().isEmpty());
}

void tst_DownloadHandlerTrouble::handlerDeletedWhileRunning()
{
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QTRY_COMPARE(reply->bytesAvailable(), 10);
    handler.release()->deleteLater();
    QTRY_COMPARE(users->remounts(), QStringList({QStringLiteral("rw"), QStringLiteral("ro")}));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("first part"));
    QCOMPARE(
        criticalLines(),
        QStringList(
            QStringLiteral("NOW - Download to '%1' broken off: the page is gone").arg(stick("log.txt"))));
    QTRY_VERIFY(!reply);
    QVERIFY(!findPopup(QStringLiteral("ProgressPopup")));
}

void tst_DownloadHandlerTrouble::applicationQuits_data()
{
    QTest::addColumn<QString>("during");
    QTest::addColumn<QStringList>("remounts");
    QTest::addColumn<QByteArray>("content");

    const QStringList both{QStringLiteral("rw"), QStringLiteral("ro")};
    QTest::newRow("while asking: nothing saved")
        << QStringLiteral("FileDialog") << QStringList() << QByteArray();
    QTest::newRow("while running: what has arrived")
        << QStringLiteral("ProgressPopup") << both << QByteArray("first part");
    QTest::newRow("while completion is shown: all")
        << QStringLiteral("TimedPopup") << both << QByteArray("first part, second part");
}

void tst_DownloadHandlerTrouble::applicationQuits()
{
    QFETCH(QString, during);
    const QPointer<QNetworkReply> reply = request(logPath);
    const auto quit = [](QDialog*) { QCoreApplication::quit(); };
    server->serve(logPath, {{}, "first part, second part", 10, true});
    user->onShown(QStringLiteral("ProgressPopup"), [this](QDialog*) { server->release(logPath); });
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
    QTEST(users->content(QStringLiteral("log.txt")), "content");
    QTRY_VERIFY(!reply);
}

QTEST_MAIN(tst_DownloadHandlerTrouble)
#include "tst_downloadhandler_trouble.moc"
