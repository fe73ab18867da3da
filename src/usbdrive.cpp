// SPDX-License-Identifier: MIT
#include "usbdrive.h"

#include <QDir>
#include <QFile>
#include <QPointer>

#include "downloadname.h"
#include "filedialog.h"
#include "settings.h"
#include "timedpopup.h"

namespace Varnel {

bool isUsbDriveMounted()
{
    return QDir(Settings::getFilesDirectory()).exists() && QFile::exists(Settings::getFilesUsbDriveFile());
}

QString chooseUploadFile(QWidget* parent)
{
    if (!isUsbDriveMounted()) {
        TimedPopup::run(Settings::getUIMsgUSBDriveNotMounted(), parent);
        return {};
    }
    const QPointer<FileDialog> dialog = new FileDialog(false, QString(), parent);
    const int answer = dialog->exec();
    if (!dialog) { // deleted with its parent
        return {};
    }
    dialog->deleteLater();
    if (answer != QDialog::Accepted) {
        return {};
    }
    if (dialog->getFilename().isEmpty()) {
        TimedPopup::run(Settings::getUIMsgNoFileSelected(), parent);
        return {};
    }
    return pathOnDrive(QDir(Settings::getFilesDirectory()), dialog->getFilename());
}

} // namespace Varnel
