// SPDX-License-Identifier: MIT
#include "filedialog.h"

#include <QDir>
#include <QPushButton>
#include <QScrollBar>

#include "screensaver.h"
#include "settings.h"
#include "ui_filedialog.h"

namespace Varnel {

FileDialog::FileDialog(bool downloadMode, const QString& name, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui_FileDialog>())
    , download(downloadMode)
    , filename(name)
{
    ui->setupUi(this);
    setTexts();
    if (download) {
        ui->listFiles->setSelectionMode(QAbstractItemView::NoSelection);
    }
    setFixedSize(width(), height());
    setWindowFlags(Qt::SplashScreen);
    listDriveFiles();
    setMouseTracking(true);
    // A modal dialog gets the touches instead of the main window, so it keeps the screen awake itself.
    ScreenSaver::instance()->handleMouseMove(this);
}

FileDialog::~FileDialog() = default;

QString FileDialog::getFilename() const
{
    return filename;
}

void FileDialog::setTexts()
{
    ui->lblFile->setText(Settings::getUITextFilename());
    ui->lblFileValue->setText(filename);
    setWindowTitle(download ? Settings::getUITextDownload() : Settings::getUITextUpload());
    ui->buttonBox->button(QDialogButtonBox::Ok)->setText(Settings::getUITextOK());
    ui->buttonBox->button(QDialogButtonBox::Cancel)->setText(Settings::getUITextCancel());
}

void FileDialog::listDriveFiles()
{
    // QDir lists no hidden files unless told to.
    const QDir drive(Settings::getFilesDirectory());
    ui->listFiles->addItems(drive.entryList(QDir::Files, QDir::Name));

    // The missing units are intended: a bar of 32 pixels is wide enough for a finger.
    const QString fingerWide = QStringLiteral("QScrollBar:vertical { width: 32; } "
                                              "QScrollBar:handle:vertical { min-height: 32; } "
                                              "QScrollBar:horizontal { height: 32px; } "
                                              "QScrollBar:handle:horizontal { min-width: 32; } ");
    ui->listFiles->verticalScrollBar()->setStyleSheet(fingerWide);
    ui->listFiles->horizontalScrollBar()->setStyleSheet(fingerWide);
}

void FileDialog::on_listFiles_itemSelectionChanged()
{
    const QList<QListWidgetItem*> selected = ui->listFiles->selectedItems();
    if (download || selected.isEmpty()) {
        return;
    }
    filename = selected.first()->text();
    ui->lblFileValue->setText(filename);
}

} // namespace Varnel
