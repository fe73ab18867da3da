// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

class QWidget;

namespace Varnel {

class NetworkAccessManager;

/// The window, for a caller that only asks for a page or a reload.
class WebBrowser
{
public:
    WebBrowser() = default;
    virtual ~WebBrowser();
    Q_DISABLE_COPY_MOVE(WebBrowser)

    /// Loads `url` unless it is the current page.
    virtual void openUrl(const QString& url) = 0;
    /// Loads the current page again, if there is one.
    virtual void reloadUrl() = 0;
};

/// The window, for the page and its view.
class PageWindow
{
public:
    PageWindow() = default;
    virtual ~PageWindow();
    Q_DISABLE_COPY_MOVE(PageWindow)

    /// The access manager for all requests of the page.
    virtual NetworkAccessManager* getNetworkAccessManager() const = 0;
    /// The widget over which dialogs and popups open.
    virtual QWidget* dialogParent() = 0;
};

} // namespace Varnel
