// SPDX-License-Identifier: MIT
#include "timedpopup.h"

#include <QEventLoop>
#include <QPointer>
#include <QTimer>

#include "ui_timedpopup.h"

namespace Varnel {

TimedPopup::TimedPopup(int duration, const QString& message, QWidget* parent)
    : QDialog(parent)
    , ui(std::make_unique<Ui_TimedPopup>())
{
    initialize(duration, message);
}

TimedPopup::TimedPopup(const QString& message, QWidget* parent)
    : TimedPopup(DefaultDuration, message, parent)
{
}

TimedPopup::~TimedPopup() = default;

void TimedPopup::initialize(int duration, const QString& message)
{
    ui->setupUi(this);
    ui->lblMsg->setText(message);
    setWindowFlags(Qt::Dialog | Qt::FramelessWindowHint);
    // A coarse timer, the default, may be 5 % early.
    QTimer::singleShot(duration, Qt::PreciseTimer, this, &TimedPopup::timerElapsed);
}

void TimedPopup::timerElapsed()
{
    close();
}

void TimedPopup::run(const QString& message, QWidget* parent)
{
    const QPointer<TimedPopup> popup = new TimedPopup(message, parent);
    QEventLoop loop;
    connect(popup, &QDialog::finished, &loop, &QEventLoop::quit);
    connect(popup, &QObject::destroyed, &loop, &QEventLoop::quit); // deleted with its parent
    popup->show();
    // show() processes pending events, and one of them may run a script until after the popup has closed
    // itself. exec() would then wait for ever.
    if (popup && popup->isVisible()) {
        loop.exec(QEventLoop::DialogExec);
    }
    if (popup) {
        popup->deleteLater();
    }
}

} // namespace Varnel
