// SPDX-License-Identifier: MIT
// WebPage's dialogs: alert, confirm and prompt of a page's scripts, and changes of the page while one is
// open.
#include "webview.h"

#include <utility>

#include <QDialog>
#include <QNetworkReply>
#include <QScopedValueRollback>

namespace Varnel {

void WebPage::javaScriptAlert(QWebFrame* frame, const QString& message)
{
    ask([&] { QWebPage::javaScriptAlert(frame, message); });
}

bool WebPage::javaScriptConfirm(QWebFrame* frame, const QString& message)
{
    bool answer = changesPage; // "onbeforeunload" may not keep the panel on the page
    ask([&] { answer = QWebPage::javaScriptConfirm(frame, message); });
    return answer;
}

bool WebPage::javaScriptPrompt(QWebFrame* frame, const QString& message, const QString& defaultValue,
                               QString* result)
{
    bool answer = false;
    ask([&] { answer = QWebPage::javaScriptPrompt(frame, message, defaultValue, result); });
    return answer;
}

/// Runs `show`, which blocks in an event loop until the user has answered, unless the page is about to
/// change.
void WebPage::ask(const std::function<void()>& show)
{
    if (changesPage || waitingChange) {
        return;
    }
    ++openDialogs;
    show();
    --openDialogs;
    QMetaObject::invokeMethod(this, &WebPage::afterDialog, Qt::QueuedConnection);
}

void WebPage::changePage(std::function<void()> change)
{
    if (openDialogs == 0 && !waitingChange) {
        const QScopedValueRollback<bool> guard(changesPage, true);
        change();
        return;
    }
    waitingChange = std::move(change);
    const auto dialogs = view()->findChildren<QDialog*>();
    for (QDialog* dialog : dialogs) {
        dialog->reject();
    }
}

/// Deletes the replies and makes the change that had to wait for the script.
void WebPage::afterDialog()
{
    if (openDialogs > 0) {
        return;
    }
    for (const QPointer<QNetworkReply>& reply : std::exchange(finishedReplies, {})) {
        if (reply) {
            reply->deleteLater();
        }
    }
    if (waitingChange) {
        changePage(std::exchange(waitingChange, nullptr));
    }
}

/// Schedules `reply` for deletion, after the last dialog: a dialog's event loop would delete it while the
/// engine may still read the page from it.
void WebPage::releaseReply(QNetworkReply* reply)
{
    if (openDialogs > 0) {
        finishedReplies.append(reply);
    } else {
        reply->deleteLater();
    }
}

} // namespace Varnel
