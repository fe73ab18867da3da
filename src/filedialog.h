// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QDialog>

class Ui_FileDialog;

namespace Varnel {

/// The one dialog between the page and the USB drive, sized for fingers. In download mode it shows the name
/// under which a download will be saved and asks for confirmation; in upload mode the user picks one of
/// the drive's files.
class FileDialog : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(FileDialog)

public:
    /// A dialog over `parent` that lists the regular files of the drive's directory as they are now.
    /// `filename` is the name shown, which download mode returns unchanged.
    FileDialog(bool download, const QString& filename, QWidget* parent);
    ~FileDialog() override;

    /// The name shown: without a directory, and empty in upload mode until a file is picked.
    [[nodiscard]] QString getFilename() const;

private slots:
    void on_listFiles_itemSelectionChanged();

private:
    void setTexts();
    void listDriveFiles();

    std::unique_ptr<Ui_FileDialog> ui;
    bool download = false;
    QString filename;
};

} // namespace Varnel
