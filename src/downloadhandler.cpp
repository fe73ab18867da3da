// SPDX-License-Identifier: MIT
#include "downloadhandler.h"

#include <cerrno>
#include <chrono>
#include <limits>
#include <tuple>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QNetworkReply>
#include <QtDebug>

#include <unistd.h>

#include "downloadname.h"
#include "filedialog.h"
#include "logline.h"
#include "progresspopup.h"
#include "replykeeper.h"
#include "scriptrunner.h"
#include "settings.h"
#include "timedpopup.h"
#include "usbdrive.h"
#include "watchdog.h"

namespace Varnel {

namespace {

/// Time for which the watchdog waits while a file is written: a slow drive may need minutes.
constexpr std::chrono::minutes slowestDrive{30};

/// Time without data after which a download ends. A controller that is switched off does not close the
/// connection; the kernel notices after two hours, and the progress popup would block the page until then.
constexpr std::chrono::minutes longestSilence{2};

} // namespace

DownloadHandler::DownloadHandler(QWidget* window)
    : mainWindow(window)
{
    silence.setSingleShot(true);
    connect(&silence, &QTimer::timeout, this,
            [this] { abandon(QStringLiteral("the server has fallen silent")); });
    // Without an event loop a running download could not finish, and the drive would stay writable.
    connect(qApp, &QCoreApplication::aboutToQuit, this,
            [this] { abandon(QStringLiteral("the application ends")); });
}

DownloadHandler::~DownloadHandler()
{
    abandon(QStringLiteral("the page is gone"));
    releaseReply();
    closeProgressPopup();
}

bool DownloadHandler::start(QNetworkReply* request)
{
    logStamped(QStringLiteral("Download request for '%1'").arg(request->url().toString()));
    auto requestKeeper = std::make_unique<ReplyKeeper>(request);
    const int thisStart = ++startCount;
    if (!file) { // a download that runs keeps its reply until this one is confirmed
        reply = request;
    }
    if (!isUsbDriveMounted()) {
        logStamped(QStringLiteral("Download canceled: USB drive not mounted"));
        TimedPopup::run(Settings::getUIMsgUSBDriveNotMounted(), mainWindow);
        return false;
    }
    const QDir drive(Settings::getFilesDirectory());
    const QUrl url = request->url();
    QString name = freeFileName(drive, downloadFileName(request->rawHeader("Content-Disposition"), url));
    if (!confirm(name)) {
        logStamped(QStringLiteral("Download canceled by user"));
        return false;
    }
    if (!requestKeeper->get()) {
        logCriticalStamped(QStringLiteral("Download of '%1' lost: its reply is gone").arg(url.toString()));
        return false;
    }
    if (thisStart != startCount) { // another download came in between and may have taken the name
        name = freeFileName(drive, name);
    }
    if (file) {
        breakOff(QStringLiteral("another download takes its place"));
    }
    reply = requestKeeper->get();
    keeper = std::move(requestKeeper);
    return save(name);
}

/// Shows the user the name; true when it is accepted.
bool DownloadHandler::confirm(const QString& name)
{
    const QPointer<FileDialog> dialog = new FileDialog(true, name, mainWindow);
    const int answer = dialog->exec();
    if (dialog) { // deleted with its parent
        dialog->deleteLater();
    }
    return answer == QDialog::Accepted;
}

/// Begins to save the current reply as `name`.
bool DownloadHandler::save(const QString& name)
{
    qDebug() << "Rw-remount the usb drive";
    remountUsb(true);
    if (!openFile(name)) {
        refuseFile();
        return false;
    }
    if (reply->isFinished()) {
        downloadFinished();
    } else {
        follow();
    }
    return true;
}

/// Opens the file. Fails for a name that leads off the drive, and when the drive was pulled meanwhile: its
/// directory still exists then, on the panel's own storage.
bool DownloadHandler::openFile(const QString& name)
{
    const QString path = pathOnDrive(QDir(Settings::getFilesDirectory()), name);
    logStamped(QStringLiteral("File will be saved to '%1'").arg(path));
    file = std::make_unique<QFile>(path);
    // Unbuffered, so that write() fails on a full drive and returns how much it has written.
    return staysOnDrive(name) && isUsbDriveMounted() &&
           file->open(QIODevice::WriteOnly | QIODevice::Unbuffered);
}

void DownloadHandler::refuseFile()
{
    const QString path = file->fileName();
    file.reset();
    releaseReply();
    logCriticalStamped(QStringLiteral("Error opening file '%1' for writing.").arg(path));
    TimedPopup::run(Settings::getUIMsgFailedToOpenFile(), mainWindow);
    makeDriveReadOnly();
}

/// Waits for the reply to finish, with a progress bar on the screen.
void DownloadHandler::follow()
{
    connect(reply, &QNetworkReply::downloadProgress, this, &DownloadHandler::downloadProgress);
    connect(reply, &QNetworkReply::finished, this, &DownloadHandler::downloadFinished);
    connect(reply, &QObject::destroyed, this, [this] { abandon(QStringLiteral("its reply is gone")); });
    progressPopup = new ProgressPopup(Settings::getUIMsgDownloadInProgress(), mainWindow);
    progressPopup->show();
    silence.start(longestSilence);
}

void DownloadHandler::downloadProgress(qint64 bytesRead, qint64 bytesTotal)
{
    if (silence.isActive()) {
        silence.start(longestSilence);
    }
    if (!progressPopup || bytesTotal == 0) {
        return;
    }
    // A value that does not fit an int is out of the bar's range and stays so.
    constexpr qint64 limit = std::numeric_limits<int>::max();
    progressPopup->setProgress(static_cast<int>(qBound(-limit, bytesRead * 100 / bytesTotal, limit)));
}

void DownloadHandler::downloadFinished()
{
    logStamped(QStringLiteral("Download complete"));
    if (file) {
        saveBody();
    }
    releaseReply();
    closeProgressPopup();
    TimedPopup::run(Settings::getUIMsgDownloadComplete(), mainWindow);
    makeDriveReadOnly();
}

/// Writes what the reply holds, forces it to the medium and closes the file.
void DownloadHandler::saveBody()
{
    // Both write and sync wait for the drive: the kernel blocks a process that writes faster than the drive.
    const WatchdogPatience patience(slowestDrive);
    const QByteArray body = reply ? reply->readAll() : QByteArray();
    errno = 0;
    const qint64 written = file->write(body);
    const int error = errno;
    if (written != body.size() || !file->flush()) {
        logCriticalStamped(QStringLiteral("Error writing file '%1': %2 of %3 octets written: %4")
                               .arg(file->fileName(), QString::number(qMax<qint64>(0, written)),
                                    QString::number(body.size()), qt_error_string(error)));
    }
    synchronizeFile();
    file->close();
    if (!isUsbDriveMounted()) {
        logCriticalStamped(
            QStringLiteral("USB drive removed while '%1' was being saved").arg(file->fileName()));
    }
    file.reset();
}

void DownloadHandler::synchronizeFile()
{
    const int handle = file->handle();
    if (handle == -1) {
        logStamped(QStringLiteral("Filesystem synchronization failed: no file handle"));
    } else if (::fsync(handle) != 0) {
        const int error = errno; // before the time is asked for, which may set it too
        logStamped(QStringLiteral("Filesystem synchronization failed: error %1").arg(QString::number(error)));
    }
}

/// Ends the running download before its reply has finished: saves what has arrived and logs the reason.
void DownloadHandler::breakOff(const QString& reason)
{
    const QString path = file->fileName();
    saveBody();
    logCriticalStamped(QStringLiteral("Download to '%1' broken off: %2").arg(path, reason));
    releaseReply();
    closeProgressPopup();
}

/// Breaks off the download, if one runs, and makes the drive read-only. No popup: there may be no event loop.
void DownloadHandler::abandon(const QString& reason)
{
    if (file) {
        breakOff(reason);
        makeDriveReadOnly();
    }
}

void DownloadHandler::releaseReply()
{
    silence.stop();
    keeper.reset();
    if (reply) {
        reply->disconnect(this);
        reply->deleteLater();
        reply.clear();
    }
}

void DownloadHandler::closeProgressPopup()
{
    if (progressPopup) {
        progressPopup->close();
        progressPopup->deleteLater();
        progressPopup.clear();
    }
}

/// Does nothing when another download has begun while a popup was open: that one makes the drive read-only.
void DownloadHandler::makeDriveReadOnly()
{
    if (file) {
        return;
    }
    qDebug() << "Ro-remount the usb drive";
    remountUsb(false);
}

bool DownloadHandler::remountUsb(bool readWrite)
{
    const QString script =
        Settings::getFilesScriptDir() + QDir::separator() + QStringLiteral("usbremount.sh");
    const QString option = readWrite ? QStringLiteral("rw") : QStringLiteral("ro");
    qDebug() << "RemountUSB" << option;
    // Without the script the drive is always read-write.
    std::ignore = runScript(script, {option});
    return true;
}

} // namespace Varnel
