// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QObject>
#include <QPointer>
#include <QTimer>

class QFile;
class QNetworkReply;

namespace Varnel {

class MainWindow;
class ProgressPopup;
class ReplyKeeper;

/// Saves what the controller's page serves and the browser cannot show to the USB drive, which is read-write
/// only while a file is being saved. One download at a time: a second one that is confirmed while one runs
/// takes its place, and what has arrived of the first is kept. The same happens to one whose server falls
/// silent.
class DownloadHandler : public QObject
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DownloadHandler)

public:
    /// A handler without a parent, whose popups and dialogs stand over `window` (not owned).
    explicit DownloadHandler(MainWindow* window);

    /// Breaks off a running download.
    ~DownloadHandler() override;

    /// Asks the user for a yes and begins to save `request`, in nested event loops. From then on the handler
    /// keeps the reply alive, whoever schedules its deletion, and releases it when it has saved it; a reply
    /// that is refused is left as it is. Returns true when the download was started (or has completed at
    /// once), false when it was refused or cancelled or the file cannot be opened.
    bool start(QNetworkReply* request);

    /// Remounts the drive read-write or read-only by script, and blocks while the script runs (30 seconds at
    /// most). A drive that cannot be remounted shows in what follows, so this always returns true.
    bool remountUsb(bool readWrite);

public slots:
    /// Moves the progress bar. A total that is unknown (-1) or zero leaves the bar as it is.
    void downloadProgress(qint64 bytesRead, qint64 bytesTotal);

    /// Saves the whole body, or of a transfer that failed what has arrived, and tells the user.
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

    MainWindow* mainWindow = nullptr;
    QPointer<ProgressPopup> progressPopup;
    QPointer<QNetworkReply> reply;
    std::unique_ptr<QFile> file; ///< set while a download runs, and only then
    std::unique_ptr<ReplyKeeper> keeper;
    QTimer silence{this}; ///< runs while nothing arrives of a running download
    int startCount = 0;
};

} // namespace Varnel
