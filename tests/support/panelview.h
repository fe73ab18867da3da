// SPDX-License-Identifier: MIT
#pragma once

#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QWebElement>
#include <QWebFrame>

#include "logrecorder.h"
#include "mainwindow.h"
#include "scopedsetting.h"
#include "webview.h"

/// The panel's window with its view, on no screen, and what they log.
class PanelView
{
public:
    /// `retryTimeout` is the view's retry delay in seconds; the default is longer than any test.
    explicit PanelView(quint16 retryTimeout = 3600)
        : retry("Network", "RetryTimeout", retryTimeout)
    {
        window.show();
        view = window.findChild<Varnel::WebView*>();
        recorder.clear();
    }

    Q_DISABLE_COPY_MOVE(PanelView)

    Varnel::WebPage* page() const { return view->webPage(); }
    QWebFrame* frame() const { return view->page()->mainFrame(); }

    /// The view's retry timer.
    QTimer* timer() const { return view->findChild<QTimer*>(QString(), Qt::FindDirectChildrenOnly); }

    /// Runs a script in the page.
    QVariant evaluate(const char* script) const
    {
        return frame()->evaluateJavaScript(QString::fromLatin1(script));
    }

    /// The text on the page as the user sees it.
    QString text() const { return frame()->toPlainText().trimmed(); }

    /// True when the panel's own error page is shown; it has no picture in these tests.
    bool showsErrorPage() const { return text().startsWith(QLatin1String("Can't find the error page")); }

    /// Loads `url` and waits for its end, good or bad.
    void load(const QUrl& url) const
    {
        QSignalSpy finished(view, &QWebView::loadFinished);
        view->loadUrl(url);
        if (!finished.wait(30000)) {
            qFatal("the load does not end");
        }
        waitForQuiet();
    }

    /// Waits until the page on the screen is complete.
    void waitForQuiet() const
    {
        const auto isComplete = [this] {
            return evaluate("document.readyState").toString() == QLatin1String("complete");
        };
        if (!QTest::qWaitFor(isComplete)) {
            qFatal("the page does not come to rest");
        }
        QCoreApplication::processEvents();
    }

    /// The log since the last clear(), without times and without Qt's messages about a missing screen.
    QStringList log() const
    {
        QStringList lines = withoutStamps(recorder.texts());
        lines.removeAll(QStringLiteral("This plugin does not support propagateSizeHints()"));
        return lines;
    }
    int count(const QString& line) const { return log().count(line); }
    void clear() { recorder.clear(); }

private:
    LogRecorder recorder;
    ScopedSetting<quint16> retry;

public:
    Varnel::MainWindow window;
    Varnel::WebView* view = nullptr;
};

/// A way from the page on the screen to another one, to `next` where it takes an address.
using PageChange = void (*)(PanelView& panel, const QUrl& next);
Q_DECLARE_METATYPE(PageChange)

struct PageChanges
{
    static void load(PanelView& panel, const QUrl& next) { panel.view->loadUrl(next); }
    static void request(PanelView& panel, const QUrl& next)
    {
        panel.view->loadRequest(QNetworkRequest(next));
    }
    static void setUrl(PanelView& panel, const QUrl& next) { panel.view->setUrl(next); }
    static void reload(PanelView& panel, const QUrl& /*next*/) { panel.view->reloadUrl(); }
    static void force(PanelView& panel, const QUrl& next)
    {
        panel.window.openUrlForce(next.toString(), true);
    }
    static void fail(PanelView& panel, const QUrl& /*next*/) { panel.view->handleLoadFinished(false); }
    static void showInfo(PanelView& panel, const QUrl& /*next*/) { panel.view->displayInfoFront({}); }
    static void showError(PanelView& panel, const QUrl& /*next*/) { panel.window.displayError({}); }
};
