// SPDX-License-Identifier: MIT
// WebPage's dialogs: what a page's scripts ask the user (alert, confirm, prompt), and how the panel changes
// the page meanwhile.
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
    bool answer = changesPage; // a page that is being left may not hold the panel up ("onbeforeunload")
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

/// Runs `show`, which blocks in an event loop until the user has answered, unless the page is to go.
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

/// Does what had to wait for the script.
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

/// Schedules `reply` for deletion. A dialog's event loop would carry that out below the engine, which may be
/// in the middle of taking the page from this reply.
void WebPage::releaseReply(QNetworkReply* reply)
{
    if (openDialogs > 0) {
        finishedReplies.append(reply);
    } else {
        reply->deleteLater();
    }
}

} // namespace Varnel
