// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

namespace Varnel {

/// What a caller needs of the window that only asks for a page or a reload.
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

} // namespace Varnel
