// SPDX-License-Identifier: MIT
#include "progresspopup.h"

#include "ui_progresspopup.h"

namespace Varnel {

ProgressPopup::ProgressPopup(const QString& title, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui_ProgressPopup>())
{
    ui->setupUi(this);
    ui->lblTitle->setText(title);
    ui->progressBar->setValue(0);
    ui->progressBar->setMinimum(0);
    ui->progressBar->setMaximum(100);
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
}

ProgressPopup::~ProgressPopup() = default;

void ProgressPopup::setProgress(int percent)
{
    ui->progressBar->setValue(percent);
}

} // namespace Varnel
