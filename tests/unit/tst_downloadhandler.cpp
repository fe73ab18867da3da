// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <csignal>

#include <QDialogButtonBox>
#include <QLabel>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProgressBar>
#include <QPushButton>
#include <QRegularExpression>
#include <QTest>

#include <sys/resource.h>

#include "dialogdriver.h"
#include "httpserver.h"
#include "logrecorder.h"
#include "screensaver.h"
#include "usbstick.h"

using Varnel::DownloadHandler;

namespace {

const auto logPath = QStringLiteral("/logs/log.txt");

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
        std::signal(SIGXFSZ, oldHandler);
    }

    Q_DISABLE_COPY_MOVE(FileSizeLimit)

private:
    rlimit old{};
    void (*oldHandler)(int) = nullptr;
};

} // namespace

/// Real replies of a real web server, offered to the handler the way the page does it: from within the event
/// loop, as soon as the headers are there, and scheduled for deletion beforehand.
class TestDownloadHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
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
    void namesByHeader();
    void namesByDateAndTime();
    void refusesName_data();
    void refusesName();
    void refusesDriveThatWasPulledMeanwhile();
    void showsTheNameAndTheFiles();
    void movesProgressBar_data();
    void movesProgressBar();
    void barFollowsReply();
    void leavesBarWithoutTotal();
    void savesWhatArrivedOfBrokenReply();
    void reportsFullDrive();
    void reportsFailedSynchronization_data();
    void reportsFailedSynchronization();
    void reportsDrivePulledWhileRunning();
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
    void finishedWithoutDownload();
    void remounts_data();
    void remounts();
    void remountNeedsExecutableScript_data();
    void remountNeedsExecutableScript();

private:
    QPointer<QNetworkReply> request(const QString& path);
    QPointer<QNetworkReply> offer(const QString& path);
    QPointer<QNetworkReply> offer(const QString& path, const HttpServer::Answer& answer);
    QStringList lines() const;
    QStringList criticalLines() const;
    QString stick(const char* name) const { return users->path(QString::fromLatin1(name)); }
    QString url(const QString& path) const { return server->url(path).toString(); }
    QStringList savedLines(const QString& path, const char* name) const;
    static void press(QDialog* dialog, QDialogButtonBox::StandardButton button);
    void answerChooser(QDialogButtonBox::StandardButton button, const std::function<void()>& before = {});
    static QWidget* findPopup(const QString& form);

    std::unique_ptr<UsbStick> users;
    std::unique_ptr<HttpServer> server;
    std::unique_ptr<QNetworkAccessManager> manager;
    std::unique_ptr<DownloadHandler> handler;
    std::unique_ptr<DialogDriver> user;
    std::unique_ptr<LogRecorder> log;
    QStringList messages; ///< of the timed popups
    QVector<bool> started;
};

void TestDownloadHandler::initTestCase()
{
    Varnel::ScreenSaver::instance(); // so that its first words stand in no test's log
}

void TestDownloadHandler::init()
{
    users = std::make_unique<UsbStick>();
    server = std::make_unique<HttpServer>();
    manager = std::make_unique<QNetworkAccessManager>();
    handler = std::make_unique<DownloadHandler>(nullptr);
    user = std::make_unique<DialogDriver>();
    log = std::make_unique<LogRecorder>();
    messages.clear();
    started.clear();
    answerChooser(QDialogButtonBox::Ok);
    user->onWaiting(QStringLiteral("TimedPopup"), [this](QDialog* popup) {
        messages << popup->findChild<QLabel*>(QStringLiteral("lblMsg"))->text();
        popup->close();
    });
}

void TestDownloadHandler::cleanup()
{
    handler.reset();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    // Every dialog of the test is gone, whatever way it took.
    QCOMPARE(QApplication::topLevelWidgets(), QWidgetList());
    user.reset();
    log.reset();
    manager.reset();
    server.reset();
    users.reset();
}

QPointer<QNetworkReply> TestDownloadHandler::request(const QString& path)
{
    return manager->get(QNetworkRequest(server->url(path)));
}

QPointer<QNetworkReply> TestDownloadHandler::offer(const QString& path)
{
    const QPointer<QNetworkReply> reply = request(path);
    connect(reply, &QNetworkReply::metaDataChanged, handler.get(), [this, reply] {
        reply->deleteLater();
        started << handler->start(reply);
    });
    connect(reply, &QNetworkReply::finished, reply, &QObject::deleteLater);
    return reply;
}

QPointer<QNetworkReply> TestDownloadHandler::offer(const QString& path, const HttpServer::Answer& answer)
{
    server->serve(path, answer);
    return offer(path);
}

/// The log so far, with the time stamps replaced by "NOW".
QStringList TestDownloadHandler::lines() const
{
    QStringList result = log->texts();
    result.replaceInStrings(
        QRegularExpression(QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} - ")),
        QStringLiteral("NOW - "));
    return result;
}

QStringList TestDownloadHandler::criticalLines() const
{
    QStringList result;
    for (int i = 0; i < log->lines().size(); ++i) {
        if (log->lines().at(i).type == QtCriticalMsg) {
            result << lines().at(i);
        }
    }
    return result;
}

/// The whole log of a download from `path` to the file `name` without any trouble.
QStringList TestDownloadHandler::savedLines(const QString& path, const char* name) const
{
    return {
        QStringLiteral("NOW - Download request for '%1'").arg(url(path)),
        QStringLiteral("Rw-remount the usb drive"),
        QStringLiteral("RemountUSB \"rw\""),
        QStringLiteral("NOW - File will be saved to '%1'").arg(stick(name)),
        QStringLiteral("NOW - Download complete"),
        QStringLiteral("Ro-remount the usb drive"),
        QStringLiteral("RemountUSB \"ro\""),
    };
}

void TestDownloadHandler::press(QDialog* dialog, QDialogButtonBox::StandardButton button)
{
    QTest::mouseClick(dialog->findChild<QDialogButtonBox*>()->button(button), Qt::LeftButton);
}

/// Lets the user press `button` in every chooser from now on, after `before` has happened.
void TestDownloadHandler::answerChooser(QDialogButtonBox::StandardButton button,
                                        const std::function<void()>& before)
{
    user->onWaiting(QStringLiteral("FileDialog"), [button, before](QDialog* dialog) {
        if (before) {
            before();
        }
        press(dialog, button);
    });
}

QWidget* TestDownloadHandler::findPopup(const QString& form)
{
    for (QWidget* const widget : QApplication::topLevelWidgets()) {
        if (widget->objectName() == form && widget->isVisible()) {
            return widget;
        }
    }
    return nullptr;
}

void TestDownloadHandler::savesFinishedReplyAtOnce()
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

void TestDownloadHandler::savesRunningReplyWhenItFinishes()
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

void TestDownloadHandler::savesBody_data()
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

void TestDownloadHandler::savesBody()
{
    QFETCH(QByteArray, body);
    QFETCH(bool, withLength);
    offer(logPath, {{}, body, -1, withLength});
    QTRY_COMPARE(users->remounts().size(), 2);
    QCOMPARE(users->entries(), QStringList(QStringLiteral("log.txt")));
    QVERIFY(users->content(QStringLiteral("log.txt")) == body);
    QCOMPARE(lines(), savedLines(logPath, "log.txt"));
}

void TestDownloadHandler::refusesWithoutDrive_data()
{
    QTest::addColumn<bool>("marker");
    QTest::addColumn<bool>("directory");

    QTest::newRow("no marker file") << false << true;
    QTest::newRow("no directory") << true << false;
    QTest::newRow("neither") << false << false;
}

void TestDownloadHandler::refusesWithoutDrive()
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

void TestDownloadHandler::letsUserCancel()
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

void TestDownloadHandler::numbersTakenName()
{
    users->put(QStringLiteral("log.txt"), "old");
    users->put(QStringLiteral("log-1.txt"), "older");
    offer(logPath, {{}, "new", -1, true});
    QTRY_COMPARE(lines(), savedLines(logPath, "log-2.txt"));
    QCOMPARE(users->content(QStringLiteral("log.txt")), QByteArray("old"));
    QCOMPARE(users->content(QStringLiteral("log-1.txt")), QByteArray("older"));
    QCOMPARE(users->content(QStringLiteral("log-2.txt")), QByteArray("new"));
}

void TestDownloadHandler::namesByHeader()
{
    offer(logPath, {"Content-Disposition: attachment; filename=\"a b.txt\"\r\n", "the log", -1, true});
    QTRY_COMPARE(lines(), savedLines(logPath, "\"a b.txt\""));
    QCOMPARE(users->content(QStringLiteral("\"a b.txt\"")), QByteArray("the log"));
}

void TestDownloadHandler::namesByDateAndTime()
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

void TestDownloadHandler::refusesName_data()
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

void TestDownloadHandler::refusesName()
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

void TestDownloadHandler::refusesDriveThatWasPulledMeanwhile()
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

void TestDownloadHandler::showsTheNameAndTheFiles()
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

void TestDownloadHandler::movesProgressBar_data()
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

void TestDownloadHandler::movesProgressBar()
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

void TestDownloadHandler::barFollowsReply()
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

void TestDownloadHandler::leavesBarWithoutTotal()
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

void TestDownloadHandler::savesWhatArrivedOfBrokenReply()
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

void TestDownloadHandler::reportsFullDrive()
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

void TestDownloadHandler::reportsFailedSynchronization_data()
{
    QTest::addColumn<QString>("device");
    QTest::addColumn<QString>("writeError");

    QTest::newRow("written but not synchronised") << QStringLiteral("/dev/null") << QString();
    QTest::newRow("nothing written")
        << QStringLiteral("/dev/full")
        << QStringLiteral("NOW - Error writing file '%1': 0 of 7 octets written: No space left on device");
}

void TestDownloadHandler::reportsFailedSynchronization()
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

void TestDownloadHandler::reportsDrivePulledWhileRunning()
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

void TestDownloadHandler::survivesReplyDeletedWhileAsking()
{
    answerChooser(QDialogButtonBox::Ok, [this] { manager.reset(); });
    const QPointer<QNetworkReply> reply = offer(logPath, {{}, "the log", 3, true});
    QTRY_COMPARE(started, QVector<bool>{false});
    QVERIFY(!reply);
    QCOMPARE(criticalLines(),
             QStringList(QStringLiteral("NOW - Download of '%1' lost: its reply is gone").arg(url(logPath))));
    QVERIFY(users->remounts().isEmpty());
}

void TestDownloadHandler::survivesReplyDeletedWhileRunning()
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

void TestDownloadHandler::secondDownloadReplacesFirst()
{
    const auto other = QStringLiteral("/other.csv");
    const QPointer<QNetworkReply> first = offer(logPath, {{}, "first part, second part", 10, true});
    QTRY_COMPARE(started, QVector<bool>{true});
    QTRY_COMPARE(first->bytesAvailable(), 10);
    const QPointer<QNetworkReply> second = offer(other, {{}, "1;2;3", 2, true});
    QTRY_COMPARE(started, QVector<bool>({true, true}));

    // What had arrived of the first is on the drive, and the log says that it is not all.
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

void TestDownloadHandler::refusedSecondDownloadLeavesFirst_data()
{
    QTest::addColumn<bool>("plugged");

    QTest::newRow("cancelled by the user") << true;
    QTest::newRow("drive pulled") << false;
}

void TestDownloadHandler::refusedSecondDownloadLeavesFirst()
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

void TestDownloadHandler::downloadWhileAnotherIsAsked()
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

void TestDownloadHandler::downloadWhileCompletionIsShown()
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

void TestDownloadHandler::handlerDeletedWhileRunning()
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

void TestDownloadHandler::applicationQuits_data()
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

void TestDownloadHandler::applicationQuits()
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

void TestDownloadHandler::finishedWithoutDownload()
{
    handler->downloadFinished();
    QCOMPARE(lines(),
             QStringList({QStringLiteral("NOW - Download complete"),
                          QStringLiteral("Ro-remount the usb drive"), QStringLiteral("RemountUSB \"ro\"")}));
    QCOMPARE(messages, QStringList(QStringLiteral("Download complete")));
    QVERIFY(users->entries().isEmpty());
}

void TestDownloadHandler::remounts_data()
{
    QTest::addColumn<bool>("readWrite");
    QTest::addColumn<QString>("argument");

    QTest::newRow("read-write: rw") << true << QStringLiteral("rw");
    QTest::newRow("read-only: ro") << false << QStringLiteral("ro");
}

void TestDownloadHandler::remounts()
{
    QFETCH(bool, readWrite);
    QFETCH(QString, argument);
    QVERIFY(handler->remountUsb(readWrite));
    QCOMPARE(users->remounts(), QStringList(argument));
    QCOMPARE(lines(), QStringList(QStringLiteral("RemountUSB \"%1\"").arg(argument)));
}

void TestDownloadHandler::remountNeedsExecutableScript_data()
{
    QTest::addColumn<bool>("there");

    QTest::newRow("not executable: skipped") << true;
    QTest::newRow("missing: skipped") << false;
}

void TestDownloadHandler::remountNeedsExecutableScript()
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

QTEST_MAIN(TestDownloadHandler)
#include "tst_downloadhandler.moc"
