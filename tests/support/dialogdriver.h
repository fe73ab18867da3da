// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

#include <QApplication>
#include <QDialog>
#include <QEvent>
#include <QMap>
#include <QStringList>
#include <QThread>
#include <QTimer>

/// Plays the user of dialogs: sees every dialog that appears, in order, and does with it what the test has
/// said for its form. A dialog that the test has said nothing about is left alone.
class DialogDriver : public QObject
{
public:
    using Action = std::function<void(QDialog*)>;

    DialogDriver() { qApp->installEventFilter(this); }

    Q_DISABLE_COPY_MOVE(DialogDriver)

    /// The action from now on for every dialog of the form `name` ("FileDialog", "TimedPopup", ...) that
    /// somebody waits for in an event loop: once that loop runs. A user cannot be quicker either.
    void onWaiting(const QString& name, Action action) { waiting.insert(name, std::move(action)); }

    /// The action for every dialog of the form `name` as soon as it is on the screen.
    void onShown(const QString& name, Action action) { shown.insert(name, std::move(action)); }

    /// The forms of the dialogs seen so far.
    const QStringList& seen() const { return forms; }

    bool eventFilter(QObject* object, QEvent* event) override
    {
        auto* const dialog = qobject_cast<QDialog*>(object);
        if (dialog && event->type() == QEvent::Show) {
            const QString form = dialog->objectName();
            forms << form;
            if (const Action action = waiting.value(form)) {
                awaitLoop(dialog, action, QThread::currentThread()->loopLevel());
            } else if (const Action now = shown.value(form)) {
                QTimer::singleShot(0, dialog, [now, dialog] { now(dialog); });
            }
        }
        return QObject::eventFilter(object, event);
    }

private:
    /// Showing a modal dialog serves events too, before its loop runs.
    static void awaitLoop(QDialog* dialog, const Action& action, int levelBefore)
    {
        QTimer::singleShot(1, dialog, [=] {
            if (QThread::currentThread()->loopLevel() > levelBefore) {
                action(dialog);
            } else {
                awaitLoop(dialog, action, levelBefore);
            }
        });
    }

    QMap<QString, Action> waiting;
    QMap<QString, Action> shown;
    QStringList forms;
};
