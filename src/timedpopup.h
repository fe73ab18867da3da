// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include <QDialog>

class Ui_TimedPopup;

namespace Varnel {

/// A frameless modal message without any button. It closes itself some time after its construction, so a
/// popup that is shown late is visible for less time. Closing does not delete it.
class TimedPopup : public QDialog
{
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(TimedPopup)

public:
    /// Milliseconds until a popup closes itself.
    static constexpr int DefaultDuration = 3000;

    /// A popup over `parent` that closes itself `duration` milliseconds from now.
    TimedPopup(int duration, const QString& message, QWidget* parent);

    /// The same with the default duration.
    TimedPopup(const QString& message, QWidget* parent);

    ~TimedPopup() override;

    /// Shows `message` over `parent` for the default duration and returns when it has closed itself. Events
    /// are processed meanwhile; the end of the application's event loop ends the wait at once.
    static void run(const QString& message, QWidget* parent);

private slots:
    void timerElapsed();

private:
    void initialize(int duration, const QString& message);

    std::unique_ptr<Ui_TimedPopup> ui;
};

} // namespace Varnel
