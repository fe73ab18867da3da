// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QDialog>

class Ui_ProgressPopup;

namespace Varnel {

/// A frameless modal progress bar with a title and no percentage text. The caller shows and closes it.
class ProgressPopup : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ProgressPopup)

public:
    /// A popup over `parent`, with an empty bar.
    ProgressPopup(const QString& title, QWidget* parent);
    ~ProgressPopup() override;

    /// Fills `percent` hundredths of the bar. A value outside 0 to 100 leaves the bar as it is.
    void setProgress(int percent);

private:
    std::unique_ptr<Ui_ProgressPopup> ui;
};

} // namespace Varnel
