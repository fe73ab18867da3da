// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QObject>
#include <QPointer>
#include <QTimer>

class QFile;
class QNetworkReply;
class QWidget;

namespace Varnel {

class ProgressPopup;
class ReplyKeeper;

/// Saves to the USB drive what the controller's server sends and the browser cannot show. The drive is
/// read-write only while a file is being saved. One download at a time: a second one that is confirmed ends
/// the first and keeps what has arrived of it. A server that stops sending ends a download in the same way.
class DownloadHandler : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DownloadHandler)

public:
    /// A handler without a parent, whose popups and dialogs open over `window` (not owned).
    explicit DownloadHandler(QWidget* window);

    /// Breaks off a running download.
    ~DownloadHandler() override;

    /// Asks the user to confirm and begins to save `request`, in nested event loops. From then on the handler
    /// keeps the reply alive, even if another object schedules its deletion, and releases it after saving. A
    /// refused reply is left as it is. Returns true when the download has started (or has completed at once),
    /// false when it was refused or cancelled or the file cannot be opened.
    bool start(QNetworkReply* request);

    /// Remounts the drive read-write or read-only by script, and blocks while the script runs (30 seconds at
    /// most). Always returns true: a drive that cannot be remounted fails later, when the file is opened.
    bool remountUsb(bool readWrite);

public slots:
    /// Moves the progress bar. A total that is unknown (-1) or zero leaves the bar as it is.
    void downloadProgress(qint64 bytesRead, qint64 bytesTotal);

    /// Saves the whole body, or what has arrived if the transfer failed, and tells the user.
    void downloadFinished();

private:
    bool confirm(const QString& name);
    bool save(const QString& name);
    bool openFile(const QString& name);
    void refuseFile();
    void follow();
    void saveBody();
    void synchronizeFile();
    void breakOff(const QString& reason);
    void abandon(const QString& reason);
    void releaseReply();
    void closeProgressPopup();
    void makeDriveReadOnly();

    QWidget* mainWindow = nullptr;
    QPointer<ProgressPopup> progressPopup;
    QPointer<QNetworkReply> reply;
    std::unique_ptr<QFile> file; ///< set while a download runs, and only then
    std::unique_ptr<ReplyKeeper> keeper;
    QTimer silence{this}; ///< runs since a running download last received data
    int startCount = 0;
};

} // namespace Varnel
